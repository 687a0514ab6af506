#include "ServerTestSupport.h"

#include <QtEndian>

#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "support/WaitFor.h"

namespace
{
// Settings first, as the main window declares them, then the server link's schema.
class ServerEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        new DataSaver();
        Type* lp_value = d.NewType("global_value", false, false, true);
        d.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
        Server::CreateData();
    }
};

[[maybe_unused]] ::testing::Environment* const gp_environment =
    ::testing::AddGlobalTestEnvironment(new ServerEnvironment);
} // namespace

Body& Body::U32(quint32 i_value)
{
    for (int l_shift = 0; l_shift < 32; l_shift += 8)
        m_bytes.append(static_cast<char>((i_value >> l_shift) & 0xff));
    return *this;
}

Body& Body::Raw(QByteArray const& i_bytes)
{
    m_bytes.append(i_bytes);
    return *this;
}

bool FakeCentral::WaitForClient(int i_timeoutMs)
{
    if (!WaitFor([this] { return m_server.hasPendingConnections(); }, i_timeoutMs))
        return false;
    delete mp_client;
    m_received.clear();
    mp_client = m_server.nextPendingConnection();
    return true;
}

QByteArray FakeCentral::NextBody(int i_timeoutMs)
{
    auto l_complete = [this]
    {
        m_received += mp_client->readAll();
        return m_received.size() >= 4 && m_received.size() - 4 >= qFromLittleEndian<quint32>(m_received.constData());
    };
    if (!WaitFor(l_complete, i_timeoutMs))
        return {};
    quint32 const l_length = qFromLittleEndian<quint32>(m_received.constData());
    QByteArray const l_body = m_received.mid(4, l_length);
    m_received.remove(0, 4 + l_length);
    return l_body;
}

void FakeCentral::Send(QByteArray const& i_bytes)
{
    mp_client->write(i_bytes);
    mp_client->flush();
}

bool FakeCentral::WaitForClose()
{
    return WaitFor([this] { return mp_client->state() == QAbstractSocket::UnconnectedState; });
}

void ServerTest::SetUp()
{
    mp_server = std::make_unique<Server>();
    mp_server->SetAddress(QStringLiteral("127.0.0.1"), m_central.Port());
    mp_connected = std::make_unique<QSignalSpy>(mp_server.get(), &Server::Connected);
    mp_disconnected = std::make_unique<QSignalSpy>(mp_server.get(), &Server::Disconnected);
    mp_failed = std::make_unique<QSignalSpy>(mp_server.get(), &Server::ConnectionFailed);
    SetGlobal("username", "alice");
    SetGlobal("password", "secret");
    SetGlobal("use_upnp", "no");
    SetGlobal("listening_port", "2235");
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

void ServerTest::AnswerLogin(bool i_success)
{
    ASSERT_TRUE(m_central.WaitForClient());
    ASSERT_EQ(m_central.NextBody().left(4), Body(1).Bytes());
    m_central.Send(i_success ? Body(1).U8(1).Str("welcome").U32(0).Str("").Frame()
                             : Body(1).U8(0).Str("INVALIDPASS").Frame());
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
    m_central.Send(i_bytes + Body(104).U32(l_marker).Frame());
    ASSERT_TRUE(WaitFor([this, l_marker] { return m_markerSeen == l_marker; }));
}
