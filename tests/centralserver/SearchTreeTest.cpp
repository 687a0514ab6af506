#include "HeldSocket.h"
#include "ServerFixture.h"

#include "SearchTree.h"
#include "SessionRegistry.h"

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
    // Listening port, whether without a parent, whether taking children.
    auto lp_alice = LoggedIn("alice");
    lp_alice->SendRaw(Body(2).U32(2234).Frame() + Body(71).U8(1).Frame() + Body(100).U8(1).Frame());
    auto lp_busy = LoggedIn("bob");
    lp_busy->SendRaw(Body(2).U32(2300).Frame() + Body(71).U8(0).Frame() + Body(100).U8(1).Frame());
    auto lp_silent = LoggedIn("dave");
    lp_alice->Sync();
    lp_busy->Sync();

    auto lp_carol = LoggedIn("carol");
    lp_carol->SendRaw(Body(2).U32(2400).Frame() + Body(71).U8(1).Frame());
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

QByteArray Name(int i_index) { return "user" + QByteArray::number(i_index); }

QSet<QByteArray> Names(int i_first, int i_last)
{
    QSet<QByteArray> l_names;
    for (int l_index = i_first; l_index <= i_last; ++l_index)
        l_names.insert(Name(l_index));
    return l_names;
}

// The names in a message 102.
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

// However many roots there are, a new root and a toggle of message 100 look at the same number of
// index entries. A parent that comes back is named to a bounded number of younger roots, the next
// ones in turn, and stands in each list beside the oldest parents.
TEST(SearchTreeIndexTest, ReportsAndOffersCostTheSameWhateverTheNumberOfSessions)
{
    CapturedLog l_log;
    QList<quint64> l_costs;
    for (int l_count : {100, 2000})
    {
        QObject l_owner;
        SessionRegistry l_registry;
        SearchTree l_tree(l_registry);
        QList<ClientConnection*> l_sessions;
        for (int l_index = 1; l_index <= l_count + 1; ++l_index)
        {
            l_sessions.append(HeldSocket::Session(Name(l_index), l_index, &l_owner));
            l_tree.SetListenPort(*l_sessions.last(), 2234);
            l_tree.SetCanParent(*l_sessions.last(), l_index != 2 && l_index <= l_count);
            if (l_index <= l_count)
                l_tree.SetHasParent(*l_sessions.last(), false);
        }
        QList<qsizetype> l_counts;
        NewlyOffered(l_sessions, l_counts);

        quint64 const l_before = l_tree.Examined();
        ClientConnection& l_newcomer = *l_sessions.last();
        l_tree.SetHasParent(l_newcomer, false);
        // user2 cannot take children, so the next oldest fills its place.
        QList<QByteArray> const l_oldest = {Name(1), Name(3), Name(4), Name(5), Name(6), Name(7), Name(8), Name(9), Name(10), Name(11)};
        EXPECT_EQ(NewlyOffered(l_sessions, l_counts), (QMap<QByteArray, QList<QByteArray>>{{l_newcomer.Name(), l_oldest}}));

        ClientConnection& l_returning = *l_sessions[3];
        l_tree.SetCanParent(l_returning, false);
        l_tree.SetCanParent(l_returning, true);
        l_costs.append(l_tree.Examined() - l_before);
        auto const l_first = NewlyOffered(l_sessions, l_counts);
        EXPECT_EQ(QSet<QByteArray>(l_first.keyBegin(), l_first.keyEnd()), Names(5, 14));
        EXPECT_EQ(l_first.value(Name(5)), QList<QByteArray>({Name(1), Name(3), Name(4)}));
        EXPECT_EQ(l_first.value(Name(14)), l_oldest);
        EXPECT_EQ(l_first.value(Name(11)), l_oldest.first(9));

        l_tree.SetCanParent(l_returning, false);
        l_tree.SetCanParent(l_returning, true);
        auto const l_second = NewlyOffered(l_sessions, l_counts);
        EXPECT_EQ(QSet<QByteArray>(l_second.keyBegin(), l_second.keyEnd()), Names(15, 24));
    }
    EXPECT_EQ(l_costs[0], l_costs[1]);
}
}
