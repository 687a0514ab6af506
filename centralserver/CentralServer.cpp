#include "CentralServer.h"

#include "ClientConnection.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "WireReader.h"
#include "WireWriter.h"

#include <QTcpSocket>
#include <QTimer>

namespace
{
QByteArray const c_greeting = QByteArrayLiteral("Welcome to this Tidewick network.");
// Out of descriptors, the listener stops accepting; it tries again after this, when some
// connection may have gone.
constexpr int c_acceptRetryMs = 1000;
// Connections the kernel completes before they are accepted: a thousand clients coming back at
// once after a restart wait there instead of retrying a second later.
constexpr int c_listenBacklog = 1024;
}

CentralServer::CentralServer(ServerOptions const& i_options, QObject* ip_parent)
    : QObject(ip_parent)
    , m_options(i_options)
    , m_accounts(i_options.m_accountsFile, i_options.m_maxAccounts)
    , m_users(m_sessions, m_accounts, m_options)
    , m_rooms(m_sessions, m_users, m_options)
    , m_messages(m_sessions, m_accounts)
    , m_tree(m_options.m_possibleParents)
{
    connect(&m_listener, &QTcpServer::newConnection, this, &CentralServer::OnNewConnection);
    connect(&m_listener, &QTcpServer::acceptError, this, &CentralServer::OnAcceptError);
}

CentralServer::~CentralServer()
{
    // The connections are children of this object; they go without telling anybody.
    for (ClientConnection* lp_connection : std::as_const(m_connections))
        lp_connection->disconnect(this);
}

bool CentralServer::Start(QString& o_error)
{
    int l_skipped = 0;
    if (!m_accounts.Load(o_error, l_skipped))
        return false;
    m_listener.setListenBacklogSize(c_listenBacklog);
    if (!m_listener.listen(m_options.m_listenAddress, m_options.m_port))
    {
        o_error = QStringLiteral("cannot listen on %1 port %2: %3")
                      .arg(m_options.m_listenAddress.toString())
                      .arg(m_options.m_port)
                      .arg(m_listener.errorString());
        return false;
    }
    ServerLog::Write(QStringLiteral("listening on %1 port %2")
            .arg(m_listener.serverAddress().toString())
            .arg(m_listener.serverPort()));
    if (!m_accounts.Path().isEmpty())
    {
        ServerLog::Write(QStringLiteral("accounts %1 from %2, %3 malformed lines skipped")
                .arg(m_accounts.Count())
                .arg(m_accounts.Path())
                .arg(l_skipped));
    }
    return true;
}

void CentralServer::OnNewConnection()
{
    while (QTcpSocket* lp_socket = m_listener.nextPendingConnection())
    {
        if (m_connections.size() >= ServerLimits::c_maxConnections)
        {
            ServerLog::Write(QStringLiteral("refusing connection: too many clients"));
            lp_socket->abort();
            lp_socket->deleteLater();
            continue;
        }
        if (m_strangers.size() >= ServerLimits::c_maxConnectionsBeforeLogin)
            m_strangers.takeFirst()->Abort(QStringLiteral("no login while newer connections wait"));
        auto* lp_connection = new ClientConnection(lp_socket,
            [this](ClientConnection& i_client, quint32 i_code, WireReader& i_reader) {
                return HandleFrame(i_client, i_code, i_reader);
            },
            m_options.m_partialFrameTimeoutMs, this);
        // Queued, so that a connection that closes while a message is being served is
        // cleaned up only after that message.
        connect(lp_connection, &ClientConnection::Closed, this,
            &CentralServer::OnConnectionClosed, Qt::QueuedConnection);
        m_connections.insert(lp_connection);
        m_strangers.append(lp_connection);
    }
}

void CentralServer::OnAcceptError(QAbstractSocket::SocketError i_error)
{
    ServerLog::Write(QStringLiteral("cannot accept connections (%1): %2")
            .arg(static_cast<int>(i_error))
            .arg(m_listener.errorString()));
    // A listener that stopped on a lack of descriptors would otherwise never accept again.
    QTimer::singleShot(c_acceptRetryMs, this, [this] { m_listener.resumeAccepting(); });
}

void CentralServer::OnConnectionClosed(ClientConnection* ip_connection)
{
    if (!m_connections.remove(ip_connection))
        return;
    m_strangers.removeOne(ip_connection);
    Logout(*ip_connection, false);
    ip_connection->deleteLater();
}

bool CentralServer::HandleFrame(ClientConnection& i_client, quint32 i_code, WireReader& i_reader)
{
    if (i_code == 1)
    {
        // A second login on a session that is already in is ignored.
        return i_client.IsLoggedIn() ? i_reader.Ok() : HandleLogin(i_client, i_reader);
    }
    if (!i_client.IsLoggedIn())
        return false;
    return HandleSessionMessage(i_client, i_code, i_reader);
}

bool CentralServer::HandleLogin(ClientConnection& i_client, WireReader& i_reader)
{
    QByteArray l_name = i_reader.String();
    QByteArray l_password = i_reader.String();
    // The version, the digest and the minor version that follow are not needed.
    if (!i_reader.Ok())
        return false;

    switch (m_accounts.Login(l_name, l_password))
    {
    case AccountBook::LoginResult::InvalidName:
        Refuse(i_client, l_name, QByteArrayLiteral("INVALIDUSERNAME"));
        return true;
    case AccountBook::LoginResult::WrongPassword:
        Refuse(i_client, l_name, QByteArrayLiteral("INVALIDPASS"));
        return true;
    case AccountBook::LoginResult::Full:
        Refuse(i_client, l_name, QByteArrayLiteral("ACCOUNTSFULL"));
        return true;
    case AccountBook::LoginResult::Registered:
        ServerLog::Write(QStringLiteral("new account %1").arg(ServerLog::Printable(l_name)));
        break;
    case AccountBook::LoginResult::Accepted:
        break;
    }

    ClientConnection* lp_older = m_sessions.Find(l_name);
    if (lp_older)
    {
        ServerLog::Write(QStringLiteral("older session dropped %1 from %2")
                .arg(ServerLog::Printable(l_name), lp_older->PeerText()));
        Logout(*lp_older, true);
        lp_older->CloseAfterWrite();
    }
    i_client.SetLoggedIn(l_name, m_tree.RankOf(l_name));
    m_strangers.removeOne(&i_client);
    m_sessions.Add(&i_client);
    m_tree.Join(i_client);
    ServerLog::Write(QStringLiteral("login %1 from %2")
            .arg(ServerLog::Printable(l_name), i_client.PeerText()));

    i_client.Send(WireWriter(1).U8(1).String(c_greeting).U32(i_client.PeerIPv4()).String({}).Frame());
    m_users.SendPrivileged(i_client);
    i_client.Send(WireWriter(83).U32(m_options.m_parentMinSpeed).Frame());
    i_client.Send(WireWriter(84).U32(m_options.m_parentSpeedRatio).Frame());
    i_client.Send(WireWriter(104).U32(m_options.m_wishListPeriod).Frame());
    // Unasked, so that the client's list of rooms fills at login.
    m_rooms.SendList(i_client);
    // A name that moves to a new session stays online all along.
    if (!lp_older)
        m_users.NotifyTrackers(l_name, true);
    m_messages.DeliverPending(i_client);
    return true;
}

void CentralServer::Refuse(ClientConnection& i_client, QByteArray const& i_name,
    QByteArray const& i_reason)
{
    ServerLog::Write(QStringLiteral("login refused %1 from %2: %3")
            .arg(ServerLog::Printable(i_name), i_client.PeerText(), QString::fromLatin1(i_reason)));
    i_client.Send(WireWriter(1).U8(0).String(i_reason).Frame());
    i_client.CloseAfterWrite();
}

bool CentralServer::AllowChat(ClientConnection& i_client, QString const& i_what)
{
    ChatAllowance::Verdict const l_verdict = i_client.Chat().Take();
    if (l_verdict == ChatAllowance::Verdict::Pass)
        return true;
    ServerLog::Write(i_what + QStringLiteral(": sender too fast"));
    if (l_verdict == ChatAllowance::Verdict::Close)
        i_client.Abort(QStringLiteral("sends chat faster than allowed"));
    return false;
}

void CentralServer::Logout(ClientConnection& i_client, bool i_replaced)
{
    if (!i_client.IsLoggedIn())
        return;
    QByteArray l_name = i_client.Name();
    m_tree.Forget(i_client);
    m_rooms.LeaveAll(l_name);
    m_sessions.Remove(&i_client);
    i_client.SetLoggedOut();
    ServerLog::Write(QStringLiteral("logout %1").arg(ServerLog::Printable(l_name)));
    if (!i_replaced)
        m_users.NotifyTrackers(l_name, false);
}

bool CentralServer::HandleSessionMessage(ClientConnection& i_client, quint32 i_code,
    WireReader& i_reader)
{
    switch (i_code)
    {
    case 2:
    {
        quint32 l_port = i_reader.U32();
        if (i_reader.Ok() && l_port <= 65535)
            m_tree.SetListenPort(i_client, l_port);
        return i_reader.Ok();
    }
    case 3:
    case 5:
    case 6:
    case 7:
    case 36:
    {
        QByteArray l_user = i_reader.String();
        if (!i_reader.Ok())
            return false;
        if (i_code == 3)
            m_users.SendAddress(i_client, l_user);
        else if (i_code == 5)
            m_users.Track(i_client, l_user);
        else if (i_code == 6)
            m_users.Untrack(i_client, l_user);
        else if (i_code == 7)
            m_users.SendStatus(i_client, l_user);
        else
            m_users.SendStats(i_client, l_user);
        return true;
    }
    case 13:
    {
        QByteArray l_room = i_reader.String();
        QByteArray l_text = i_reader.String();
        if (!i_reader.Ok())
            return false;
        if (AllowChat(i_client, QStringLiteral("room chat dropped %1 %2").arg(
                ServerLog::Printable(i_client.Name()), ServerLog::Printable(l_room))))
            m_rooms.Chat(i_client, l_room, l_text);
        return true;
    }
    case 14:
    case 15:
    {
        QByteArray l_room = i_reader.String();
        if (i_reader.Ok() && i_code == 14)
            m_rooms.Enter(i_client, l_room);
        else if (i_reader.Ok())
            m_rooms.Leave(i_client, l_room);
        return i_reader.Ok();
    }
    case 18:
    {
        quint32 l_token = i_reader.U32();
        QByteArray l_user = i_reader.String();
        QByteArray l_type = i_reader.String();
        if (i_reader.Ok())
            m_users.RelayConnectRequest(i_client, l_token, l_user, l_type);
        return i_reader.Ok();
    }
    case 22:
    {
        QByteArray l_user = i_reader.String();
        QByteArray l_text = i_reader.String();
        if (!i_reader.Ok())
            return false;
        if (AllowChat(i_client, QStringLiteral("private message dropped %1 -> %2").arg(
                ServerLog::Printable(i_client.Name()), ServerLog::Printable(l_user))))
            m_messages.Post(i_client, l_user, l_text);
        return true;
    }
    case 23:
    {
        quint32 l_id = i_reader.U32();
        if (i_reader.Ok())
            m_messages.Acknowledge(i_client, l_id);
        return i_reader.Ok();
    }
    case 26:
    case 103:
    {
        quint32 l_token = i_reader.U32();
        QByteArray l_text = i_reader.String();
        if (i_reader.Ok())
            m_tree.Search(i_client, l_token, l_text, i_code == 103);
        return i_reader.Ok();
    }
    case 64:
        m_rooms.SendList(i_client);
        return true;
    case 71:
    case 100:
    case 129:
    {
        quint8 l_flag = i_reader.U8();
        if (!i_reader.Ok())
            return false;
        // Message 71 carries the inverse: 0 when the client has a parent.
        if (i_code == 71)
            m_tree.SetHasParent(i_client, l_flag == 0);
        else if (i_code == 100)
            m_tree.SetCanParent(i_client, l_flag != 0);
        else
            m_tree.SetHasChildren(i_client, l_flag != 0);
        return true;
    }
    case 121:
    {
        quint32 l_speed = i_reader.U32();
        if (i_reader.Ok())
        {
            m_accounts.SetUploadSpeed(i_client.Name(), l_speed);
            ServerLog::Write(QStringLiteral("upload speed %1 %2")
                    .arg(ServerLog::Printable(i_client.Name()))
                    .arg(l_speed));
        }
        return i_reader.Ok();
    }
    case 126:
    {
        quint32 l_level = i_reader.U32();
        if (i_reader.Ok())
            m_tree.SetLevel(i_client, static_cast<qint32>(l_level));
        return i_reader.Ok();
    }
    case 127:
    {
        QByteArray l_leader = i_reader.String();
        if (i_reader.Ok())
            m_tree.SetGroupLeader(i_client, l_leader);
        return i_reader.Ok();
    }
    case 1001:
    {
        quint32 l_token = i_reader.U32();
        QByteArray l_caller = i_reader.String();
        if (i_reader.Ok())
            m_users.RelayCannotConnect(i_client, l_token, l_caller);
        return i_reader.Ok();
    }
    default:
        // Codes this server does not serve are ignored, as a client ignores unknown ones.
        return i_reader.Ok();
    }
}
