#include <memory>

#include "GraphFixture.h"

using EventTest = GraphFixture;

TEST_F(EventTest, ConnectDisplacingAOneRunsTheWholeDisconnectionFirst)
{
    ItemPtr l_key = (*mp_global)["port"];
    l_key += (*mp_globalValue)["5"];
    Recorder l_recorder(m_data);
    for (auto [lp_first, lp_second] : {std::pair{mp_global, mp_globalValue}, {mp_globalValue, mp_global}})
        l_recorder.ListenType(lp_first), l_recorder.ListenPair(lp_first, lp_second);
    l_recorder.ListenData();

    (*mp_globalValue)["6"]->Connect(l_key);

    std::vector<std::string> const l_expected = {
        "added:6",
        // The old value goes first, started from the key's end.
        "disc:port>5", "ddisc:port>5", "disc:5>port", "pdisc:port>5", "pdisc:5>port",
        // Then the new connection, in the order: caller's type, data, other type, pairs.
        "conn:6>port", "dconn:6>port", "conn:port>6", "pconn:6>port", "pconn:port>6"};
    EXPECT_EQ(l_recorder.m_lines, l_expected);
    EXPECT_EQ(l_key["global_value"].AsString(), "6");
}

TEST_F(EventTest, RepeatedConnectFiresNothingAndUnconnectedDisconnectFiresAll)
{
    Item *lp_room = mp_room->NewItem("lobby"), *lp_user = mp_user->NewItem("alice");
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    l_recorder.ListenPair(mp_room, mp_user);

    // A pair handler sees its first type first, whichever side the call started from.
    lp_user->Connect(lp_room);
    EXPECT_EQ(lp_room->Connect(lp_user), lp_user);
    lp_room->Disconnect(lp_user);
    lp_user->Disconnect(lp_room);
    std::vector<std::string> const l_expected = {"conn:alice>lobby", "pconn:lobby>alice", "disc:alice>lobby",
                                                 "pdisc:lobby>alice", "disc:alice>lobby", "pdisc:lobby>alice"};
    EXPECT_EQ(l_recorder.m_lines, l_expected);
    EXPECT_TRUE(lp_user->IsDisconnectedFromAll());
}

TEST_F(EventTest, DestroyedListenersAreNeverCalledAgainAndAreFreed)
{
    auto lp_gone = std::make_unique<Reactor>();
    lp_gone->Added(mp_user);
    mp_user->NewItem("a");
    EXPECT_EQ(lp_gone->m_calls, 1);
    lp_gone.reset();
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 1u);
    mp_user->NewItem("b"); // would be a use after free if the handler were called
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 0u);

    // One destroys itself in its handler; of two more, whichever runs first destroys the other.
    Reactor* lp_self = new Reactor([&](Item*) { delete lp_self; });
    lp_self->Added(mp_user);
    std::unique_ptr<Reactor> lp_first, lp_second;
    lp_first = std::make_unique<Reactor>([&](Item*) { lp_second.reset(); });
    lp_second = std::make_unique<Reactor>([&](Item*) { lp_first.reset(); });
    lp_first->Added(mp_user);
    lp_second->Added(mp_user);
    mp_user->NewItem("c");
    ASSERT_NE(lp_first == nullptr, lp_second == nullptr);
    EXPECT_EQ((lp_first ? lp_first : lp_second)->m_calls, 1);
    mp_user->NewItem("d");
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 1u);
}

// Listeners made and destroyed over and over on events that never fire, as a manager made for
// each of many runs leaves them: the events and the paths keep only the live ones.
TEST_F(EventTest, ListenersThatWentAreTakenOutAsNewOnesComeEvenWithoutAFiring)
{
    auto const l_roomWithUser = [this]
    {
        auto* lp_root = new PathNode(&m_data, "room");
        new PathNode(lp_root, "user", TriggerConnected);
        return lp_root;
    };
    Reactor l_alive;
    l_alive.Added(mp_room).Path(l_roomWithUser());
    std::size_t const l_paths = m_data.PathHandlerCount();
    for (int l_round = 0; l_round < 100; ++l_round)
    {
        Reactor l_passing;
        l_passing.Added(mp_room).Removed(mp_room).Path(l_roomWithUser());
    }
    EXPECT_LE(mp_room->m_itemAddedEvent.Size(), 2u);
    EXPECT_LE(mp_room->m_itemRemovedEvent.Size(), 1u);
    EXPECT_LE(m_data.PathHandlerCount(), l_paths + 1);
    mp_room->NewItem("lobby");
    EXPECT_EQ(l_alive.m_calls, 1);
}

TEST_F(EventTest, HandlerAddedDuringTheWalkRunsFromTheNextFiring)
{
    Reactor l_late;
    Reactor l_adder([&](Item* ip_item) {
        if (ip_item->AsString() == "a")
            l_late.Added(mp_user);
    });
    l_adder.Added(mp_user);
    mp_user->NewItem("a");
    EXPECT_EQ(l_late.m_calls, 0);
    mp_user->NewItem("b");
    EXPECT_EQ(l_late.m_calls, 1);
}

TEST_F(EventTest, HandlerMarkedInANestedWalkStaysValidForTheOuterWalk)
{
    // Whichever of the two runs first in the outer walk fires the same event again (a nested
    // walk), and the nester kills the victim first; the nested walk takes the dead handler out,
    // and the outer walk must then skip it without touching freed memory.
    auto lp_victim = std::make_unique<Reactor>([&](Item* ip_item) {
        if (ip_item->AsString() == "outer")
            mp_user->NewItem("inner-first");
    });
    Reactor l_nester([&](Item* ip_item) {
        if (ip_item->AsString() == "outer" && lp_victim)
        {
            lp_victim.reset();
            mp_user->NewItem("inner");
        }
    });
    l_nester.Added(mp_user);
    lp_victim->Added(mp_user);
    mp_user->NewItem("outer");
    EXPECT_FALSE(lp_victim);
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 1u);
    EXPECT_EQ(EventDelivery::Depth(), 0);
}

// A path listener that takes its request away as soon as the user comes, as a refused
// dial-back goes: the ends stay readable to the end of the announcement, and listeners later
// in it hear nothing of a connection that is gone.
TEST_F(EventTest, AListenerMayRemoveAnEndOfTheConnectionBeingAnnounced)
{
    auto* lp_root = new PathNode(&m_data, "peer_connection_request");
    new PathNode(lp_root, "user", TriggerConnected);
    Reactor l_remover([](Item* ip_request) { ip_request->Remove(); });
    l_remover.Path(lp_root);
    Recorder l_recorder(m_data);
    l_recorder.ListenPair(mp_user, mp_pcr);

    Item* lp_user = mp_user->NewItem("bob");
    mp_pcr->NewItem()->Connect(lp_user);
    EXPECT_EQ(l_remover.m_calls, 1);
    EXPECT_EQ(mp_pcr->ItemCount(), 0u);
    EXPECT_TRUE(lp_user->IsDisconnectedFromAll());
    EXPECT_EQ(l_recorder.m_lines, (std::vector<std::string>{"pdisc:bob>peer_connection_request"}));
}
