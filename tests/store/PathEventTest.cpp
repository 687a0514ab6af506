#include <algorithm>
#include <memory>

#include "GraphFixture.h"

class PathEventTest : public GraphFixture
{
protected:
    PathEventTest()
    {
        mp_pcr = m_data.NewType("peer_connection_request", true, true, false);
        for (char const* lp_name :
             {"peer_connection_request_id", "peer_connection_type", "user_address", "user_port"})
            mp_pcr->RelateToType(m_data.NewType(lp_name, false, false, true), Many, One, false);
        mp_pcr->RelateToType(mp_user, Many, One, false);
        mp_group = m_data.NewType("user_list_group", true, false, true);
        mp_inUserList->RelateToType(mp_group, Many, Many, false);
    }

    PathNode* RequestPath()
    {
        auto* lp_root = new PathNode(&m_data, "peer_connection_request");
        for (char const* lp_name :
             {"peer_connection_request_id", "peer_connection_type", "user", "user_address", "user_port"})
            new PathNode(lp_root, lp_name, TriggerConnected);
        return lp_root;
    }

    void Complete(Item* ip_request, char const* i_skip = nullptr)
    {
        std::vector<std::pair<char const*, char const*>> const l_attributes = {
            {"user_port", "2235"}, {"peer_connection_request_id", "77"}, {"user", "alice"},
            {"peer_connection_type", "P"}, {"user_address", "127.0.0.1"}};
        for (auto const& l_attribute : l_attributes)
            if (!i_skip || std::string(i_skip) != l_attribute.first)
                ip_request->Connect(m_data.GetType(l_attribute.first)->GetItem(l_attribute.second));
    }

    Type* mp_pcr;
    Type* mp_group;
};

TEST_F(PathEventTest, AllTriggerConnectedFiresOnceOnTheLastConnection)
{
    Recorder l_recorder(m_data);
    l_recorder.ListenPath(RequestPath());
    Item* lp_request = mp_pcr->NewItem();
    Complete(lp_request, "user");
    EXPECT_TRUE(l_recorder.m_paths.empty());
    lp_request->Connect(mp_user->GetItem("alice"));
    EXPECT_EQ(l_recorder.m_paths, std::vector<Item*>{lp_request});

    // Replacing one attribute completes the pattern again.
    lp_request->Connect(m_data.GetType("user_port")->GetItem("2236"));
    EXPECT_EQ(l_recorder.m_paths.size(), 2u);
}

TEST_F(PathEventTest, RegisteringOnAPatternThatHoldsFiresNothing)
{
    Item* lp_request = mp_pcr->NewItem();
    Complete(lp_request);
    Recorder l_recorder(m_data);
    l_recorder.ListenPath(RequestPath());
    EXPECT_TRUE(l_recorder.m_paths.empty());
    lp_request->Connect(m_data.GetType("user_port")->GetItem("1"));
    EXPECT_EQ(l_recorder.m_paths.size(), 1u);
}

TEST_F(PathEventTest, StillConnectedEdgeAloneDoesNotFireAndTheRootIsDelivered)
{
    Recorder l_recorder(m_data);
    auto* lp_root = new PathNode(&m_data, "user");
    auto* lp_list = new PathNode(lp_root, "in_user_list", StillConnected);
    new PathNode(lp_list, "user_list_group", NewlyConnected);
    l_recorder.ListenPath(lp_root);

    Item* lp_alice = mp_user->NewItem("alice");
    Item* lp_list1 = lp_alice->NewItem("in_user_list");
    Item* lp_friends = mp_group->NewItem("friends");
    lp_list1->Connect(lp_friends);
    EXPECT_EQ(l_recorder.m_paths, std::vector<Item*>{lp_alice});

    // An in_user_list item that gets its group before its user, then its user: no firing.
    Item* lp_orphanList = mp_inUserList->NewItem();
    lp_orphanList->Connect(mp_group->NewItem("work"));
    EXPECT_EQ(l_recorder.m_paths.size(), 1u);
    mp_user->NewItem("bob")->Connect(lp_orphanList);
    EXPECT_EQ(l_recorder.m_paths.size(), 1u);
}

TEST_F(PathEventTest, ClimbThroughASharedItemDeliversOnlyTheLowestAddress)
{
    Type* lp_topic = m_data.NewType("room_topic", false, false, true);
    mp_room->RelateToType(lp_topic, Many, One, false);
    Recorder l_recorder(m_data);
    auto* lp_root = new PathNode(&m_data, "user");
    auto* lp_room = new PathNode(lp_root, "room", StillConnected);
    new PathNode(lp_room, "room_topic", NewlyConnected);
    l_recorder.ListenPath(lp_root);

    Item* lp_lobby = mp_room->NewItem("lobby");
    Item* lp_a = mp_user->NewItem("a");
    Item* lp_b = mp_user->NewItem("b");
    lp_lobby->Connect(lp_a);
    lp_lobby->Connect(lp_b);
    lp_lobby->Connect(lp_topic->NewItem("news"));
    EXPECT_EQ(l_recorder.m_paths, std::vector<Item*>{std::min(lp_a, lp_b)});
}

TEST_F(PathEventTest, NewlyDisconnectedSeesTheEdgeGoneAfterRemove)
{
    Recorder l_recorder(m_data);
    Item* lp_lobby = mp_room->NewItem("lobby");
    auto* lp_root = new PathNode(&m_data, "user");
    new PathNode(lp_root, lp_lobby, NewlyDisconnected);
    l_recorder.ListenPath(lp_root);
    l_recorder.ListenType(mp_user);

    Item* lp_alice = mp_user->NewItem("alice");
    lp_lobby->Connect(lp_alice);
    bool l_edgeGoneAtFiring = false;
    class Checker : public DataHandler
    {
    public:
        Checker(Data& io_data, Item* ip_room, bool& o_gone) : mp_room(ip_room), mr_gone(o_gone)
        {
            auto* lp_root = new PathNode(&io_data, "user");
            new PathNode(lp_root, ip_room, NewlyDisconnected);
            io_data.AddPathEventHandler(lp_root, MakeHandler(&Checker::OnLeft));
        }
        void OnLeft(Item* ip_user) { mr_gone = !ip_user->IsConnected(mp_room); }
        Item* mp_room;
        bool& mr_gone;
    } l_checker(m_data, lp_lobby, l_edgeGoneAtFiring);

    lp_alice->Remove();
    ASSERT_EQ(l_recorder.m_paths.size(), 1u);
    EXPECT_TRUE(l_edgeGoneAtFiring);
    // The removed event came before the path.
    EXPECT_EQ(l_recorder.m_lines.front(), "added:alice");
    EXPECT_NE(std::find(l_recorder.m_lines.begin(), l_recorder.m_lines.end(), "removed:alice"),
              l_recorder.m_lines.end());
    EXPECT_EQ(l_recorder.m_lines.back(), "path:alice");
}

TEST_F(PathEventTest, FixedNodeRejectsOtherItems)
{
    Recorder l_recorder(m_data);
    Item* lp_lobby = mp_room->NewItem("lobby");
    Item* lp_hall = mp_room->NewItem("hall");
    auto* lp_root = new PathNode(&m_data, "user");
    new PathNode(lp_root, lp_lobby, TriggerConnected);
    l_recorder.ListenPath(lp_root);
    Item* lp_alice = mp_user->NewItem("alice");
    lp_hall->Connect(lp_alice);
    EXPECT_TRUE(l_recorder.m_paths.empty());
    lp_lobby->Connect(lp_alice);
    EXPECT_EQ(l_recorder.m_paths, std::vector<Item*>{lp_alice});

    // A root fixed to one item: a change listener for one setting.
    Recorder l_setting(m_data);
    ItemPtr l_username = (*mp_global)["username"];
    auto* lp_settingRoot = new PathNode(l_username.Get());
    new PathNode(lp_settingRoot, "global_value", TriggerConnected);
    l_setting.ListenPath(lp_settingRoot);
    (*mp_global)["password"] += (*mp_globalValue)["secret"];
    EXPECT_TRUE(l_setting.m_paths.empty());
    l_username += (*mp_globalValue)["alice"];
    EXPECT_EQ(l_setting.m_paths, std::vector<Item*>{l_username.Get()});
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
    // Two listeners on one pair; the first to run kills the other and connects again on the
    // same pair, so the nested walk removes the dead path while the outer walk still holds it.
    std::unique_ptr<DataHandler> lp_other;
    class Killer : public DataHandler
    {
    public:
        Killer(Data& io_data, std::unique_ptr<DataHandler>& io_victim, Type* ip_room)
            : mr_data(io_data), mr_victim(io_victim), mp_room(ip_room)
        {
            auto* lp_root = new PathNode(&io_data, "room");
            new PathNode(lp_root, "user", TriggerConnected);
            io_data.AddPathEventHandler(lp_root, MakeHandler(&Killer::OnPath));
        }
        void OnPath(Item* ip_room)
        {
            ++m_calls;
            if (!mr_victim)
                return;
            mr_victim.reset();
            ip_room->Connect(mr_data.GetType("user")->GetItem("nested"));
        }
        Data& mr_data;
        std::unique_ptr<DataHandler>& mr_victim;
        Type* mp_room;
        int m_calls = 0;
    };
    auto* lp_victim = new Recorder(m_data);
    auto* lp_root = new PathNode(&m_data, "room");
    new PathNode(lp_root, "user", TriggerConnected);
    lp_victim->ListenPath(lp_root);
    lp_other.reset(lp_victim);
    Killer l_killer(m_data, lp_other, mp_room);
    mp_room->NewItem("lobby")->Connect(mp_user->NewItem("alice"));
    EXPECT_FALSE(lp_other);
    EXPECT_GE(l_killer.m_calls, 2);
}
