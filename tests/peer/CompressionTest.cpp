#include "WireBytes.h"
#include "peer/Compression.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <tuple>

// The largest single block the program asks for while a test watches.
static std::atomic<std::size_t> g_largest{0};

void* operator new(std::size_t i_size)
{
    for (std::size_t l_seen = g_largest; i_size > l_seen && !g_largest.compare_exchange_weak(l_seen, i_size);)
    {
    }
    if (void* lp_memory = std::malloc(i_size ? i_size : 1))
        return lp_memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t i_size) { return operator new(i_size); }
void operator delete(void* ip_memory) noexcept { std::free(ip_memory); }
void operator delete[](void* ip_memory) noexcept { std::free(ip_memory); }
void operator delete(void* ip_memory, std::size_t) noexcept { std::free(ip_memory); }
void operator delete[](void* ip_memory, std::size_t) noexcept { std::free(ip_memory); }

TEST(PeerWireCompression, InflateIgnoresTrailingBytesAndFailsOnDamageOrPastTheBound)
{
    // Some hundred kilobytes that inflate past the first output buffer.
    std::string l_body;
    for (int l_index = 0; l_index < 50000; ++l_index)
        l_body += std::to_string(l_index * 7919 % 1009) + ',';
    MemStream l_compressed;
    AppendCompressed(l_compressed, l_body.data(), l_body.size());
    std::string const l_stream = Contents(l_compressed);

    // A stream that ends right at the bound is whole, whatever follows it.
    std::uint64_t const l_size = l_body.size();
    using Case = std::tuple<std::string, std::uint64_t, InflateResult>;
    for (auto const& [l_data, l_max, l_result] :
         {Case{l_stream + "trailing bytes", l_size, InflateResult::Ok}, Case{l_stream, l_size - 1, InflateResult::TooLarge},
          Case{l_stream.substr(0, l_stream.size() - 1), l_size, InflateResult::BadData},
          Case{l_stream.substr(0, 2), l_size, InflateResult::BadData}, Case{"", l_size, InflateResult::BadData},
          Case{"not a zlib stream", l_size, InflateResult::BadData}})
    {
        // The output is a new stream: a copy of the caller's old one keeps its bytes.
        MemStream const l_earlier = WireBytes().U32(7).Stream();
        MemStream l_out = l_earlier;
        EXPECT_EQ(Inflate(l_data.data(), l_data.size(), l_out, l_max), l_result) << l_data.size() << " bytes, at most " << l_max;
        EXPECT_EQ(Contents(l_out), l_result == InflateResult::Ok ? l_body : "");
        EXPECT_EQ(Contents(l_earlier), WireBytes().U32(7).m_bytes);
    }
}

TEST(PeerWireCompression, ABombStopsAtTheBoundWithoutABufferPastIt)
{
    std::string const l_zeros(64 << 20, '\0');
    MemStream l_bomb;
    AppendCompressed(l_bomb, l_zeros.data(), l_zeros.size());
    ASSERT_LT(l_bomb.GetPendingReadLength(), 1 << 20);
    constexpr std::uint64_t l_max = 4 << 20;
    MemStream l_body;
    g_largest = 0;
    EXPECT_EQ(Inflate(l_bomb.GetReadBuffer(), l_bomb.GetPendingReadLength(), l_body, l_max), InflateResult::TooLarge);
    EXPECT_LE(g_largest, l_max + 4096);
    EXPECT_EQ(l_body.GetPendingReadLength(), 0);
}
