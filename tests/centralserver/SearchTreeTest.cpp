#include "ServerFixture.h"

namespace
{
using SearchTreeTest = ServerFixture;

// The distributed search request that message 93 carries.
QByteArray Search(QByteArray const& i_searcher, quint32 i_token, QByteArray const& i_text)
{
    return Body(93).U8(3).U32(49).Str(i_searcher).U32(i_token).Str(i_text).Bytes();
}

// Searches reach every client without a parent but the searcher; a client that becomes a root
// is offered the older roots that can take children, and offered to the younger roots if it can.
TEST_F(SearchTreeTest, SearchesReachRootsAndRootsAreOfferedOlderRootsThatCanTakeChildren)
{
    auto lp_alice = LoggedIn("alice");
    lp_alice->Send(Body(2).U32(2234));
    lp_alice->Send(Body(71).U8(1));
    lp_alice->Send(Body(100).U8(1));
    auto lp_busy = LoggedIn("bob");
    lp_busy->Send(Body(2).U32(2300));
    lp_busy->Send(Body(71).U8(0));
    lp_busy->Send(Body(100).U8(1));
    auto lp_silent = LoggedIn("dave");
    lp_alice->Sync();
    lp_busy->Sync();

    auto lp_carol = LoggedIn("carol");
    lp_carol->Send(Body(2).U32(2400));
    lp_carol->Send(Body(71).U8(1));
    Body const l_alice = Body(102).U32(1).Str("alice").U32(c_localhost).U32(2234);
    EXPECT_EQ(lp_carol->TakeBody(102), l_alice.Bytes());
    EXPECT_TRUE(lp_alice->NothingOf(102, 50));

    lp_alice->Send(Body(26).U32(9).Str("blue song"));
    EXPECT_EQ(lp_carol->TakeBody(93), Search("alice", 9, "blue song"));
    EXPECT_EQ(lp_silent->TakeBody(93), Search("alice", 9, "blue song"));
    EXPECT_TRUE(lp_busy->NothingOf(93));
    EXPECT_TRUE(lp_alice->NothingOf(93, 50));
    lp_carol->Send(Body(103).U32(10).Str("wish"));
    EXPECT_EQ(lp_alice->TakeBody(93), Search("carol", 10, "wish"));
    EXPECT_TRUE(lp_carol->NothingOf(93));

    // A younger root that starts taking children is offered to nobody older.
    lp_carol->Send(Body(100).U8(1));
    EXPECT_TRUE(lp_alice->NothingOf(102));
    // An older client that becomes a root again is offered to the younger roots, and reached.
    lp_busy->Send(Body(71).U8(1));
    EXPECT_EQ(lp_carol->TakeBody(102),
        Body(102).U32(2).Str("alice").U32(c_localhost).U32(2234).Str("bob").U32(c_localhost).U32(2300).Bytes());
    EXPECT_EQ(lp_busy->TakeBody(102), l_alice.Bytes());
    lp_alice->Send(Body(26).U32(11).Str("again"));
    EXPECT_EQ(lp_busy->TakeBody(93), Search("alice", 11, "again"));

    // A client with a parent is offered none.
    auto lp_erin = LoggedIn("erin");
    lp_erin->Send(Body(71).U8(0));
    EXPECT_TRUE(lp_erin->NothingOf(102));
}
}
