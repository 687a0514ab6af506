// Reaching a peer both ways at once, the races between the two ways, time-outs and listening.

#include <QSignalSpy>

#include "PeerFixture.h"

// One attempt per user and type; types run side by side; the address is asked for only when
// none is stored, and when it arrives every attempt waiting for it dials.
TEST_F(PeerTest, OneAttemptPerUserAndTypeAndTheAddressIsAskedOnlyWhenMissing)
{
    LogIn();
    mp_messenger->ConnectToUser("bob", "P");
    quint32 const l_first = TakeIndirect("bob", "P");
    EXPECT_EQ(mp_central->TakeBody(3), Body(3).Str("bob").Bytes());
    mp_messenger->ConnectToUser("bob", "P");
    EXPECT_EQ(m_lines.last(), "2|Connection attempt to same user of same type already in progress, not re-attempting.");
    mp_messenger->ConnectToUser("bob", "D");
    EXPECT_EQ(TakeIndirect("bob", "D"), l_first + 1); // the second "P" sent nothing
    EXPECT_EQ(Count("connect_to_peer_request"), 2u);

    mp_central->Send(Body(3).Str("bob").U32(s_loopback).U32(m_bob.ListenPort()));
    QSet<QByteArray> l_greetings;
    std::vector<std::unique_ptr<PeerLink>> l_links;
    for (int l_index = 0; l_index < 2; ++l_index)
    {
        ASSERT_TRUE(l_links.emplace_back(m_bob.Accept()));
        l_greetings << l_links.back()->TakeFirstFrame();
    }
    EXPECT_EQ(l_greetings, QSet<QByteArray>({PeerLink::GreetingFrame("alice", "P").mid(4), PeerLink::GreetingFrame("alice", "D").mid(4)}));
    ASSERT_TRUE(WaitFor([this] { return m_events == QByteArrayList{"DNetConnectionAccepted|bob|socket"} && Count("peer_socket") == 1; }));
    EXPECT_EQ(Leftovers(), 0u);

    mp_messenger->ConnectToUser("bob", "F");
    TakeIndirect("bob", "F");
    EXPECT_TRUE(AcceptGreeting("F"));
    EXPECT_TRUE(mp_central->NothingOf(3));
}

// A stale address costs one failed direct attempt while the dial-back still brings the queued
// message through; when both ways fail the attempt goes and the message stays queued. With the
// server link down the direct way alone runs.
TEST_F(PeerTest, EachWayWorksWithoutTheOther)
{
    SetAddress("eve", m_bob.ListenPort());
    mp_messenger->QueueDownload("eve", "tune");
    std::unique_ptr<PeerLink> lp_direct = AcceptGreeting("P");
    ASSERT_TRUE(lp_direct);
    EXPECT_EQ(TakeQueued(*lp_direct), "tune");

    LogIn();
    RefusingPort const l_stale;
    SetAddress("bob", l_stale.Port());
    SetAddress("carol", l_stale.Port());
    mp_messenger->QueueDownload("bob", "song");
    quint32 const l_token = TakeIndirect("bob", "P");
    ASSERT_TRUE(WaitLogged("1|Direct connection of type P to user bob failed"));
    EXPECT_EQ(m_lines.last(), "2|Indirect request found. Not removing request.");
    std::unique_ptr<PeerLink> lp_back = m_bob.Dial(mp_messenger->ListeningPort());
    lp_back->SendIndirectAnswer(l_token);
    EXPECT_EQ(TakeQueued(*lp_back), "song");
    EXPECT_EQ(Leftovers() + Count("unsent_message"), 0u);

    mp_messenger->QueueDownload("carol", "tune");
    quint32 const l_second = TakeIndirect("carol", "P");
    ASSERT_TRUE(WaitLogged("1|Direct connection of type P to user carol failed"));
    mp_central->Send(Body(1001).U32(l_second));
    ASSERT_TRUE(WaitLogged("1|Indirect connection of type P to user carol failed"));
    EXPECT_EQ(m_lines.last(), "2|Neither socket nor indirect request found. Removing.");
    EXPECT_EQ(Leftovers(), 0u);
    EXPECT_EQ(Count("unsent_message"), 1u);
}

// Whichever way comes up first is the connection and the other is closed, with no socket,
// item or record left over.
TEST_F(PeerTest, TheLaterWayIsClosedWhicheverWins)
{
    LogIn();
    SetAddress("bob", m_bob.ListenPort());
    mp_messenger->ConnectToUser("bob", "P");
    quint32 const l_token = TakeIndirect("bob", "P");
    std::unique_ptr<PeerLink> lp_direct = AcceptGreeting("P");
    ASSERT_TRUE(lp_direct && WaitFor([] { return Count("peer_socket") == 1; }));
    std::unique_ptr<PeerLink> lp_late = m_bob.Dial(mp_messenger->ListeningPort());
    lp_late->SendIndirectAnswer(l_token);
    EXPECT_TRUE(lp_late->WaitClosed());
    EXPECT_TRUE(m_lines.contains("1|Req sent on indirect peer connection not found"));
    Settle(*lp_direct);

    // The dial-back first, while the direct attempt still connects, or has connected unnoticed.
    BlackHolePort const l_hole;
    std::vector<std::unique_ptr<PeerLink>> l_winners;
    for (bool const l_connected : {false, true})
    {
        QByteArray const l_user = l_connected ? "carol" : "dave";
        SetAddress(l_user, l_connected ? m_bob.ListenPort() : l_hole.Port());
        mp_messenger->ConnectToUser(l_user.toStdString(), "P");
        auto* lp_socket = (*d.GetType("connect_to_peer_request_socket")->GetItems().begin())->AsPointer<QTcpSocket>();
        lp_socket->blockSignals(l_connected); // its connected() never reaches the messenger
        quint32 const l_back = TakeIndirect(l_user, "P");
        std::unique_ptr<PeerLink> lp_unnoticed = l_connected ? m_bob.Accept() : nullptr;
        ASSERT_TRUE(!l_connected || WaitFor([&] { return lp_socket->state() == QAbstractSocket::ConnectedState; }));
        PeerLink* lp_winner = l_winners.emplace_back(m_bob.Dial(mp_messenger->ListeningPort())).get();
        lp_winner->SendIndirectAnswer(l_back);
        Settle(*lp_winner, l_user);
        EXPECT_EQ(m_lines.count("2|Socket found. Closing and deleting."), l_connected ? 2 : 1);
        EXPECT_TRUE(!l_connected || (lp_unnoticed && lp_unnoticed->WaitClosed()));
    }
    EXPECT_EQ(Leftovers(), 0u);
    EXPECT_EQ(Count("peer_socket") + mp_messenger->SocketRecordCount(), 6u);
}

// At 59 s nothing goes; at 60 s the attempts both ways and the dial-back go, the dial-back
// reported to the server; queued messages go at 300 s, and a connection that opens later
// sends nothing.
TEST_F(PeerTest, SweepsExpireAtTheirLimits)
{
    LogIn();
    BlackHolePort const l_hole;
    SetAddress("bob", l_hole.Port());
    mp_messenger->ConnectToUser("bob", "P");
    mp_messenger->QueueDownload("carol", "song");
    mp_central->Send(Body(18).Str("dave").Str("F").U32(s_loopback).U32(l_hole.Port()).U32(55));
    ASSERT_TRUE(WaitFor([] { return Count("peer_connection_request_socket") == 1; }));
    std::size_t const l_items = Leftovers();
    for (int const l_late : {0, 1})
    {
        EarlyInASecond();
        for (auto const& [lp_type, lp_time, l_seconds] : {std::tuple{"indirect_connect_to_peer_request", "send_time", 59},
                                                         {"connect_to_peer_request_socket", "socket_creation_time", 59},
                                                         {"peer_connection_request_socket", "socket_creation_time", 59},
                                                         {"unsent_message", "send_time", 299}})
            for (Item* lp_item : d.GetType(lp_type)->GetItems())
                Age(lp_item, lp_time, l_seconds + l_late);
        m_lines.clear();
        mp_messenger->EveryHalfMinute();
        if (l_late)
            break;
        EXPECT_TRUE(m_lines.isEmpty());
        EXPECT_EQ(Leftovers(), l_items);
        EXPECT_EQ(Count("unsent_message"), 1u);
    }
    for (char const* lp_line : {"1|Indirect connection request of type P to bob expired, removing.",
                                "1|Indirect connection request of type P to carol expired, removing.",
                                "1|Direct connection attempt of type P to bob timed out, closing.",
                                "1|Indirect connection attempt of type F to dave timed out, closing."})
        EXPECT_TRUE(m_lines.contains(lp_line)) << lp_line;
    EXPECT_EQ(mp_central->TakeBody(1001), Body(1001).U32(55).Str("dave").Bytes());
    EXPECT_EQ(Leftovers() + Count("unsent_message") + mp_messenger->SocketRecordCount() + mp_messenger->QueuedBytes(), 0u);

    std::unique_ptr<PeerLink> lp_late = OpenFrom("carol");
    EXPECT_TRUE(lp_late->NothingOf(PeerLink::s_anyCode));
    EXPECT_FALSE(m_lines.join().contains("pending"));
}

// A port that cannot be had is reported once and tried again every half minute; a port changed
// for the next start takes effect then.
TEST_F(PeerTest, AFailedListenIsReportedAndRetried)
{
    auto lp_taken = std::make_unique<RefusingPort>();
    SetGlobal("listening_port", static_cast<int>(lp_taken->Port()));
    m_lines.clear();
    Restart();
    QSignalSpy l_changed(mp_messenger.get(), &PeerMessenger::ListeningChanged);
    EXPECT_EQ(m_lines, QByteArrayList({"1|Could not listen for peer connections on port " + QByteArray::number(lp_taken->Port()) +
                                     ": " + mp_messenger->ListenError().toUtf8()}));
    mp_messenger->EveryHalfMinute();
    EXPECT_TRUE(m_lines.size() == 1 && !mp_messenger->ListenError().isEmpty());
    lp_taken.reset();
    mp_messenger->EveryHalfMinute();
    EXPECT_TRUE(mp_messenger->ListenError().isEmpty());
    EXPECT_EQ(l_changed.count(), 1);
    EXPECT_TRUE(DialIn());

    int const l_next = FreePort();
    SetGlobal("new_listening_port", l_next);
    Restart();
    EXPECT_EQ(mp_messenger->ListeningPort(), l_next);
    EXPECT_EQ(GetGlobal("listening_port"), std::to_string(l_next));
    EXPECT_FALSE(GetGlobalValue("new_listening_port"));
}

// A dial to an address no connection can reach fails inside the call that starts it, before
// the socket's item is tied to its attempt or its dial-back request: both still end cleanly.
TEST_F(PeerTest, ADialThatFailsAtOnceEndsItsAttemptAndItsDialBack)
{
    constexpr quint32 s_broadcast = 0xffffffff;
    LogIn();
    User("bob") += d.GetType("user_address")->GetItem(Value(s_broadcast));
    User("bob") += d.GetType("user_port")->GetItem(Value(2235));
    mp_messenger->ConnectToUser("bob", "P");
    TakeIndirect("bob", "P");
    EXPECT_TRUE(WaitLogged("1|Direct connection of type P to user bob failed"));
    EXPECT_EQ(Count("connect_to_peer_request_socket"), 0u);

    // The server asks for a dial-back to the same kind of address: refused back at once.
    mp_central->Send(Body(18).Str("carol").Str("P").U32(s_broadcast).U32(2235).U32(42));
    EXPECT_EQ(mp_central->TakeBody(1001), Body(1001).U32(42).Str("carol").Bytes());
    EXPECT_TRUE(WaitFor([] { return Count("peer_connection_request") == 0 && Count("peer_connection_request_socket") == 0; }));
}
