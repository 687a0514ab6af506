#include "HeldSocket.h"
#include "ServerFixture.h"

#include "SearchTree.h"

namespace
{
class SearchTreeTest : public ServerFixture
{
protected:
    // A client logged in whose reports the server has served.
    std::unique_ptr<RawClient> Reported(QByteArray const& i_name, QByteArray const& i_reports)
    {
        auto lp_client = LoggedIn(i_name);
        lp_client->SendRaw(i_reports);
        lp_client->Sync();
        return lp_client;
    }
};

// The distributed search request that message 93 carries.
QByteArray Search(QByteArray const& i_searcher, quint32 i_token, QByteArray const& i_text)
{
    return Body(93).U8(3).U32(49).Str(i_searcher).U32(i_token).Str(i_text).Bytes();
}

// A client's reports about its place in the tree.
QByteArray Port(quint32 i_port) { return Body(2).U32(i_port).Frame(); }
QByteArray NoParent() { return Body(71).U8(1).Frame(); }
QByteArray HasParent() { return Body(71).U8(0).Frame(); }
QByteArray TakesChildren() { return Body(100).U8(1).Frame(); }

// The names in a message 102, in order.
QList<QByteArray> Offered(QByteArray const& i_body)
{
    Fields l_list(i_body.mid(4));
    QList<QByteArray> l_names(l_list.U32());
    for (QByteArray& l_name : l_names)
    {
        l_name = l_list.Str();
        l_list.U32(), l_list.U32();
    }
    return l_names;
}

// Searches enter at every client not known to have a parent, one that never said included, but
// not at the searcher; the log line names the text.
TEST_F(SearchTreeTest, SearchesEnterAtClientsWithoutAParentAndAreLoggedWithTheirText)
{
    auto lp_alice = Reported("alice", Port(2234) + NoParent() + TakesChildren());
    auto lp_bob = Reported("bob", Port(2300) + HasParent() + TakesChildren());
    auto lp_dave = LoggedIn("dave");

    lp_alice->Send(Body(26).U32(9).Str("blue song"));
    EXPECT_EQ(lp_dave->TakeBody(93), Search("alice", 9, "blue song"));
    EXPECT_TRUE(lp_bob->NothingOf(93));
    EXPECT_TRUE(lp_alice->NothingOf(93, 50));
    EXPECT_FALSE(LogLine(QStringLiteral("search alice token 9 to 1 clients for \"blue song\"")).isEmpty());

    // A client whose parent is gone is reached again.
    lp_bob->Send(Body(71).U8(1));
    lp_bob->Sync();
    lp_dave->Send(Body(103).U32(10).Str("wish"));
    EXPECT_EQ(lp_alice->TakeBody(93), Search("dave", 10, "wish"));
    EXPECT_EQ(lp_bob->TakeBody(93), Search("dave", 10, "wish"));
    EXPECT_TRUE(lp_dave->NothingOf(93));
    EXPECT_FALSE(LogLine(QStringLiteral("wishlist search dave token 10 to 2 clients for \"wish\"")).isEmpty());
}

// A client is named listening clients that take children and rank below it, whether or not they
// have a parent of their own: the youngest first, a full list at a time, each name once.
TEST_F(SearchTreeTest, ParentsBelowAreNamedYoungestFirstAFullListAtATimeEachOnce)
{
    m_options.m_possibleParents = 2;
    Restart();
    auto lp_alice = Reported("alice", Port(2234) + TakesChildren() + NoParent());
    auto lp_bob = Reported("bob", Port(2300) + NoParent());
    EXPECT_EQ(lp_bob->TakeBody(102), Body(102).U32(1).Str("alice").U32(c_localhost).U32(2234).Bytes());
    lp_bob->SendRaw(HasParent() + TakesChildren());
    lp_bob->Sync();
    // Takes children but does not listen, so nobody could reach it.
    auto lp_deaf = Reported("deaf", TakesChildren());
    auto lp_carol = Reported("carol", Port(2400) + NoParent());
    EXPECT_EQ(Offered(lp_carol->TakeBody(102)), QList<QByteArray>({"bob", "alice"}));
    lp_carol->SendRaw(HasParent() + TakesChildren());
    lp_carol->Sync();

    auto lp_dave = LoggedIn("dave");
    lp_dave->Send(Body(71).U8(1));
    EXPECT_EQ(Offered(lp_dave->TakeBody(102)), QList<QByteArray>({"carol", "bob"}));
    EXPECT_FALSE(LogLine(QStringLiteral("possible parents for dave: carol, bob")).isEmpty());
    lp_dave->Send(Body(71).U8(1));
    EXPECT_EQ(Offered(lp_dave->TakeBody(102)), QList<QByteArray>({"alice"}));
    lp_dave->Send(Body(71).U8(1));
    EXPECT_TRUE(lp_dave->NothingOf(102));
    for (RawClient* lp_older : {lp_alice.get(), lp_bob.get(), lp_carol.get(), lp_deaf.get()})
        EXPECT_TRUE(lp_older->NothingOf(102, 50));
}

// A child whose parent left is named the parents it has not had, a parent that appears later is
// named to clients still short of a full list, and one named before is not named again, even in a
// new session.
TEST_F(SearchTreeTest, AChildWhoseParentLeftHearsOfOtherParentsAndOfLaterOnes)
{
    m_options.m_possibleParents = 1;
    Restart();
    auto lp_late = Reported("late", {});
    auto lp_alice = Reported("alice", Port(2234) + TakesChildren() + NoParent());
    auto lp_bob = Reported("bob", Port(2300) + TakesChildren() + NoParent());
    EXPECT_EQ(Offered(lp_bob->TakeBody(102)), QList<QByteArray>({"alice"}));
    auto lp_carol = Reported("carol", Port(2400) + NoParent());
    EXPECT_EQ(Offered(lp_carol->TakeBody(102)), QList<QByteArray>({"bob"}));
    lp_carol->Send(Body(71).U8(0));

    lp_bob.reset();
    EXPECT_FALSE(LogLine(QStringLiteral("logout bob")).isEmpty());
    lp_carol->Send(Body(71).U8(1));
    EXPECT_EQ(Offered(lp_carol->TakeBody(102)), QList<QByteArray>({"alice"}));
    lp_carol->Send(Body(71).U8(1));
    EXPECT_TRUE(lp_carol->NothingOf(102));

    lp_bob = Reported("bob", Port(2300) + TakesChildren());
    auto lp_dave = Reported("dave", Port(2500) + TakesChildren());
    EXPECT_TRUE(lp_carol->NothingOf(102));

    // Below everybody, so it is named to all that still wait: alice, who found no parent below
    // her, and carol; not to bob, who has not said whether he has a parent.
    lp_late->SendRaw(Port(2600) + TakesChildren());
    Body const l_late = Body(102).U32(1).Str("late").U32(c_localhost).U32(2600);
    EXPECT_EQ(lp_carol->TakeBody(102), l_late.Bytes());
    EXPECT_EQ(lp_alice->TakeBody(102), l_late.Bytes());
    EXPECT_TRUE(lp_bob->NothingOf(102, 50));
}

// A name keeps its rank when it logs in again, so a parent that comes back below its old child
// is not named that child, while newcomers are named both.
TEST_F(SearchTreeTest, AReturningParentKeepsItsRankAndIsNotNamedItsChild)
{
    auto lp_alice = Reported("alice", Port(2234) + TakesChildren() + NoParent());
    auto lp_bob = Reported("bob", Port(2300) + TakesChildren() + NoParent());
    EXPECT_EQ(Offered(lp_bob->TakeBody(102)), QList<QByteArray>({"alice"}));
    lp_bob->Send(Body(71).U8(0));

    lp_alice.reset();
    EXPECT_FALSE(LogLine(QStringLiteral("logout alice")).isEmpty());
    lp_alice = LoggedIn("alice");
    lp_alice->SendRaw(Port(2234) + TakesChildren() + NoParent());
    EXPECT_TRUE(lp_alice->NothingOf(102));
    // A session that replaces another takes its place where searches enter.
    auto lp_replaced = std::move(lp_alice);
    lp_alice = LoggedIn("alice");
    EXPECT_TRUE(lp_replaced->WaitClosed());
    lp_alice->SendRaw(Port(2234) + TakesChildren());
    lp_alice->Sync();

    auto lp_carol = Reported("carol", NoParent());
    EXPECT_EQ(Offered(lp_carol->TakeBody(102)), QList<QByteArray>({"bob", "alice"}));
    lp_carol->Send(Body(26).U32(4).Str("x"));
    EXPECT_EQ(lp_alice->TakeBody(93), Search("carol", 4, "x"));
    EXPECT_TRUE(lp_bob->NothingOf(93, 50));
}

QByteArray Name(int i_index) { return "user" + QByteArray::number(i_index); }

// The sessions that were sent possible parents since io_counts was taken, each with the names of
// its latest list; io_counts is taken anew.
QMap<QByteArray, QList<QByteArray>> NewlyOffered(QList<ClientConnection*> const& i_sessions, QList<qsizetype>& io_counts)
{
    QMap<QByteArray, QList<QByteArray>> l_offered;
    io_counts.resize(i_sessions.size());
    for (qsizetype l_index = 0; l_index < i_sessions.size(); ++l_index)
    {
        QList<QByteArray> const l_bodies = HeldSocket::Of(*i_sessions[l_index]).Bodies(102);
        if (l_bodies.size() != io_counts[l_index])
            l_offered.insert(i_sessions[l_index]->Name(), Offered(l_bodies.last()));
        io_counts[l_index] = l_bodies.size();
    }
    return l_offered;
}

QMap<QByteArray, QList<QByteArray>> Each(int i_first, int i_last, QList<QByteArray> const& i_names)
{
    QMap<QByteArray, QList<QByteArray>> l_each;
    for (int l_index = i_first; l_index <= i_last; ++l_index)
        l_each.insert(Name(l_index), i_names);
    return l_each;
}

// However many clients wait for a parent, a parent that appears, and a client that says it has
// none, look at the same number of index entries. New parents are named to the waiting clients
// above them in turn, a bounded number per report.
TEST(SearchTreeIndexTest, ReportsAndOffersCostTheSameWhateverTheNumberOfSessions)
{
    CapturedLog l_log;
    QList<quint64> l_costs;
    constexpr int c_batch = SearchTree::c_waitingPerNewParent;
    for (int l_count : {200, 2000})
    {
        QObject l_owner;
        SearchTree l_tree(10);
        QList<ClientConnection*> l_sessions;
        for (int l_index = 1; l_index <= l_count; ++l_index)
        {
            l_sessions.append(HeldSocket::Session(Name(l_index), l_index, &l_owner));
            l_tree.Join(*l_sessions.last());
            l_tree.SetListenPort(*l_sessions.last(), 2234);
            l_tree.SetHasParent(*l_sessions.last(), false);
        }
        QList<qsizetype> l_counts;
        EXPECT_TRUE(NewlyOffered(l_sessions, l_counts).isEmpty());

        quint64 const l_before = l_tree.Examined();
        l_tree.SetCanParent(*l_sessions[0], true);
        EXPECT_EQ(NewlyOffered(l_sessions, l_counts), Each(2, 1 + c_batch, {Name(1)}));
        l_tree.SetCanParent(*l_sessions[1], true);
        EXPECT_EQ(NewlyOffered(l_sessions, l_counts), Each(2 + c_batch, 1 + 2 * c_batch, {Name(2)}));
        // Named already, so a parent that stops and starts again is named to the ones after.
        l_tree.SetCanParent(*l_sessions[0], false);
        l_tree.SetCanParent(*l_sessions[0], true);
        EXPECT_EQ(NewlyOffered(l_sessions, l_counts), Each(2 + 2 * c_batch, 1 + 3 * c_batch, {Name(1)}));

        ClientConnection& l_newcomer = *HeldSocket::Session("newcomer", l_count + 1, &l_owner);
        l_sessions.append(&l_newcomer);
        l_tree.Join(l_newcomer);
        l_tree.SetHasParent(l_newcomer, false);
        EXPECT_EQ(NewlyOffered(l_sessions, l_counts), (QMap<QByteArray, QList<QByteArray>>{{"newcomer", {Name(2), Name(1)}}}));
        l_costs.append(l_tree.Examined() - l_before);
    }
    EXPECT_EQ(l_costs[0], l_costs[1]);
}
}
