// Alice as a parent: what her children get, their connections and their depth reports.

#include "DNetFixture.h"

// Children get the received bytes as they came, trailing bytes and unknown inner codes included,
// and the server's searches without its code; only the level is rebuilt, as alice's own.
TEST_F(DNetTest, ChildrenGetTheBytesAsReceivedAndTheLevelRebuilt)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_dan = Child(m_dan, "dan");
    ASSERT_TRUE(lp_dan);
    EXPECT_TRUE(lp_dan->Next(300).isEmpty()); // neither level nor leader yet: nothing

    std::unique_ptr<PeerLink> lp_bob = Parent(m_bob, "bob", Framed(Level(4)) + Framed(Leader("root")));
    ASSERT_TRUE(lp_bob);
    EXPECT_EQ(Reports(3), (QByteArrayList{"level 5", "leader root", "has parent"}));
    EXPECT_EQ(lp_dan->Next(), Level(5));
    EXPECT_EQ(lp_dan->Next(), Leader("root"));
    EXPECT_EQ(lp_dan->Next(), Search("sam", 1, "first"));
    std::unique_ptr<PeerLink> lp_erin = Child(m_erin, "erin");
    ASSERT_TRUE(lp_erin);
    EXPECT_EQ(lp_erin->Next(), Level(5));
    EXPECT_EQ(lp_erin->Next(), Leader("root"));

    QByteArray const l_padded = Search("sam", 2, "second") + "pad";
    QByteArray const l_other = QByteArray(1, 3) + Body(50).Str("opaque").Bytes();
    lp_bob->SendRaw(Framed(l_padded) + Framed(l_other));
    ASSERT_TRUE(WaitFor([this] { return m_searches.size() == 2; }));
    mp_central->Send(Body(93).Raw(Search("srv", 9, "radio") + "tail"));
    for (PeerLink* lp_child : {lp_dan.get(), lp_erin.get()})
    {
        EXPECT_EQ(lp_child->Next(), l_padded);
        EXPECT_EQ(lp_child->Next(), l_other);
        EXPECT_EQ(lp_child->Next(), Search("srv", 9, "radio") + "tail");
    }
    EXPECT_EQ(m_searches, (QByteArrayList{"sam|1|first", "sam|2|second", "srv|9|radio"}));

    lp_bob->SendRaw(Framed(Level(-1)));
    EXPECT_EQ(Report(), "level -1");
    EXPECT_EQ(Own("dnet_level"), "unset");
    EXPECT_EQ(lp_dan->Next(), Level(-1));
    lp_bob->SendRaw(Framed(Level(6)) + Framed(Leader("new") + "zz"));
    EXPECT_EQ(Reports(2), (QByteArrayList{"level 7", "leader new"}));
    EXPECT_EQ(lp_dan->Next(), Level(7));
    EXPECT_EQ(lp_dan->Next(), Leader("new") + "zz");

    // Values that change nothing are neither reported nor passed on.
    lp_bob->SendRaw(Framed(Level(6)) + Framed(Leader("new")));
    EXPECT_TRUE(NoReport());
    EXPECT_TRUE(lp_dan->Next(300).isEmpty());
}

// One user has one child connection: a second one replaces the first. The first is kept in
// reserve for a while: when the child closes the second, as the loser of a dial and a
// dial-back at once, the first carries the searches again; otherwise it is closed.
TEST_F(DNetTest, ASecondChildConnectionOfAUserReplacesTheFirst)
{
    LogIn();
    mp_dnet->SetChildStandbyMs(1500);
    std::unique_ptr<PeerLink> lp_first = Child(m_dan, "dan");
    std::unique_ptr<PeerLink> lp_second = Child(m_dan, "dan");
    ASSERT_TRUE(lp_first && lp_second);
    EXPECT_TRUE(Logged("2|Child connection already found, closing old connection."));
    EXPECT_EQ(Count("dnet_child"), 1u);
    mp_central->Send(Body(93).Raw(Search("srv", 1, "one")));
    EXPECT_EQ(lp_second->Next(), Search("srv", 1, "one"));
    EXPECT_TRUE(lp_first->Next(300).isEmpty());

    lp_second->Close();
    EXPECT_TRUE(WaitFor([this] { return Logged("2|Child connection of dan closed; its former connection takes its place"); }));
    mp_central->Send(Body(93).Raw(Search("srv", 2, "two")));
    EXPECT_EQ(lp_first->Next(), Search("srv", 2, "two"));
    EXPECT_EQ(Count("dnet_child"), 1u);

    std::unique_ptr<PeerLink> lp_third = Child(m_dan, "dan");
    ASSERT_TRUE(lp_third);
    EXPECT_TRUE(lp_first->WaitClosed(5000)) << "closed once its time in reserve is over";
    EXPECT_TRUE(lp_third->IsOpen());
    EXPECT_EQ(Count("dnet_child"), 1u);
}

// Depths are compared as numbers: reports of 9 and then 10 give 11. The server hears of each
// change once and of reports that leave the depth as it was not at all; a depth report may
// share the greeting's segment.
TEST_F(DNetTest, ChildDepthIsTheDeepestReportPlusOne)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_dan = Child(m_dan, "dan", Framed(Depth(9)));
    ASSERT_TRUE(lp_dan);
    EXPECT_EQ(Report(), "depth 1");
    EXPECT_EQ(Own("dnet_child_depth"), "10");
    EXPECT_TRUE(Logged("1|Received child depth 9 from dan"));

    std::unique_ptr<PeerLink> lp_erin = Child(m_erin, "erin");
    ASSERT_TRUE(lp_erin);
    lp_erin->SendRaw(Framed(Depth(10)));
    EXPECT_EQ(Report(), "depth 1");
    EXPECT_EQ(Own("dnet_child_depth"), "11");
    EXPECT_TRUE(Logged("1|New child depth is 11"));

    lp_dan->SendRaw(Framed(Depth(9)) + Framed(QByteArray(1, 8) + "other"));
    lp_erin->SendRaw(Framed(Depth(10)));
    ASSERT_TRUE(WaitFor([this] { return LinesWith("Received child depth") == 4; }));
    EXPECT_TRUE(Logged("1|Received message from child, code 8"));
    EXPECT_TRUE(NoReport());
    EXPECT_EQ(Own("dnet_child_depth"), "11");
}

// A child that does not read is dropped once more than 4 MiB wait for it; the tree goes on.
// The frames relayed have the longest length allowed.
TEST_F(DNetTest, AChildThatStopsReadingIsDropped)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_dan = Child(m_dan, "dan");
    std::unique_ptr<PeerLink> lp_bob = Parent(m_bob, "bob");
    ASSERT_TRUE(lp_dan && lp_bob);
    lp_dan->StopReading();
    // Alice's kernel buffer for dan kept small, so that the backlog builds up in her socket soon.
    ItemPtr(User("dan")["dnet_child"]).AsPointer<QTcpSocket>()->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, 65536);
    QByteArray const l_large = QByteArray(1, 3) + Body(50).Raw(QByteArray(DNetLimits::s_maxParentFrameLength - 5, 'x')).Bytes();
    for (int l_frame = 0; l_frame < 24 && !Logged("1|Child dan leaves more than 4194304 bytes unread, dropping it"); ++l_frame)
    {
        lp_bob->SendRaw(Framed(l_large));
        WaitFor([] { return false; }, 50);
    }
    ASSERT_TRUE(WaitLogged("1|Child dan leaves more than 4194304 bytes unread, dropping it"));
    EXPECT_EQ(Count("dnet_child"), 0u);
    EXPECT_EQ(ParentName(), "bob");
    EXPECT_TRUE(lp_bob->IsOpen());
}
