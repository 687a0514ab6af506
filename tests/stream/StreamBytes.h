#pragma once

#include "stream/MemStream.h"

// A stream holding the given values in wire form, one after the other.
inline MemStream StreamOf(auto const&... i_values)
{
    MemStream l_stream;
    (l_stream.Write(i_values), ...);
    return l_stream;
}
