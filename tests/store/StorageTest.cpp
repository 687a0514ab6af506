// The containers behind items and types, driven through the graph's own operations and checked
// against plain standard containers: every form a group of connections takes on its way up to
// thousands of items and back, and a type's index through growth and mass removal.
#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "GraphFixture.h"

using StorageTest = GraphFixture;

namespace
{
std::vector<Item*> Walk(ItemRange const& i_range) { return std::vector<Item*>(i_range.begin(), i_range.end()); }
} // namespace

TEST_F(StorageTest, ConnectionsMatchAReferenceSetThroughEveryForm)
{
    Item* lp_hub = mp_user->NewItem("hub");
    std::vector<Item*> l_pool;
    for (int l_n = 0; l_n < 3000; ++l_n)
        l_pool.push_back(mp_attrA->NewItem(Value(l_n)));
    std::set<Item*> l_expected;
    std::mt19937 l_random(11);
    auto l_check = [&]() {
        ItemRange const l_range = lp_hub->ConnectedOfType(mp_attrA);
        ASSERT_EQ(l_range.size(), l_expected.size());
        ASSERT_EQ(Walk(l_range), std::vector<Item*>(l_expected.begin(), l_expected.end()));
        ASSERT_EQ(lp_hub->IsConnected(mp_attrA), !l_expected.empty());
        for (int l_probe = 0; l_probe < 50; ++l_probe)
        {
            Item* lp_item = l_pool[l_random() % l_pool.size()];
            ASSERT_EQ(lp_hub->IsConnected(lp_item), l_expected.count(lp_item) > 0);
            ASSERT_EQ(lp_item->IsConnected(lp_hub), l_expected.count(lp_item) > 0);
        }
    };
    // Grow to every item in random order, shrink to a handful, grow in address order (the
    // common case of items made one after another), then take everything away.
    std::vector<Item*> l_order = l_pool;
    std::shuffle(l_order.begin(), l_order.end(), l_random);
    for (std::size_t l_index = 0; l_index < l_order.size(); ++l_index)
    {
        lp_hub->Connect(l_order[l_index]);
        lp_hub->Connect(l_order[l_index]); // a second time changes nothing
        l_expected.insert(l_order[l_index]);
        if (l_index % 97 == 0 || l_index < 3)
            l_check();
    }
    l_check();
    std::shuffle(l_order.begin(), l_order.end(), l_random);
    for (std::size_t l_index = 0; l_index + 5 < l_order.size(); ++l_index)
    {
        l_order[l_index]->Disconnect(lp_hub);
        l_expected.erase(l_order[l_index]);
        if (l_index % 89 == 0 || l_order.size() - l_index < 40)
            l_check();
    }
    std::sort(l_order.begin(), l_order.end());
    for (Item* lp_item : l_order)
        lp_hub->Connect(lp_item), l_expected.insert(lp_item);
    l_check();
    lp_hub->Disconnect("attr_a");
    l_expected.clear();
    l_check();
    EXPECT_TRUE(lp_hub->IsDisconnectedFromAll());
    EXPECT_TRUE(std::all_of(l_pool.begin(), l_pool.end(), [](Item* ip_item) { return ip_item->IsDisconnectedFromAll(); }));
}

TEST_F(StorageTest, TypeIndexFindsExactlyTheLivingItems)
{
    std::set<std::string> l_expected;
    for (int l_n = 0; l_n < 5000; ++l_n)
        l_expected.insert(mp_attrB->NewItem("v" + std::to_string(l_n))->AsString());
    std::mt19937 l_random(5);
    for (int l_n = 0; l_n < 5000; l_n += 1 + l_random() % 3)
    {
        mp_attrB->HasItem("v" + std::to_string(l_n)).Remove();
        l_expected.erase("v" + std::to_string(l_n));
    }
    std::set<std::string> l_walked;
    for (Item* lp_item : mp_attrB->Items())
        l_walked.insert(lp_item->AsString());
    EXPECT_EQ(l_walked, l_expected);
    for (int l_n = 0; l_n < 5000; ++l_n)
        ASSERT_EQ(mp_attrB->HasItem("v" + std::to_string(l_n)).IsNull(), !l_expected.count("v" + std::to_string(l_n)));
    // Values are bytes: one with a zero byte inside is an item of its own.
    Item* lp_zero = mp_attrB->NewItem(std::string("a\0b", 3));
    EXPECT_NE(lp_zero, mp_attrB->NewItem("a"));
    EXPECT_EQ(lp_zero->AsString(), std::string("a\0b", 3));

    // The global null item is the one of lowest address, also after that one went.
    std::vector<Item*> l_nulls;
    for (int l_n = 0; l_n < 20; ++l_n)
        l_nulls.push_back(mp_isOnline->NewItem());
    std::sort(l_nulls.begin(), l_nulls.end());
    l_nulls[0]->Remove();
    EXPECT_EQ(mp_isOnline->GetGlobalNullItem(), l_nulls[1]);
}
