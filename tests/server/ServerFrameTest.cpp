#include <gtest/gtest.h>

#include <QBuffer>

#include "server/ServerFrameReader.h"
#include "support/RawClient.h"

TEST(ServerFrameReaderTest, MemoryFollowsTheBytesThatArriveNotTheAnnouncedLength)
{
    QByteArray l_bytes = Body(ServerFrameReader::s_maxFrameLength).Bytes() + QByteArray(1000, 'x');
    QBuffer l_device(&l_bytes);
    l_device.open(QIODevice::ReadOnly);
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
