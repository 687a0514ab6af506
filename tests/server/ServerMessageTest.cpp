#include <functional>

#include "ServerTestSupport.h"

namespace
{
using NameSet = std::set<std::string>;

class MessageTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        LogIn();
    }
    static NameSet Names(ItemSet const& i_items)
    {
        NameSet l_names;
        for (Item* lp_item : i_items)
            l_names.insert(lp_item->AsString());
        return l_names;
    }
    // The item's values of these types, each followed by "/".
    static std::string Values(ItemPtr i_item, std::initializer_list<char const*> i_types)
    {
        std::string l_values;
        for (char const* lp_type : i_types)
            l_values += i_item[lp_type].AsString() + "/";
        return l_values;
    }
    // "owner:" and the operators, each followed by ",".
    static std::string Staff(char const* i_room)
    {
        std::string l_staff = Room(i_room)["room_owner"]["user"].AsString() + ":";
        for (std::string const& l_name : Names(Room(i_room).GetItems("room_operator").GetItems("user")))
            l_staff += l_name + ",";
        return l_staff;
    }
};

// Users bob and carol, their records and countries; owner and operators are appended.
Body Entered(char const* i_room)
{
    return Body(14).Str(i_room).Strs({"bob", "carol"}).U32(0).U32(2).Stats(100, 5).Stats(200, 6).U32(0).Strs({"DE", "FR"});
}
} // namespace

// What each operation sends, in order, when its items say so; searches and indirect requests
// number themselves from 1 each.
TEST_F(MessageTest, OperationsSendOnlyWhenTheirItemsSaySoAndTakeRisingTokens)
{
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
    for (auto const& [l_token, l_text, l_wish] : {std::tuple{"1", "blue", false}, {"2", "red", true}})
    {
        ItemPtr const l_request = d.GetType("search_request")->HasItem(l_token);
        EXPECT_EQ(Values(l_request, {"search_request_text"}), l_text + std::string("/"));
        EXPECT_EQ(Has(l_request, "wishlist_search"), l_wish) << l_token;
    }
    ASSERT_EQ(l_requested.count(), 2);
    EXPECT_EQ(l_requested.at(1).at(1).value<std::string>(), "red");
    EXPECT_TRUE(l_requested.at(1).at(2).toBool());
    EXPECT_EQ(m_log.count(QStringLiteral("server|1|Sent indirect connection request to bob")), 2);
}

TEST_F(MessageTest, AddressesStatusPrivilegeAndConnectRequests)
{
    mp_server->GetUserAddress("bob");
    SendAndSettle(Body(3).Str("bob").U32(0x01020304).U32(2234).Frame() + Body(3).Str("bob").U32(0x7F000001).U32(2235).Frame());
    EXPECT_EQ(Values(User("bob"), {"user_address", "user_port"}), "2130706433/2235/");
    EXPECT_FALSE(Has(User("bob"), "user_address_request"));

    SendAndSettle(Body(7).Str("bob").U32(0).U8(1));
    EXPECT_FALSE(Has(User("bob"), "is_online"));
    EXPECT_TRUE(Has(User("bob"), "is_privileged"));
    SendAndSettle(Body(7).Str("bob").U32(2).U8(0).Frame() + Body(69).Strs({"carol"}).Frame());
    EXPECT_TRUE(Has(User("bob"), "is_online"));
    EXPECT_TRUE(Has(User("bob"), "is_privileged"));
    EXPECT_TRUE(Has(User("carol"), "is_privileged"));

    SendAndSettle(Body(18).Str("dave").Str("F").U32(0x0A000001).U32(2240).U32(77).U8(1));
    ASSERT_EQ(g("peer_connection_request").size(), 1u);
    ItemPtr const l_request = *g("peer_connection_request").begin();
    EXPECT_EQ(Values(l_request, {"peer_connection_request_id", "peer_connection_type", "user"}), "77/F/dave/");
    EXPECT_EQ(Values(User("dave"), {"user_address", "user_port"}), "167772161/2240/");
    EXPECT_TRUE(Has(User("dave"), "is_privileged"));
}

TEST_F(MessageTest, RoomMessagesSetMembersAttributesOwnerOperatorsAndCounts)
{
    (*d.GetType("room"))["lobby"] += (*d.GetType("user"))["gone"];
    SendAndSettle(Entered("lobby").Str("carol").Strs({"bob"}));
    EXPECT_TRUE(Has(Room("lobby"), "in_room"));
    EXPECT_EQ(Names(Room("lobby").GetItems("user")), (NameSet{"bob", "carol"}));
    EXPECT_EQ(Values(User("bob"), {"average_download_speed", "shared_files_count", "country_code"}), "100/5/DE/");
    EXPECT_EQ(Values(User("carol"), {"average_download_speed", "shared_files_count", "country_code"}), "200/6/FR/");
    EXPECT_EQ(Staff("lobby"), "carol:bob,");
    SendAndSettle(Entered("lobby")); // without owner: the earlier ones stay
    EXPECT_EQ(Staff("lobby"), "carol:bob,");
    SendAndSettle(Entered("lobby").Str("bob").Strs({"carol"}));
    EXPECT_EQ(Staff("lobby"), "bob:carol,");

    SendAndSettle(Body(16).Str("lobby").Str("dave").U32(1).Stats(300, 9).U32(0).Str("SE").Frame() + Body(17).Str("lobby").Str("bob").Frame());
    EXPECT_EQ(Names(Room("lobby").GetItems("user")), (NameSet{"carol", "dave"}));
    EXPECT_EQ(Values(User("dave"), {"average_download_speed", "shared_files_count", "country_code"}), "300/9/SE/");
    SendAndSettle(Body(15).Str("lobby"));
    EXPECT_FALSE(Has(Room("lobby"), "in_room"));
    EXPECT_TRUE(Room("lobby").GetItems("user").empty());

    // A record count over the limit loses the records only.
    SendAndSettle(Body(14).Str("den").Strs({"erin"}).U32(0).U32(131073).U32(0).Strs({"IT"}));
    EXPECT_TRUE(Room("den").IsConnected(User("erin")));
    EXPECT_EQ(Values(User("erin"), {"average_download_speed", "country_code"}), "/IT/");

    // A later list replaces the counts of the rooms it names and keeps the others'.
    SendAndSettle(Body(64).Strs({"a", "b"}).U32(2).U32(5).U32(5).Strs({"c"}).U32(1).U32(9).U32(0).U32(0).U32(0).U32(0).Frame() +
                  Body(64).Strs({"a"}).U32(1).U32(7).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).Frame());
    EXPECT_EQ(Values(Room("a"), {"user_count"}) + Values(Room("b"), {"user_count"}) + Values(Room("c"), {"user_count"}), "7/5/9/");
}

// Signals come in the order of their messages; an added user's answer comes before its presence
// is set, and possible parents are emitted as far as they could be read.
TEST_F(MessageTest, SignalsCarryTheirValuesInOrderAndPrivateChatIsAcknowledged)
{
    std::vector<std::string> l_events;
    Server* lp_server = mp_server.get();
    auto l_record = [&](char const* i_name) { return [&l_events, i_name](auto i_value) { l_events.push_back(i_name + std::to_string(i_value)); }; };
    QObject::connect(lp_server, &Server::DNetParentMinSpeed, lp_server, l_record("min"));
    QObject::connect(lp_server, &Server::DNetParentSpeedConnectionRatio, lp_server, l_record("ratio"));
    QObject::connect(lp_server, &Server::DNetDeliveryReport, lp_server, l_record("report"));
    QObject::connect(lp_server, &Server::IndirectPeerConnectionFailure, lp_server, l_record("fail"));
    QObject::connect(lp_server, &Server::DNetReset, lp_server, [&] { l_events.push_back("reset"); });
    QObject::connect(lp_server, &Server::RoomChat, lp_server, [&](std::string const& i_room, std::string const& i_user, std::string const& i_text)
                     { l_events.push_back(i_room + "/" + i_user + "/" + i_text); });
    QObject::connect(lp_server, &Server::ReceivedUserStats, lp_server, [&](std::string const& i_user, UserStats i_stats)
                     { l_events.push_back(i_user + std::to_string(i_stats.m_averageSpeed) + "/" + std::to_string(i_stats.m_sharedFiles)); });
    QObject::connect(lp_server, &Server::DNetMessage, lp_server, [&](MemStream& i_message)
                     { l_events.push_back("dnet" + std::string(i_message.GetReadBuffer(), i_message.GetPendingReadLength())); });
    QObject::connect(lp_server, &Server::PrivateChat, lp_server, [&](std::string const& i_user, std::string const& i_text, time_t i_time, bool i_spontaneous)
                     { l_events.push_back(i_user + ":" + i_text + "@" + std::to_string(i_time) + (i_spontaneous ? "!" : "")); });
    QObject::connect(lp_server, &Server::AddUserResponse, lp_server, [&](std::string const& i_user, bool i_added)
                     { l_events.push_back(i_user + (i_added ? "+" : "-") + (Has(User(i_user.c_str()), "is_online") ? "on" : "")); });
    QObject::connect(lp_server, &Server::DNetPossibleParents, lp_server, [&](std::list<std::pair<std::string, TCPAddress>>& i_list)
                     {
                         l_events.push_back("parents");
                         for (auto const& [l_name, l_address] : i_list)
                             l_events.back() += " " + l_name + "@" + std::to_string(l_address.m_ip) + ":" + std::to_string(l_address.m_port);
                     });
    SendAndSettle(Body(83).U32(10).Frame() + Body(84).U32(3).Frame() + Body(128).U32(2).Frame() + Body(1001).U32(12).Frame() +
                  Body(130).Frame() + Body(13).Str("lobby").Str("bob").Str("hello").Frame() + Body(36).Str("bob").Stats(500, 42).Frame() +
                  Body(93).U8(3).Raw("tail").Frame() + Body(22).U32(41).U32(1700000000).Str("bob").Str("hi").U8(1).Frame() +
                  Body(5).Str("bob").U8(1).U32(1).Stats(1, 2).Str("NL").Frame() + Body(5).Str("bob").U8(1).U32(0).Stats(1, 2).Frame() +
                  Body(5).Str("nobody").U8(0).Frame() + Body(102).U32(2).Str("bob").U32(1).U32(2).Str("carol").U32(3).U32(4).Frame() +
                  Body(102).U32(131073).Str("bob").U32(1).U32(2).Frame() + Body(102).U32(3).Str("bob").U32(1).U32(2).Str("carol").U32(3).Frame() +
                  Body(102).U32(2).Str("bob").U32(1).U32(2).U32(131073).Frame());
    EXPECT_EQ(l_events, (std::vector<std::string>{"min10", "ratio3", "report2", "fail12", "reset", "lobby/bob/hello", "bob500/42",
                                                  std::string("dnet\x03tail", 9), "bob:hi@1700000000!", "bob+", "bob+on", "nobody-",
                                                  "parents bob@1:2 carol@3:4", "parents", "parents bob@1:2", "parents bob@1:2"}));
    EXPECT_EQ(mp_central->Next(), Body(23).U32(41).Bytes());
    EXPECT_FALSE(Has(User("bob"), "is_online"));
    EXPECT_EQ(Values(User("bob"), {"country_code"}), "NL/");
}

// Every message cut short at every length, each code with noise, and frames that come in pieces,
// share a read, are too short for a code or of an unknown one: nothing may crash or end the
// connection, and nothing is made under an empty name. Only an oversized frame closes it.
TEST_F(MessageTest, TruncatedNoisyAndSplitInputIsHarmlessAndAnOversizedFrameCloses)
{
    for (Body const& l_message : {Body(3).Str("t3").U32(1).U32(2), Body(5).Str("t5").U8(1).U32(1).Stats(1, 2).Str("NL"),
                                  Body(7).Str("t7").U32(1).U8(1), Entered("t14").Str("bob").Strs({"carol"}),
                                  Body(16).Str("t16").Str("bob").U32(1).Stats(1, 2).U32(0).Str("SE"),
                                  Body(18).Str("t18").Str("P").U32(1).U32(2).U32(3).U8(1), Body(22).U32(1).U32(2).Str("t22").Str("x").U8(0),
                                  Body(64).Strs({"t64"}).U32(1).U32(5).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0),
                                  Body(102).U32(1).Str("t102").U32(1).U32(2)})
        for (qsizetype l_cut = 4; l_cut < l_message.Bytes().size(); ++l_cut)
            SendAndSettle(Body(static_cast<quint32>(l_cut)).Raw(l_message.Bytes().left(l_cut)).Bytes());
    QByteArray l_noise(4000, '\0');
    for (qsizetype l_index = 0; l_index < l_noise.size(); ++l_index)
        l_noise[l_index] = static_cast<char>((l_index * 2654435761u) >> 13);
    for (quint32 const l_code : {3u, 5u, 7u, 13u, 14u, 15u, 16u, 17u, 18u, 22u, 36u, 64u, 69u, 102u})
        SendAndSettle(Body(l_code).Raw(l_noise));

    auto const l_online = [](char const* i_user) { return Body(7).Str(i_user).U32(1).U8(0).Frame(); };
    for (char const l_byte : l_online("bob"))
    {
        mp_central->SendRaw(QByteArray(1, l_byte));
        WaitFor([] { return false; }, 10);
    }
    QByteArray const l_odd = QByteArray("\x02\x00\x00\x00\x07\x00", 6) + QByteArray(4, '\0') + Body(99999).Str("x").Frame();
    SendAndSettle(l_online("carol") + l_odd + l_online("dave"));
    for (char const* l_name : {"bob", "carol", "dave"})
        EXPECT_TRUE(Has(User(l_name), "is_online")) << l_name;
    EXPECT_TRUE(mp_server->IsConnected());
    EXPECT_FALSE(d.GetType("user")->HasItem(""));
    EXPECT_FALSE(d.GetType("room")->HasItem(""));

    mp_central->SendRaw(Body(ServerFrameReader::s_maxFrameLength + 1).Bytes());
    ASSERT_TRUE(WaitFor([this] { return m_disconnected.count() == 1; }));
    EXPECT_TRUE(mp_central->WaitClosed());
    EXPECT_EQ(m_log.filter(QStringLiteral("server|1|The server announced a message of 16777217 bytes")).size(), 1);
}
