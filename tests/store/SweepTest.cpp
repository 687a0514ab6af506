#include "GraphFixture.h"

using SweepTest = GraphFixture;

// Held values and roots stay, the unheld go, and so do attribute islands no root reaches.
TEST_F(SweepTest, KeepsHeldValuesAndRootsRemovesTheUnheldAndIslands)
{
    ItemPtr l_key = (*mp_global)["port"];
    l_key += (*mp_globalValue)["5"];
    l_key += (*mp_globalValue)["6"];
    Item* lp_lonelyUser = mp_user->NewItem("nobody");
    mp_isOnline->NewItem();
    Item* lp_kept = mp_request->NewItem("1")->NewItem("search_results");
    mp_results->NewItem(); // a result without its request

    mp_attrA->NewItem("a")->Connect(mp_attrB->NewItem("b"));
    Item *lp_heldA = mp_attrA->NewItem("held"), *lp_heldB = mp_attrB->NewItem("held-b");
    mp_user->NewItem("alice")->Connect(lp_heldA);
    lp_heldA->Connect(lp_heldB);
    // Two attributes of one type under one root: the walk leaves the type on the way back,
    // so the second is reached as well as the first.
    Item* lp_carol = mp_user->NewItem("carol");
    lp_carol->Connect(mp_attrA->NewItem("x"));
    lp_carol->Connect(mp_attrA->NewItem("y"));

    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 5);
    EXPECT_TRUE(mp_globalValue->HasItem("5").IsNull());
    EXPECT_EQ(l_key["global_value"].AsString(), "6");
    EXPECT_EQ(mp_user->HasItem("nobody"), lp_lonelyUser);
    EXPECT_EQ(mp_isOnline->ItemCount(), 0u);
    EXPECT_EQ(mp_results->GetItems(), ItemSet{lp_kept});
    EXPECT_FALSE(mp_attrA->HasItem("x").IsNull() || mp_attrA->HasItem("y").IsNull());
    EXPECT_TRUE(mp_attrA->HasItem("a").IsNull() && mp_attrB->HasItem("b").IsNull());
    EXPECT_EQ(mp_attrB->HasItem("held-b"), lp_heldB);
    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 0);
}

TEST_F(SweepTest, ListenersMayRemoveOtherDoomedItemsWithoutTheSweepTouchingThemAgain)
{
    for (int l_n = 0; l_n < 6; ++l_n)
        mp_attrA->NewItem(Value(l_n));
    Reactor l_remover([&](Item* ip_item) {
        if (l_remover.m_calls > 1)
            return;
        for (Item* lp_other : mp_attrA->GetItems())
            if (lp_other != ip_item)
            {
                lp_other->Remove();
                break;
            }
    });
    l_remover.Removed(mp_attrA);
    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 5); // the sixth went by the listener
    EXPECT_EQ(mp_attrA->ItemCount(), 0u);
}

// A folder first reached through a shared value, with its files' type already on that path,
// is looked at again when its own root reaches it: its other files stay.
TEST_F(SweepTest, AnItemReachedFirstWithATypeOnThePathIsWalkedAgainFromAnotherRoot)
{
    Type* lp_search = m_data.NewType("aa_search", true, false, true);
    Type* lp_hit = m_data.NewType("hit", false, true, true);
    Type* lp_rate = m_data.NewType("rate", false, false, true);
    Type* lp_file = m_data.NewType("share_file", false, true, true);
    Type* lp_folder = m_data.NewType("share_folder", false, true, true);
    Type* lp_share = m_data.NewType("zz_share", true, false, true);
    for (auto [lp_left, lp_right] : {std::pair{lp_search, lp_hit}, {lp_hit, lp_rate}, {lp_rate, lp_file}, {lp_file, lp_folder},
                                     {lp_folder, lp_share}})
        lp_left->RelateToType(lp_right, Many, Many, false);
    ItemPtr const l_rate = lp_rate->NewItem("128");
    lp_search->NewItem("tune")->NewItem("hit")->Connect(l_rate.Get());
    ItemPtr const l_folder = lp_share->NewItem("mine")->NewItem("share_folder");
    ItemPtr const l_scanned = l_folder.NewItem("share_file"), l_plain = l_folder.NewItem("share_file");
    l_scanned += l_rate;
    // A value held by nothing but a hit that nothing holds goes, with the hit.
    lp_hit->NewItem()->Connect(lp_rate->NewItem("64"));

    ItemSet const l_files{l_scanned.Get(), l_plain.Get()};
    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 2);
    EXPECT_EQ(lp_file->GetItems(), l_files);
    EXPECT_EQ(lp_hit->ItemCount(), 1u);
    EXPECT_TRUE(lp_rate->HasItem("64").IsNull());
}
