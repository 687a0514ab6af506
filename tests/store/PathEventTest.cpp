#include <algorithm>
#include <memory>

#include "GraphFixture.h"

class PathEventTest : public GraphFixture
{
protected:
    PathNode* RequestPath()
    {
        auto* lp_root = new PathNode(&m_data, "peer_connection_request");
        for (char const* lp_name :
             {"peer_connection_request_id", "peer_connection_type", "user", "user_address", "user_port"})
            new PathNode(lp_root, lp_name, TriggerConnected);
        return lp_root;
    }

    // A root of a type with one child, of a type or fixed to an item.
    PathNode* Path(char const* i_root, auto i_child, PathNodeRelation i_relation)
    {
        auto* lp_root = new PathNode(&m_data, i_root);
        new PathNode(lp_root, i_child, i_relation);
        return lp_root;
    }

    void Complete(Item* ip_request, char const* i_skip = nullptr)
    {
        for (auto [lp_type, lp_value] : {std::pair{"user_port", "2235"}, {"peer_connection_request_id", "77"},
                 {"user", "alice"}, {"peer_connection_type", "P"}, {"user_address", "127.0.0.1"}})
            if (!i_skip || std::string(i_skip) != lp_type)
                ip_request->Connect(m_data.GetType(lp_type)->GetItem(lp_value));
    }
};

TEST_F(PathEventTest, AllTriggerConnectedFiresOnTheLastConnectionAndNotOnRegistering)
{
    Item* lp_early = mp_pcr->NewItem();
    Complete(lp_early);
    Recorder l_recorder(m_data);
    l_recorder.ListenPath(RequestPath());
    Item* lp_request = mp_pcr->NewItem();
    Complete(lp_request, "user");
    EXPECT_TRUE(l_recorder.m_paths.empty());
    lp_request->Connect(mp_user->GetItem("alice"));
    // Replacing one attribute of a complete request completes the pattern again.
    lp_early->Connect(m_data.GetType("user_port")->GetItem("2236"));
    EXPECT_EQ(l_recorder.m_paths, (std::vector<Item*>{lp_request, lp_early}));
}

TEST_F(PathEventTest, StillConnectedEdgesAloneDoNotFireAndOneRootIsDeliveredPerFiring)
{
    Type* lp_topic = m_data.NewType("room_topic", false, false, true);
    mp_room->RelateToType(lp_topic, Many, One, false);
    Recorder l_recorder(m_data);
    for (auto [lp_middle, lp_end] : {std::pair{"in_user_list", "user_list_group"}, std::pair{"room", "room_topic"}})
    {
        auto* lp_root = new PathNode(&m_data, "user");
        new PathNode(new PathNode(lp_root, lp_middle, StillConnected), lp_end, NewlyConnected);
        l_recorder.ListenPath(lp_root);
    }
    Item* lp_alice = mp_user->NewItem("alice");
    lp_alice->NewItem("in_user_list")->Connect(mp_group->NewItem("friends"));
    // An in_user_list item that gets its group before its user, then its user: no firing.
    Item* lp_orphanList = mp_inUserList->NewItem();
    lp_orphanList->Connect(mp_group->NewItem("work"));
    mp_user->NewItem("bob")->Connect(lp_orphanList);
    EXPECT_EQ(l_recorder.m_paths, std::vector<Item*>{lp_alice});

    // Climbing back through a room two users share delivers only the one at the lowest address.
    Item *lp_lobby = mp_room->NewItem("lobby"), *lp_a = mp_user->NewItem("a"), *lp_b = mp_user->NewItem("b");
    lp_lobby->Connect(lp_a);
    lp_lobby->Connect(lp_b);
    lp_lobby->Connect(lp_topic->NewItem("news"));
    EXPECT_EQ(l_recorder.m_paths, (std::vector<Item*>{lp_alice, std::min(lp_a, lp_b)}));
}

TEST_F(PathEventTest, NewlyDisconnectedFiresAfterTheRemovedEventWithTheEdgeGone)
{
    Item *lp_lobby = mp_room->NewItem("lobby"), *lp_alice = mp_user->NewItem("alice");
    lp_lobby->Connect(lp_alice);
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    l_recorder.ListenPath(Path("user", lp_lobby, NewlyDisconnected));
    bool l_edgeGone = false;
    Reactor l_checker([&](Item* ip_user) { l_edgeGone = !ip_user->IsConnected(lp_lobby); });
    l_checker.Path(Path("user", lp_lobby, NewlyDisconnected));

    lp_alice->Remove();
    EXPECT_TRUE(l_edgeGone);
    EXPECT_EQ(l_recorder.m_lines, (std::vector<std::string>{"removed:alice", "disc:alice>lobby", "path:alice"}));
}

TEST_F(PathEventTest, FixedNodesAndRootsRejectOtherItems)
{
    Recorder l_recorder(m_data);
    Item* lp_lobby = mp_room->NewItem("lobby");
    l_recorder.ListenPath(Path("user", lp_lobby, TriggerConnected));
    Item* lp_alice = mp_user->NewItem("alice");
    mp_room->NewItem("hall")->Connect(lp_alice);
    EXPECT_TRUE(l_recorder.m_paths.empty());
    lp_lobby->Connect(lp_alice);
    EXPECT_EQ(l_recorder.m_paths, std::vector<Item*>{lp_alice});

    // A root fixed to one item: a change listener for one setting.
    ItemPtr l_username = (*mp_global)["username"];
    auto* lp_settingRoot = new PathNode(l_username.Get());
    new PathNode(lp_settingRoot, "global_value", TriggerConnected);
    l_recorder.ListenPath(lp_settingRoot);
    (*mp_global)["password"] += (*mp_globalValue)["secret"];
    l_username += (*mp_globalValue)["alice"];
    EXPECT_EQ(l_recorder.m_paths, (std::vector<Item*>{lp_alice, l_username.Get()}));
}

TEST_F(PathEventTest, DeadListenersPathGoesWholeAndSharedHandlerKeepsWorking)
{
    auto lp_dead = std::make_unique<Recorder>(m_data);
    Recorder l_alive(m_data);
    lp_dead->ListenPath(RequestPath());
    l_alive.ListenPath(RequestPath());
    lp_dead.reset();
    Item* lp_request = mp_pcr->NewItem();
    Complete(lp_request);
    EXPECT_EQ(l_alive.m_paths, std::vector<Item*>{lp_request});

    // Killing the last path of the pairs takes the internal handlers away; a later path on the
    // same pairs gets new ones and works.
    l_alive.RemoveDataHandlers();
    Complete(mp_pcr->NewItem());
    Recorder l_late(m_data);
    l_late.ListenPath(RequestPath());
    Item* lp_third = mp_pcr->NewItem();
    Complete(lp_third);
    EXPECT_EQ(l_late.m_paths, std::vector<Item*>{lp_third});
    EXPECT_EQ(l_alive.m_paths.size(), 1u);
}

TEST_F(PathEventTest, PathRemovedInANestedWalkStaysValidForTheOuterWalk)
{
    // Two listeners on one pair; the killer kills the other and connects again on the same
    // pair, so the nested walk removes the dead path while the outer walk may still hold it.
    auto lp_victim = std::make_unique<Recorder>(m_data);
    lp_victim->ListenPath(Path("room", "user", TriggerConnected));
    Reactor l_killer([&](Item* ip_room) {
        if (!lp_victim)
            return;
        lp_victim.reset();
        ip_room->Connect(mp_user->GetItem("nested"));
    });
    l_killer.Path(Path("room", "user", TriggerConnected));
    mp_room->NewItem("lobby")->Connect(mp_user->NewItem("alice"));
    EXPECT_FALSE(lp_victim);
    EXPECT_GE(l_killer.m_calls, 2);
}
