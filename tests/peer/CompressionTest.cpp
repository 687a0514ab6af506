#include "WireBytes.h"
#include "peer/Compression.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

// The largest single block the program asks for while a test watches.
namespace
{
std::atomic<std::size_t> g_largest{0};

void* Allocate(std::size_t i_size)
{
    for (std::size_t l_seen = g_largest; i_size > l_seen && !g_largest.compare_exchange_weak(l_seen, i_size);)
    {
    }
    if (void* lp_memory = std::malloc(i_size ? i_size : 1))
        return lp_memory;
    throw std::bad_alloc();
}
} // namespace

void* operator new(std::size_t i_size) { return Allocate(i_size); }
void* operator new[](std::size_t i_size) { return Allocate(i_size); }
void operator delete(void* ip_memory) noexcept { std::free(ip_memory); }
void operator delete[](void* ip_memory) noexcept { std::free(ip_memory); }
void operator delete(void* ip_memory, std::size_t) noexcept { std::free(ip_memory); }
void operator delete[](void* ip_memory, std::size_t) noexcept { std::free(ip_memory); }

namespace
{
// The stream alone, without a code in front.
std::string Compressed(std::string const& i_body)
{
    MemStream l_stream;
    AppendCompressed(l_stream, i_body.data(), i_body.size());
    return Contents(l_stream);
}

InflateResult InflateText(std::string const& i_data, MemStream& o_body, std::uint64_t i_max = PeerLimits::s_maxInflatedBytes)
{
    return Inflate(i_data.data(), i_data.size(), o_body, i_max);
}

// Some kilobytes that do not compress to nothing.
std::string const g_body = []
{
    std::string l_body;
    for (int l_index = 0; l_index < 5000; ++l_index)
        l_body += std::to_string(l_index * 7919 % 10007) + ',';
    return l_body;
}();
} // namespace

TEST(PeerWireCompression, StreamsMadeHereInflateAnywhereAndDamageOrExcessFails)
{
    MemStream l_message = WireBytes().U32(9).Stream();
    AppendCompressed(l_message, g_body.data(), 0);
    std::string const l_bytes = Contents(l_message);
    EXPECT_EQ(l_bytes.substr(0, 4), WireBytes().U32(9).m_bytes);
    Bytef l_byte = 0;
    uLongf l_length = 1;
    EXPECT_EQ(uncompress(&l_byte, &l_length, reinterpret_cast<Bytef const*>(l_bytes.data() + 4), l_bytes.size() - 4), Z_OK);
    EXPECT_EQ(l_length, 0u);

    std::string const l_stream = Compressed(g_body);
    std::string l_plain(g_body.size(), '\0');
    l_length = l_plain.size();
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(l_plain.data()), &l_length, reinterpret_cast<Bytef const*>(l_stream.data()),
                         l_stream.size()),
              Z_OK);
    EXPECT_EQ(l_plain, g_body);
    MemStream l_out;
    ASSERT_EQ(InflateText(l_stream + "trailing bytes", l_out), InflateResult::Ok);
    EXPECT_EQ(l_out.GetReadIndex(), 0);
    EXPECT_EQ(Contents(l_out), g_body);

    // Whatever fails leaves an empty stream, and a copy of the caller's old stream intact.
    MemStream const l_earlier = l_out;
    for (std::string const& l_bad : {l_stream.substr(0, l_stream.size() - 1), l_stream.substr(0, 2), std::string(),
                                     std::string("not a zlib stream")})
    {
        EXPECT_EQ(InflateText(l_bad, l_out), InflateResult::BadData) << l_bad.size();
        EXPECT_EQ(l_out.GetPendingReadLength(), 0);
    }
    EXPECT_EQ(Contents(l_earlier), g_body);

    EXPECT_EQ(InflateText(l_stream, l_out, g_body.size()), InflateResult::Ok);
    EXPECT_EQ(Contents(l_out), g_body);
    EXPECT_EQ(InflateText(l_stream, l_out, g_body.size() - 1), InflateResult::TooLarge);
    EXPECT_EQ(l_out.GetPendingReadLength(), 0);
    EXPECT_EQ(InflateText(Compressed(""), l_out, 0), InflateResult::Ok);
}

TEST(PeerWireCompression, ABombStopsAtTheBoundWithoutABufferPastIt)
{
    // 300 MiB of zeros, deflated a chunk at a time: the test never holds the whole.
    constexpr std::size_t l_chunk = 1 << 20;
    std::vector<unsigned char> l_zeros(l_chunk, 0), l_out(l_chunk);
    std::string l_bomb;
    z_stream l_deflater{};
    ASSERT_EQ(deflateInit(&l_deflater, 9), Z_OK);
    for (int l_index = 0; l_index < 300; ++l_index)
    {
        l_deflater.next_in = l_zeros.data();
        l_deflater.avail_in = l_chunk;
        do
        {
            l_deflater.next_out = l_out.data();
            l_deflater.avail_out = l_chunk;
            deflate(&l_deflater, l_index == 299 ? Z_FINISH : Z_NO_FLUSH);
            l_bomb.append(reinterpret_cast<char*>(l_out.data()), l_chunk - l_deflater.avail_out);
        } while (l_deflater.avail_out == 0);
    }
    deflateEnd(&l_deflater);
    ASSERT_LT(l_bomb.size(), l_chunk);

    constexpr std::uint64_t l_max = 16 << 20;
    MemStream l_body;
    g_largest = 0;
    EXPECT_EQ(InflateText(l_bomb, l_body, l_max), InflateResult::TooLarge);
    EXPECT_LE(g_largest, l_max + 4096);
    EXPECT_EQ(l_body.GetPendingReadLength(), 0);
}
