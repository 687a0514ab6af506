#include "GraphFixture.h"

class SweepTest : public GraphFixture
{
protected:
    SweepTest()
    {
        mp_attrA = m_data.NewType("attr_a", false, false, true);
        mp_attrB = m_data.NewType("attr_b", false, false, true);
        mp_attrA->RelateToType(mp_attrB, Many, Many, false);
        mp_user->RelateToType(mp_attrA, Many, Many, false);
    }
    Type* mp_attrA;
    Type* mp_attrB;
};

TEST_F(SweepTest, KeepsHeldValuesAndRootsRemovesTheUnheld)
{
    ItemPtr l_key = (*mp_global)["port"];
    l_key += (*mp_globalValue)["5"];
    l_key += (*mp_globalValue)["6"];
    Item* lp_lonelyUser = mp_user->NewItem("nobody");
    Item* lp_flag = mp_isOnline->NewItem();

    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 2); // value "5" and the unheld flag
    EXPECT_TRUE(mp_globalValue->HasItem("5").IsNull());
    EXPECT_EQ(l_key["global_value"].AsString(), "6");
    EXPECT_EQ(mp_user->HasItem("nobody"), lp_lonelyUser);
    EXPECT_EQ(mp_isOnline->ItemCount(), 0u);
    (void)lp_flag;
}

TEST_F(SweepTest, RemovesOwnedRootsWithoutTheirOwner)
{
    Item* lp_request = mp_request->NewItem("1");
    Item* lp_kept = lp_request->NewItem("search_results");
    Item* lp_orphan = mp_results->NewItem();
    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 1);
    EXPECT_EQ(mp_results->GetItems(), ItemSet{lp_kept});
    (void)lp_orphan;
}

TEST_F(SweepTest, RemovesAttributeIslandsNoRootReaches)
{
    Item* lp_a = mp_attrA->NewItem("a");
    Item* lp_b = mp_attrB->NewItem("b");
    lp_a->Connect(lp_b);
    Item* lp_heldA = mp_attrA->NewItem("held");
    Item* lp_heldB = mp_attrB->NewItem("held-b");
    mp_user->NewItem("alice")->Connect(lp_heldA);
    lp_heldA->Connect(lp_heldB);

    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 2);
    EXPECT_TRUE(mp_attrA->HasItem("a").IsNull());
    EXPECT_TRUE(mp_attrB->HasItem("b").IsNull());
    EXPECT_EQ(mp_attrB->HasItem("held-b"), lp_heldB);
    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 0);
}

TEST_F(SweepTest, SweepFiresRemovalEventsThatMayRemoveOtherCandidates)
{
    // A handler that removes another doomed item while the sweep runs must not make the
    // sweep touch a freed item.
    class Remover : public DataHandler
    {
    public:
        explicit Remover(Type* ip_type) : mp_type(ip_type) { ip_type->m_itemRemovedEvent.Add(MakeHandler(&Remover::OnRemoved)); }
        void OnRemoved(Item* ip_item)
        {
            if (m_done)
                return;
            m_done = true;
            for (Item* lp_other : mp_type->GetItems())
                if (lp_other != ip_item)
                {
                    lp_other->Remove();
                    return;
                }
        }
        Type* mp_type;
        bool m_done = false;
    };
    for (int l_n = 0; l_n < 6; ++l_n)
        mp_attrA->NewItem(Value(l_n));
    Remover l_remover(mp_attrA);
    EXPECT_EQ(m_data.RemoveDisconnectedItems(), 5); // the sixth went by the handler
    EXPECT_EQ(mp_attrA->ItemCount(), 0u);
}
