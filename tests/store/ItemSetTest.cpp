#include <list>

#include "GraphFixture.h"

using ItemSetTest = GraphFixture;

TEST_F(ItemSetTest, JoinsFindAnItemByTwoAttributes)
{
    ItemPtr l_alice = (*mp_user)["alice"], l_bob = (*mp_user)["bob"], l_music = (*mp_folder)["music"];
    ItemPtr l_aliceEntry = (*mp_entry)["1"], l_bobEntry = (*mp_entry)["2"];
    l_aliceEntry += l_alice;
    l_aliceEntry += l_music;
    l_bobEntry += l_bob;
    l_bobEntry += l_music;

    EXPECT_EQ(m_data.GetItem(l_alice, l_music, "download_entry"), l_aliceEntry);
    EXPECT_EQ(m_data.GetItem(l_bob, l_music, "download_entry"), l_bobEntry);
    EXPECT_TRUE(m_data.GetItem(l_alice, (*mp_folder)["books"], "download_entry").IsNull());
    EXPECT_TRUE(m_data.GetItemSubset(ItemSet(), "download_entry").empty());
    EXPECT_EQ(m_data.GetItemSubset(ItemSet{l_music.Get()}, "download_entry"),
              (ItemSet{l_aliceEntry.Get(), l_bobEntry.Get()}));
}

TEST_F(ItemSetTest, AlgebraOfSets)
{
    Item *lp_a = mp_user->NewItem("a"), *lp_b = mp_user->NewItem("b"), *lp_c = mp_user->NewItem("c");
    Item* lp_room = mp_room->NewItem("lobby");
    lp_room->Connect(lp_a);
    lp_room->Connect(lp_b);
    ItemSet const l_all{lp_a, lp_b, lp_c}, l_ab{lp_a, lp_b}, l_bc{lp_b, lp_c};

    EXPECT_EQ(l_ab + l_bc, l_all);
    EXPECT_EQ(l_ab.Common(l_bc), ItemSet{lp_b});
    EXPECT_EQ(l_all.Connected(ItemSet{lp_room}), l_ab);
    EXPECT_EQ(ItemSet{lp_a}.Connected(ItemSet{lp_room}), ItemSet{lp_a}); // smaller side walked
    EXPECT_EQ(l_all.NotConnected(ItemSet{lp_room}), ItemSet{lp_c});
    EXPECT_EQ(l_all.Connected("room"), l_ab);
    EXPECT_EQ(l_all.Connected("room", "lobby"), l_ab);
    EXPECT_EQ(l_all.NotConnected("room", "lobby"), ItemSet{lp_c});
    EXPECT_TRUE(l_all.Connected("room", "nowhere").empty());
    EXPECT_TRUE(l_all.NotConnected("room", "nowhere").empty());
    EXPECT_TRUE(mp_room->HasItem("nowhere").IsNull()); // the lookups created nothing
    EXPECT_EQ(l_ab.GetItems("room"), ItemSet{lp_room});
    EXPECT_EQ(ItemPtr(ItemSet{lp_c}), lp_c);
    EXPECT_TRUE(ItemPtr(ItemSet()).IsNull());
}

TEST_F(ItemSetTest, SortsAreByteWiseAndReversibleAndByAnAttributeLeaveOutItemsWithoutIt)
{
    ItemSet l_users;
    for (char const* lp_name : {"beta", "Zed", "alpha", "alphabet", "\xc3\xa9t\xc3\xa9", "Alpha"})
        l_users.insert(mp_user->NewItem(lp_name));
    std::vector<std::string> l_names;
    for (Item* lp_item : l_users.SortAlphabetic(true))
        l_names.push_back(lp_item->AsString());
    std::vector<std::string> const l_expected = {"Alpha", "Zed", "alpha", "alphabet", "beta", "\xc3\xa9t\xc3\xa9"};
    EXPECT_EQ(l_names, l_expected);

    std::list<Item*> l_up = l_users.SortAlphabetic(true);
    l_up.reverse();
    EXPECT_EQ(l_users.SortAlphabetic(false), l_up);

    ItemPtr l_a = (*mp_user)["a"], l_b = (*mp_user)["b"];
    l_a += (*mp_order)["10"];
    l_b += (*mp_order)["9"];
    ItemSet const l_ordered{l_a.Get(), l_b.Get(), mp_user->NewItem("c")};
    EXPECT_EQ(l_ordered.SortNumericBy("download_order", true), (std::list<Item*>{l_b.Get(), l_a.Get()}));
    EXPECT_EQ(l_ordered.SortAlphabeticBy("download_order", true), (std::list<Item*>{l_a.Get(), l_b.Get()})); // as text
    EXPECT_EQ(mp_order->GetItems().SortNumeric(false).front()->AsString(), "10");
}
