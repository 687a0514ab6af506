#include <QBuffer>

#include "ServerTestSupport.h"
#include "server/ServerFrameReader.h"
#include "support/WaitFor.h"

namespace
{
QByteArray Online(char const* i_user)
{
    return Body(7).Str(i_user).U32(1).U8(0).Frame();
}
} // namespace

TEST_F(ServerTest, FramesInPiecesOrSharingOneReadAreHandledAndThoseWithoutAKnownCodeDropped)
{
    LogIn();
    for (char const l_byte : Online("bob"))
    {
        mp_central->SendRaw(QByteArray(1, l_byte));
        WaitFor([] { return false; }, 10);
    }
    QByteArray const l_twoBytes("\x02\x00\x00\x00\x07\x00", 6);
    SendAndSettle(Online("carol") + l_twoBytes + QByteArray(4, '\0') + Body(99999).Str("x").Frame() + Online("dave"));
    for (char const* l_name : {"bob", "carol", "dave"})
        EXPECT_TRUE(Has(User(l_name), "is_online")) << l_name;
    EXPECT_TRUE(mp_server->IsConnected());
}

TEST_F(ServerTest, OversizedLengthClosesTheConnectionWithALogLine)
{
    LogIn();
    mp_central->SendRaw(Body(ServerFrameReader::s_maxFrameLength + 1).Bytes());
    ASSERT_TRUE(WaitFor([this] { return m_disconnected.count() == 1; }));
    EXPECT_TRUE(mp_central->WaitClosed());
    EXPECT_EQ(m_log.filter(QStringLiteral("server|1|The server announced a message of 16777217 bytes")).size(), 1);
}

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
