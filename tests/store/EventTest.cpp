#include <functional>
#include <memory>

#include "GraphFixture.h"

using EventTest = GraphFixture;

TEST_F(EventTest, ConnectDisplacingAOneRunsTheWholeDisconnectionFirst)
{
    ItemPtr l_key = (*mp_global)["port"];
    l_key += (*mp_globalValue)["5"];
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_global);
    l_recorder.ListenType(mp_globalValue);
    l_recorder.ListenData();
    l_recorder.ListenPair(mp_global, mp_globalValue);
    l_recorder.ListenPair(mp_globalValue, mp_global);

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
    Item* lp_room = mp_room->NewItem("lobby");
    Item* lp_user = mp_user->NewItem("alice");
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

// A listener whose reaction is set by the test.
class Reactor : public DataHandler
{
public:
    void Listen(Type* ip_type) { ip_type->m_itemAddedEvent.Add(MakeHandler(&Reactor::OnAdded)); }
    void OnAdded(Item* ip_item)
    {
        ++m_calls;
        if (m_reaction)
            m_reaction(ip_item);
    }
    int m_calls = 0;
    std::function<void(Item*)> m_reaction;
};

TEST_F(EventTest, ListenerDestroyedBetweenFiringsIsNotCalledAndIsFreed)
{
    auto lp_reactor = std::make_unique<Reactor>();
    lp_reactor->Listen(mp_user);
    mp_user->NewItem("a");
    EXPECT_EQ(lp_reactor->m_calls, 1);
    lp_reactor.reset();
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 1u);
    mp_user->NewItem("b"); // would be a use after free if the handler were called
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 0u);
}

TEST_F(EventTest, ListenerDestroyedDuringTheWalkIsNotCalledInIt)
{
    // Two listeners; whichever runs first destroys the other. Exactly one is called.
    auto lp_first = std::make_unique<Reactor>();
    auto lp_second = std::make_unique<Reactor>();
    lp_first->Listen(mp_user);
    lp_second->Listen(mp_user);
    lp_first->m_reaction = [&](Item*) { lp_second.reset(); };
    lp_second->m_reaction = [&](Item*) { lp_first.reset(); };
    mp_user->NewItem("a");
    EXPECT_TRUE((lp_first == nullptr) != (lp_second == nullptr));
    Reactor* lp_survivor = lp_first ? lp_first.get() : lp_second.get();
    EXPECT_EQ(lp_survivor->m_calls, 1);
}

TEST_F(EventTest, ListenerMayDestroyItselfInsideItsHandler)
{
    auto* lp_reactor = new Reactor;
    lp_reactor->Listen(mp_user);
    lp_reactor->m_reaction = [lp_reactor](Item*) { delete lp_reactor; };
    mp_user->NewItem("a");
    mp_user->NewItem("b");
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 0u);
}

TEST_F(EventTest, HandlerAddedDuringTheWalkRunsFromTheNextFiring)
{
    Reactor l_adder;
    Reactor l_late;
    l_adder.Listen(mp_user);
    l_adder.m_reaction = [&](Item*) {
        if (l_adder.m_calls == 1)
            l_late.Listen(mp_user);
    };
    mp_user->NewItem("a");
    EXPECT_EQ(l_late.m_calls, 0);
    mp_user->NewItem("b");
    EXPECT_EQ(l_late.m_calls, 1);
}

TEST_F(EventTest, HandlerMarkedInANestedWalkStaysValidForTheOuterWalk)
{
    // The outer walk holds both handlers in its copy. The first one, at its turn, fires the
    // same event again (nested walk) after killing the other listener; the nested walk takes
    // the dead handler out. The outer walk must then skip it without touching freed memory.
    auto lp_victim = std::make_unique<Reactor>();
    Reactor l_nester;
    l_nester.Listen(mp_user);
    lp_victim->Listen(mp_user);
    l_nester.m_reaction = [&](Item* ip_item) {
        if (ip_item->AsString() == "outer" && lp_victim)
        {
            lp_victim.reset();
            mp_user->NewItem("inner");
        }
    };
    lp_victim->m_reaction = [&](Item* ip_item) {
        // If the victim runs first in the outer walk, let it trigger the nesting instead.
        if (ip_item->AsString() == "outer")
            mp_user->NewItem("inner-first");
    };
    mp_user->NewItem("outer");
    EXPECT_FALSE(lp_victim);
    EXPECT_EQ(mp_user->m_itemAddedEvent.Size(), 1u);
    EXPECT_EQ(EventDelivery::Depth(), 0);
}
