#include "ServerFixture.h"

namespace
{
class RoomTest : public ServerFixture
{
protected:
    void Configure(ServerOptions& o_options) override
    {
        o_options.m_roomOwners.insert("club", "alice");
        o_options.m_roomOperators["club"] = {"dora", "bob", "eve", "al", "carl", "fay"};
    }

    // Message 14 up to the countries: members, their statuses, records, slots and countries.
    static Body Entered(QByteArray const& i_room, QList<QByteArray> const& i_users, QList<quint32> const& i_speeds)
    {
        Body l_body = Body(14).Str(i_room).Strs(i_users).U32(static_cast<quint32>(i_users.size()));
        for (qsizetype l_index = 0; l_index < i_users.size(); ++l_index)
            l_body.U32(2);
        l_body.U32(static_cast<quint32>(i_users.size()));
        for (quint32 const l_speed : i_speeds)
            l_body.Stats(l_speed);
        l_body.U32(static_cast<quint32>(i_users.size()));
        for (qsizetype l_index = 0; l_index < i_users.size(); ++l_index)
            l_body.U32(0);
        return l_body.Strs(QList<QByteArray>(i_users.size()));
    }
};

TEST_F(RoomTest, EnterChatAndLeaveReachEveryMember)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    auto lp_outsider = LoggedIn("carol");

    lp_alice->Send(Body(14).Str("lobby"));
    EXPECT_EQ(lp_alice->TakeBody(14), Entered("lobby", {"alice"}, {0}).Bytes());
    lp_bob->Send(Body(121).U32(1500));
    lp_bob->Send(Body(14).Str("lobby"));
    EXPECT_EQ(lp_bob->TakeBody(14), Entered("lobby", {"alice", "bob"}, {0, 1500}).Bytes());
    EXPECT_EQ(lp_alice->TakeBody(16), Body(16).Str("lobby").Str("bob").U32(2).Stats(1500).U32(0).Str("").Bytes());
    EXPECT_TRUE(lp_bob->NothingOf(16, 50));

    lp_bob->Send(Body(13).Str("lobby").Str("hello"));
    for (RawClient* lp_member : {lp_alice.get(), lp_bob.get()})
        EXPECT_EQ(lp_member->TakeBody(13), Body(13).Str("lobby").Str("bob").Str("hello").Bytes());
    lp_outsider->Send(Body(13).Str("lobby").Str("intrusion"));
    EXPECT_TRUE(lp_alice->NothingOf(13));
    EXPECT_TRUE(lp_outsider->NothingOf(13, 50));

    lp_bob->Send(Body(15).Str("lobby"));
    EXPECT_EQ(lp_bob->TakeBody(15), Body(15).Str("lobby").Bytes());
    EXPECT_EQ(lp_alice->TakeBody(17), Body(17).Str("lobby").Str("bob").Bytes());
    lp_bob->Send(Body(15).Str("lobby"));
    EXPECT_TRUE(lp_bob->NothingOf(15));
}

TEST_F(RoomTest, ListCountsMembersAndDropsEmptyRooms)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    lp_alice->Send(Body(14).Str("lobby"));
    lp_bob->Send(Body(14).Str("lobby"));
    lp_bob->Send(Body(14).Str("quiet"));
    ASSERT_TRUE(lp_bob->Take(14) && lp_bob->Take(14));

    lp_alice->Send(Body(64));
    EXPECT_EQ(lp_alice->TakeBody(64), Body(64).Strs({"lobby", "quiet"}).U32(2).U32(2).U32(1).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).Bytes());
    lp_bob.reset();
    EXPECT_EQ(lp_alice->TakeBody(17), Body(17).Str("lobby").Str("bob").Bytes());
    lp_alice->Send(Body(64));
    EXPECT_EQ(lp_alice->TakeBody(64), Body(64).Strs({"lobby"}).U32(1).U32(1).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).Bytes());
}

TEST_F(RoomTest, OwnedRoomCarriesOwnerAndSortedOperators)
{
    auto lp_bob = LoggedIn("bob");
    lp_bob->Send(Body(14).Str("club"));
    EXPECT_EQ(lp_bob->TakeBody(14), Entered("club", {"bob"}, {0}).Str("alice").Strs({"al", "bob", "carl", "dora", "eve", "fay"}).Bytes());
}
}
