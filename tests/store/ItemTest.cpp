#include "GraphFixture.h"

using ItemTest = GraphFixture;
using ItemDeathTest = GraphFixture;

TEST_F(ItemTest, NewItemWithOneValueGivesOneItemAndFiresOnce)
{
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    Item* lp_first = mp_user->NewItem("alice");
    Item* lp_second = mp_user->NewItem(std::string("alice"));
    EXPECT_EQ(lp_first, lp_second);
    EXPECT_EQ(l_recorder.m_lines, std::vector<std::string>{"added:alice"});
}

TEST_F(ItemTest, GetItemCreatesOnlyOnAutoCreateTypes)
{
    EXPECT_EQ(mp_socket->GetItem(Value(12345)), nullptr);
    EXPECT_EQ(mp_socket->ItemCount(), 0u);
    EXPECT_TRUE(mp_socket->HasItem(Value(12345)).IsNull());

    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    ItemPtr l_bob = (*mp_user)["bob"];
    ASSERT_FALSE(l_bob.IsNull());
    EXPECT_EQ(l_bob.AsString(), "bob");
    EXPECT_EQ(l_recorder.m_lines, std::vector<std::string>{"added:bob"});
    EXPECT_EQ(mp_user->HasItem("bob"), l_bob);
    EXPECT_TRUE(mp_user->HasItem("carol").IsNull());
}

TEST_F(ItemTest, ValuesAndNumericConversions)
{
    EXPECT_EQ(Value(-42).Str(), "-42");
    EXPECT_EQ(Value(4000000000u).Str(), "4000000000");
    EXPECT_EQ(Value(-9000000000LL).Str(), "-9000000000");
    int l_object = 0;
    Item* lp_socket = mp_socket->NewItem(&l_object);
    EXPECT_EQ(lp_socket->AsPointer<int>(), &l_object);
    EXPECT_EQ(mp_socket->HasItem(&l_object), lp_socket);

    // Numbers read like stream extraction: white space skipped, stop at the first non-digit.
    EXPECT_EQ(mp_globalValue->NewItem("12abc")->AsInt(), 12);
    EXPECT_EQ(mp_globalValue->NewItem("  -7")->AsInt(), -7);
    EXPECT_EQ(mp_globalValue->NewItem("4294967295")->AsUInt(), 4294967295u);
    EXPECT_EQ(mp_globalValue->NewItem("123456789012")->AsInt64(), 123456789012LL);
    ItemPtr l_null;
    EXPECT_EQ(l_null.AsInt(), 0);
    EXPECT_STREQ(l_null.AsCStr(), "");
    EXPECT_TRUE(l_null["is_online"].IsNull());
    EXPECT_TRUE(l_null.GetItems("room").empty());
}

TEST_F(ItemDeathTest, NumericConversionOfTextStops)
{
    Item* lp_item = mp_globalValue->NewItem("abc");
    EXPECT_DEATH(lp_item->AsInt(), "AsInt");
    Item* lp_big = mp_globalValue->NewItem("99999999999");
    EXPECT_DEATH(lp_big->AsInt(), "AsInt");
}

TEST_F(ItemDeathTest, MisuseOfTheGraphStopsWithTheNameOfTheCall)
{
    EXPECT_DEATH(m_data.GetType("no_such_type"), "no_such_type");
    EXPECT_DEATH(m_data.NewType("user", true, false, true), "NewType");
    EXPECT_DEATH(mp_user->RelateToType(mp_room, Many, Many, false), "RelateToType");
    Item* lp_user = mp_user->NewItem("alice");
    Item* lp_value = mp_globalValue->NewItem("x");
    EXPECT_DEATH(lp_user->Connect(lp_value), "not related");
    EXPECT_DEATH(mp_isOnline->NewItem("x"), "null type");
    EXPECT_DEATH(mp_user->NewItem(), "with values");
    Item* lp_room = mp_room->NewItem("lobby");
    EXPECT_DEATH(lp_room->GetItem("user"), "Many");
    EXPECT_DEATH(ItemPtr().Connect(lp_user), "null ItemPtr");
}

TEST_F(ItemTest, SettingsIdiomReplacesTheOldValue)
{
    ItemPtr l_key = (*mp_global)["listening_port"];
    EXPECT_TRUE(l_key["global_value"].IsNull());
    l_key += (*mp_globalValue)["2235"];
    EXPECT_EQ(l_key["global_value"].AsInt(), 2235);
    l_key += (*mp_globalValue)["2240"];
    EXPECT_EQ(l_key["global_value"].AsString(), "2240");
    // The old value stays in the graph until a sweep, just unheld.
    EXPECT_TRUE(mp_globalValue->HasItem("2235")->IsDisconnectedFromAll());
}

TEST_F(ItemTest, DisconnectingTheLastConnectionLeavesItDisconnectedFromAll)
{
    Item* lp_room = mp_room->NewItem("lobby");
    Item* lp_user = mp_user->NewItem("alice");
    lp_room->Connect(lp_user);
    EXPECT_TRUE(lp_user->IsConnected("room"));
    EXPECT_TRUE(lp_room->IsConnected(lp_user));
    lp_user->Disconnect(lp_room);
    EXPECT_TRUE(lp_user->IsDisconnectedFromAll());
    EXPECT_TRUE(lp_room->IsDisconnectedFromAll());
    EXPECT_FALSE(lp_user->IsConnected("room"));
    EXPECT_EQ(lp_user->GetItem("is_online"), nullptr);
    EXPECT_FALSE(lp_user->IsConnected("is_online"));
}

TEST_F(ItemTest, GetItemsLeavesAFilledSetAloneWhenThereAreNone)
{
    Item* lp_user = mp_user->NewItem("alice");
    Item* lp_room = mp_room->NewItem("lobby");
    ItemSet l_items{lp_room};
    lp_user->GetItems("room", l_items);
    EXPECT_EQ(l_items, ItemSet{lp_room});
    ItemPtr(lp_user).GetItems("room", l_items);
    EXPECT_EQ(l_items, ItemSet{lp_room});
    ItemPtr().GetItems("room", l_items);
    EXPECT_TRUE(l_items.empty());
}

TEST_F(ItemTest, NullFlagIdiomSharesOrPrivatises)
{
    Item* lp_alice = mp_user->NewItem("alice");
    Item* lp_bob = mp_user->NewItem("bob");
    Item* lp_aliceOnline = lp_alice->NewItem("is_online");
    Item* lp_bobOnline = lp_bob->NewItem("is_online");
    EXPECT_EQ(lp_aliceOnline, lp_bobOnline);
    EXPECT_EQ(lp_alice->NewItem("is_online"), lp_aliceOnline);
    EXPECT_EQ(mp_isOnline->ItemCount(), 1u);

    Item* lp_aliceList = lp_alice->NewItem("in_user_list");
    Item* lp_bobList = lp_bob->NewItem("in_user_list");
    EXPECT_NE(lp_aliceList, lp_bobList);
    EXPECT_EQ(lp_alice->NewItem("in_user_list"), lp_aliceList);

    // Clearing a shared flag disconnects; the shared item stays for the other holder.
    lp_alice->Disconnect("is_online");
    EXPECT_FALSE(lp_alice->IsConnected("is_online"));
    EXPECT_TRUE(lp_bob->IsConnected(lp_bobOnline));

    // One-to-many: every call makes a new null item.
    Item* lp_request = mp_request->NewItem("7");
    EXPECT_NE(lp_request->NewItem("search_results"), lp_request->NewItem("search_results"));
    EXPECT_EQ(ItemPtr(lp_request).GetItems("search_results").size(), 2u);
}

TEST_F(ItemTest, RemoveLeavesNeighboursAndFiresEveryLostConnectionFirst)
{
    Item* lp_alice = mp_user->NewItem("alice");
    Item* lp_lobby = mp_room->NewItem("lobby");
    Item* lp_hall = mp_room->NewItem("hall");
    lp_lobby->Connect(lp_alice);
    lp_hall->Connect(lp_alice);
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    lp_alice->Remove();
    ASSERT_EQ(l_recorder.m_lines.size(), 3u);
    EXPECT_EQ(l_recorder.m_lines[0], "removed:alice");
    EXPECT_EQ(l_recorder.m_lines[1].substr(0, 5), "disc:");
    EXPECT_EQ(l_recorder.m_lines[2].substr(0, 5), "disc:");
    EXPECT_TRUE(mp_user->HasItem("alice").IsNull());
    EXPECT_TRUE(lp_lobby->IsDisconnectedFromAll());
    EXPECT_EQ(mp_room->ItemCount(), 2u);
}

TEST_F(ItemTest, ListenersMayRemoveItemsWhileTheyAreBeingCreatedOrRemoved)
{
    // One listener refuses every new "x", another removes an item's neighbour while it goes.
    class Refuser : public DataHandler
    {
    public:
        explicit Refuser(Type* ip_type) { ip_type->m_itemAddedEvent.Add(MakeHandler(&Refuser::OnAdded)); }
        void OnAdded(Item* ip_item)
        {
            if (ip_item->AsString() == "x")
                ip_item->Remove();
        }
    } l_refuser(mp_user);
    EXPECT_EQ(mp_user->NewItem("x"), nullptr);
    EXPECT_TRUE(mp_user->HasItem("x").IsNull());
    EXPECT_NE(mp_user->NewItem("y"), nullptr);

    class Cascade : public DataHandler
    {
    public:
        explicit Cascade(Type* ip_type) { ip_type->m_itemRemovedEvent.Add(MakeHandler(&Cascade::OnRemoved)); }
        void OnRemoved(Item* ip_item)
        {
            ItemSet l_users;
            ip_item->GetItems("user", l_users);
            for (Item* lp_user : l_users)
                lp_user->Remove();
            ip_item->Remove(); // removing the item again from its own event is harmless
        }
    } l_cascade(mp_room);
    Item* lp_room = mp_room->NewItem("lobby");
    lp_room->Connect(mp_user->NewItem("a"));
    lp_room->Connect(mp_user->NewItem("b"));
    lp_room->Remove();
    EXPECT_TRUE(mp_room->HasItem("lobby").IsNull());
    EXPECT_TRUE(mp_user->HasItem("a").IsNull());
    EXPECT_TRUE(mp_user->HasItem("b").IsNull());
    EXPECT_EQ(EventDelivery::Depth(), 0);
}
