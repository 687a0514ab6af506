#include "ServerFixture.h"

namespace
{
class SessionTest : public ServerFixture
{
protected:
    void Configure(ServerOptions& o_options) override
    {
        o_options.m_privileged = {"vip", "boss"};
        o_options.m_wishListPeriod = 900;
        o_options.m_parentMinSpeed = 3;
        o_options.m_parentSpeedRatio = 40;
    }
};

TEST_F(SessionTest, FirstLoginRegistersAndLaterLoginsCheckThePassword)
{
    RawClient l_first(mp_server->Port());
    l_first.Send(Body(1).Str("alice").Str("secret").U32(157).Str(QByteArray(32, 'a')).U32(100));
    std::optional<Fields> l_answer = l_first.Take(1);
    ASSERT_TRUE(l_answer);
    EXPECT_EQ(l_answer->U8(), 1);
    l_answer->Str();
    EXPECT_EQ(l_answer->U32(), c_localhost);
    l_answer->Str();
    EXPECT_TRUE(l_answer->AtEnd());

    std::optional<Fields> l_privileged = l_first.Take(69);
    ASSERT_TRUE(l_privileged);
    EXPECT_EQ(l_privileged->StrList(), (QList<QByteArray>{"boss", "vip"}));
    std::optional<Fields> l_minSpeed = l_first.Take(83);
    std::optional<Fields> l_ratio = l_first.Take(84);
    std::optional<Fields> l_wishList = l_first.Take(104);
    ASSERT_TRUE(l_minSpeed && l_ratio && l_wishList);
    EXPECT_EQ(l_minSpeed->U32(), 3u);
    EXPECT_EQ(l_ratio->U32(), 40u);
    EXPECT_EQ(l_wishList->U32(), 900u);

    RawClient l_wrong(mp_server->Port());
    l_wrong.Send(Body(1).Str("alice").Str("guess").U32(157).Str(QByteArray(32, 'a')).U32(100));
    std::optional<Fields> l_refusal = l_wrong.Take(1);
    ASSERT_TRUE(l_refusal);
    EXPECT_EQ(l_refusal->U8(), 0);
    EXPECT_EQ(l_refusal->Str(), "INVALIDPASS");
    EXPECT_TRUE(l_wrong.WaitClosed());
    EXPECT_TRUE(l_first.IsOpen());

    RawClient l_again(mp_server->Port());
    EXPECT_EQ(l_again.Login("alice", "secret"), std::optional<bool>(true));
}

TEST_F(SessionTest, EmptyNameIsRefusedAndClosed)
{
    RawClient l_client(mp_server->Port());
    EXPECT_EQ(l_client.Login("", "pw"), std::optional<bool>(false));
    EXPECT_TRUE(l_client.WaitClosed());
}

TEST_F(SessionTest, SecondLoginDropsTheOlderSessionWithoutTellingTrackers)
{
    auto lp_watcher = LoggedIn("watcher");
    auto lp_old = LoggedIn("alice");
    lp_watcher->Send(Body(5).Str("alice"));
    ASSERT_TRUE(lp_watcher->Take(5));

    auto lp_new = LoggedIn("alice");
    EXPECT_TRUE(lp_old->WaitClosed());
    EXPECT_TRUE(lp_new->IsOpen());
    EXPECT_TRUE(lp_watcher->NothingOf(7));

    lp_new->Send(Body(64));
    EXPECT_TRUE(lp_new->Take(64));
}

TEST_F(SessionTest, TrackingAnswersAndReportsLoginAndLogout)
{
    auto lp_bob = LoggedIn("bob");
    lp_bob->Send(Body(5).Str("nobody"));
    std::optional<Fields> l_unknown = lp_bob->Take(5);
    ASSERT_TRUE(l_unknown);
    EXPECT_EQ(l_unknown->Str(), "nobody");
    EXPECT_EQ(l_unknown->U8(), 0);
    EXPECT_TRUE(l_unknown->AtEnd());

    auto lp_vip = LoggedIn("vip");
    lp_vip->Send(Body(121).U32(4096));
    lp_vip->Sync();
    lp_bob->Send(Body(5).Str("vip"));
    std::optional<Fields> l_online = lp_bob->Take(5);
    ASSERT_TRUE(l_online);
    EXPECT_EQ(l_online->Str(), "vip");
    EXPECT_EQ(l_online->U8(), 1);
    EXPECT_EQ(l_online->U32(), 2u);
    EXPECT_EQ(l_online->U32(), 4096u);
    l_online->U64();
    l_online->U32();
    l_online->U32();
    l_online->Str();
    EXPECT_TRUE(l_online->AtEnd());
    EXPECT_FALSE(l_online->Failed());

    lp_vip.reset();
    std::optional<Fields> l_gone = lp_bob->Take(7);
    ASSERT_TRUE(l_gone);
    EXPECT_EQ(l_gone->Str(), "vip");
    EXPECT_EQ(l_gone->U32(), 0u);
    EXPECT_EQ(l_gone->U8(), 1);

    lp_bob->Send(Body(5).Str("vip"));
    std::optional<Fields> l_offline = lp_bob->Take(5);
    ASSERT_TRUE(l_offline);
    l_offline->Str();
    EXPECT_EQ(l_offline->U8(), 1);
    EXPECT_EQ(l_offline->U32(), 0u);
    l_offline->U32();
    l_offline->U64();
    l_offline->U32();
    l_offline->U32();
    EXPECT_TRUE(l_offline->AtEnd());

    lp_vip = LoggedIn("vip");
    std::optional<Fields> l_back = lp_bob->Take(7);
    ASSERT_TRUE(l_back);
    EXPECT_EQ(l_back->Str(), "vip");
    EXPECT_EQ(l_back->U32(), 2u);

    lp_bob->Send(Body(6).Str("vip"));
    lp_bob->Sync();
    lp_vip.reset();
    EXPECT_TRUE(lp_bob->NothingOf(7));

    lp_bob->Send(Body(7).Str("vip"));
    std::optional<Fields> l_asked = lp_bob->Take(7);
    ASSERT_TRUE(l_asked);
    EXPECT_EQ(l_asked->Str(), "vip");
    EXPECT_EQ(l_asked->U32(), 0u);
    EXPECT_EQ(l_asked->U8(), 1);
}

TEST_F(SessionTest, AddressAndStatisticsComeFromTheSessionAndItsReports)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    lp_alice->Send(Body(2).U32(2234));
    lp_alice->Send(Body(121).U32(777));
    lp_alice->Sync();

    lp_bob->Send(Body(3).Str("alice"));
    std::optional<Fields> l_address = lp_bob->Take(3);
    ASSERT_TRUE(l_address);
    EXPECT_EQ(l_address->Str(), "alice");
    EXPECT_EQ(l_address->U32(), c_localhost);
    EXPECT_EQ(l_address->U32(), 2234u);

    lp_bob->Send(Body(3).Str("nobody"));
    std::optional<Fields> l_none = lp_bob->Take(3);
    ASSERT_TRUE(l_none);
    l_none->Str();
    EXPECT_EQ(l_none->U32(), 0u);
    EXPECT_EQ(l_none->U32(), 0u);

    lp_alice->Send(Body(36).Str("alice"));
    std::optional<Fields> l_stats = lp_alice->Take(36);
    ASSERT_TRUE(l_stats);
    EXPECT_EQ(l_stats->Str(), "alice");
    EXPECT_EQ(l_stats->U32(), 777u);
    l_stats->U64();
    l_stats->U32();
    l_stats->U32();
    EXPECT_TRUE(l_stats->AtEnd());
    EXPECT_FALSE(l_stats->Failed());
}

TEST_F(SessionTest, IndirectConnectionRequestsAndFailuresAreRelayed)
{
    auto lp_alice = LoggedIn("vip");
    auto lp_bob = LoggedIn("bob");
    lp_alice->Send(Body(2).U32(2240));
    lp_alice->Send(Body(18).U32(7).Str("bob").Str("F"));

    std::optional<Fields> l_request = lp_bob->Take(18);
    ASSERT_TRUE(l_request);
    EXPECT_EQ(l_request->Str(), "vip");
    EXPECT_EQ(l_request->Str(), "F");
    EXPECT_EQ(l_request->U32(), c_localhost);
    EXPECT_EQ(l_request->U32(), 2240u);
    EXPECT_EQ(l_request->U32(), 7u);
    EXPECT_EQ(l_request->U8(), 1);
    EXPECT_TRUE(l_request->AtEnd());

    lp_bob->Send(Body(1001).U32(7).Str("vip"));
    std::optional<Fields> l_failure = lp_alice->Take(1001);
    ASSERT_TRUE(l_failure);
    EXPECT_EQ(l_failure->U32(), 7u);
    EXPECT_TRUE(l_failure->AtEnd());

    lp_alice->Send(Body(18).U32(8).Str("ghost").Str("P"));
    std::optional<Fields> l_offline = lp_alice->Take(1001);
    ASSERT_TRUE(l_offline);
    EXPECT_EQ(l_offline->U32(), 8u);
}
}
