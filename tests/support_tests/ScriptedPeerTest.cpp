#include "support/LoopbackCentral.h"
#include "support/ScriptedPeer.h"
#include "support/TestPorts.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <QTimer>

#include <zlib.h>

namespace
{
// Inflates in small chunks and counts, so that a bomb is measured without being held.
std::optional<quint64> InflatedSize(QByteArray const& i_compressed)
{
    z_stream l_stream{};
    if (inflateInit(&l_stream) != Z_OK)
        return std::nullopt;
    l_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(i_compressed.constData()));
    l_stream.avail_in = static_cast<uInt>(i_compressed.size());
    Bytef l_chunk[1 << 16];
    quint64 l_total = 0;
    int l_result = Z_OK;
    while (l_result == Z_OK)
    {
        l_stream.next_out = l_chunk;
        l_stream.avail_out = sizeof(l_chunk);
        l_result = inflate(&l_stream, Z_NO_FLUSH);
        l_total += sizeof(l_chunk) - l_stream.avail_out;
    }
    inflateEnd(&l_stream);
    return l_result == Z_STREAM_END && l_stream.avail_in == 0 ? std::optional<quint64>(l_total) : std::nullopt;
}

struct LinkedPair
{
    ScriptedPeer m_caller;
    ScriptedPeer m_called;
    std::unique_ptr<PeerLink> mp_out = m_caller.Dial(m_called.ListenPort());
    std::unique_ptr<PeerLink> mp_in = m_called.Accept();
};

TEST(ScriptedPeerTest, FirstFramesAreLaidOutLittleEndian)
{
    EXPECT_EQ(PeerLink::GreetingFrame("alice", "P"),
        QByteArray::fromHex("13000000" "01" "05000000616c696365" "0100000050" "00000000"));
    EXPECT_EQ(PeerLink::GreetingFrame("bo", "F", 7, false), QByteArray::fromHex("0c000000" "07" "02000000626f" "0100000046"));
    EXPECT_EQ(PeerLink::IndirectAnswerFrame(0x01020304), QByteArray::fromHex("05000000" "00" "04030201"));
    EXPECT_EQ(Body(41).U64(0x1122334455667788).Bytes(), QByteArray::fromHex("29000000" "8877665544332211"));
    Fields l_short(QByteArray::fromHex("01020304050607"));
    EXPECT_EQ(l_short.U64(), 0u) << "a u64 cut short reads as zero";
}

// The first frame, bare bytes and frames come apart however they arrive; frames are taken by
// code out of order; a frame sent just before a close is still there to take.
TEST(ScriptedPeerTest, LinksTakeWhatTheOtherSideSends)
{
    LinkedPair l_pair;
    ASSERT_TRUE(l_pair.mp_out && l_pair.mp_in);
    l_pair.mp_out->SendRaw(PeerLink::GreetingFrame("alice", "F") + QByteArray::fromHex("2a000000") + "xyz");
    EXPECT_EQ(l_pair.mp_in->TakeBareU32(), std::optional<quint32>(42)) << "the first frame comes before the bare bytes";
    EXPECT_EQ(l_pair.mp_in->TakeFirstFrame(), PeerLink::GreetingFrame("alice", "F").mid(4));
    EXPECT_EQ(l_pair.mp_in->TakeRaw(3), QByteArray("xyz"));
    EXPECT_TRUE(l_pair.mp_in->TakeFirstFrame(100).isEmpty()) << "taken once";

    l_pair.mp_in->SendBareU32(9);
    l_pair.mp_in->Send(Body(4));
    l_pair.mp_in->Send(Body(41).U32(7).U8(1).U64(5'000'000'000));
    EXPECT_EQ(l_pair.mp_out->TakeBareU32(), std::optional<quint32>(9));
    std::optional<Fields> l_response = l_pair.mp_out->Take(41);
    ASSERT_TRUE(l_response);
    EXPECT_EQ(l_response->U32(), 7u);
    EXPECT_EQ(l_response->U8(), 1);
    EXPECT_EQ(l_response->U64(), 5'000'000'000u);
    EXPECT_TRUE(l_pair.mp_out->NothingOf(40, 50));
    EXPECT_EQ(l_pair.mp_out->Next(), Body(4).Bytes());

    l_pair.mp_in->Send(Body(50).Str("song.mp3").Str("Banned"));
    l_pair.mp_in->Close();
    EXPECT_TRUE(l_pair.mp_out->WaitClosed());
    EXPECT_EQ(l_pair.mp_out->TakeFrame(50), Body(50).Str("song.mp3").Str("Banned").Bytes());
}

// Each piece of a split send is a read of its own at the other end, and the pieces, cut inside
// the length fields, still make up the first frame and the frame behind it.
TEST(ScriptedPeerTest, SplitSendsArriveAsSeparateReads)
{
    QTcpServer l_listener;
    ASSERT_TRUE(l_listener.listen(QHostAddress::LocalHost, 0));
    ScriptedPeer l_peer;
    std::unique_ptr<PeerLink> lp_out = l_peer.Dial(l_listener.serverPort());
    ASSERT_TRUE(lp_out && WaitFor([&] { return l_listener.hasPendingConnections(); }));
    QTcpSocket* lp_in = l_listener.nextPendingConnection();
    QList<qsizetype> l_reads;
    QObject::connect(lp_in, &QTcpSocket::readyRead, lp_in, [&] { l_reads.append(lp_in->readAll().size()); });
    lp_out->SendSplit(QByteArray(10, 'x'), {1, 5});
    EXPECT_TRUE(WaitFor([&] { return l_reads.size() >= 3; }, 2000));
    EXPECT_EQ(l_reads, QList<qsizetype>({1, 4, 5}));

    LinkedPair l_pair;
    ASSERT_TRUE(l_pair.mp_out && l_pair.mp_in);
    QByteArray const l_frames = PeerLink::GreetingFrame("alice", "P") + Body(9).Str("bob").Frame();
    l_pair.mp_out->SendSplit(l_frames, {2, 5, 23, 25}, 30);
    EXPECT_EQ(l_pair.mp_in->TakeFirstFrame(), PeerLink::GreetingFrame("alice", "P").mid(4));
    EXPECT_EQ(l_pair.mp_in->TakeFrame(9), Body(9).Str("bob").Bytes());
}

TEST(ScriptedPeerTest, CompressedBodiesAndBombsInflate)
{
    LinkedPair l_pair;
    ASSERT_TRUE(l_pair.mp_out && l_pair.mp_in);
    QByteArray const l_plain = Body(0).Str("music\\a.mp3").U64(123456).Bytes().repeated(50);
    l_pair.mp_out->SendGreeting("alice", "P");
    EXPECT_FALSE(l_pair.mp_in->TakeFirstFrame().isEmpty());
    l_pair.mp_out->SendCompressed(9, l_plain);
    QByteArray const l_frame = l_pair.mp_in->TakeFrame(9);
    ASSERT_FALSE(l_frame.isEmpty());
    QByteArray l_inflated(l_plain.size() + 16, '\0');
    uLongf l_size = static_cast<uLongf>(l_inflated.size());
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(l_inflated.data()), &l_size,
                  reinterpret_cast<Bytef const*>(l_frame.constData() + 4), static_cast<uLong>(l_frame.size() - 4)),
        Z_OK);
    EXPECT_EQ(l_inflated.left(static_cast<qsizetype>(l_size)), l_plain);

    constexpr quint64 c_bombSize = 300'000'000;
    QByteArray const l_bomb = PeerLink::DeflatedZeros(c_bombSize);
    EXPECT_LT(l_bomb.size(), 1 << 20);
    EXPECT_EQ(InflatedSize(l_bomb), std::optional<quint64>(c_bombSize));
    EXPECT_EQ(InflatedSize(PeerLink::DeflatedZeros(0)), std::optional<quint64>(0));
    l_pair.mp_out->Send(Body(5).Raw(l_bomb));
    EXPECT_EQ(l_pair.mp_in->TakeFrame(5), Body(5).Raw(l_bomb).Bytes());
}

TEST(ScriptedPeerTest, AStoppedReaderLetsTheSenderPileUp)
{
    ScriptedPeer l_peer;
    QTcpSocket l_sender;
    l_sender.connectToHost(QHostAddress::LocalHost, l_peer.ListenPort());
    std::unique_ptr<PeerLink> lp_in = l_peer.Accept();
    ASSERT_TRUE(lp_in && WaitFor([&] { return l_sender.state() == QAbstractSocket::ConnectedState; }));
    lp_in->StopReading();
    l_sender.write(Body(5).Raw(QByteArray(64 << 20, 'z')).Frame());
    WaitFor([] { return false; }, 500);
    EXPECT_GT(l_sender.bytesToWrite(), 0);
    EXPECT_TRUE(lp_in->NothingOf(5, 50));
}

// Login and port report, a relayed request to dial back answered with its token, and the two
// requests this peer sends to the server.
TEST(ScriptedPeerTest, ThePeerLogsInAndDialsBackThroughTheServer)
{
    LoopbackCentral l_central;
    std::unique_ptr<RawClient> lp_session;
    QTimer::singleShot(0, [&] { lp_session = l_central.AnswerLogin(); });
    ScriptedPeer l_bob;
    ASSERT_TRUE(l_bob.LogIn(l_central.Port(), "bob", "pw", 2240));
    ASSERT_TRUE(lp_session);
    EXPECT_EQ(lp_session->TakeBody(2), Body(2).U32(2240).Bytes());

    ScriptedPeer l_alice;
    lp_session->Send(Body(18).Str("alice").Str("P").U32(0x7f000001).U32(l_alice.ListenPort()).U32(77).U8(1));
    std::optional<ScriptedPeer::ConnectRequest> l_request = l_bob.TakeConnectRequest();
    ASSERT_TRUE(l_request);
    EXPECT_EQ(l_request->m_user, "alice");
    EXPECT_EQ(l_request->m_type, "P");
    EXPECT_EQ(l_request->m_ip, 0x7f000001u);
    EXPECT_EQ(l_request->m_privileged, 1);
    std::unique_ptr<PeerLink> lp_back = l_bob.DialBack(*l_request);
    ASSERT_TRUE(lp_back);
    std::unique_ptr<PeerLink> lp_answer = l_alice.Accept();
    ASSERT_TRUE(lp_answer);
    EXPECT_EQ(lp_answer->TakeFirstFrame(), QByteArray::fromHex("00" "4d000000"));

    l_bob.AskDialBack(78, "carol", "F");
    l_bob.ReportCannotConnect(77, "alice");
    EXPECT_EQ(lp_session->TakeBody(18), Body(18).U32(78).Str("carol").Str("F").Bytes());
    EXPECT_EQ(lp_session->TakeBody(1001), Body(1001).U32(77).Str("alice").Bytes());

    QTimer::singleShot(0, [&] { l_central.AnswerLogin(false); });
    EXPECT_FALSE(ScriptedPeer().LogIn(l_central.Port(), "bob", "wrong", 2240));
}

TEST(ScriptedPeerTest, ARefusingPortRefusesAndCannotBeListenedOn)
{
    RefusingPort l_port;
    ASSERT_NE(l_port.Port(), 0);
    QTcpSocket l_socket;
    l_socket.connectToHost(QHostAddress::LocalHost, l_port.Port());
    EXPECT_TRUE(WaitFor([&] { return l_socket.state() == QAbstractSocket::UnconnectedState; }, 3000));
    EXPECT_EQ(l_socket.error(), QAbstractSocket::ConnectionRefusedError);
    QTcpServer l_server;
    EXPECT_FALSE(l_server.listen(QHostAddress::AnyIPv4, l_port.Port()));
    EXPECT_FALSE(l_server.listen(QHostAddress::LocalHost, l_port.Port()));
}

TEST(ScriptedPeerTest, ABlackHolePortLeavesConnectsPending)
{
    BlackHolePort l_port;
    ASSERT_NE(l_port.Port(), 0);
    QTcpSocket l_socket;
    l_socket.connectToHost(QHostAddress::LocalHost, l_port.Port());
    EXPECT_FALSE(WaitFor([&] { return l_socket.state() != QAbstractSocket::ConnectingState; }, 1200));
}
}
