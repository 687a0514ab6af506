#pragma once

#include "stream/MemStream.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

// Wire bytes laid out by hand, little-endian, so that readers are tested against the layout and
// not against the writers of the same code.
struct WireBytes
{
    std::string m_bytes;

    WireBytes& Raw(std::string_view i_bytes) { return m_bytes += i_bytes, *this; }
    WireBytes& U8(std::uint8_t i_value) { return m_bytes += static_cast<char>(i_value), *this; }
    WireBytes& U32(std::uint32_t i_value) { return Little(i_value, 4); }
    WireBytes& U64(std::uint64_t i_value) { return Little(i_value, 8); }
    WireBytes& Str(std::string_view i_text) { return U32(static_cast<std::uint32_t>(i_text.size())).Raw(i_text); }
    // Marker 1, name, size, format and attribute pairs.
    WireBytes& File(std::string_view i_name, std::uint64_t i_size, std::string_view i_format = "",
                    std::initializer_list<std::pair<std::uint32_t, std::uint32_t>> i_attributes = {})
    {
        U8(1).Str(i_name).U64(i_size).Str(i_format).U32(static_cast<std::uint32_t>(i_attributes.size()));
        for (auto const& [l_code, l_value] : i_attributes)
            U32(l_code).U32(l_value);
        return *this;
    }
    WireBytes& Little(std::uint64_t i_value, int i_width)
    {
        for (int l_byte = 0; l_byte < i_width; ++l_byte)
            m_bytes += static_cast<char>(i_value >> (8 * l_byte));
        return *this;
    }
    MemStream Stream() const
    {
        MemStream l_stream;
        l_stream.WriteBuffer(m_bytes.data(), m_bytes.size());
        return l_stream;
    }
};

inline std::string Contents(MemStream const& i_stream)
{
    return std::string(i_stream.GetReadBuffer(), static_cast<std::size_t>(i_stream.GetPendingReadLength()));
}
