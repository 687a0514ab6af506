#include "ServerFixture.h"

using SessionTest = ServerFixture;

TEST_F(SessionTest, FirstLoginRegistersAndLaterLoginsCheckThePassword)
{
    RawClient l_first(mp_server->Port());
    l_first.Send(RawClient::LoginBody("alice", "secret"));
    std::optional<Fields> l_answer = l_first.Take(1);
    ASSERT_TRUE(l_answer);
    EXPECT_EQ(l_answer->U8(), 1);
    l_answer->Str();
    EXPECT_EQ(l_answer->U32(), c_localhost);
    l_answer->Str();
    EXPECT_TRUE(l_answer->AtEnd());
    for (Body const& l_told : {Body(69).Strs({"boss", "vip"}), Body(83).U32(3), Body(84).U32(40), Body(104).U32(900),
             Body(64).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0)})
        EXPECT_EQ(l_first.Next(), l_told.Bytes());

    RawClient l_wrong(mp_server->Port());
    l_wrong.Send(RawClient::LoginBody("alice", "guess"));
    EXPECT_EQ(l_wrong.Next(), Body(1).U8(0).Str("INVALIDPASS").Bytes());
    EXPECT_TRUE(l_wrong.WaitClosed());
    EXPECT_TRUE(l_first.IsOpen());
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "secret"), std::optional<bool>(true));

    RawClient l_nameless(mp_server->Port());
    EXPECT_EQ(l_nameless.Login("", "pw"), std::optional<bool>(false));
    EXPECT_TRUE(l_nameless.WaitClosed());
}

// Tracking answers at once and reports logins and logouts, but not a session replaced by another.
TEST_F(SessionTest, UsersAreLookedUpTrackedAndReachedThroughTheirSessions)
{
    auto lp_bob = LoggedIn("bob");
    EXPECT_EQ(lp_bob->Ask(Body(5).Str("nobody")), Body(5).Str("nobody").U8(0).Bytes());
    auto lp_vip = LoggedIn("vip");
    lp_vip->Send(Body(2).U32(2240));
    lp_vip->Send(Body(121).U32(4096));
    lp_vip->Sync();
    EXPECT_EQ(lp_bob->Ask(Body(5).Str("vip")), Body(5).Str("vip").U8(1).U32(2).Stats(4096).Str("").Bytes());
    EXPECT_EQ(lp_bob->Ask(Body(3).Str("vip")), Body(3).Str("vip").U32(c_localhost).U32(2240).Bytes());
    EXPECT_EQ(lp_bob->Ask(Body(3).Str("nobody")), Body(3).Str("nobody").U32(0).U32(0).Bytes());
    EXPECT_EQ(lp_bob->Ask(Body(36).Str("vip")), Body(36).Str("vip").Stats(4096).Bytes());

    lp_vip->Send(Body(18).U32(7).Str("bob").Str("F"));
    EXPECT_EQ(lp_bob->TakeBody(18), Body(18).Str("vip").Str("F").U32(c_localhost).U32(2240).U32(7).U8(1).Bytes());
    lp_bob->Send(Body(1001).U32(7).Str("vip"));
    EXPECT_EQ(lp_vip->TakeBody(1001), Body(1001).U32(7).Bytes());
    lp_vip->Send(Body(18).U32(8).Str("ghost").Str("P"));
    EXPECT_EQ(lp_vip->TakeBody(1001), Body(1001).U32(8).Bytes());

    lp_vip.reset();
    EXPECT_EQ(lp_bob->TakeBody(7), Body(7).Str("vip").U32(0).U8(1).Bytes());
    EXPECT_EQ(lp_bob->Ask(Body(5).Str("vip")), Body(5).Str("vip").U8(1).U32(0).Stats(4096).Bytes());

    lp_vip = LoggedIn("vip");
    EXPECT_EQ(lp_bob->TakeBody(7), Body(7).Str("vip").U32(2).U8(1).Bytes());
    auto lp_older = std::move(lp_vip);
    lp_vip = LoggedIn("vip");
    EXPECT_TRUE(lp_older->WaitClosed());
    EXPECT_TRUE(lp_bob->NothingOf(7));
    EXPECT_FALSE(lp_vip->Ask(Body(64)).isEmpty());

    lp_bob->Send(Body(6).Str("vip"));
    lp_bob->Sync();
    lp_vip.reset();
    EXPECT_TRUE(lp_bob->NothingOf(7));
    EXPECT_EQ(lp_bob->Ask(Body(7).Str("vip")), Body(7).Str("vip").U32(0).U8(1).Bytes());
}

// A speed set for a name is its speed in message 36, for itself and for others, until the name
// reports its own, even a report of 0; names without one show 0.
TEST_F(SessionTest, UploadSpeedSetForANameHoldsUntilItReportsOne)
{
    m_options.m_uploadSpeeds = {{"alice", 300000}, {"bob", 5}};
    Restart();
    auto lp_alice = LoggedIn("alice");
    EXPECT_EQ(lp_alice->Ask(Body(36).Str("alice")), Body(36).Str("alice").Stats(300000).Bytes());
    EXPECT_EQ(lp_alice->Ask(Body(36).Str("bob")), Body(36).Str("bob").Stats(5).Bytes());
    EXPECT_EQ(lp_alice->Ask(Body(36).Str("carol")), Body(36).Str("carol").Stats(0).Bytes());

    auto lp_bob = LoggedIn("bob");
    lp_bob->Send(Body(121).U32(0));
    lp_bob->Sync();
    EXPECT_EQ(lp_alice->Ask(Body(36).Str("bob")), Body(36).Str("bob").Stats(0).Bytes());
    lp_alice->Send(Body(121).U32(7000));
    EXPECT_EQ(lp_alice->Ask(Body(36).Str("alice")), Body(36).Str("alice").Stats(7000).Bytes());
}

// New names stop at the most accounts allowed, with a refusal and a log line; known names still
// log in.
TEST_F(SessionTest, NewNamesAreRefusedOnceTheAccountsAreFull)
{
    m_options.m_maxAccounts = 2;
    Restart();
    LoggedIn("alice");
    LoggedIn("bob");
    RawClient l_third(mp_server->Port());
    l_third.Send(RawClient::LoginBody("carol", "pw"));
    EXPECT_EQ(l_third.Next(), Body(1).U8(0).Str("ACCOUNTSFULL").Bytes());
    EXPECT_TRUE(l_third.WaitClosed());
    EXPECT_FALSE(LogLine(QStringLiteral("login refused carol from 127.0.0.1: ACCOUNTSFULL")).isEmpty());
    LoggedIn("alice");
}
