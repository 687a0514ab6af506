#include "StreamBytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

TEST(MemStream, StorageGrowsBeforeItIsFullAndOutlivesReset)
{
    MemStream l_stream;
    l_stream.EnsureBufferCapacity(100);
    EXPECT_EQ(l_stream.GetBufferSize(), 256);
    std::string const l_bytes = std::string(255, 'x') + "y" + std::string(2000, 'z');
    for (auto [l_from, l_length, l_size] : {std::tuple{0, 255, 256}, {255, 1, 512}, {256, 2000, 4096}})
    {
        l_stream.WriteBuffer(l_bytes.data() + l_from, l_length); // exactly filling it grows it too
        EXPECT_EQ(l_stream.GetBufferSize(), l_size) << l_from;
    }
    EXPECT_EQ(std::string(l_stream.GetReadBuffer(), l_stream.GetPendingReadLength()), l_bytes);
    char const* lp_storage = l_stream.GetReadBuffer();
    MemStream(l_stream).Reset(); // a copy shares the indices
    EXPECT_EQ(l_stream.GetPendingReadLength(), 0);
    l_stream.EnsureBufferCapacity(3000);
    EXPECT_EQ(l_stream.GetReadBuffer(), lp_storage);
    l_stream.EnsureBufferCapacity(5000);
    EXPECT_EQ(l_stream.GetBufferSize(), 5000);

    // A frame arrives in pieces straight into storage, as a socket reader receives it.
    for (auto [l_from, l_length] : {std::pair{0, 2000}, {2000, 256}})
        std::memcpy(l_stream.GetWriteBuffer(), l_bytes.data() + l_from, l_length), l_stream.AdvanceWriteIndex(l_length);
    EXPECT_EQ(std::string(l_stream.GetReadBuffer(), l_stream.GetPendingReadLength()), l_bytes);
}

TEST(MemStream, ReadsAllOrNothingThroughAnyCopy)
{
    MemStream l_stream = StreamOf(0x04030201u);
    char l_bytes[4] = {9, 9, 9, 9};
    ASSERT_TRUE(MemStream(l_stream).ReadBuffer(l_bytes, 1));
    EXPECT_FALSE(l_stream.ReadBuffer(l_bytes + 1, 4));
    EXPECT_EQ(l_bytes[1], 9);
    ASSERT_TRUE(l_stream.ReadBuffer(l_bytes + 1, 3));
    EXPECT_EQ(std::memcmp(l_bytes, "\x01\x02\x03\x04", 4), 0);
    EXPECT_FALSE(l_stream.ReadBuffer(l_bytes, 1));
}

TEST(MemStreamDeathTest, ProgrammingErrorsStopTheProgram)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(MemStream().AdvanceWriteIndex(257), "AdvanceWriteIndex");
    EXPECT_DEATH(StreamOf(1).EnsureBufferCapacity(1000), "EnsureBufferCapacity");
    EXPECT_DEATH(*rcptr<int>() = 1, "empty rcptr");
}

TEST(Rcptr, LastReferenceDestroysTheObject)
{
    struct Watched { bool* mp_gone; ~Watched() { *mp_gone = true; } };
    bool l_gone = false;
    rcptr<Watched> l_first(new Watched{&l_gone}), l_second = l_first, l_third;
    l_third = l_second;
    EXPECT_EQ(l_first.UseCount(), 3);
    l_first = l_second = rcptr<Watched>();
    EXPECT_FALSE(l_gone);
    l_third = rcptr<Watched>();
    EXPECT_TRUE(l_gone && l_third.IsNull());
}
