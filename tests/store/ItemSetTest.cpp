#include <algorithm>

#include "GraphFixture.h"

class ItemSetTest : public GraphFixture
{
protected:
    ItemSetTest()
    {
        mp_order = m_data.NewType("download_order", false, false, true);
        mp_user->RelateToType(mp_order, Many, One, false);
        mp_folder = m_data.NewType("remote_folder", true, false, true);
        mp_entry = m_data.NewType("download_entry", true, false, true);
        mp_entry->RelateToType(mp_user, Many, One, false);
        mp_entry->RelateToType(mp_folder, Many, One, false);
    }
    Type* mp_order;
    Type* mp_folder;
    Type* mp_entry;
};

TEST_F(ItemSetTest, JoinsFindAnItemByTwoAttributes)
{
    ItemPtr l_alice = (*mp_user)["alice"];
    ItemPtr l_bob = (*mp_user)["bob"];
    ItemPtr l_music = (*mp_folder)["music"];
    ItemPtr l_books = (*mp_folder)["books"];
    ItemPtr l_entry1 = (*mp_entry)["1"];
    l_entry1 += l_alice;
    l_entry1 += l_music;
    ItemPtr l_entry2 = (*mp_entry)["2"];
    l_entry2 += l_bob;
    l_entry2 += l_music;

    EXPECT_EQ(m_data.GetItem(l_alice, l_music, "download_entry"), l_entry1);
    EXPECT_EQ(m_data.GetItem(l_bob, l_music, "download_entry"), l_entry2);
    EXPECT_TRUE(m_data.GetItem(l_alice, l_books, "download_entry").IsNull());
    EXPECT_TRUE(m_data.GetItemSubset(ItemSet(), "download_entry").empty());
    EXPECT_EQ(m_data.GetItemSubset(ItemSet{l_music.Get()}, "download_entry"),
              (ItemSet{l_entry1.Get(), l_entry2.Get()}));
}

TEST_F(ItemSetTest, AlgebraOfSets)
{
    Item* lp_a = mp_user->NewItem("a");
    Item* lp_b = mp_user->NewItem("b");
    Item* lp_c = mp_user->NewItem("c");
    Item* lp_room = mp_room->NewItem("lobby");
    lp_room->Connect(lp_a);
    lp_room->Connect(lp_b);
    ItemSet const l_all{lp_a, lp_b, lp_c};
    ItemSet const l_ab{lp_a, lp_b};
    ItemSet const l_bc{lp_b, lp_c};

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

TEST_F(ItemSetTest, SortsAreByteWiseAndReversible)
{
    ItemSet l_users;
    for (char const* lp_name : {"beta", "Zed", "alpha", "alphabet", "\xc3\xa9t\xc3\xa9", "Alpha"})
        l_users.insert(mp_user->NewItem(lp_name));
    std::vector<std::string> l_names;
    for (Item* lp_item : l_users.SortAlphabetic(true))
        l_names.push_back(lp_item->AsString());
    std::vector<std::string> const l_expected = {"Alpha", "Zed", "alpha", "alphabet", "beta", "\xc3\xa9t\xc3\xa9"};
    EXPECT_EQ(l_names, l_expected);

    std::list<Item*> l_down = l_users.SortAlphabetic(false);
    std::list<Item*> l_up = l_users.SortAlphabetic(true);
    l_up.reverse();
    EXPECT_EQ(l_down, l_up);
}

TEST_F(ItemSetTest, SortsByAnAttributeLeaveOutItemsWithoutIt)
{
    ItemPtr l_a = (*mp_user)["a"];
    ItemPtr l_b = (*mp_user)["b"];
    ItemPtr l_c = (*mp_user)["c"];
    l_a += (*mp_order)["10"];
    l_b += (*mp_order)["9"];
    ItemSet const l_users{l_a.Get(), l_b.Get(), l_c.Get()};
    std::list<Item*> const l_numeric = l_users.SortNumericBy("download_order", true);
    EXPECT_EQ(l_numeric, (std::list<Item*>{l_b.Get(), l_a.Get()}));
    std::list<Item*> const l_text = l_users.SortAlphabeticBy("download_order", true);
    EXPECT_EQ(l_text, (std::list<Item*>{l_a.Get(), l_b.Get()})); // "10" before "9" as text

    ItemSet const l_orders = mp_order->GetItems();
    EXPECT_EQ(l_orders.SortNumeric(false).front()->AsString(), "10");
}
