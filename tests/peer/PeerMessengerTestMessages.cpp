// Messages on a messaging connection: where a message to a user goes, the queue, every code
// received and sent against bytes laid out by hand, and the bounds on what a peer can claim.

#include <QTest>
#include <QThread>
#include <QtEndian>

#include <sys/resource.h>

#include "PeerFixture.h"

namespace
{
// What a compressed body inflates to, read as qUncompress reads, with the size guess in front.
QByteArray Inflated(QByteArray const& i_frame)
{
    QByteArray l_prefixed(4, '\0');
    qToBigEndian(static_cast<quint32>(i_frame.size() - 4), l_prefixed.data());
    return qUncompress(l_prefixed + i_frame.mid(4));
}

// One folder "music" holding a.mp3 of 5 bytes with a format and no attributes; the code is
// the folder count.
QByteArray const s_share = Body(1).Str("music").U32(1).U8(1).Str("a.mp3").U64(5).Str("mp3").U32(0).Bytes();
} // namespace

// The latest of two connections carries a message; on a tie of their seconds the earlier in
// the item set does.
TEST_F(PeerTest, AMessageGoesOnTheLatestConnection)
{
    ItemPtr l_first;
    ItemPtr l_second;
    std::unique_ptr<PeerLink> lp_first = OpenFrom("bob", &l_first);
    std::unique_ptr<PeerLink> lp_second = OpenFrom("bob", &l_second);
    Age(l_first, "connection_open_time", 5);
    Age(l_second, "connection_open_time", 3);
    mp_messenger->QueueDownload("bob", "one");
    EXPECT_EQ(TakeQueued(*lp_second), "one");
    Age(l_first, "connection_open_time", 2);
    mp_messenger->QueueDownload("bob", "two");
    EXPECT_EQ(TakeQueued(*lp_first), "two");
    l_second += l_first.GetItem("connection_open_time"); // the same second
    mp_messenger->QueueDownload("bob", "tie");
    EXPECT_EQ(TakeQueued(l_first.Get() < l_second.Get() ? *lp_first : *lp_second), "tie");
    EXPECT_TRUE(lp_first->NothingOf(43) && lp_second->NothingOf(43));
    EXPECT_TRUE(m_lines.contains("2|Found 2 existing messaging connections to user, picking latest"));
}

// Of two connections opened in one second, when both ways of connecting succeeded, the peer
// drops one; the one it has sent a message on carries ours, whichever the item set puts first.
TEST_F(PeerTest, AMessageGoesOnAConnectionThePeerHasUsed)
{
    for (bool l_usedFirst : {false, true})
    {
        QByteArray const l_user = l_usedFirst ? "bob" : "carol";
        ItemPtr l_first, l_second;
        std::unique_ptr<PeerLink> lp_first = OpenFrom(l_user, &l_first);
        std::unique_ptr<PeerLink> lp_second = OpenFrom(l_user, &l_second);
        l_second += l_first.GetItem("connection_open_time");
        PeerLink& l_used = (l_first.Get() < l_second.Get()) == l_usedFirst ? *lp_first : *lp_second;
        Settle(l_used, l_user);
        mp_messenger->QueueDownload(l_user.toStdString(), "kept");
        EXPECT_EQ(TakeQueued(l_used), "kept") << l_user.toStdString();
        EXPECT_TRUE(lp_first->NothingOf(43, 100) && lp_second->NothingOf(43, 100));
    }
}

// Queued messages keep their order across a flush that a write error cut short, also past ten,
// and one queued after the failure goes after them.
TEST_F(PeerTest, QueuedMessagesLeaveInOrderAfterAFailedFlush)
{
    for (int l_index = 0; l_index < 12; ++l_index)
        mp_messenger->QueueDownload("bob", std::to_string(l_index));
    QTcpSocket l_unopened;
    ItemPtr const l_dead = d.GetType("peer_socket")->NewItem(Value(&l_unopened));
    l_dead += User("bob");
    mp_messenger->SendUnsentMessages("bob");
    EXPECT_TRUE(m_lines.last().startsWith("1|Error writing message to socket: "));
    EXPECT_EQ(Count("unsent_message"), 12u);
    l_dead.Remove();

    mp_messenger->QueueDownload("bob", "12");
    std::unique_ptr<PeerLink> lp_link = OpenFrom("bob");
    for (int l_index = 0; l_index <= 12; ++l_index)
        EXPECT_EQ(TakeQueued(*lp_link), QByteArray::number(l_index));
    EXPECT_EQ(Count("unsent_message") + mp_messenger->QueuedBytes(), 0u);
}

// Every received code against bytes laid out by hand: what it emits, and whether the
// connection stays. Those that stay are followed by a marker message.
TEST_F(PeerTest, ReceivedMessagesBecomeSignalsOrCloseTheConnection)
{
    mp_server->FileSearch("tune", false);
    quint32 const l_ticket = (*d.GetType("search_request")->GetItems().begin())->AsUInt();
    // One record behind its count, then a free slot, the speed and the queue.
    QByteArray const l_result = Body(1).U8(1).Str("dir\\a.mp3").U64(9).Str("mp3").U32(0).U8(1).U32(50).U32(0).Bytes();
    QByteArray const l_bob = Body(0).Str("bob").Bytes().mid(4);
    std::vector<std::tuple<QByteArray, QByteArray, bool>> const l_cases = { // frame, signal, whether the connection stays
        {Body(36).U32(3).Str("dir").Frame(), "36|bob|3|dir", true},
        {Body(37).Raw(PeerLink::Compressed("anything")).Frame(), "", true},
        {Body(51).Str("f").Frame(), "", true},
        {Body(999).U32(1).Frame(), "", true},
        {Body(40).U32(1).U32(7).Str("f").U64(1ull << 33).Frame(), "40|bob|1|7|f|8589934592", true},
        {Body(40).U32(2).U32(8).Str("g").Frame(), "40|bob|2|8|g|0", true},
        {Body(41).U32(9).U8(1).U64(12).Frame(), "41|bob|9|1|1|12|", true},
        {Body(41).U32(9).U8(2).Frame(), "41|bob|9|1|0|0|", true},
        {Body(41).U32(9).U8(0).Str("busy").Frame(), "41|bob|9|0|0|0|busy", true},
        {Body(44).Str("f").U32(3).Frame(), "44|bob|f|3", true},
        {Body(46).Str("f").Frame(), "46|bob|f", true},
        {Body(50).Str("f").Str("no").Frame(), "50|bob|f|no", true},
        {Body(5).Raw(PeerLink::Compressed(s_share + Body(3).Bytes())).Frame(), "5|bob|music:a.mp3|0", true},
        {Body(5).Raw(PeerLink::Compressed(s_share.left(20))).Frame(), "", false},
        {Body(5).Raw("not a zlib stream").Frame(), "", false},
        {Body(9).Raw(PeerLink::Compressed(l_bob + Body(l_ticket).Bytes() + l_result)).Frame(), "9|results", true},
        {Body(9).Raw(PeerLink::Compressed(l_bob + Body(l_ticket + 1).Bytes() + l_result)).Frame(), "", true},
        {Body(9).Raw(PeerLink::Compressed(Body(0).Str("eve").U32(l_ticket).Bytes().mid(4) + l_result)).Frame(), "", false},
        {Body(43).U32(9).Frame(), "", false},
        {PeerLink::Framed({}), "", false},
    };
    // A user holds few connections at once: each staying one is closed after its case.
    for (auto const& [l_frame, l_event, l_stays] : l_cases)
    {
        std::unique_ptr<PeerLink> lp_link = OpenFrom("bob");
        m_events.clear();
        lp_link->SendRaw(l_frame);
        QByteArrayList l_expected = l_event.isEmpty() ? QByteArrayList() : QByteArrayList{l_event};
        if (l_stays)
        {
            Settle(*lp_link);
            l_expected << "43|bob|marker";
            EXPECT_TRUE(lp_link->IsOpen()) << l_frame.toHex().toStdString();
            lp_link->Close();
        }
        else
            EXPECT_TRUE(lp_link->WaitClosed()) << l_frame.toHex().toStdString();
        EXPECT_EQ(m_events, l_expected) << l_frame.toHex().toStdString();
        EXPECT_TRUE(WaitFor([] { return Count("peer_socket") == 0; })) << l_frame.toHex().toStdString();
    }
    EXPECT_TRUE(m_lines.contains("1|Received 999 (unknown) message from user bob"));
    EXPECT_TRUE(m_lines.contains("1|PM_QUEUE_UPLOAD message from user bob cannot be read; closing"));
    EXPECT_TRUE(m_lines.contains("1|Could not read message code on connection to user bob, disposing of socket"));
    EXPECT_EQ(mp_messenger->SocketRecordCount(), 0u);
}

// The senders' bytes, the request number counter, and the answer to a share list request on
// the socket it came on.
TEST_F(PeerTest, SendersLayOutTheirMessages)
{
    std::unique_ptr<PeerLink> lp_link = OpenFrom("bob");
    EXPECT_EQ(mp_messenger->RequestUpload("bob", "f", 1ll << 33), 0u);
    EXPECT_EQ(GetGlobal("transfer_req_counter"), "1");
    EXPECT_EQ(mp_messenger->RequestUpload("bob", "g", 5), 1u);
    EXPECT_EQ(GetGlobal("transfer_req_counter"), "2");
    mp_messenger->GetUserSharedFiles("bob");
    mp_messenger->QueueDownload("bob", "h");
    mp_messenger->AcceptTransferRequest("bob", 4, true, 1ll << 40);
    mp_messenger->AcceptTransferRequest("bob", 5, false, 99);
    mp_messenger->DenyTransferRequest("bob", 6, "busy");
    mp_messenger->DenyUpload("bob", "i", "no");
    for (Body const& l_body : {Body(40).U32(1).U32(0).Str("f").U64(1ull << 33), Body(40).U32(1).U32(1).Str("g").U64(5), Body(4),
                               Body(43).Str("h"), Body(41).U32(4).U8(1).U64(1ull << 40), Body(41).U32(5).U8(1),
                               Body(41).U32(6).U8(0).Str("busy"), Body(50).Str("i").Str("no")})
        EXPECT_EQ(lp_link->Next(), l_body.Bytes());

    lp_link->Send(Body(4));
    EXPECT_EQ(Inflated(lp_link->TakeFrame(5)), QByteArray(8, '\0')); // no folders, no attribute names
    // A list composed later goes out when it is ready; a request meanwhile is taken up once it
    // has gone, and a list for a connection that has gone is dropped.
    std::vector<PeerMessenger::ShareListReply> l_replies;
    mp_messenger->SetShareListResponder([&](std::string const&, PeerMessenger::ShareListReply i_reply)
                                        { l_replies.push_back(std::move(i_reply)); });
    lp_link->Send(Body(4));
    lp_link->Send(Body(4));
    lp_link->Send(Body(4));
    ASSERT_TRUE(WaitFor([&] { return l_replies.size() == 1; }));
    QTest::qWait(50);
    ASSERT_EQ(l_replies.size(), 1u);
    l_replies[0](ShareListMessage({{"bob", {FileInfo("x", 1)}}}));
    EXPECT_EQ(Inflated(lp_link->TakeFrame(5)), Body(1).Str("bob").U32(1).U8(1).Str("x").U64(1).Str("").U32(0).U32(0).Bytes());
    EXPECT_EQ(l_replies.size(), 2u) << "the requests behind it come to one more";
    lp_link->Close();
    ASSERT_TRUE(WaitFor([] { return Count("peer_socket") == 0; }));
    l_replies[1](ShareListMessage({}));
    EXPECT_TRUE(m_lines.contains("2|Share list for user bob is ready, but the connection is gone"));
}

// Each bound at and just past its limit: the frame on a messaging connection, the sockets
// waiting for their first frame, the dial-backs, the direct attempts and the unsent queue.
TEST_F(PeerTest, BoundsHoldAtTheirLimitsAndActJustPast)
{
    std::unique_ptr<PeerLink> lp_largest = OpenFrom("bob");
    lp_largest->SendRaw(Body(64 << 20).Bytes() + "abc");
    std::unique_ptr<PeerLink> lp_larger = OpenFrom("bob");
    lp_larger->SendRaw(Body((64 << 20) + 1).Bytes());
    EXPECT_TRUE(lp_larger->WaitClosed());
    EXPECT_TRUE(m_lines.contains("1|user bob announced a frame of 67108865 bytes, above the bound of 67108864; closing"));
    lp_largest->Close();
    ASSERT_TRUE(WaitFor([] { return Count("peer_socket") == 0; }));
    EXPECT_EQ(m_lines.join().count("announced a frame"), 1);

    std::vector<std::unique_ptr<PeerLink>> l_waiting;
    for (int l_index = 0; l_index < 256; ++l_index)
        l_waiting.push_back(DialIn());
    EXPECT_FALSE(m_lines.join().contains("sockets wait"));
    l_waiting.push_back(m_bob.Dial(mp_messenger->ListeningPort()));
    EXPECT_TRUE(l_waiting.front()->WaitClosed());
    EXPECT_TRUE(m_lines.join().contains("1|256 sockets wait for their first frame; closing the oldest, from peer 127.0.0.1:"));
    EXPECT_EQ(Count("uninitialized_socket"), 256u);

    LogIn();
    BlackHolePort const l_hole;
    for (quint32 l_index = 0; l_index <= 64; ++l_index)
        mp_central->Send(Body(18).Str("u" + QByteArray::number(l_index)).Str("P").U32(s_loopback).U32(l_hole.Port()).U32(100 + l_index));
    EXPECT_EQ(mp_central->TakeBody(1001), Body(1001).U32(164).Str("u64").Bytes());
    EXPECT_EQ(Count("peer_connection_request_socket") + Count("peer_connection_request"), 128u);
    EXPECT_EQ(m_lines.last(), "1|64 dial-backs under way; refusing the one asked by user u64");

    for (int l_index = 0; l_index <= 128; ++l_index)
    {
        QByteArray const l_user = "w" + QByteArray::number(l_index);
        SetAddress(l_user, l_hole.Port());
        mp_messenger->ConnectToUser(l_user.toStdString(), "P");
    }
    EXPECT_EQ(Count("connect_to_peer_request_socket"), 128u);
    EXPECT_TRUE(m_lines.contains("1|128 direct attempts under way; the attempt of type P to user w128 goes by the indirect way alone"));

    int const l_half = 32 << 20;
    auto const l_queue = [this](int i_size)
    {
        MemStream l_message;
        l_message.Write(static_cast<std::uint32_t>(999));
        l_message.WriteBuffer(std::string(static_cast<std::size_t>(i_size - 4), 'x').data(), static_cast<unsigned long>(i_size - 4));
        mp_messenger->SendMessage("carol", l_message);
    };
    l_queue(l_half);
    l_queue(l_half);
    EXPECT_EQ(mp_messenger->QueuedBytes(), static_cast<std::uint64_t>(2 * l_half));
    EXPECT_FALSE(m_lines.join().contains("unsent message queue"));
    l_queue(4);
    EXPECT_EQ(Count("unsent_message"), 2u);
    EXPECT_EQ(mp_messenger->QueuedBytes(), static_cast<std::uint64_t>(l_half + 4));
    EXPECT_TRUE(m_lines.contains("1|The unsent message queue holds 67108864 bytes; the oldest message, to user carol, is dropped"));
}

// A peer that never reads gets no second copy of a list still waiting for it, is dropped once
// what waits for it passes the unsent bound; of 513 messaging connections the idlest goes.
TEST_F(PeerTest, AReaderThatNeverReadsAndTheConnectionCountAreBounded)
{
    MemStream l_big;
    l_big.Write(static_cast<std::uint32_t>(999));
    QByteArray const l_filler(16 << 20, 'x');
    l_big.WriteBuffer(l_filler.constData(), static_cast<unsigned long>(l_filler.size()));
    mp_messenger->SetShareListResponder([&](std::string const&, PeerMessenger::ShareListReply i_reply) { i_reply(l_big); });
    std::unique_ptr<PeerLink> lp_greedy = OpenFrom("bob");
    lp_greedy->StopReading();
    lp_greedy->Send(Body(4));
    lp_greedy->Send(Body(4));
    EXPECT_TRUE(WaitLogged("1|User bob asked for the share list again before the last copy was sent; not sent twice"));
    for (int l_index = 0; l_index < 9 && Count("peer_socket") > 0; ++l_index)
        mp_messenger->SendMessage("bob", l_big);
    EXPECT_TRUE(WaitLogged("1|More than 134217728 bytes wait unsent to user bob, which does not read; closing"));
    EXPECT_TRUE(WaitFor([] { return Count("peer_socket") == 0; }));

    rlimit l_limit{};
    getrlimit(RLIMIT_NOFILE, &l_limit);
    l_limit.rlim_cur = std::max<rlim_t>(l_limit.rlim_cur, std::min<rlim_t>(l_limit.rlim_max, 4096));
    setrlimit(RLIMIT_NOFILE, &l_limit);
    std::vector<std::unique_ptr<PeerLink>> l_links;
    for (int l_index = 0; l_index < 512; ++l_index)
    {
        l_links.push_back(OpenFrom("p" + QByteArray::number(l_index)));
        if (l_index == 1)
            QThread::msleep(5); // activity times are in milliseconds: p0 and p1 are older than the rest
    }
    EXPECT_FALSE(m_lines.join().contains("messaging connections are open"));
    l_links.front()->Send(Body(43).Str("still here")); // the first is no longer the idlest
    Settle(*l_links.front(), "p0");
    l_links.push_back(OpenFrom("late"));
    EXPECT_TRUE(l_links[1]->WaitClosed());
    EXPECT_TRUE(l_links.front()->IsOpen());
    EXPECT_TRUE(m_lines.contains("1|512 messaging connections are open; closing the one idle longest, to user p1"));
    EXPECT_EQ(Count("peer_socket"), 512u);
}
