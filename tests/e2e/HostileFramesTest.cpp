// Frames and bodies that no honest peer sends: lengths that cannot hold a message or that no
// buffer should be made for, bodies that come a byte at a time or never, a compressed body that
// inflates without end, and counts with nothing behind them.
#include <gtest/gtest.h>

#include <QThread>

#include <random>

#include "HostileClient.h"
#include "peer/PeerLimits.h"
#include "support/WaitFor.h"

namespace
{
// The lengths announced on every kind of connection: none, too short for a code, and two that
// no buffer may be made for.
constexpr quint32 c_lengths[] = {0, 3, 1u << 31, 0xffffffff};

QByteArray Length(quint32 i_length)
{
    return Body(i_length).Bytes();
}

// Sends the frame's length, then its body a byte every 20 ms.
void Trickle(PeerLink& i_link, quint32 i_length, QByteArray const& i_body)
{
    i_link.SendRaw(Length(i_length));
    for (char l_byte : i_body)
    {
        i_link.SendRaw(QByteArray(1, l_byte));
        QThread::msleep(20);
    }
}

// One search-tree message from a child: a code byte and what follows.
QByteArray ChildMessage(quint8 i_code, QByteArray const& i_rest)
{
    return QByteArray(1, static_cast<char>(i_code)) + i_rest;
}
} // namespace

TEST(HostilePeers, FramesAndBodiesNoPeerSends)
{
    HostileClient l_client;
    ASSERT_TRUE(l_client.Start()) << l_client.Client().Output().toStdString();

    // First frames: the short ones are read and refused, the long ones refused on sight; one
    // announced and never sent waits among the sockets without a first frame.
    l_client.Attack("first frame lengths", 0, "announced a frame of 4294967295 bytes, above the bound of 4096; closing", [&] {
        std::unique_ptr<PeerLink> lp_silent = l_client.Dial();
        lp_silent->SendRaw(Length(3));
        for (quint32 l_length : c_lengths)
        {
            std::unique_ptr<PeerLink> lp_link = l_client.Dial();
            Trickle(*lp_link, l_length, QByteArray("\x01\x05\x00", 3).left(l_length));
            EXPECT_TRUE(lp_link->WaitClosed()) << l_length;
        }
        EXPECT_TRUE(lp_silent->IsOpen());
    });
    // The same on a messaging connection, and a small message that claims a large body.
    l_client.Attack("messaging frame lengths", 0, "user lengths announced a PM_QUEUE_UPLOAD message of 1048576 bytes, above its bound of 65536; closing", [&] {
        for (quint32 l_length : c_lengths)
        {
            std::unique_ptr<PeerLink> lp_link = l_client.Dial("lengths");
            Trickle(*lp_link, l_length, QByteArray("\x2b\x00\x00", 3).left(l_length));
            EXPECT_TRUE(lp_link->WaitClosed()) << l_length;
        }
        std::unique_ptr<PeerLink> lp_claimer = l_client.Dial("lengths");
        lp_claimer->SendRaw(Length(1 << 20) + Body(43).Bytes());
        EXPECT_TRUE(lp_claimer->WaitClosed());
        // A share list announced at its bound, of which a little comes: held, and only that.
        std::unique_ptr<PeerLink> lp_slow = l_client.Dial("lengths");
        lp_slow->SendRaw(Length(PeerLimits::s_maxFrameLength) + Body(5).Bytes() + QByteArray(1000, 'x'));
        QThread::msleep(200);
        EXPECT_TRUE(lp_slow->IsOpen());
    });
    // A stranger that opens a search-tree connection is taken as a child, which sends only
    // short reports.
    l_client.Attack("tree frame lengths", 0, "Frame of 4294967295 bytes announced on a child connection, above the bound of 4096; closing it", [&] {
        for (quint32 l_length : c_lengths)
        {
            std::unique_ptr<PeerLink> lp_link = l_client.Dial("child" + QByteArray::number(l_length), "D");
            Trickle(*lp_link, l_length, ChildMessage(7, QByteArray("\x01\x00", 2)).left(l_length));
            EXPECT_TRUE(lp_link->WaitClosed()) << l_length;
        }
    });
    l_client.Attack("random first frames", 40 * PeerLimits::s_maxFirstFrameLength / 1024, "Failure initializing peer connection", [&] {
        std::mt19937 l_random(20240601);
        for (int l_n = 0; l_n < 40; ++l_n)
        {
            QByteArray l_body(static_cast<qsizetype>(l_random() % 64), Qt::Uninitialized);
            for (char& l_byte : l_body)
                l_byte = static_cast<char>(l_random());
            std::unique_ptr<PeerLink> lp_link = l_client.Dial();
            lp_link->SendRaw(PeerLink::Framed(l_body));
            EXPECT_TRUE(lp_link->WaitClosed()) << l_n;
        }
    });
    // 1 GiB of zeros in about 1 MiB, unasked: inflating stops at its bound and the peer goes.
    l_client.Attack("zlib bomb", PeerLimits::s_maxInflatedBytes / 1024, "PM_SHARED_FILE_LIST message from user bomber inflates to more than", [&] {
        std::unique_ptr<PeerLink> lp_link = l_client.Dial("bomber");
        lp_link->Send(Body(5).Raw(PeerLink::DeflatedZeros(1ull << 30)));
        EXPECT_TRUE(lp_link->WaitClosed(30000));
    });
    // A million folders, a million files in one folder, a million results, a million files in
    // a folder's contents: none of them there.
    l_client.Attack("a million entries of nothing", 0, "PM_SHARED_FILE_LIST message from user counter cannot be read; closing", [&] {
        QByteArray const l_million = Body(1000000).Bytes();
        std::unique_ptr<PeerLink> lp_link = l_client.Dial("counter");
        lp_link->SendCompressed(5, l_million);
        EXPECT_TRUE(lp_link->WaitClosed());
        lp_link = l_client.Dial("counter");
        lp_link->SendCompressed(5, Body(1).Str("folder").Bytes() + l_million);
        EXPECT_TRUE(lp_link->WaitClosed());
        lp_link = l_client.Dial("counter");
        lp_link->SendCompressed(9, Body(0).Str("counter").U32(1).Bytes().mid(4) + l_million);
        lp_link->SendCompressed(37, Body(7).Str("folder").Bytes() + l_million);
        lp_link->Send(Body(43).Str("still here"));
        QThread::msleep(300);
    });

    EXPECT_TRUE(l_client.Stop()) << l_client.Client().Output().right(4000).toStdString();
}
