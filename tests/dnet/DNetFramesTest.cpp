// Frames on D sockets as they arrive, and frames that cannot be taken.

#include "DNetFixture.h"

// Frames cut at every byte are taken whole, one after the other.
TEST_F(DNetTest, FramesSplitAnywhereAreTakenWhole)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_bob = Candidate(m_bob, "bob");
    ASSERT_TRUE(lp_bob);
    QByteArray const l_bytes = Framed(Level(1)) + Framed(Leader("ab")) + Framed(Search("sam", 3, "t"));
    QList<qsizetype> l_cuts;
    for (qsizetype l_at = 1; l_at < l_bytes.size(); ++l_at)
        l_cuts << l_at;
    lp_bob->SendSplit(l_bytes, l_cuts, 5);
    EXPECT_EQ(Reports(3), (QByteArrayList{"level 2", "leader ab", "has parent"}));
    EXPECT_EQ(m_searches, QByteArrayList{"sam|3|t"});
}

// Each bad frame closes its own socket, logged, and nothing else: an empty frame, a field that
// is not all there, a length above the bound, a message from a socket that is neither parent
// nor candidate. A bad message from the server is dropped.
TEST_F(DNetTest, ABadFrameClosesOnlyItsSocket)
{
    LogIn();
    ScriptedPeer l_frank;
    ScriptedPeer l_gus;
    std::unique_ptr<PeerLink> lp_bob = Candidate(m_bob, "bob");
    std::unique_ptr<PeerLink> lp_carol = Candidate(m_carol, "carol");
    std::unique_ptr<PeerLink> lp_frank = Candidate(l_frank, "frank");
    std::unique_ptr<PeerLink> lp_gus = Candidate(l_gus, "gus");
    std::unique_ptr<PeerLink> lp_dan = Child(m_dan, "dan");
    std::unique_ptr<PeerLink> lp_erin = Child(m_erin, "erin");
    ASSERT_TRUE(lp_bob && lp_carol && lp_frank && lp_gus && lp_dan && lp_erin);

    lp_bob->SendRaw(Framed({}));
    EXPECT_TRUE(lp_bob->WaitClosed());
    EXPECT_TRUE(Logged("1|Error reading message code, closing parent/candidate connection"));
    lp_carol->SendRaw(Framed(QByteArray(1, 4) + "ab"));
    EXPECT_TRUE(lp_carol->WaitClosed());
    EXPECT_TRUE(Logged("1|Error reading message with code 4, closing parent/candidate connection"));
    lp_frank->SendRaw(Body(0xffffffff).Raw(Level(1)).Bytes());
    EXPECT_TRUE(lp_frank->WaitClosed());
    EXPECT_TRUE(Logged("1|Frame of 4294967295 bytes announced on a parent/candidate connection, above the bound of 1048576; closing it"));
    EXPECT_EQ(LinesWith("Parent candidate socket closed"), 3);
    EXPECT_EQ(Count("dnet_parent_candidate"), 1u);

    // Gus's item goes as if another part of the program had dropped it.
    d.GetType("dnet_parent_candidate")->GetItems().Remove();
    lp_gus->SendRaw(Framed(Level(1)));
    EXPECT_TRUE(lp_gus->WaitClosed());
    EXPECT_TRUE(Logged("1|Message from a connection that is neither parent nor candidate, closing it"));

    lp_dan->SendRaw(Framed({}));
    EXPECT_TRUE(lp_dan->WaitClosed());
    EXPECT_TRUE(Logged("1|Error reading message code, closing child connection"));
    EXPECT_TRUE(Logged("1|Child socket closed"));
    lp_erin->SendRaw(Body(DNetLimits::s_maxChildFrameLength + 1).Bytes());
    EXPECT_TRUE(lp_erin->WaitClosed());
    EXPECT_TRUE(Logged("1|Frame of 4097 bytes announced on a child connection, above the bound of 4096; closing it"));
    EXPECT_EQ(Count("dnet_child"), 0u);

    SendAndSettle(Body(93).Raw(QByteArray(1, 3) + Body(49).Str("sam").Bytes()));
    EXPECT_TRUE(Logged("1|Error reading distributed message with code 3 from the server, dropping it"));
    EXPECT_TRUE(m_searches.isEmpty());
    EXPECT_TRUE(NoReport());
    EXPECT_TRUE(mp_server->IsConnected());
}
