#pragma once

#include "stream/StreamWritable.h"

#include <QtEndian>

#include <string>
#include <type_traits>

// The abstract byte writer. Containers are written by the code that owns them, element by
// element, with a uint32 count in front.
class OutputStream
{
public:
    virtual ~OutputStream() = default;

    virtual bool WriteBuffer(void const* ip_source, unsigned long i_length) = 0;

    // A uint32 byte count, then the bytes, without a terminator.
    bool Write(std::string const& i_text);

    bool Write(StreamWritable const& i_record) { return i_record.Write(*this); }

    // A little-endian integer of the argument's own size; a bool is one byte, 0 or 1.
    template <class T>
        requires std::is_integral_v<T>
    bool Write(T i_value)
    {
        if constexpr (std::is_same_v<T, bool>)
        {
            unsigned char const l_byte = i_value ? 1 : 0;
            return WriteBuffer(&l_byte, 1);
        }
        else
        {
            T const l_value = qToLittleEndian(i_value);
            return WriteBuffer(&l_value, sizeof l_value);
        }
    }
};
