#include <functional>

#include "ServerTestSupport.h"

// What each operation sends, in order, when its items say so; searches and indirect requests
// number themselves from 1 each.
TEST_F(ServerTest, OperationsSendOnlyWhenTheirItemsSaySoAndTakeRisingTokens)
{
    LogIn();
    QSignalSpy l_requested(mp_server.get(), &Server::SearchRequested);
    d.GetType("room")->GetItem("lobby")->NewItem("in_room");
    std::vector<std::pair<std::function<void(Server&)>, Body>> const l_cases = {
        {[](Server& s) { s.LeaveRoom("den"); s.LeaveRoom("lobby"); }, Body(15).Str("lobby")},
        {[](Server& s) { s.SendDNetHasParent(true); }, Body(71).U8(0)},
        {[](Server& s) { s.SendCantConnectToPeer(9, "bob"); }, Body(1001).U32(9).Str("bob")},
        {[](Server& s) { s.UntrackUser("bob"); s.TrackUser("bob"); s.TrackUser("bob"); }, Body(5).Str("bob")},
        {[](Server& s) { s.UntrackUser("bob"); s.UntrackUser("bob"); }, Body(6).Str("bob")},
        {[](Server& s) { s.GetUserAddress("bob"); s.GetUserAddress("bob"); }, Body(3).Str("bob")},
        {[](Server& s) { EXPECT_EQ(s.FileSearch("blue", false), 1u); }, Body(26).U32(1).Str("blue")},
        {[](Server& s) { EXPECT_EQ(s.FileSearch("red", true), 2u); }, Body(103).U32(2).Str("red")},
        {[](Server& s) { EXPECT_EQ(s.SendIndirectConnectionRequest("bob", "P"), 1u); }, Body(18).U32(1).Str("bob").Str("P")},
        {[](Server& s) { EXPECT_EQ(s.SendIndirectConnectionRequest("bob", "F"), 2u); }, Body(18).U32(2).Str("bob").Str("F")},
    };
    for (size_t l_index = 0; l_index < l_cases.size(); ++l_index)
    {
        l_cases[l_index].first(*mp_server);
        EXPECT_EQ(mp_central->Next(), l_cases[l_index].second.Bytes()) << l_index;
    }
    EXPECT_TRUE(NothingSent());
    EXPECT_FALSE(Has(User("bob"), "is_tracked"));
    EXPECT_TRUE(Has(User("bob"), "user_address_request"));
    ItemPtr const l_plain = d.GetType("search_request")->HasItem("1");
    ItemPtr const l_wish = d.GetType("search_request")->HasItem("2");
    EXPECT_EQ(l_plain["search_request_text"].AsString(), "blue");
    EXPECT_EQ(l_wish["search_request_text"].AsString(), "red");
    EXPECT_FALSE(Has(l_plain, "wishlist_search"));
    EXPECT_TRUE(Has(l_wish, "wishlist_search"));
    ASSERT_EQ(l_requested.count(), 2);
    EXPECT_EQ(l_requested.at(1).at(1).value<std::string>(), "red");
    EXPECT_TRUE(l_requested.at(1).at(2).toBool());
    EXPECT_EQ(m_log.count(QStringLiteral("server|1|Sent indirect connection request to bob")), 2);
}

TEST_F(ServerTest, NothingButTheLoginLeavesBeforeLoggingIn)
{
    mp_server->AddUser("bob");
    mp_server->Connect();
    ASSERT_TRUE(AcceptClient());
    mp_server->AddUser("bob");
    EXPECT_EQ(mp_central->Next().left(4), Body(1).Bytes());
    EXPECT_TRUE(NothingSent());
}
