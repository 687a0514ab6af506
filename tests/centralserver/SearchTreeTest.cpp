#include "ServerFixture.h"

namespace
{
using SearchTreeTest = ServerFixture;

// Reads the distributed search request that message 93 carries.
void ExpectSearch(RawClient& io_client, QByteArray const& i_searcher, quint32 i_token,
    QByteArray const& i_text)
{
    std::optional<Fields> l_search = io_client.Take(93);
    ASSERT_TRUE(l_search);
    EXPECT_EQ(l_search->U8(), 3);
    EXPECT_EQ(l_search->U32(), 49u);
    EXPECT_EQ(l_search->Str(), i_searcher);
    EXPECT_EQ(l_search->U32(), i_token);
    EXPECT_EQ(l_search->Str(), i_text);
    EXPECT_TRUE(l_search->AtEnd());
}

TEST_F(SearchTreeTest, SearchesReachParentlessClientsButNotTheSearcher)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    auto lp_child = LoggedIn("carol");
    auto lp_silent = LoggedIn("dave");
    lp_alice->Send(Body(71).U8(1));
    lp_bob->Send(Body(71).U8(1));
    lp_child->Send(Body(71).U8(0));
    for (RawClient* lp_client : {lp_alice.get(), lp_bob.get(), lp_child.get()})
        lp_client->Sync();

    lp_alice->Send(Body(26).U32(9).Str("blue song"));
    ExpectSearch(*lp_bob, "alice", 9, "blue song");
    ExpectSearch(*lp_silent, "alice", 9, "blue song");
    EXPECT_TRUE(lp_child->NothingOf(93));
    EXPECT_TRUE(lp_alice->NothingOf(93, 50));

    lp_bob->Send(Body(103).U32(10).Str("wish"));
    ExpectSearch(*lp_alice, "bob", 10, "wish");
    EXPECT_TRUE(lp_bob->NothingOf(93));

    // Losing its parent makes a client a root again.
    lp_child->Send(Body(71).U8(1));
    lp_child->Sync();
    lp_alice->Send(Body(26).U32(11).Str("again"));
    ExpectSearch(*lp_child, "alice", 11, "again");
}

TEST_F(SearchTreeTest, RootsAreOfferedOlderRootsThatCanTakeChildren)
{
    auto lp_alice = LoggedIn("alice");
    lp_alice->Send(Body(2).U32(2234));
    lp_alice->Send(Body(71).U8(1));
    lp_alice->Send(Body(100).U8(1));
    auto lp_busy = LoggedIn("bob");
    lp_busy->Send(Body(2).U32(2300));
    lp_busy->Send(Body(71).U8(0));
    lp_busy->Send(Body(100).U8(1));
    lp_alice->Sync();
    lp_busy->Sync();

    auto lp_carol = LoggedIn("carol");
    lp_carol->Send(Body(2).U32(2400));
    lp_carol->Send(Body(71).U8(1));
    std::optional<Fields> l_parents = lp_carol->Take(102);
    ASSERT_TRUE(l_parents);
    EXPECT_EQ(l_parents->U32(), 1u);
    EXPECT_EQ(l_parents->Str(), "alice");
    EXPECT_EQ(l_parents->U32(), c_localhost);
    EXPECT_EQ(l_parents->U32(), 2234u);
    EXPECT_TRUE(l_parents->AtEnd());
    EXPECT_TRUE(lp_alice->NothingOf(102, 50));

    // A younger root that starts taking children is offered to nobody older.
    lp_carol->Send(Body(100).U8(1));
    EXPECT_TRUE(lp_alice->NothingOf(102));

    // An older client that becomes a root again is offered to the younger roots.
    lp_busy->Send(Body(71).U8(1));
    std::optional<Fields> l_more = lp_carol->Take(102);
    ASSERT_TRUE(l_more);
    EXPECT_EQ(l_more->U32(), 2u);
    EXPECT_EQ(l_more->Str(), "alice");
    l_more->U32();
    l_more->U32();
    EXPECT_EQ(l_more->Str(), "bob");
    l_more->U32();
    EXPECT_EQ(l_more->U32(), 2300u);
    std::optional<Fields> l_forBob = lp_busy->Take(102);
    ASSERT_TRUE(l_forBob);
    EXPECT_EQ(l_forBob->U32(), 1u);
    EXPECT_EQ(l_forBob->Str(), "alice");

    // A client with a parent is offered none.
    auto lp_dave = LoggedIn("dave");
    lp_dave->Send(Body(71).U8(0));
    EXPECT_TRUE(lp_dave->NothingOf(102));
}
}
