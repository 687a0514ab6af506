#include <gtest/gtest.h>

#include <QBuffer>

#include "server/ServerFrameReader.h"
#include "support/RawClient.h"

namespace
{
// Reads the bytes as they are, also after they grew.
struct Device : QBuffer { explicit Device(QByteArray* ip_bytes) : QBuffer(ip_bytes) { open(QIODevice::ReadOnly); } };
} // namespace

TEST(ServerFrameReaderTest, MemoryFollowsTheBytesThatArriveNotTheAnnouncedLength)
{
    QByteArray l_bytes = Body(ServerFrameReader::s_maxFrameLength).Bytes() + QByteArray(1000, 'x');
    Device l_device(&l_bytes);
    ServerFrameReader l_reader;
    EXPECT_EQ(l_reader.ReadFrom(l_device), ServerFrameReader::NeedMore);
    EXPECT_LE(l_reader.Frame().GetBufferSize(), 4096);

    // A large frame in pieces: the buffer stays within twice what arrived, and the body is whole.
    QByteArray l_body(3 * ServerFrameReader::s_wholeBufferLength + 17, '\0');
    for (qsizetype l_index = 0; l_index < l_body.size(); ++l_index)
        l_body[l_index] = static_cast<char>(l_index * 7);
    QByteArray const l_frame = Body(static_cast<quint32>(l_body.size())).Raw(l_body).Bytes();
    l_bytes.clear();
    l_device.seek(0);
    ServerFrameReader l_large;
    for (qsizetype l_at = 0; l_at < l_frame.size(); l_at += 10007)
    {
        l_bytes.append(l_frame.mid(l_at, 10007));
        EXPECT_EQ(l_large.ReadFrom(l_device), l_at + 10007 < l_frame.size() ? ServerFrameReader::NeedMore : ServerFrameReader::FrameReady);
        EXPECT_LE(l_large.Frame().GetBufferSize(), 2 * (l_at + 10007) + 4096);
    }
    EXPECT_EQ(QByteArray(l_large.Frame().GetReadBuffer(), l_large.Frame().GetPendingReadLength()), l_body);
}

// Bodies just past the sizes at which the buffer is full, 128 KiB and then 256 KiB, so that
// their last bytes come through the growth step, each in one read with the next frame.
TEST(ServerFrameReaderTest, AGrowingFrameEndsAtItsLengthWhenTheNextFrameFollowsInTheSameRead)
{
    QList<QByteArray> l_bodies;
    QByteArray l_bytes;
    for (int const l_size : {128 * 1024 + 100, 5, 256 * 1024 + 50, 9})
    {
        QByteArray l_body(l_size, '\0');
        for (qsizetype l_index = 0; l_index < l_size; ++l_index)
            l_body[l_index] = static_cast<char>(l_index * 13 + l_size);
        l_bodies << l_body;
        l_bytes += Body(static_cast<quint32>(l_size)).Raw(l_body).Bytes();
    }
    Device l_device(&l_bytes);
    ServerFrameReader l_reader;
    for (QByteArray const& l_body : l_bodies)
    {
        ASSERT_EQ(l_reader.ReadFrom(l_device), ServerFrameReader::FrameReady) << l_body.size();
        EXPECT_EQ(QByteArray(l_reader.Frame().GetReadBuffer(), l_reader.Frame().GetPendingReadLength()), l_body);
        l_reader.NextFrame();
    }
    EXPECT_EQ(l_reader.ReadFrom(l_device), ServerFrameReader::NeedMore);
}

// Readers that share a budget: the one whose body would pass it is refused, what the others
// hold is counted until they go, and a buffer grown past the kept size is given back.
TEST(FrameReaderTest, ASharedBudgetCapsAllBuffersAndLargeOnesAreGivenBack)
{
    FrameReader::Budget l_budget{300 * 1024, 0};
    QByteArray const l_big = Body(200 * 1024).Raw(QByteArray(200 * 1024, 'a')).Bytes();
    QByteArray l_first = l_big, l_second = l_big;
    Device l_firstDevice(&l_first), l_secondDevice(&l_second);
    {
        FrameReader l_one(1024 * 1024, &l_budget, 64 * 1024);
        FrameReader l_two(1024 * 1024, &l_budget, 64 * 1024);
        ASSERT_EQ(l_one.ReadFrom(l_firstDevice), FrameReader::FrameReady);
        EXPECT_EQ(l_two.ReadFrom(l_secondDevice), FrameReader::OverBudget);
        EXPECT_EQ(l_budget.m_used, l_one.HeldBytes() + l_two.HeldBytes());
        EXPECT_GE(l_one.HeldBytes(), 200u * 1024);

        l_one.NextFrame();
        EXPECT_EQ(l_one.Frame().GetBufferSize(), 256);
        EXPECT_EQ(l_budget.m_used, l_one.HeldBytes() + l_two.HeldBytes());
    }
    EXPECT_EQ(l_budget.m_used, 0u);

    // A length one past the bound is refused before any body byte is read.
    QByteArray l_long = Body(1025).Raw(QByteArray(1025, 'b')).Bytes();
    Device l_longDevice(&l_long);
    FrameReader l_bounded(1024);
    EXPECT_EQ(l_bounded.ReadFrom(l_longDevice), FrameReader::FrameTooLong);
    EXPECT_EQ(l_longDevice.pos(), 4);
}
