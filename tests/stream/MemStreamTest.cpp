#include "StreamBytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

TEST(MemStream, WritingExactlyTheFreeSpaceStillGrows)
{
    MemStream l_stream;
    std::string const l_bytes(255, 'x');
    l_stream.WriteBuffer(l_bytes.data(), 255);
    EXPECT_EQ(l_stream.GetBufferSize(), 256);
    l_stream.WriteBuffer("y", 1);
    EXPECT_EQ(l_stream.GetBufferSize(), 512);
    std::string const l_large(2000, 'z');
    l_stream.WriteBuffer(l_large.data(), l_large.size());
    EXPECT_EQ(l_stream.GetBufferSize(), 4096);
    EXPECT_EQ(std::string(l_stream.GetReadBuffer(), 2256), l_bytes + "y" + l_large);
}

TEST(MemStream, ReadBufferResetAndSharing)
{
    MemStream l_stream = StreamOf(0x04030201u);
    MemStream l_copy = l_stream;
    char l_bytes[4] = {9, 9, 9, 9};
    ASSERT_TRUE(l_copy.ReadBuffer(l_bytes, 1));
    EXPECT_FALSE(l_stream.ReadBuffer(l_bytes + 1, 4));
    EXPECT_EQ(l_bytes[1], 9);
    EXPECT_EQ(l_stream.GetReadIndex(), 1);
    ASSERT_TRUE(l_stream.ReadBuffer(l_bytes + 1, 3));
    EXPECT_EQ(std::memcmp(l_bytes, "\x01\x02\x03\x04", 4), 0);

    std::string const l_large(1000, 'x');
    l_stream.WriteBuffer(l_large.data(), l_large.size());
    char const* lp_storage = l_stream.GetReadBuffer() - 4;
    l_copy.Reset();
    EXPECT_EQ(l_stream.GetPendingReadLength(), 0);
    EXPECT_FALSE(l_stream.ReadBuffer(l_bytes, 1));
    EXPECT_EQ(l_stream.GetBufferSize(), 1024);
    EXPECT_EQ(l_stream.GetReadBuffer(), lp_storage);
}

// A frame arrives in pieces straight into storage, as a socket reader receives it.
TEST(MemStream, ReceivesFrameIntoStorage)
{
    MemStream l_stream;
    l_stream.EnsureBufferCapacity(100);
    EXPECT_EQ(l_stream.GetBufferSize(), 256);
    l_stream.EnsureBufferCapacity(1000);
    EXPECT_EQ(l_stream.GetBufferSize(), 1000);
    std::string const l_frame = std::string(600, 'a') + std::string(400, 'b');
    std::memcpy(l_stream.GetWriteBuffer(), l_frame.data(), 600);
    l_stream.AdvanceWriteIndex(600);
    std::memcpy(l_stream.GetWriteBuffer(), l_frame.data() + 600, 400);
    l_stream.AdvanceWriteIndex(400);
    EXPECT_EQ(std::string(l_stream.GetReadBuffer(), l_stream.GetPendingReadLength()), l_frame);
    l_stream.Reset();
    l_stream.EnsureBufferCapacity(300);
    EXPECT_EQ(l_stream.GetBufferSize(), 1000);
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
    rcptr<MemStream> l_first(new MemStream);
    {
        rcptr<MemStream> l_second = l_first, l_third;
        l_third = l_second;
        EXPECT_EQ(l_first.UseCount(), 3);
    }
    EXPECT_EQ(l_first.UseCount(), 1);
    l_first = rcptr<MemStream>();
    EXPECT_TRUE(l_first.IsNull());
}
