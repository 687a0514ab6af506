#include "support/ScriptedPeer.h"
#include "support/TestPorts.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <zlib.h>

namespace
{
// Inflates a chunk at a time and counts, so that a bomb is measured without being held; empty
// unless the stream ends where its bytes do.
std::optional<quint64> InflatedSize(QByteArray i_compressed)
{
    z_stream l_stream{};
    inflateInit(&l_stream);
    l_stream.next_in = reinterpret_cast<Bytef*>(i_compressed.data());
    l_stream.avail_in = static_cast<uInt>(i_compressed.size());
    static Bytef s_chunk[1 << 16];
    quint64 l_total = 0;
    int l_result = Z_OK;
    while (l_result == Z_OK)
    {
        l_stream.next_out = s_chunk;
        l_stream.avail_out = sizeof s_chunk;
        l_result = inflate(&l_stream, Z_NO_FLUSH);
        l_total += sizeof s_chunk - l_stream.avail_out;
    }
    inflateEnd(&l_stream);
    return l_result == Z_STREAM_END && l_stream.avail_in == 0 ? std::optional<quint64>(l_total) : std::nullopt;
}
} // namespace

// Laid out by hand here, since two scripted peers would read each other's mistakes back.
TEST(ScriptedPeerTest, FramesAreLaidOutLittleEndianAndBombsInflateToTheirSize)
{
    EXPECT_EQ(PeerLink::GreetingFrame("alice", "P"),
              QByteArray::fromHex("13000000" "01" "05000000616c696365" "0100000050" "00000000"));
    EXPECT_EQ(PeerLink::GreetingFrame("bo", "F", 7, false), QByteArray::fromHex("0c000000" "07" "02000000626f" "0100000046"));
    EXPECT_EQ(PeerLink::IndirectAnswerFrame(0x01020304), QByteArray::fromHex("05000000" "00" "04030201"));
    EXPECT_EQ(Body(41).U64(0x1122334455667788).Bytes(), QByteArray::fromHex("29000000" "8877665544332211"));

    constexpr quint64 c_bombSize = 300'000'000;
    QByteArray const l_bomb = PeerLink::DeflatedZeros(c_bombSize);
    EXPECT_LT(l_bomb.size(), 1 << 20);
    EXPECT_EQ(InflatedSize(l_bomb), std::optional<quint64>(c_bombSize));
}

// Each piece of a split send is a read of its own at the other end; between two scripted peers
// the pieces, cut inside the length fields, still make up the greeting and the frames behind it.
TEST(ScriptedPeerTest, SplitSendsArriveAsSeparateReadsAndAreReassembled)
{
    QTcpServer l_listener;
    ASSERT_TRUE(l_listener.listen(QHostAddress::LocalHost, 0));
    ScriptedPeer l_caller;
    std::unique_ptr<PeerLink> lp_out = l_caller.Dial(l_listener.serverPort());
    ASSERT_TRUE(lp_out && WaitFor([&] { return l_listener.hasPendingConnections(); }));
    QTcpSocket* lp_in = l_listener.nextPendingConnection();
    QList<qsizetype> l_reads;
    QObject::connect(lp_in, &QTcpSocket::readyRead, lp_in, [&] { l_reads.append(lp_in->readAll().size()); });
    lp_out->SendSplit(QByteArray(10, 'x'), {1, 5});
    EXPECT_TRUE(WaitFor([&] { return l_reads.size() >= 3; }, 2000));
    EXPECT_EQ(l_reads, QList<qsizetype>({1, 4, 5}));

    ScriptedPeer l_called;
    std::unique_ptr<PeerLink> lp_caller = l_caller.Dial(l_called.ListenPort());
    std::unique_ptr<PeerLink> lp_called = l_called.Accept();
    ASSERT_TRUE(lp_caller && lp_called);
    QByteArray const l_greeting = PeerLink::GreetingFrame("alice", "P");
    lp_caller->SendSplit(l_greeting + Body(4).Frame() + Body(9).Str("bob").Frame(), {2, 5, 23, 25}, 30);
    EXPECT_EQ(lp_called->TakeFirstFrame(), l_greeting.mid(4));
    EXPECT_EQ(lp_called->TakeFrame(9), Body(9).Str("bob").Bytes());
    EXPECT_EQ(lp_called->Next(), Body(4).Bytes());
}

// A refusing port refuses at once and cannot be listened on at any address; a connect to a
// black-hole port stays pending.
TEST(ScriptedPeerTest, RefusingAndBlackHolePorts)
{
    RefusingPort l_refusing;
    BlackHolePort l_blackHole;
    ASSERT_TRUE(l_refusing.Port() != 0 && l_blackHole.Port() != 0);
    QTcpSocket l_refused, l_pending;
    l_refused.connectToHost(QHostAddress::LocalHost, l_refusing.Port());
    l_pending.connectToHost(QHostAddress::LocalHost, l_blackHole.Port());
    EXPECT_TRUE(WaitFor([&] { return l_refused.state() == QAbstractSocket::UnconnectedState; }, 3000));
    EXPECT_EQ(l_refused.error(), QAbstractSocket::ConnectionRefusedError);
    EXPECT_FALSE(WaitFor([&] { return l_pending.state() != QAbstractSocket::ConnectingState; }, 1200));
    QTcpServer l_server;
    EXPECT_FALSE(l_server.listen(QHostAddress::AnyIPv4, l_refusing.Port()));
    EXPECT_FALSE(l_server.listen(QHostAddress::LocalHost, l_refusing.Port()));
}
