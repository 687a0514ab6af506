#include "WireBytes.h"
#include "peer/Compression.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

// Tracks the bytes the program holds through new, so that a test can see the peak an inflate
// reached. Each block carries its size in a header of the strictest fundamental alignment.
namespace
{
constexpr std::size_t g_header = alignof(std::max_align_t);
std::atomic<std::int64_t> g_live{0};
std::atomic<std::int64_t> g_peak{0};
std::atomic<std::size_t> g_largest{0};

void* Allocate(std::size_t i_size)
{
    auto* lp_block = static_cast<unsigned char*>(std::malloc(i_size + g_header));
    if (!lp_block)
        throw std::bad_alloc();
    *reinterpret_cast<std::size_t*>(lp_block) = i_size;
    std::size_t l_largest = g_largest;
    while (i_size > l_largest && !g_largest.compare_exchange_weak(l_largest, i_size))
    {
    }
    std::int64_t const l_live = g_live += static_cast<std::int64_t>(i_size);
    std::int64_t l_peak = g_peak;
    while (l_live > l_peak && !g_peak.compare_exchange_weak(l_peak, l_live))
    {
    }
    return lp_block + g_header;
}

void Free(void* ip_memory)
{
    if (!ip_memory)
        return;
    auto* lp_block = static_cast<unsigned char*>(ip_memory) - g_header;
    g_live -= static_cast<std::int64_t>(*reinterpret_cast<std::size_t*>(lp_block));
    std::free(lp_block);
}
} // namespace

void* operator new(std::size_t i_size) { return Allocate(i_size); }
void* operator new[](std::size_t i_size) { return Allocate(i_size); }
void operator delete(void* ip_memory) noexcept { Free(ip_memory); }
void operator delete[](void* ip_memory) noexcept { Free(ip_memory); }
void operator delete(void* ip_memory, std::size_t) noexcept { Free(ip_memory); }
void operator delete[](void* ip_memory, std::size_t) noexcept { Free(ip_memory); }

namespace
{
std::string Compressed(std::string const& i_body)
{
    uLongf l_length = compressBound(i_body.size());
    std::string l_out(l_length, '\0');
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(l_out.data()), &l_length,
                        reinterpret_cast<Bytef const*>(i_body.data()), i_body.size(), 6),
              Z_OK);
    l_out.resize(l_length);
    return l_out;
}

InflateResult InflateText(std::string const& i_data, MemStream& o_body, std::uint64_t i_max = PeerLimits::s_maxInflatedBytes)
{
    return Inflate(i_data.data(), i_data.size(), o_body, i_max);
}

// Some kilobytes that do not compress to nothing.
std::string Body()
{
    std::string l_body;
    for (int l_index = 0; l_index < 5000; ++l_index)
        l_body += std::to_string(l_index * 7919 % 10007) + ',';
    return l_body;
}
} // namespace

TEST(PeerWireCompression, AppendedStreamsInflateWithPlainZlib)
{
    for (std::string const& l_body : {std::string(), Body()})
    {
        MemStream l_message = WireBytes().U32(9).Stream();
        AppendCompressed(l_message, l_body.data(), l_body.size());
        std::string const l_bytes = Contents(l_message);
        ASSERT_EQ(l_bytes.substr(0, 4), WireBytes().U32(9).Get());
        std::string l_out(l_body.size() + 1, '\0');
        uLongf l_length = l_out.size();
        ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(l_out.data()), &l_length,
                             reinterpret_cast<Bytef const*>(l_bytes.data() + 4), l_bytes.size() - 4),
                  Z_OK);
        EXPECT_EQ(l_out.substr(0, l_length), l_body);
    }
}

TEST(PeerWireCompression, InflateGoodCutAndFollowedStreams)
{
    std::string const l_body = Body();
    std::string const l_stream = Compressed(l_body);
    MemStream l_out;
    ASSERT_EQ(InflateText(l_stream, l_out), InflateResult::Ok);
    EXPECT_EQ(l_out.GetReadIndex(), 0);
    EXPECT_EQ(Contents(l_out), l_body);
    ASSERT_EQ(InflateText(l_stream + "trailing bytes", l_out), InflateResult::Ok);
    EXPECT_EQ(Contents(l_out), l_body);
    MemStream l_empty;
    ASSERT_EQ(InflateText(Compressed(""), l_empty), InflateResult::Ok);
    EXPECT_EQ(l_empty.GetPendingReadLength(), 0);

    // Whatever is wrong leaves an empty stream, and a copy of the caller's old stream intact.
    MemStream const l_earlier = l_out;
    for (std::string const& l_bad : {l_stream.substr(0, l_stream.size() - 1), l_stream.substr(0, l_stream.size() / 2),
                                     l_stream.substr(0, 2), std::string(), std::string("not a zlib stream")})
    {
        EXPECT_EQ(InflateText(l_bad, l_out), InflateResult::BadData) << l_bad.size();
        EXPECT_EQ(l_out.GetPendingReadLength(), 0);
    }
    EXPECT_EQ(Contents(l_earlier), l_body);
}

TEST(PeerWireCompression, OutputBoundAtAndPastTheLimit)
{
    std::string const l_body = Body();
    std::string const l_stream = Compressed(l_body);
    MemStream l_out;
    EXPECT_EQ(InflateText(l_stream, l_out, l_body.size()), InflateResult::Ok);
    EXPECT_EQ(Contents(l_out), l_body);
    EXPECT_EQ(InflateText(l_stream, l_out, l_body.size() - 1), InflateResult::TooLarge);
    EXPECT_EQ(l_out.GetPendingReadLength(), 0);
    EXPECT_EQ(InflateText(Compressed(""), l_out, 0), InflateResult::Ok);
    EXPECT_EQ(InflateText(Compressed("x"), l_out, 0), InflateResult::TooLarge);
}

TEST(PeerWireCompression, ABombStopsAtTheBoundWithoutHoldingItsSize)
{
    // 300 MiB of zeros, deflated a chunk at a time: the test never holds the whole.
    constexpr std::size_t l_chunk = 1 << 20;
    std::vector<unsigned char> const l_zeros(l_chunk, 0);
    std::string l_bomb;
    z_stream l_deflater{};
    ASSERT_EQ(deflateInit(&l_deflater, 9), Z_OK);
    std::vector<unsigned char> l_out(l_chunk);
    for (int l_index = 0; l_index < 300; ++l_index)
    {
        l_deflater.next_in = const_cast<unsigned char*>(l_zeros.data());
        l_deflater.avail_in = l_chunk;
        int const l_flush = l_index == 299 ? Z_FINISH : Z_NO_FLUSH;
        do
        {
            l_deflater.next_out = l_out.data();
            l_deflater.avail_out = l_chunk;
            deflate(&l_deflater, l_flush);
            l_bomb.append(reinterpret_cast<char*>(l_out.data()), l_chunk - l_deflater.avail_out);
        } while (l_deflater.avail_out == 0);
    }
    deflateEnd(&l_deflater);
    ASSERT_LT(l_bomb.size(), 1u << 20);

    constexpr std::uint64_t l_max = 16 << 20;
    MemStream l_body;
    std::int64_t const l_before = g_live;
    g_peak = l_before;
    g_largest = 0;
    EXPECT_EQ(InflateText(l_bomb, l_body, l_max), InflateResult::TooLarge);
    EXPECT_EQ(l_body.GetPendingReadLength(), 0);
    // The buffer grows with the output and no buffer passes the bound; at worst the last one
    // and the one it replaces are held at once.
    EXPECT_LE(g_largest, l_max + 4096);
    EXPECT_LE(g_peak - l_before, static_cast<std::int64_t>(2 * l_max + 4096));
    EXPECT_LE(g_live - l_before, 4096);
}
