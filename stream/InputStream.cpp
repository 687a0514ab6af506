#include "stream/InputStream.h"

#include <algorithm>

namespace
{
// Strings are read piecewise so that storage grows with the bytes that really arrive,
// not with the length the sender announced.
constexpr std::uint32_t g_stringChunk = 4096;
}

bool InputStream::Read(std::string& o_text)
{
    std::uint32_t l_length = 0;
    if (!Read(l_length) || l_length > g_maxReadLength)
        return false;
    std::string l_text;
    for (std::uint32_t l_done = 0; l_done < l_length;)
    {
        std::uint32_t const l_piece = std::min(g_stringChunk, l_length - l_done);
        l_text.resize(l_done + l_piece);
        if (!ReadBuffer(l_text.data() + l_done, l_piece))
            return false;
        l_done += l_piece;
    }
    if (auto const l_end = l_text.find('\0'); l_end != std::string::npos)
        l_text.resize(l_end);
    o_text = std::move(l_text);
    return true;
}

bool InputStream::ReadCount(std::uint32_t& o_count)
{
    return Read(o_count) && o_count <= g_maxReadLength;
}
