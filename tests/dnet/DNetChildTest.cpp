// Alice as a child: candidates named by the server, adoption by the first search, parent loss.

#include "DNetFixture.h"

// Level and leader of a candidate stay with it until its first search; the search adopts that
// candidate, closes the other, and only then do level and leader reach the server.
TEST_F(DNetTest, TheFirstCandidateToSearchBecomesTheParent)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_bob = Candidate(m_bob, "bob");
    std::unique_ptr<PeerLink> lp_carol = Candidate(m_carol, "carol");
    ASSERT_TRUE(lp_bob && lp_carol);
    lp_bob->SendRaw(Framed(Level(7)) + Framed(Leader("boss")));
    lp_carol->SendRaw(Framed(Level(2)) + Framed(Leader("lead")));
    ASSERT_TRUE(WaitFor([] { return Count("dnet_candidate_leader") == 2; }));
    EXPECT_TRUE(NoReport());
    EXPECT_EQ(ParentName(), "unset");

    lp_carol->SendRaw(Framed(Search("sam", 77, "blue tune")));

    ASSERT_TRUE(WaitFor([this] { return !m_searches.isEmpty(); }));
    EXPECT_EQ(m_searches, QByteArrayList{"sam|77|blue tune"});
    EXPECT_EQ(Reports(3), (QByteArrayList{"level 3", "leader lead", "has parent"}));
    EXPECT_EQ(ParentName(), "carol");
    EXPECT_EQ(Own("dnet_level"), "3");
    EXPECT_EQ(Own("dnet_group_leader"), "lead");
    EXPECT_EQ(Count("dnet_parent_candidate"), 0u);
    EXPECT_TRUE(Logged("1|Received first search request from parent candidate carol, adopting as parent."));

    // Bob was closed at the adoption: his search reaches nobody.
    EXPECT_TRUE(lp_bob->WaitClosed());
    lp_bob->SendRaw(Framed(Search("sam", 78, "late")));
    EXPECT_TRUE(NoReport());
    EXPECT_EQ(m_searches.size(), 1);

    // With a parent, a new list is not looked at.
    NameParents({{"erin", m_bob.ListenPort()}});
    ASSERT_TRUE(WaitLogged("1|Received possible parents list, but already have a parent. Not processing."));
    EXPECT_FALSE(User("erin").IsConnected("attempted_dnet_connection"));
}

// The dial-back answer of a possible parent often shares its segment with level, leader and the
// first search: all of it sits in the socket when the peer layer hands it over.
TEST_F(DNetTest, FramesAlreadyInTheSocketAtTheHandOverAreRead)
{
    LogIn();
    RefusingPort const l_refusing;
    NameParents({{"bob", l_refusing.Port()}});
    QByteArray const l_request = mp_central->TakeBody(18);
    ASSERT_FALSE(l_request.isEmpty());
    quint32 const l_token = Fields(l_request.mid(4)).U32();
    std::unique_ptr<PeerLink> lp_bob = m_bob.Dial(mp_messenger->ListeningPort());
    ASSERT_TRUE(lp_bob);
    lp_bob->SendRaw(PeerLink::IndirectAnswerFrame(l_token) + Framed(Level(0)) + Framed(Leader("")) +
                    Framed(Search("sam", 5, "x")));
    EXPECT_EQ(Reports(3), (QByteArrayList{"level 1", "leader ", "has parent"}));
    EXPECT_EQ(ParentName(), "bob");
    EXPECT_EQ(Own("dnet_group_leader"), ""); // an empty leader is stored too
    EXPECT_EQ(m_searches, QByteArrayList{"sam|5|x"});
}

// Losing the parent is reported in a fixed order, the children stay, and a list that names only
// users tried before in this run starts nothing.
TEST_F(DNetTest, AfterParentLossOnlyUntriedNamesAreDialled)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_dan = Child(m_dan, "dan");
    std::unique_ptr<PeerLink> lp_bob = Parent(m_bob, "bob", Framed(Level(4)));
    ASSERT_TRUE(lp_bob && lp_dan);
    EXPECT_EQ(Reports(3), (QByteArrayList{"level 5", "leader ", "has parent"}));
    EXPECT_EQ(lp_dan->Next(), Level(5));
    EXPECT_EQ(lp_dan->Next(), Leader(""));
    EXPECT_EQ(lp_dan->Next(), Search("sam", 1, "first"));

    lp_bob->Close();
    EXPECT_EQ(Reports(3), (QByteArrayList{"no parent", "leader ", "level -1"}));
    EXPECT_EQ(ParentName() + Own("dnet_parent_socket") + Own("dnet_level") + Own("dnet_group_leader"),
              "unsetunsetunsetunset");
    EXPECT_TRUE(lp_dan->IsOpen());
    EXPECT_TRUE(lp_dan->Next(300).isEmpty());

    NameParents({{"bob", m_bob.ListenPort()}});
    ASSERT_TRUE(WaitLogged("2|Already attempted parent connection to bob, skipping"));
    EXPECT_FALSE(m_bob.Accept(300));
    EXPECT_TRUE(mp_central->NothingOf(18));
    EXPECT_TRUE(Candidate(m_carol, "carol"));
}

// One list starts at most twenty attempts; the names left over are not marked, so that a later
// list tries them.
TEST_F(DNetTest, ALongListStartsTwentyAttemptsAndLeavesTheRest)
{
    LogIn();
    RefusingPort const l_refusing;
    QList<std::pair<QByteArray, quint16>> l_names;
    for (int l_index = 0; l_index < 23; ++l_index)
        l_names.append({"user" + QByteArray::number(l_index), l_refusing.Port()});
    l_names.insert(5, {"", l_refusing.Port()});
    NameParents(l_names);
    ASSERT_TRUE(WaitLogged("2|Started 20 parent connection attempts, leaving 3 more names for a later list"));
    EXPECT_TRUE(Logged("1|Received possible parents list, 24 entries"));
    EXPECT_TRUE(Logged("2|Possible parent without a name, skipping"));
    EXPECT_TRUE(User("user19").IsConnected("attempted_dnet_connection"));
    EXPECT_FALSE(User("user20").IsConnected("attempted_dnet_connection"));
    EXPECT_EQ(User("user3").GetItem("user_port").AsInt(), l_refusing.Port());

    m_lines.clear();
    NameParents(l_names);
    ASSERT_TRUE(WaitLogged("2|Attempting parent connection to user22"));
    EXPECT_EQ(LinesWith("Attempting"), 3);
    EXPECT_EQ(LinesWith("Already attempted"), 20);
    EXPECT_FALSE(Logged("2|Started 20 parent connection attempts, leaving 0 more names for a later list"));
}
