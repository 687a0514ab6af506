// What alice offers and reports to the server: whether she can take children, and her state
// after a reconnection.

#include "DNetFixture.h"

// The answer needs both numbers from the server and an own speed, and is sent only when it
// changes. Speed times 10 and minimum times 1024 pass 32 bits in two of the cases.
TEST_F(DNetTest, CanParentFollowsSpeedMinimumAndRatio)
{
    LogIn();
    SetGlobal("upload_speed", Value(10 * 1024));
    SendAndSettle(Body(83).U32(10));
    EXPECT_FALSE(Logged("1|Determining whether we can accept child connections."));
    SendAndSettle(Body(84).U32(50));
    EXPECT_EQ(Report(), "can parent 1"); // exactly the minimum goes on to the capacity
    EXPECT_TRUE(Logged("2|Currently have 0 child connections, max capacity 2"));

    SetGlobal("upload_speed", Value(10 * 1024 - 1));
    EXPECT_EQ(Report(), "can parent 0");
    EXPECT_TRUE(Logged("2|Below minimum parent speed, so no."));

    SendAndSettle(Body(84).U32(0));
    SetGlobal("upload_speed", Value(300000000));
    EXPECT_TRUE(Logged("2|Currently have 0 child connections, max capacity 0"));
    EXPECT_EQ(m_lines.last(), "2|No status change, not notifying.");
    SendAndSettle(Body(84).U32(1));
    EXPECT_EQ(Report(), "can parent 1");
    EXPECT_TRUE(Logged("2|Currently have 0 child connections, max capacity 2929687"));
    SendAndSettle(Body(83).U32(3000000));
    EXPECT_EQ(Report(), "can parent 0");

    // Capacity 1: a child does not change the answer, the next speed does.
    SendAndSettle(Body(83).U32(10));
    SendAndSettle(Body(84).U32(100));
    SetGlobal("upload_speed", Value(10 * 1024));
    EXPECT_EQ(Report(), "can parent 1");
    m_lines.clear();
    ASSERT_TRUE(Child(m_dan, "dan"));
    EXPECT_EQ(LinesWith("Determining"), 0);
    SetGlobal("upload_speed", Value(10 * 1024 + 1));
    EXPECT_EQ(Report(), "can parent 0");
    EXPECT_TRUE(Logged("2|Currently have 1 child connections, max capacity 1"));
}

// After a reconnection the server hears the whole state again, in order, a true answer included.
TEST_F(DNetTest, AReconnectionReportsTheStateInOrder)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_bob = Parent(m_bob, "bob", Framed(Level(4)) + Framed(Leader("root")));
    ASSERT_TRUE(lp_bob);
    EXPECT_EQ(Reports(3), (QByteArrayList{"level 5", "leader root", "has parent"}));
    SetGlobal("upload_speed", Value(100 * 1024));
    SendAndSettle(Body(83).U32(1));
    SendAndSettle(Body(84).U32(1));
    EXPECT_EQ(Report(), "can parent 1");

    mp_server->Disconnect();
    ServerTest::LogIn();
    EXPECT_EQ(Reports(4), (QByteArrayList{"has parent", "leader root", "level 5", "can parent 1"}));
    EXPECT_TRUE(lp_bob->IsOpen());
}
