#include "ServerTestSupport.h"

#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "support/WaitFor.h"

bool ServerTest::DeclareTypes()
{
    // Settings first, as the main window declares them, then the server link's schema.
    static bool const s_declared = []
    {
        new DataSaver();
        Type* lp_value = d.NewType("global_value", false, false, true);
        d.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
        Server::CreateData();
        return true;
    }();
    return s_declared;
}

void ServerTest::SetUp()
{
    m_listener.listen(QHostAddress::LocalHost, 0);
    mp_server->SetAddress(QStringLiteral("127.0.0.1"), m_listener.serverPort());
    for (auto const& [lp_key, lp_value] : {std::pair{"username", "alice"}, {"password", "secret"}, {"use_upnp", "no"}, {"listening_port", "2235"}})
        SetGlobal(lp_key, lp_value);
    SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
               { m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
    QObject::connect(mp_server.get(), &Server::WishListWait, mp_server.get(),
                     [this](unsigned int i_value) { m_markerSeen = i_value; });
}

void ServerTest::TearDown()
{
    mp_server.reset();
    SetLogSink(nullptr);
    for (auto const& l_entry : d.Types())
        l_entry.second->GetItems().Remove();
}

bool ServerTest::AcceptClient(int i_timeoutMs)
{
    if (!WaitFor([this] { return m_listener.hasPendingConnections(); }, i_timeoutMs))
        return false;
    mp_central = std::make_unique<RawClient>(m_listener.nextPendingConnection());
    return true;
}

void ServerTest::AnswerLogin(bool i_success)
{
    ASSERT_TRUE(AcceptClient());
    ASSERT_EQ(mp_central->Next().left(4), Body(1).Bytes());
    mp_central->Send(i_success ? Body(1).U8(1).Str("welcome").U32(0).Str("") : Body(1).U8(0).Str("INVALIDPASS"));
}

void ServerTest::LogIn()
{
    mp_server->Connect();
    AnswerLogin();
    ASSERT_TRUE(WaitFor([this] { return mp_server->IsConnected(); }));
}

void ServerTest::SendAndSettle(QByteArray const& i_bytes)
{
    quint32 const l_marker = ++m_markerSent;
    mp_central->SendRaw(i_bytes + Body(104).U32(l_marker).Frame());
    ASSERT_TRUE(WaitFor([this, l_marker] { return m_markerSeen == l_marker; }));
}
