#include <QCryptographicHash>

#include "ServerTestSupport.h"
#include "store/Settings.h"
#include "support/WaitFor.h"

namespace
{
QByteArray Login(QByteArray const& i_name, QByteArray const& i_password)
{
    QByteArray const l_digest = QCryptographicHash::hash(i_name + i_password, QCryptographicHash::Md5).toHex();
    return Body(1).Str(i_name).Str(i_password).U32(157).Str(l_digest).U32(100).Bytes();
}

void Pause() { WaitFor([] { return false; }, 100); }
} // namespace

class ConnectionTest : public ServerTest
{
protected:
    std::string Reason(int i_index) const { return mp_failed->at(i_index).at(0).value<std::string>(); }
    // A reconnection shows as a new client at the central server.
    bool RetriesOnTimer()
    {
        mp_server->AttemptReconnect();
        return m_central.WaitForClient(500);
    }
    int MappingLines() const { return m_log.count(QStringLiteral("Port Forwarding|1|Adding mapping for port 2235")); }
};

TEST_F(ConnectionTest, LoginBytesAreExactAlsoWithAnEmptyPassword)
{
    QSignalSpy l_connecting(mp_server.get(), &Server::Connecting);
    mp_server->Connect();
    EXPECT_EQ(l_connecting.count(), 1);
    EXPECT_EQ(mp_server->GetState(), Server::StateConnecting);
    ASSERT_TRUE(m_central.WaitForClient());
    EXPECT_EQ(m_central.NextBody(), Login("alice", "secret"));

    m_central.Close();
    ASSERT_TRUE(WaitFor([this] { return mp_failed->count() == 1; }));
    SetGlobal("password", "");
    mp_server->Connect();
    ASSERT_TRUE(m_central.WaitForClient());
    EXPECT_EQ(m_central.NextBody(), Login("alice", ""));
}

TEST_F(ConnectionTest, MissingPasswordLogsInWithBothDefaultsAndMissingNameNotAtAll)
{
    d.GetType("global")->HasItem("password").Remove();
    mp_server->Connect();
    ASSERT_TRUE(m_central.WaitForClient());
    EXPECT_EQ(m_central.NextBody(), Login("TidewickQT", "TidewickQTLoginKey"));
    EXPECT_EQ(GetGlobal("username"), "TidewickQT");

    auto lp_server = std::make_unique<Server>();
    d.GetType("global")->HasItem("username").Disconnect("global_value");
    lp_server->Connect();
    EXPECT_EQ(lp_server->GetState(), Server::StateDisconnected);
}

TEST_F(ConnectionTest, SuccessConnectsOnceAndALaterLoginResponseIsIgnored)
{
    LogIn();
    EXPECT_EQ(mp_connected->count(), 1);
    SendAndSettle(Body(1).U8(0).Str("INVALIDPASS"));
    EXPECT_TRUE(mp_server->IsConnected());
    EXPECT_EQ(mp_failed->count(), 0);
}

TEST_F(ConnectionTest, RefusedLoginStopsWithoutDisconnectedAndIsNotRetried)
{
    ItemPtr const l_bob = d.GetType("user")->GetItem("bob");
    l_bob.NewItem("is_online");
    mp_server->Connect();
    AnswerLogin(false);
    ASSERT_TRUE(WaitFor([this] { return mp_failed->count() == 1; }));
    EXPECT_EQ(Reason(0), "INVALIDPASS");
    EXPECT_EQ(mp_server->GetState(), Server::StateDisconnected);

    // In state 0 frames are dropped, and the server's close changes nothing.
    m_central.Send(Body(7).Str("bob").U32(0).U8(0).Frame());
    m_central.Close();
    ASSERT_TRUE(m_central.WaitForClose());
    Pause();
    EXPECT_TRUE(Has(l_bob, "is_online"));
    EXPECT_EQ(mp_disconnected->count(), 0);
    EXPECT_EQ(mp_failed->count(), 1);
    EXPECT_FALSE(RetriesOnTimer());
}

TEST_F(ConnectionTest, LostConnectionGivesOneDisconnectedCutsPresenceAndIsRetried)
{
    d.GetType("room")->GetItem("lobby")->NewItem("in_room");
    LogIn();
    SendAndSettle(Body(7).Str("bob").U32(1).U8(0));
    m_central.Close(); // the client hears an error and then the close
    ASSERT_TRUE(WaitFor([this] { return mp_disconnected->count() == 1; }));
    Pause();
    EXPECT_EQ(mp_disconnected->count(), 1);
    EXPECT_EQ(mp_failed->count(), 0);
    EXPECT_FALSE(Has(User("bob"), "is_online"));
    EXPECT_TRUE(Has(Room("lobby"), "in_room"));
    EXPECT_TRUE(RetriesOnTimer());
}

TEST_F(ConnectionTest, FailureWhileConnectingReportsSocketErrorOnceAndIsRetried)
{
    mp_server->Connect();
    ASSERT_TRUE(m_central.WaitForClient());
    m_central.Close();
    ASSERT_TRUE(WaitFor([this] { return mp_disconnected->count() == 1; }));
    Pause();
    ASSERT_EQ(mp_failed->count(), 1);
    EXPECT_EQ(Reason(0), "socket error");
    EXPECT_TRUE(RetriesOnTimer());

    QTcpServer l_closed; // a port where nobody listens
    l_closed.listen(QHostAddress::LocalHost, 0);
    mp_server->SetAddress(QStringLiteral("127.0.0.1"), l_closed.serverPort());
    l_closed.close();
    m_central.Close();
    ASSERT_TRUE(WaitFor([this] { return mp_failed->count() == 2; }));
    mp_server->AttemptReconnect();
    ASSERT_TRUE(WaitFor([this] { return mp_failed->count() == 3; }));
    EXPECT_EQ(Reason(2), "socket error");
    EXPECT_EQ(mp_disconnected->count(), 3);
}

TEST_F(ConnectionTest, UserDisconnectIsNotRetriedAndItsCloseIsSwallowedOnce)
{
    mp_server->Connect();
    mp_server->Disconnect(); // no effect while connecting
    AnswerLogin();
    ASSERT_TRUE(WaitFor([this] { return mp_server->IsConnected(); }));
    mp_server->Disconnect();
    EXPECT_EQ(mp_disconnected->count(), 1);
    EXPECT_EQ(mp_server->GetState(), Server::StateDisconnected);
    ASSERT_TRUE(m_central.WaitForClose());
    EXPECT_FALSE(RetriesOnTimer());

    LogIn();
    m_central.Close();
    ASSERT_TRUE(WaitFor([this] { return mp_disconnected->count() == 2; }));
    EXPECT_TRUE(RetriesOnTimer());
}

TEST_F(ConnectionTest, ReloginReplaysTrackingAndLookUpsButNotAutojoinOrMapping)
{
    SetGlobal("use_upnp", "yes");
    d.GetType("room")->GetItem("lobby")->NewItem("room_autojoin");
    d.GetType("user")->GetItem("carol")->NewItem("is_tracked");
    d.GetType("user")->GetItem("dave")->NewItem("user_address_request");
    LogIn();
    EXPECT_EQ(m_central.NextBody(), Body(14).Str("lobby").Bytes());
    EXPECT_EQ(m_central.NextBody(), Body(5).Str("carol").Bytes());
    EXPECT_EQ(m_central.NextBody(), Body(3).Str("dave").Bytes());
    EXPECT_EQ(MappingLines(), 1);

    m_central.Close();
    ASSERT_TRUE(WaitFor([this] { return mp_disconnected->count() == 1; }));
    ASSERT_TRUE(RetriesOnTimer());
    ASSERT_EQ(m_central.NextBody().left(4), Body(1).Bytes());
    m_central.Send(Body(1).U8(1).Str("").U32(0).Str("").Frame());
    EXPECT_EQ(m_central.NextBody(), Body(5).Str("carol").Bytes());
    EXPECT_EQ(m_central.NextBody(), Body(3).Str("dave").Bytes());
    EXPECT_TRUE(m_central.NothingSent());
    EXPECT_EQ(MappingLines(), 1);

    mp_server->RenewPortMapping();
    EXPECT_TRUE(m_log.contains(QStringLiteral("server|1|Renewing UPnP port mapping.")));
    EXPECT_EQ(MappingLines(), 2);
    SetGlobal("use_upnp", "no");
    mp_server->RenewPortMapping();
    EXPECT_EQ(MappingLines(), 2);
}

TEST_F(ConnectionTest, DataLoadedTurnsUpnpOnOnlyWhenUnset)
{
    mp_server->DataLoaded();
    EXPECT_EQ(GetGlobal("use_upnp"), "no");
    d.GetType("global")->HasItem("use_upnp").Remove();
    mp_server->DataLoaded();
    EXPECT_EQ(GetGlobal("use_upnp"), "yes");
}
