#include <QCryptographicHash>

#include <functional>

#include "ServerTestSupport.h"

namespace
{
QByteArray Login(QByteArray const& i_name, QByteArray const& i_password)
{
    QByteArray const l_digest = QCryptographicHash::hash(i_name + i_password, QCryptographicHash::Md5).toHex();
    return Body(1).Str(i_name).Str(i_password).U32(157).Str(l_digest).U32(100).Bytes();
}

void Pause() { WaitFor([] { return false; }, 100); }

class ConnectionTest : public ServerTest
{
protected:
    std::string Reason(int i_index) const { return m_failed.at(i_index).at(0).value<std::string>(); }
    // A reconnection shows as a new client at the central server.
    bool RetriesOnTimer()
    {
        mp_server->AttemptReconnect();
        return AcceptClient(500);
    }
    int MappingLines() const { return m_log.count(QStringLiteral("Port Forwarding|1|Adding mapping for port 2235")); }
};
} // namespace

// Each attempt is closed by the central server while it waits for the login response; nothing
// but the login goes out before it.
TEST_F(ConnectionTest, LoginFollowsTheSettingsAndFailuresWhileConnectingAreReportedOnceAndRetried)
{
    QSignalSpy l_connecting(mp_server.get(), &Server::Connecting);
    std::vector<std::pair<std::function<void()>, QByteArray>> const l_cases = {
        {[] {}, Login("alice", "secret")},
        {[] { SetGlobal("password", ""); }, Login("alice", "")},
        {[] { d.GetType("global")->HasItem("password").Remove(); }, Login("TidewickQT", "TidewickQTLoginKey")},
    };
    for (int l_index = 0; l_index < static_cast<int>(l_cases.size()); ++l_index)
    {
        l_cases[l_index].first();
        l_index == 0 ? mp_server->Connect() : mp_server->AttemptReconnect();
        EXPECT_EQ(mp_server->GetState(), Server::StateConnecting) << l_index;
        mp_server->AddUser("bob");
        ASSERT_TRUE(AcceptClient());
        EXPECT_EQ(mp_central->Next(), l_cases[l_index].second) << l_index;
        mp_server->AddUser("bob");
        EXPECT_TRUE(NothingSent()) << l_index;
        mp_central->Close();
        ASSERT_TRUE(WaitFor([&] { return m_disconnected.count() == l_index + 1; }));
        Pause();
        ASSERT_EQ(m_failed.count(), l_index + 1);
        EXPECT_EQ(Reason(l_index), "socket error");
    }
    EXPECT_EQ(l_connecting.count(), 3);
    EXPECT_EQ(GetGlobal("username"), "TidewickQT");

    m_central.Close(); // now nobody listens on the port
    mp_server->AttemptReconnect();
    ASSERT_TRUE(WaitFor([this] { return m_failed.count() == 4; }));
    EXPECT_EQ(Reason(3), "socket error");
    EXPECT_EQ(m_disconnected.count(), 4);

    d.GetType("global")->HasItem("username").Disconnect("global_value");
    mp_server->Connect();
    EXPECT_EQ(mp_server->GetState(), Server::StateDisconnected);
}

// A refused login and the user's Disconnect are not retried; a real close after the latter is.
TEST_F(ConnectionTest, RefusedLoginAndUserDisconnectStopWithoutRetrying)
{
    d.GetType("user")->GetItem("bob")->NewItem("is_online");
    mp_server->Connect();
    mp_server->Disconnect(); // no effect while connecting
    AnswerLogin(false);
    ASSERT_TRUE(WaitFor([this] { return m_failed.count() == 1; }));
    EXPECT_EQ(Reason(0), "INVALIDPASS");
    EXPECT_EQ(mp_server->GetState(), Server::StateDisconnected);
    // Once refused, frames are dropped and the server's close changes nothing.
    mp_central->Send(Body(7).Str("bob").U32(0).U8(0));
    mp_central->Close();
    ASSERT_TRUE(mp_central->WaitClosed());
    Pause();
    EXPECT_TRUE(Has(User("bob"), "is_online"));
    EXPECT_EQ(m_disconnected.count(), 0);
    EXPECT_EQ(m_failed.count(), 1);
    EXPECT_FALSE(RetriesOnTimer());

    LogIn();
    mp_server->Disconnect();
    EXPECT_EQ(m_disconnected.count(), 1);
    EXPECT_EQ(mp_server->GetState(), Server::StateDisconnected);
    ASSERT_TRUE(mp_central->WaitClosed());
    EXPECT_FALSE(RetriesOnTimer());
    LogIn();
    mp_central->Close();
    ASSERT_TRUE(WaitFor([this] { return m_disconnected.count() == 2; }));
    EXPECT_TRUE(RetriesOnTimer());
}

// A lost connection cuts presence, keeps the rooms and is retried; the next login asks again for
// what is tracked and looked up, but does not join rooms again. What the server held while the
// client was away arrives behind the login response, in the same read, marked as not
// spontaneous, and is acknowledged like a message that comes live. The hourly renewal follows
// the UPnP setting. UPnP stays off until the link stands, so that no gateway is looked for on
// this machine's network; the mapping at login is tested against a gateway of the test's own.
TEST_F(ConnectionTest, LostConnectionIsRetriedReloginReplaysTrackingAndMappingFollowsTheUpnpSetting)
{
    d.GetType("room")->GetItem("lobby")->NewItem("room_autojoin");
    d.GetType("room")->GetItem("den")->NewItem("in_room");
    d.GetType("user")->GetItem("carol")->NewItem("is_tracked");
    d.GetType("user")->GetItem("dave")->NewItem("user_address_request");
    LogIn();
    EXPECT_EQ(m_connected.count(), 1);
    for (Body const& l_sent : {Body(14).Str("lobby"), Body(5).Str("carol"), Body(3).Str("dave")})
        EXPECT_EQ(mp_central->Next(), l_sent.Bytes());
    // A login response once logged in is ignored.
    SendAndSettle(Body(1).U8(0).Str("INVALIDPASS").Frame() + Body(7).Str("bob").U32(1).U8(0).Frame());
    EXPECT_TRUE(Has(User("bob"), "is_online"));

    mp_central->Close(); // the client hears an error and then the close
    ASSERT_TRUE(WaitFor([this] { return m_disconnected.count() == 1; }));
    Pause();
    EXPECT_EQ(m_disconnected.count(), 1);
    EXPECT_EQ(m_failed.count(), 0);
    EXPECT_FALSE(Has(User("bob"), "is_online"));
    EXPECT_TRUE(Has(Room("den"), "in_room"));
    QSignalSpy l_chats(mp_server.get(), &Server::PrivateChat);
    ASSERT_TRUE(RetriesOnTimer());
    ASSERT_EQ(mp_central->Next().left(4), Body(1).Bytes());
    auto const l_held = [](quint32 i_id) { return Body(22).U32(i_id).U32(1600000000).Str("bob").Str("while away").U8(0).Frame(); };
    mp_central->SendRaw(Body(1).U8(1).Str("").U32(0).Str("").Frame() + l_held(7) + l_held(8));
    for (Body const& l_sent : {Body(5).Str("carol"), Body(3).Str("dave"), Body(23).U32(7), Body(23).U32(8)})
        EXPECT_EQ(mp_central->Next(), l_sent.Bytes());
    EXPECT_TRUE(NothingSent());
    ASSERT_EQ(l_chats.count(), 2);
    EXPECT_FALSE(l_chats.at(1).at(3).toBool());
    EXPECT_EQ(MappingLines(), 0);

    mp_server->RenewPortMapping();
    EXPECT_FALSE(m_log.contains(QStringLiteral("server|1|Renewing UPnP port mapping.")));
    SetGlobal("use_upnp", "yes");
    mp_server->RenewPortMapping();
    EXPECT_TRUE(m_log.contains(QStringLiteral("server|1|Renewing UPnP port mapping.")));
    // No gateway is known, so the forwarder refuses; its lines come from its own thread.
    EXPECT_TRUE(WaitFor([this] { return m_log.contains(QStringLiteral("Port Forwarding|2|UPnP appears to not have been initialized, aborting.")); }));
    EXPECT_EQ(MappingLines(), 1);
    SetGlobal("use_upnp", "no");
    mp_server->RenewPortMapping();
    EXPECT_EQ(MappingLines(), 1);
    mp_server->DataLoaded();
    EXPECT_EQ(GetGlobal("use_upnp"), "no");
    d.GetType("global")->HasItem("use_upnp").Remove();
    mp_server->DataLoaded();
    EXPECT_EQ(GetGlobal("use_upnp"), "yes");
}

// Exactly the bound may wait unsent; one byte more ends the link like a lost connection, and the
// timer brings it back. Against a server that stops reading, that bound is all that holds.
TEST_F(ConnectionTest, MoreThanTheBoundWaitingUnsentDropsTheLinkAndTheTimerReconnects)
{
    LogIn();
    mp_central->StopReading();
    // A private message of this text makes a frame of exactly 1 MiB. Sent without a turn of the
    // event loop, none of it leaves the client, so what waits is counted to the byte.
    std::string const l_text(1024 * 1024 - 19, 'x');
    QString const l_line = QStringLiteral("server|1|More than 16 MiB wait unsent to the server; reconnecting");
    for (int l_sent = 0; l_sent < 16; ++l_sent)
        mp_server->SendPrivateChat("bob", l_text);
    EXPECT_FALSE(m_log.contains(l_line));
    mp_server->GetRoomList();
    EXPECT_EQ(m_log.count(l_line), 1);
    ASSERT_TRUE(WaitFor([this] { return m_disconnected.count() == 1; }));
    EXPECT_EQ(m_failed.count(), 0);

    mp_server->AttemptReconnect();
    AnswerLogin();
    mp_central->StopReading();
    ASSERT_TRUE(WaitFor([this] { return mp_server->IsConnected(); }));
    // Sent with turns of the event loop, the socket buffers take some first, then the bound holds.
    int l_sent = 0;
    for (; l_sent < 64 && m_disconnected.count() == 1; ++l_sent)
    {
        mp_server->SendPrivateChat("bob", l_text);
        WaitFor([] { return false; }, 10);
    }
    EXPECT_EQ(m_disconnected.count(), 2);
    EXPECT_GT(l_sent, 16);
    EXPECT_EQ(m_log.count(l_line), 2);
}
