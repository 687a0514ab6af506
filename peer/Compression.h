#pragma once

#include "peer/PeerLimits.h"
#include "stream/MemStream.h"

#include <cstddef>
#include <cstdint>

// The bulk peer messages (share list, search results, folder contents) carry their body after
// the code as one zlib stream, with no length of its own.

// Compresses the body at the highest level and appends the stream to what the message already
// holds, normally its code.
void AppendCompressed(MemStream& io_message, char const* ip_body, std::size_t i_length);

enum class InflateResult
{
    Ok,
    BadData,    // not a zlib stream, or one that stops before its end
    TooLarge,   // the output would pass the bound
    OutOfMemory
};

// Inflates one zlib stream; bytes after its end are ignored. The output buffer is taken only
// once the inflated size is known, and only when that is within i_maxOutput, so a small message
// cannot make us allocate on the word of its compression ratio. o_body is a new stream, read
// from the start, and empty unless the result is Ok.
InflateResult Inflate(char const* ip_data, std::size_t i_length, MemStream& o_body,
                      std::uint64_t i_maxOutput = PeerLimits::s_maxInflatedBytes);
