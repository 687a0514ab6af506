#include "ServerFixture.h"

namespace
{
class RoomTest : public ServerFixture
{
protected:
    void Configure(ServerOptions& o_options) override
    {
        o_options.m_roomOwners.insert("club", "alice");
        o_options.m_roomOperators["club"] = {"dora", "bob"};
    }

    // Reads message 14 up to the countries; returns the users.
    static QList<QByteArray> ReadEntered(Fields& io_fields, QByteArray const& i_room)
    {
        EXPECT_EQ(io_fields.Str(), i_room);
        QList<QByteArray> l_users = io_fields.StrList();
        EXPECT_EQ(io_fields.U32(), static_cast<quint32>(l_users.size()));
        for (qsizetype l_index = 0; l_index < l_users.size(); ++l_index)
            EXPECT_EQ(io_fields.U32(), 2u);
        EXPECT_EQ(io_fields.U32(), static_cast<quint32>(l_users.size()));
        for (qsizetype l_index = 0; l_index < l_users.size(); ++l_index)
        {
            io_fields.U32();
            io_fields.U64();
            io_fields.U32();
            io_fields.U32();
        }
        EXPECT_EQ(io_fields.U32(), static_cast<quint32>(l_users.size()));
        for (qsizetype l_index = 0; l_index < l_users.size(); ++l_index)
            io_fields.U32();
        EXPECT_EQ(io_fields.StrList().size(), l_users.size());
        EXPECT_FALSE(io_fields.Failed());
        return l_users;
    }
};

TEST_F(RoomTest, EnterChatAndLeaveReachEveryMember)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    auto lp_outsider = LoggedIn("carol");

    lp_alice->Send(Body(14).Str("lobby"));
    std::optional<Fields> l_first = lp_alice->Take(14);
    ASSERT_TRUE(l_first);
    EXPECT_EQ(ReadEntered(*l_first, "lobby"), (QList<QByteArray>{"alice"}));
    EXPECT_TRUE(l_first->AtEnd());

    lp_bob->Send(Body(121).U32(1500));
    lp_bob->Send(Body(14).Str("lobby"));
    std::optional<Fields> l_second = lp_bob->Take(14);
    ASSERT_TRUE(l_second);
    EXPECT_EQ(ReadEntered(*l_second, "lobby"), (QList<QByteArray>{"alice", "bob"}));

    std::optional<Fields> l_joined = lp_alice->Take(16);
    ASSERT_TRUE(l_joined);
    EXPECT_EQ(l_joined->Str(), "lobby");
    EXPECT_EQ(l_joined->Str(), "bob");
    EXPECT_EQ(l_joined->U32(), 2u);
    EXPECT_EQ(l_joined->U32(), 1500u);
    l_joined->U64();
    l_joined->U32();
    l_joined->U32();
    l_joined->U32();
    l_joined->Str();
    EXPECT_TRUE(l_joined->AtEnd());
    EXPECT_FALSE(l_joined->Failed());
    EXPECT_TRUE(lp_bob->NothingOf(16, 50));

    lp_bob->Send(Body(13).Str("lobby").Str("hello"));
    for (RawClient* lp_member : {lp_alice.get(), lp_bob.get()})
    {
        std::optional<Fields> l_line = lp_member->Take(13);
        ASSERT_TRUE(l_line);
        EXPECT_EQ(l_line->Str(), "lobby");
        EXPECT_EQ(l_line->Str(), "bob");
        EXPECT_EQ(l_line->Str(), "hello");
    }
    lp_outsider->Send(Body(13).Str("lobby").Str("intrusion"));
    EXPECT_TRUE(lp_alice->NothingOf(13));
    EXPECT_TRUE(lp_outsider->NothingOf(13, 50));

    lp_bob->Send(Body(15).Str("lobby"));
    std::optional<Fields> l_left = lp_bob->Take(15);
    ASSERT_TRUE(l_left);
    EXPECT_EQ(l_left->Str(), "lobby");
    std::optional<Fields> l_told = lp_alice->Take(17);
    ASSERT_TRUE(l_told);
    EXPECT_EQ(l_told->Str(), "lobby");
    EXPECT_EQ(l_told->Str(), "bob");

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
    std::optional<Fields> l_list = lp_alice->Take(64);
    ASSERT_TRUE(l_list);
    EXPECT_EQ(l_list->StrList(), (QList<QByteArray>{"lobby", "quiet"}));
    EXPECT_EQ(l_list->U32(), 2u);
    EXPECT_EQ(l_list->U32(), 2u);
    EXPECT_EQ(l_list->U32(), 1u);
    for (int l_group = 0; l_group < 3; ++l_group)
    {
        EXPECT_EQ(l_list->U32(), 0u);
        EXPECT_EQ(l_list->U32(), 0u);
    }
    EXPECT_TRUE(l_list->AtEnd());

    lp_bob.reset();
    std::optional<Fields> l_gone = lp_alice->Take(17);
    ASSERT_TRUE(l_gone);
    EXPECT_EQ(l_gone->Str(), "lobby");
    EXPECT_EQ(l_gone->Str(), "bob");

    lp_alice->Send(Body(64));
    std::optional<Fields> l_after = lp_alice->Take(64);
    ASSERT_TRUE(l_after);
    EXPECT_EQ(l_after->StrList(), (QList<QByteArray>{"lobby"}));
    EXPECT_EQ(l_after->U32(), 1u);
    EXPECT_EQ(l_after->U32(), 1u);
}

TEST_F(RoomTest, OwnedRoomCarriesOwnerAndSortedOperators)
{
    auto lp_bob = LoggedIn("bob");
    lp_bob->Send(Body(14).Str("club"));
    std::optional<Fields> l_entered = lp_bob->Take(14);
    ASSERT_TRUE(l_entered);
    ReadEntered(*l_entered, "club");
    EXPECT_EQ(l_entered->Str(), "alice");
    EXPECT_EQ(l_entered->StrList(), (QList<QByteArray>{"bob", "dora"}));
    EXPECT_TRUE(l_entered->AtEnd());
}
}
