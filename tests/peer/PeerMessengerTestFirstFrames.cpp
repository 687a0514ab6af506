// The first frame on a new connection, and the handover of "F" and "D" sockets to their owners.

#include "PeerFixture.h"

// Whatever the pieces, a first frame is looked at only when whole; any non-zero first byte
// makes a greeting; the request number of "F" may come in the same read or in pieces, and what
// follows it stays in the socket for the new owner.
TEST_F(PeerTest, FirstFramesAreTakenWhenWholeHoweverTheyArrive)
{
    QByteArray const l_greeting = PeerLink::GreetingFrame("bob", "P", 2);
    std::unique_ptr<PeerLink> lp_p = DialIn();
    lp_p->SendSplit(l_greeting, EveryByte(l_greeting.size()), 5);
    ASSERT_TRUE(WaitFor([] { return Count("peer_socket") == 1; }));
    EXPECT_EQ(m_lines, QByteArrayList({"1|Accepted messaging connection to user bob", "1|Peer connection of type P opened from user bob"}));

    QByteArray const l_file = PeerLink::GreetingFrame("carol", "F") + Body(77).Bytes() + "tail";
    for (bool const l_split : {false, true})
    {
        m_events.clear();
        std::unique_ptr<PeerLink> lp_f = DialIn();
        l_split ? lp_f->SendSplit(l_file, EveryByte(l_file.size() - 4), 5) : lp_f->SendRaw(l_file);
        ASSERT_TRUE(WaitFor([this] { return !m_events.isEmpty() && m_handed.back()->bytesAvailable() >= 4; }));
        EXPECT_EQ(m_events, QByteArrayList{"FileConnectionRequested|carol|socket|77"}) << l_split;
        EXPECT_EQ(m_handed.back()->readAll(), "tail");
    }
    EXPECT_EQ(Leftovers(), 0u);
    EXPECT_EQ(mp_messenger->SocketRecordCount(), 1u); // bob's messaging connection
}

// A bad first frame ends its socket with the lines that tell why, and leaves nothing behind.
TEST_F(PeerTest, BadFirstFramesEndTheSocketWithTheirLines)
{
    std::vector<std::pair<QByteArray, QByteArrayList>> const l_cases = {
        {PeerLink::GreetingFrame("bob", "P", 1, false), {}},
        {PeerLink::GreetingFrame("", "P"), {}},
        {PeerLink::GreetingFrame("bob", "X"), {"1|Peer connection of type X opened from user bob"}},
        {PeerLink::Framed({}), {"1|Failed to read direction from new peer connection"}},
        {PeerLink::Framed(QByteArray(3, '\0')), {"1|Failed to read req from indirect peer connection"}},
        {PeerLink::IndirectAnswerFrame(4711), {"1|Req sent on indirect peer connection not found"}},
    };
    for (auto const& [l_frame, l_lines] : l_cases)
    {
        m_lines.clear();
        std::unique_ptr<PeerLink> lp_link = DialIn();
        lp_link->SendRaw(l_frame);
        ASSERT_TRUE(lp_link->WaitClosed()) << l_frame.toHex().toStdString();
        EXPECT_EQ(m_lines, l_lines + QByteArrayList({"1|Failure initializing peer connection, disposing of socket",
                                                   "1|Disposing of socket", "2|Socket not identified"}));
        EXPECT_EQ(Leftovers() + Count("peer_socket") + mp_messenger->SocketRecordCount(), 0u);
    }

    // A first frame is a few dozen bytes: 4096 are taken, 4097 refused on the length alone.
    QByteArray const l_name(4096 - 14, 'n'); // flag, two lengths, the type and the u32 take 14
    std::unique_ptr<PeerLink> lp_largest = DialIn();
    lp_largest->SendGreeting(l_name, "P");
    EXPECT_TRUE(WaitLogged("1|Accepted messaging connection to user " + l_name));
    std::unique_ptr<PeerLink> lp_larger = DialIn();
    lp_larger->SendRaw(Body(4097).Bytes());
    ASSERT_TRUE(lp_larger->WaitClosed());
    EXPECT_TRUE(m_lines.join('\n').contains("\n1|peer 127.0.0.1:"));
    EXPECT_TRUE(m_lines.join().contains(" announced a frame of 4097 bytes, above the bound of 4096; closing"));
    EXPECT_EQ(m_lines.last(), "2|Identified as uninitialized socket");
    EXPECT_EQ(Leftovers(), 0u);
}

// Handed-over sockets carry no item or record and keep the bytes behind their first frame,
// whichever side asked; a socket nobody is there to take is closed.
TEST_F(PeerTest, HandoverLeavesTheSocketAndItsBytesToTheReceiver)
{
    std::unique_ptr<PeerLink> lp_requested = DialIn();
    lp_requested->SendRaw(PeerLink::GreetingFrame("bob", "D") + "tail");
    ASSERT_TRUE(WaitFor([this] { return m_events.size() == 1; }));
    LogIn();
    SetAddress("bob", m_bob.ListenPort());
    mp_messenger->RequestFileConnectionToUser("bob"); // by the direct way
    TakeIndirect("bob", "F");
    std::unique_ptr<PeerLink> lp_direct = m_bob.Accept();
    ASSERT_TRUE(lp_direct);
    EXPECT_EQ(lp_direct->TakeFirstFrame(), PeerLink::GreetingFrame("alice", "F").mid(4));
    mp_messenger->RequestDNetConnection("dave"); // by the dial-back
    std::unique_ptr<PeerLink> lp_back = m_bob.Dial(mp_messenger->ListeningPort());
    lp_back->SendRaw(PeerLink::IndirectAnswerFrame(TakeIndirect("dave", "D")) + "tail");
    ASSERT_TRUE(WaitFor([this] { return m_events.size() == 3; }));
    EXPECT_EQ(m_events, QByteArrayList({"DNetConnectionRequested|bob|socket", "FileConnectionAccepted|bob|socket",
                                        "DNetConnectionAccepted|dave|socket"}));
    for (std::size_t const l_index : {0, 2})
    {
        ASSERT_TRUE(WaitFor([&] { return m_handed[l_index]->bytesAvailable() >= 4; }));
        EXPECT_EQ(m_handed[l_index]->readAll(), "tail");
    }
    EXPECT_EQ(Leftovers() + mp_messenger->SocketRecordCount(), 0u);

    QObject::disconnect(mp_messenger.get(), &PeerMessenger::DNetConnectionRequested, nullptr, nullptr);
    std::unique_ptr<PeerLink> lp_unwanted = DialIn();
    lp_unwanted->SendGreeting("bob", "D");
    EXPECT_TRUE(lp_unwanted->WaitClosed());
    EXPECT_TRUE(m_lines.contains("1|No receiver for D connection from user bob, closing"));
    EXPECT_EQ(Leftovers() + mp_messenger->SocketRecordCount(), 0u);
}

// Asked through the server, the messenger dials back with the token, at the address it had
// stored for the user rather than the one in the request, and goes on by type.
TEST_F(PeerTest, DialBackAnswersWithTheTokenAndGoesOnByType)
{
    LogIn();
    RefusingPort const l_refusing;
    std::vector<std::unique_ptr<PeerLink>> l_links;
    for (auto const& [l_type, l_token] : {std::pair{QByteArray("P"), 7u}, {"F", 8u}, {"D", 9u}})
    {
        qsizetype const l_events = m_events.size() + 1;
        // The request's own address is dialled, not one stored before it.
        SetAddress("bob", l_refusing.Port());
        mp_central->Send(Body(18).Str("bob").Str(l_type).U32(s_loopback).U32(m_bob.ListenPort()).U32(l_token));
        PeerLink* lp_link = l_links.emplace_back(m_bob.Accept()).get();
        ASSERT_TRUE(lp_link);
        EXPECT_EQ(lp_link->TakeFirstFrame(), QByteArray(1, '\0') + Body(l_token).Bytes());
        EXPECT_TRUE(WaitLogged("1|Response connection to indirect request from bob, type " + l_type + " opened"));
        l_type == "P" ? Settle(*lp_link) : l_type == "F" ? lp_link->SendBareU32(42) : void();
        ASSERT_TRUE(WaitFor([&] { return m_events.size() == l_events; }));
    }
    EXPECT_EQ(m_events, QByteArrayList({"43|bob|marker", "FileConnectionRequested|bob|socket|42", "DNetConnectionRequested|bob|socket"}));
    EXPECT_EQ(Leftovers(), 0u);
    EXPECT_EQ(mp_messenger->SocketRecordCount(), 1u);
}
