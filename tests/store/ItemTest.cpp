#include <algorithm>

#include "GraphFixture.h"

using ItemTest = GraphFixture;
using ItemDeathTest = GraphFixture;

TEST_F(ItemTest, NewItemIsOnePerValueOrPerFlagKindAndLookupsCreateOnlyOnAutoCreateTypes)
{
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    Item *lp_alice = mp_user->NewItem("alice"), *lp_bob = (*mp_user)["bob"].Get();
    EXPECT_EQ(mp_user->NewItem(std::string("alice")), lp_alice);
    EXPECT_EQ(mp_user->HasItem("bob"), lp_bob);
    EXPECT_EQ(lp_bob->AsString(), "bob");
    EXPECT_TRUE(mp_user->HasItem("carol").IsNull());
    EXPECT_EQ(l_recorder.m_lines, (std::vector<std::string>{"added:alice", "added:bob"}));
    EXPECT_EQ(mp_socket->GetItem(Value(12345)), nullptr);
    EXPECT_EQ(mp_socket->ItemCount(), 0u);

    // A shared null flag is one item for all holders, a private one is one per holder.
    Item* lp_online = lp_alice->NewItem("is_online");
    EXPECT_EQ(lp_bob->NewItem("is_online"), lp_online);
    EXPECT_EQ(lp_alice->NewItem("is_online"), lp_online);
    EXPECT_EQ(mp_isOnline->ItemCount(), 1u);
    Item* lp_aliceList = lp_alice->NewItem("in_user_list");
    EXPECT_NE(lp_bob->NewItem("in_user_list"), lp_aliceList);
    EXPECT_EQ(lp_alice->NewItem("in_user_list"), lp_aliceList);
    // Clearing a shared flag disconnects; the shared item stays for the other holder.
    lp_alice->Disconnect("is_online");
    EXPECT_TRUE(!lp_alice->IsConnected("is_online") && lp_bob->IsConnected(lp_online));
    // One-to-many: every call makes a new null item.
    Item* lp_request = mp_request->NewItem("7");
    EXPECT_NE(lp_request->NewItem("search_results"), lp_request->NewItem("search_results"));
    EXPECT_EQ(ItemPtr(lp_request).GetItems("search_results").size(), 2u);
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
    EXPECT_TRUE(l_null["is_online"].IsNull() && l_null.GetItems("room").empty());
}

TEST_F(ItemDeathTest, MisuseOfTheGraphStopsWithTheNameOfTheCall)
{
    EXPECT_DEATH(m_data.GetType("no_such_type"), "no_such_type");
    EXPECT_DEATH(m_data.NewType("user", true, false, true), "NewType");
    EXPECT_DEATH(mp_user->RelateToType(mp_room, Many, Many, false), "RelateToType");
    Item* lp_user = mp_user->NewItem("alice");
    EXPECT_DEATH(lp_user->Connect(mp_globalValue->NewItem("x")), "not related");
    EXPECT_DEATH(mp_isOnline->NewItem("x"), "null type");
    EXPECT_DEATH(mp_user->NewItem(), "with values");
    EXPECT_DEATH(mp_room->NewItem("lobby")->GetItem("user"), "Many");
    EXPECT_DEATH(ItemPtr().Connect(lp_user), "null ItemPtr");
    EXPECT_DEATH(mp_globalValue->NewItem("abc")->AsInt(), "AsInt");
    EXPECT_DEATH(mp_globalValue->NewItem("99999999999")->AsInt(), "AsInt");
}

TEST_F(ItemTest, ConnectionQueriesDisconnectingTheLastConnectionAndRemove)
{
    Item *lp_room = mp_room->NewItem("lobby"), *lp_user = mp_user->NewItem("alice");
    lp_room->Connect(lp_user);
    EXPECT_TRUE(lp_user->IsConnected("room") && lp_room->IsConnected(lp_user));
    EXPECT_FALSE(lp_user->IsConnected("is_online"));
    EXPECT_EQ(lp_user->GetItem("is_online"), nullptr);
    lp_user->Disconnect(lp_room);
    EXPECT_TRUE(lp_user->IsDisconnectedFromAll() && lp_room->IsDisconnectedFromAll());
    EXPECT_FALSE(lp_user->IsConnected("room"));

    // With no neighbours of the type a filled set is left alone; a null pointer empties it.
    ItemSet l_items{lp_room};
    lp_user->GetItems("room", l_items);
    ItemPtr(lp_user).GetItems("room", l_items);
    EXPECT_EQ(l_items, ItemSet{lp_room});
    ItemPtr().GetItems("room", l_items);
    EXPECT_TRUE(l_items.empty());

    // Removing leaves the neighbours and fires the removal, then every lost connection.
    mp_room->NewItem("hall")->Connect(lp_user);
    lp_room->Connect(lp_user);
    Recorder l_recorder(m_data);
    l_recorder.ListenType(mp_user);
    lp_user->Remove();
    // The lost connections come in no set order among themselves.
    if (!l_recorder.m_lines.empty())
        std::sort(l_recorder.m_lines.begin() + 1, l_recorder.m_lines.end());
    EXPECT_EQ(l_recorder.m_lines, (std::vector<std::string>{"removed:alice", "disc:alice>hall", "disc:alice>lobby"}));
    EXPECT_TRUE(mp_user->HasItem("alice").IsNull());
    EXPECT_TRUE(lp_room->IsDisconnectedFromAll());
    EXPECT_EQ(mp_room->ItemCount(), 2u);
}

TEST_F(ItemTest, ListenersMayRemoveItemsWhileTheyAreBeingCreatedOrRemoved)
{
    Reactor l_refuser([](Item* ip_item) {
        if (ip_item->AsString() == "x")
            ip_item->Remove();
    });
    l_refuser.Added(mp_user);
    EXPECT_EQ(mp_user->NewItem("x"), nullptr);
    EXPECT_TRUE(mp_user->HasItem("x").IsNull());
    EXPECT_NE(mp_user->NewItem("y"), nullptr);

    // A room takes its users along as it goes, and removing it again from its own event is harmless.
    Reactor l_cascade([](Item* ip_room) {
        for (Item* lp_user : ItemPtr(ip_room).GetItems("user"))
            lp_user->Remove();
        ip_room->Remove();
    });
    l_cascade.Removed(mp_room);
    Item* lp_room = mp_room->NewItem("lobby");
    lp_room->Connect(mp_user->NewItem("a"));
    lp_room->Connect(mp_user->NewItem("b"));
    lp_room->Remove();
    EXPECT_TRUE(mp_room->HasItem("lobby").IsNull());
    EXPECT_EQ(mp_user->ItemCount(), 1u); // only "y" is left
    EXPECT_EQ(EventDelivery::Depth(), 0);
}

TEST_F(ItemTest, AnItemRemovedWhileACallerStillHoldsItTakesNoNewConnection)
{
    // As when a socket's item goes from the socket's error, heard before the call that made
    // it returned, and the caller then connects it to its request.
    Item* lp_room = mp_room->NewItem("lobby");
    {
        EventDelivery::Walk const l_walk;
        Item* lp_gone = mp_user->NewItem("gone");
        lp_gone->Remove();
        lp_room->Connect(lp_gone);
        lp_gone->Connect(lp_room);
        EXPECT_FALSE(lp_room->IsConnected(lp_gone));
    }
    // Once the gone item's memory is freed, the room holds nothing of it and goes cleanly.
    EXPECT_TRUE(ItemPtr(lp_room).GetItems("user").empty());
    lp_room->Remove();
    EXPECT_TRUE(mp_room->HasItem("lobby").IsNull());
}
