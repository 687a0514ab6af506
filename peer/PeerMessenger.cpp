#include "peer/PeerMessenger.h"

#include <QDateTime>
#include <QHostAddress>
#include <QMetaMethod>
#include <QTimer>

#include <charconv>
#include <map>

#include "peer/DescriptorLimit.h"
#include "peer/PeerLog.h"
#include "peer/PeerMessageCode.h"
#include "peer/PeerMessageHandler.h"
#include "peer/PeerSchema.h"
#include "server/Server.h"
#include "store/Data.h"
#include "store/Log.h"
#include "store/PathNode.h"
#include "store/Settings.h"

PeerMessenger* peerMessenger = nullptr;
bool g_peerMessengerDeleted = false;

using namespace PeerText;

namespace
{
QDateTime ParseTime(ItemPtr i_time)
{
    return QDateTime::fromString(QString::fromUtf8(i_time.AsCStr()), Qt::TextDate);
}

std::int64_t NowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

// A line about an attempt or a request, with its connection type and its user in that order.
QString WithTypeAndUser(QString const& i_text, ItemPtr i_request)
{
    return i_text.arg(Q(i_request.GetItem("peer_connection_type").AsString()), Q(i_request.GetItem("user").AsString()));
}

// A time item "or more" ago; a time that cannot be read counts as expired, so that a damaged
// item does not live for ever.
bool Expired(ItemPtr i_time, QDateTime const& i_now, qint64 i_ms, std::map<Item*, qint64>& io_cache)
{
    auto l_found = io_cache.find(i_time.Get());
    if (l_found == io_cache.end())
    {
        QDateTime const l_time = ParseTime(i_time);
        qint64 const l_age = l_time.isValid() ? l_time.msecsTo(i_now) : i_ms;
        l_found = io_cache.emplace(i_time.Get(), l_age).first;
    }
    return l_found->second >= i_ms;
}

// The low 16 bits of the stored port, which must lie in 1 to 65535.
bool StoredPort(int& o_port)
{
    std::string const l_text = GetGlobal("listening_port");
    long long l_port = 0;
    auto const l_result = std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_port);
    if (l_result.ec != std::errc() || l_result.ptr != l_text.data() + l_text.size())
        return false;
    o_port = static_cast<int>(l_port & 0xffff);
    return l_port >= 1 && l_port <= 65535;
}
} // namespace

PeerMessenger::PeerMessenger(QObject* ip_parent) : QObject(ip_parent), mp_handler(std::make_unique<PeerMessageHandler>(*this))
{
    peerMessenger = this;
    g_peerMessengerDeleted = false;
    m_budget.m_limit = PeerLimits::s_maxAssemblingBytes;
    DeclarePeerSchema();
    m_types = Types{d.GetType("user"),
                    d.GetType("uninitialized_socket"),
                    d.GetType("peer_socket"),
                    d.GetType("connection_open_time"),
                    d.GetType("peer_connection_request"),
                    d.GetType("peer_connection_request_id"),
                    d.GetType("peer_connection_type"),
                    d.GetType("peer_connection_request_socket"),
                    d.GetType("user_address"),
                    d.GetType("user_port"),
                    d.GetType("socket_creation_time"),
                    d.GetType("connect_to_peer_request"),
                    d.GetType("connect_to_peer_request_status"),
                    d.GetType("connect_to_peer_request_socket"),
                    d.GetType("indirect_connect_to_peer_request"),
                    d.GetType("send_time"),
                    d.GetType("unsent_message"),
                    d.GetType("send_order")};

    auto* lp_request = new PathNode(&d, "peer_connection_request");
    new PathNode(lp_request, "peer_connection_request_id", TriggerConnected);
    new PathNode(lp_request, "peer_connection_type", TriggerConnected);
    auto* lp_requestUser = new PathNode(lp_request, "user", TriggerConnected);
    new PathNode(lp_requestUser, "user_address", TriggerConnected);
    new PathNode(lp_requestUser, "user_port", TriggerConnected);
    ListenPath(lp_request, &PeerMessenger::OnPeerConnectionRequest);

    auto* lp_user = new PathNode(&d, "user");
    new PathNode(lp_user, "user_address", TriggerConnected);
    new PathNode(lp_user, "user_port", TriggerConnected);
    ListenPath(lp_user, &PeerMessenger::OnUserAddress);
}

PeerMessenger::~PeerMessenger()
{
    g_peerMessengerDeleted = true;
    RemoveDataHandlers();
    m_listener.close();
    for (Item* lp_message : m_types.mp_unsent->GetItems())
        delete lp_message->AsPointer<MemStream>();
    m_types.mp_unsent->GetItems().Remove();
    // Every socket still with this object goes with it; handed-over ones belong to others.
    for (Type* lp_type : {m_types.mp_uninitialized, m_types.mp_peerSocket, m_types.mp_requestSocket, m_types.mp_attemptSocket})
    {
        for (Item* lp_item : lp_type->GetItems())
        {
            auto* lp_socket = lp_item->AsPointer<QTcpSocket>();
            m_buffers.erase(lp_socket);
            disconnect(lp_socket, nullptr, this, nullptr);
            delete lp_socket;
        }
        lp_type->GetItems().Remove();
    }
    // Sockets without an item: "F" connections waiting for their request number.
    for (auto& l_entry : m_buffers)
    {
        disconnect(l_entry.first, nullptr, this, nullptr);
        delete l_entry.first;
    }
    m_buffers.clear();
    m_types.mp_attempt->GetItems().Remove();
    m_types.mp_indirect->GetItems().Remove();
    peerMessenger = nullptr;
}

QString PeerMessenger::MessageCodeToString(int i_code)
{
    return PeerCode::Name(i_code);
}

void PeerMessenger::DataLoaded()
{
    if (!GetGlobalValue("listening_port"))
        SetGlobal("listening_port", s_defaultListeningPort);
    if (ItemPtr const l_newPort = GetGlobalValue("new_listening_port"))
    {
        SetGlobal("listening_port", Value(l_newPort.AsString()));
        d.GetType("global")->GetItem("new_listening_port")->Remove();
    }
    connect(&m_listener, &QTcpServer::newConnection, this, &PeerMessenger::OnNewConnection, Qt::UniqueConnection);
    connect(&m_listener, &QTcpServer::acceptError, this, &PeerMessenger::OnAcceptError, Qt::UniqueConnection);
    std::uint64_t const l_descriptors = RaiseDescriptorLimit(PeerLimits::s_wantedDescriptors);
    if (l_descriptors < PeerLimits::s_wantedDescriptors)
        Line(1, QStringLiteral("The system grants %1 open files, fewer than the %2 wanted; peer connections past it are "
                               "refused")
                    .arg(l_descriptors)
                    .arg(PeerLimits::s_wantedDescriptors));
    Listen();

    // A peer knows a messaging connection by the name it was greeted with: after a change of
    // the own name, those made before would carry the new name's messages as the old one's.
    if (!m_watchingName)
    {
        m_watchingName = true;
        auto* lp_name = new PathNode(d.GetType("global")->GetItem(Value("username")));
        new PathNode(lp_name, "global_value", TriggerConnected);
        ListenPath(lp_name, &PeerMessenger::OnUsernameChanged);
    }
}

void PeerMessenger::OnUsernameChanged(Item*)
{
    ItemSet const l_sockets = m_types.mp_peerSocket->GetItems();
    if (l_sockets.empty())
        return;
    Line(1, QStringLiteral("The user name changed: closing %1 messaging connections made under the old one")
                .arg(l_sockets.size()));
    for (Item* lp_socket : l_sockets)
        if (!lp_socket->IsRemoved())
            DisposeOfSocket(lp_socket->AsPointer<QTcpSocket>());
}

bool PeerMessenger::Listen()
{
    if (m_listener.isListening())
        return true;
    int l_port = 0;
    QString l_error;
    if (!StoredPort(l_port))
        l_error = tr("the stored port %1 is not between 1 and 65535").arg(Q(GetGlobal("listening_port")));
    else if (!m_listener.listen(QHostAddress::AnyIPv4, static_cast<quint16>(l_port)))
        l_error = m_listener.errorString();
    if (l_error != m_listenError)
    {
        if (!l_error.isEmpty())
            Line(1, QStringLiteral("Could not listen for peer connections on port %1: %2")
                           .arg(Q(GetGlobal("listening_port")), l_error));
        m_listenError = l_error;
        emit ListeningChanged();
    }
    return l_error.isEmpty();
}

void PeerMessenger::OnConnectedToServer()
{
    int l_port = 0;
    if (StoredPort(l_port) && gp_server)
        gp_server->SetWaitPort(l_port);
}

ItemPtr PeerMessenger::SocketItem(Type* ip_type, QTcpSocket* ip_socket) const
{
    return ip_type->HasItem(Value(ip_socket));
}

ItemPtr PeerMessenger::User(std::string const& i_user) const
{
    return m_types.mp_user->GetItem(Value(i_user));
}

SocketBufferInfo& PeerMessenger::Buffer(QTcpSocket* ip_socket)
{
    auto l_found = m_buffers.find(ip_socket);
    if (l_found == m_buffers.end())
    {
        l_found = m_buffers.try_emplace(ip_socket, &m_budget).first;
        if (!SocketItem(m_types.mp_uninitialized, ip_socket))
            l_found->second.m_reader.SetMaxFrameLength(PeerLimits::s_maxFrameLength);
        l_found->second.m_lastActivityMs = NowMs();
    }
    return l_found->second;
}

void PeerMessenger::Touch(QTcpSocket* ip_socket, std::int64_t i_written)
{
    auto const l_found = m_buffers.find(ip_socket);
    if (l_found == m_buffers.end())
        return;
    l_found->second.m_lastActivityMs = NowMs();
    l_found->second.m_bytesWritten += i_written;
}

QString PeerMessenger::PeerName(QTcpSocket* ip_socket) const
{
    if (ItemPtr const l_socket = SocketItem(m_types.mp_peerSocket, ip_socket))
        return QStringLiteral("user %1").arg(Q(l_socket.GetItem("user").AsString()));
    auto const l_found = m_buffers.find(ip_socket);
    if (l_found != m_buffers.end() && !l_found->second.m_user.empty())
        return QStringLiteral("user %1").arg(Q(l_found->second.m_user));
    return QStringLiteral("peer %1:%2").arg(ip_socket->peerAddress().toString()).arg(ip_socket->peerPort());
}

void PeerMessenger::CloseAndDelete(QTcpSocket* ip_socket)
{
    disconnect(ip_socket, nullptr, this, nullptr);
    ip_socket->close();
    ip_socket->deleteLater();
}

// ---- Accepting ----

void PeerMessenger::OnNewConnection()
{
    while (QTcpSocket* lp_socket = m_listener.nextPendingConnection())
    {
        MakeRoomForUninitialized();
        // The listener would delete it with itself; from now on this object decides.
        lp_socket->setParent(nullptr);
        lp_socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
        lp_socket->setReadBufferSize(PeerLimits::s_socketReadBufferSize);
        connect(lp_socket, &QTcpSocket::readyRead, this, &PeerMessenger::OnSocketReadyToRead);
        connect(lp_socket, &QTcpSocket::errorOccurred, this, &PeerMessenger::OnSocketError);
        connect(lp_socket, &QTcpSocket::disconnected, this, &PeerMessenger::OnSocketClosed);
        m_types.mp_uninitialized->NewItem(Value(lp_socket));
        Buffer(lp_socket).m_acceptOrder = ++m_acceptCounter;
        // Bytes may have come with the connection already.
        if (lp_socket->bytesAvailable() > 0)
            QMetaObject::invokeMethod(lp_socket, "readyRead", Qt::QueuedConnection);
        if (!DescriptorsToSpare())
        {
            PauseAccepting();
            return;
        }
    }
}

void PeerMessenger::OnAcceptError(QAbstractSocket::SocketError)
{
    // The listener stops accepting after such an error; the backlog waits meanwhile.
    Line(1, QStringLiteral("Could not accept a peer connection: %1; accepting again in %2 ms")
                .arg(m_listener.errorString())
                .arg(s_acceptPauseMs));
    QTimer::singleShot(s_acceptPauseMs, this, &PeerMessenger::ResumeAccepting);
}

bool PeerMessenger::DescriptorsToSpare() const
{
    return SpareDescriptors(static_cast<int>(m_listener.socketDescriptor()), PeerLimits::s_reservedDescriptors) >=
           PeerLimits::s_reservedDescriptors;
}

void PeerMessenger::PauseAccepting()
{
    m_listener.pauseAccepting();
    Line(1, QStringLiteral("Fewer than %1 descriptors are left; not accepting peer connections for %2 ms")
                .arg(PeerLimits::s_reservedDescriptors)
                .arg(s_acceptPauseMs));
    QTimer::singleShot(s_acceptPauseMs, this, &PeerMessenger::ResumeAccepting);
}

void PeerMessenger::ResumeAccepting()
{
    if (!m_listener.isListening())
        return;
    if (!DescriptorsToSpare())
        QTimer::singleShot(s_acceptPauseMs, this, &PeerMessenger::ResumeAccepting);
    else
    {
        Line(1, QStringLiteral("Accepting peer connections again"));
        m_listener.resumeAccepting();
    }
}

void PeerMessenger::MakeRoomForUninitialized()
{
    if (m_types.mp_uninitialized->ItemCount() < PeerLimits::s_maxUninitializedSockets)
        return;
    QTcpSocket* lp_oldest = SocketWithLeast(m_types.mp_uninitialized->Items(), &SocketBufferInfo::m_acceptOrder);
    Line(1, QStringLiteral("%1 sockets wait for their first frame; closing the oldest, from %2")
                .arg(PeerLimits::s_maxUninitializedSockets)
                .arg(PeerName(lp_oldest)));
    DisposeOfSocket(lp_oldest);
}


// ---- Reaching a peer ----

void PeerMessenger::ConnectToUser(std::string const& i_user, char const* i_type)
{
    Line(1, QStringLiteral("Attempting peer connection of type %1 to user %2").arg(QString::fromLatin1(i_type), Q(i_user)));
    ItemPtr const l_user = User(i_user);
    ItemPtr const l_type = m_types.mp_connectionType->GetItem(Value(i_type));
    if (!d.GetItemSubset(ItemSet{l_user.Get(), l_type.Get()}, "connect_to_peer_request").empty())
    {
        Line(2, QStringLiteral("Connection attempt to same user of same type already in progress, not re-attempting."));
        return;
    }
    ItemPtr const l_attempt = m_types.mp_attempt->NewItem();
    l_attempt += l_user;
    l_attempt += l_type;

    Line(2, QStringLiteral("Also sending indirect connection request."));
    // Without a server link object (as in tools that drive this class alone) there is no
    // token, and the attempt has the direct way only.
    if (gp_server)
    {
        ItemPtr const l_indirect = m_types.mp_indirect->NewItem(Value(gp_server->SendIndirectConnectionRequest(i_user, i_type)));
        l_indirect += m_types.mp_sendTime->GetItem(Value(Now()));
        l_attempt += l_indirect;
    }

    if (l_user.HasItem("user_address") && l_user.HasItem("user_port"))
        StartDirectAttempt(l_attempt, l_user, i_type);
    else
    {
        Line(2, QStringLiteral("User address not found, requesting address"));
        if (gp_server)
            gp_server->GetUserAddress(i_user);
        l_attempt += m_types.mp_attemptStatus->GetItem(Value("getting_address"));
    }
}

void PeerMessenger::StartDirectAttempt(ItemPtr i_attempt, ItemPtr i_user, char const* i_type)
{
    i_attempt += m_types.mp_attemptStatus->GetItem(Value("connecting"));
    if (m_types.mp_attemptSocket->ItemCount() >= PeerLimits::s_maxDirectAttempts)
    {
        Line(1, QStringLiteral("%1 direct attempts under way; the attempt of type %2 to user %3 goes by the "
                                  "indirect way alone")
                       .arg(PeerLimits::s_maxDirectAttempts)
                       .arg(QString::fromLatin1(i_type), Q(i_user.AsString())));
        return;
    }
    Dial(i_attempt, i_user, m_types.mp_attemptSocket, &PeerMessenger::OnConnectToPeerSocketConnected,
         &PeerMessenger::OnConnectToPeerSocketError, false);
}

void PeerMessenger::Dial(ItemPtr i_owner, ItemPtr i_user, Type* ip_itemType, void (PeerMessenger::*i_onConnected)(),
                         void (PeerMessenger::*i_onError)(QAbstractSocket::SocketError), bool i_watchClose)
{
    auto* lp_socket = new QTcpSocket();
    lp_socket->setReadBufferSize(PeerLimits::s_socketReadBufferSize);
    connect(lp_socket, &QTcpSocket::connected, this, i_onConnected);
    connect(lp_socket, &QTcpSocket::errorOccurred, this, i_onError);
    if (i_watchClose)
        connect(lp_socket, &QTcpSocket::disconnected, this, &PeerMessenger::OnSocketClosed);
    ItemPtr const l_socket = ip_itemType->NewItem(Value(lp_socket));
    l_socket += m_types.mp_creationTime->GetItem(Value(Now()));
    // Tied to its owner before the dial: a connect that fails at once (no route, an address
    // that cannot be dialled) is heard inside connectToHost, and the error handler finds the
    // attempt or request through the socket's item.
    i_owner += l_socket;
    QHostAddress const l_address(i_user.GetItem("user_address").AsUInt());
    lp_socket->connectToHost(l_address, static_cast<quint16>(i_user.GetItem("user_port").AsUInt()), QIODevice::ReadWrite);
}

void PeerMessenger::OnUserAddress(Item* ip_user)
{
    ItemPtr const l_user(ip_user);
    if (!l_user.IsConnected("connect_to_peer_request"))
        return;
    ItemPtr const l_status = m_types.mp_attemptStatus->HasItem(Value("getting_address"));
    if (!l_status)
        return;
    ItemSet const l_waiting = d.GetItemSubset(ItemSet{ip_user, l_status.Get()}, "connect_to_peer_request");
    if (l_waiting.empty())
        return;
    Line(1, QStringLiteral("User %1 address arrived").arg(Q(l_user.AsString())));
    for (Item* lp_attempt : l_waiting)
    {
        ItemPtr const l_attempt(lp_attempt);
        std::string const l_type = l_attempt.GetItem("peer_connection_type").AsString();
        Line(2, QStringLiteral("Attempting direct connection of type %1").arg(Q(l_type)));
        l_attempt.Disconnect("connect_to_peer_request_status");
        StartDirectAttempt(l_attempt, l_user, l_type.c_str());
    }
}

QTcpSocket* PeerMessenger::ConnectedSender(Type* ip_type, ItemPtr& o_item)
{
    auto* lp_socket = qobject_cast<QTcpSocket*>(sender());
    if (!lp_socket)
        return nullptr;
    lp_socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    o_item = SocketItem(ip_type, lp_socket);
    if (!o_item)
    {
        // The attempt was given up while this event was on its way.
        CloseAndDelete(lp_socket);
        return nullptr;
    }
    return lp_socket;
}

void PeerMessenger::OnConnectToPeerSocketConnected()
{
    ItemPtr l_socket;
    QTcpSocket* lp_socket = ConnectedSender(m_types.mp_attemptSocket, l_socket);
    if (!lp_socket)
        return;
    ItemPtr const l_attempt = l_socket.GetItem("connect_to_peer_request");
    ItemPtr const l_user = l_attempt.GetItem("user");
    std::string const l_name = l_user.AsString();
    std::string const l_type = l_attempt.GetItem("peer_connection_type").AsString();
    Line(1, QStringLiteral("Direct connection of type %1 to user %2 successful").arg(Q(l_type), Q(l_name)), l_user);

    MemStream l_greeting;
    l_greeting.Write(static_cast<std::uint8_t>(1));
    l_greeting.Write(GetGlobal("username"));
    l_greeting.Write(l_type);
    l_greeting.Write(static_cast<std::uint32_t>(0));
    SendMessage(lp_socket, l_greeting);

    disconnect(lp_socket, &QTcpSocket::errorOccurred, nullptr, nullptr);
    disconnect(lp_socket, &QTcpSocket::connected, this, nullptr);
    l_socket.Remove();
    DisposeOfPeerConnectionRequest(l_attempt);

    if (l_type == "P")
    {
        connect(lp_socket, &QTcpSocket::readyRead, this, &PeerMessenger::OnSocketReadyToRead);
        connect(lp_socket, &QTcpSocket::errorOccurred, this, &PeerMessenger::OnSocketError);
        connect(lp_socket, &QTcpSocket::disconnected, this, &PeerMessenger::OnSocketClosed);
        OpenMessagingConnection(lp_socket, l_user);
    }
    else
        HandOver(lp_socket, l_name, l_type == "F" ? 'F' : 'D', true);
}

void PeerMessenger::OnConnectToPeerSocketError(QAbstractSocket::SocketError)
{
    auto* lp_socket = qobject_cast<QTcpSocket*>(sender());
    if (!lp_socket)
        return;
    ItemPtr const l_socket = SocketItem(m_types.mp_attemptSocket, lp_socket);
    CloseAndDelete(lp_socket);
    if (!l_socket)
        return;
    ItemPtr const l_attempt = l_socket.GetItem("connect_to_peer_request");
    Line(1, WithTypeAndUser(QStringLiteral("Direct connection of type %1 to user %2 failed"), l_attempt));
    l_socket.Remove();
    InspectPeerConnectionRequest(l_attempt);
}

void PeerMessenger::OnIndirectPeerConnectionFailure(unsigned int i_req)
{
    ItemPtr const l_indirect = m_types.mp_indirect->HasItem(Value(i_req));
    if (!l_indirect)
        return;
    ItemPtr const l_attempt = l_indirect.GetItem("connect_to_peer_request");
    Line(1, WithTypeAndUser(QStringLiteral("Indirect connection of type %1 to user %2 failed"), l_attempt));
    l_indirect.Remove();
    InspectPeerConnectionRequest(l_attempt);
}

void PeerMessenger::InspectPeerConnectionRequest(ItemPtr i_attempt)
{
    if (!i_attempt || i_attempt->IsRemoved())
        return;
    Line(1, WithTypeAndUser(QStringLiteral("Inspecting peer connection request of type %1 to user %2 for possible removal."), i_attempt));
    if (i_attempt.HasItem("connect_to_peer_request_socket"))
        Line(2, QStringLiteral("Socket found. Not removing request."));
    else if (i_attempt.HasItem("indirect_connect_to_peer_request"))
        Line(2, QStringLiteral("Indirect request found. Not removing request."));
    else
    {
        Line(2, QStringLiteral("Neither socket nor indirect request found. Removing."));
        i_attempt.Remove();
    }
}

void PeerMessenger::DisposeOfPeerConnectionRequest(ItemPtr i_attempt)
{
    Line(1, WithTypeAndUser(QStringLiteral("Disposing of peer connection request of type %1 to user %2"), i_attempt));
    if (ItemPtr const l_socket = i_attempt.HasItem("connect_to_peer_request_socket"))
    {
        Line(2, QStringLiteral("Socket found. Closing and deleting."));
        auto* lp_socket = l_socket.AsPointer<QTcpSocket>();
        l_socket.Remove();
        CloseAndDelete(lp_socket);
    }
    if (ItemPtr const l_indirect = i_attempt.HasItem("indirect_connect_to_peer_request"))
    {
        Line(2, QStringLiteral("Indirect request found. Removing."));
        l_indirect.Remove();
    }
    i_attempt.Remove();
}

// ---- The answering side ----

void PeerMessenger::OnPeerConnectionRequest(Item* ip_request)
{
    ItemPtr const l_request(ip_request);
    if (l_request.HasItem("peer_connection_request_socket"))
        return;
    ItemPtr const l_user = l_request.GetItem("user");
    if (m_types.mp_requestSocket->ItemCount() >= PeerLimits::s_maxDialBackSockets)
    {
        Line(1, QStringLiteral("%1 dial-backs under way; refusing the one asked by user %2")
                       .arg(PeerLimits::s_maxDialBackSockets)
                       .arg(Q(l_user.AsString())), l_user);
        if (gp_server)
            gp_server->SendCantConnectToPeer(l_request.GetItem("peer_connection_request_id").AsUInt(), l_user.AsString());
        l_request.Remove();
        return;
    }
    Dial(l_request, l_user, m_types.mp_requestSocket, &PeerMessenger::OnIndirectResponseSocketConnected,
         &PeerMessenger::OnSocketError, true);
    Line(1, QStringLiteral("Indirect peer connection requested from user %1").arg(Q(l_user.AsString())), l_user);
}

void PeerMessenger::OnIndirectResponseSocketConnected()
{
    ItemPtr l_socket;
    QTcpSocket* lp_socket = ConnectedSender(m_types.mp_requestSocket, l_socket);
    if (!lp_socket)
        return;
    ItemPtr const l_request = l_socket.GetItem("peer_connection_request");
    ItemPtr const l_user = l_request.GetItem("user");
    std::string const l_name = l_user.AsString();

    MemStream l_answer;
    l_answer.Write(static_cast<std::uint8_t>(0));
    l_answer.Write(static_cast<std::uint32_t>(l_request.GetItem("peer_connection_request_id").AsUInt()));
    SendMessage(lp_socket, l_answer);
    l_socket.Remove();

    std::string const l_type = l_request.GetItem("peer_connection_type").AsString();
    Line(1, QStringLiteral("Response connection to indirect request from %1, type %2 opened").arg(Q(l_name), Q(l_type)),
            l_user);
    l_request.Remove();

    disconnect(lp_socket, &QTcpSocket::connected, this, nullptr);
    if (l_type == "P")
    {
        connect(lp_socket, &QTcpSocket::readyRead, this, &PeerMessenger::OnSocketReadyToRead);
        OpenMessagingConnection(lp_socket, l_user);
    }
    else if (l_type == "F")
    {
        connect(lp_socket, &QTcpSocket::readyRead, this, &PeerMessenger::OnSocketReadyToRead);
        SocketBufferInfo& l_info = Buffer(lp_socket);
        l_info.m_fileRequestExpected = true;
        l_info.m_user = l_name;
        if (lp_socket->bytesAvailable() >= 4)
            QMetaObject::invokeMethod(lp_socket, "readyRead", Qt::QueuedConnection);
    }
    else if (l_type == "D")
        HandOver(lp_socket, l_name, 'D', false);
    else
        DisposeOfSocket(lp_socket);
}

void PeerMessenger::OpenMessagingConnection(QTcpSocket* ip_socket, ItemPtr i_user)
{
    MakeRoomForMessaging();
    MakeRoomForUser(i_user);
    ip_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    ItemPtr const l_socket = m_types.mp_peerSocket->NewItem(Value(ip_socket));
    l_socket += i_user;
    l_socket += m_types.mp_openTime->GetItem(Value(Now()));
    FrameReader& l_reader = Buffer(ip_socket).m_reader;
    l_reader.SetMaxFrameLength(PeerLimits::s_maxFrameLength);
    l_reader.SetCodeBound(&PeerLimits::MaxMessageLength);
    Touch(ip_socket);
    SendUnsentMessages(i_user.AsString());
}

void PeerMessenger::MakeRoomForMessaging()
{
    if (m_types.mp_peerSocket->ItemCount() < PeerLimits::s_maxMessagingConnections)
        return;
    QTcpSocket* lp_idlest = SocketWithLeast(m_types.mp_peerSocket->Items(), &SocketBufferInfo::m_lastActivityMs);
    Line(1, QStringLiteral("%1 messaging connections are open; closing the one idle longest, to %2")
                .arg(PeerLimits::s_maxMessagingConnections)
                .arg(PeerName(lp_idlest)));
    DisposeOfSocket(lp_idlest);
}

void PeerMessenger::MakeRoomForUser(ItemPtr i_user)
{
    ItemRange const l_sockets = i_user->ConnectedOfType(m_types.mp_peerSocket);
    if (l_sockets.size() < PeerLimits::s_maxConnectionsPerUser)
        return;
    QTcpSocket* lp_idlest = SocketWithLeast(l_sockets, &SocketBufferInfo::m_lastActivityMs);
    Line(1, QStringLiteral("User %1 holds %2 messaging connections; closing the one idle longest")
                .arg(Q(i_user.AsString()))
                .arg(PeerLimits::s_maxConnectionsPerUser));
    DisposeOfSocket(lp_idlest);
}

void PeerMessenger::HandOver(QTcpSocket* ip_socket, std::string const& i_user, char i_type, bool i_accepted,
                             unsigned int i_requestId)
{
    disconnect(ip_socket, nullptr, this, nullptr);
    auto const l_found = m_buffers.find(ip_socket);
    if (l_found != m_buffers.end())
    {
        if (l_found->second.m_handling)
            l_found->second.m_handedOver = true; // a frame of it is being handled; the record goes after
        else
            m_buffers.erase(l_found);
    }
    QMetaMethod l_signal;
    if (i_type == 'F')
        l_signal = i_accepted ? QMetaMethod::fromSignal(&PeerMessenger::FileConnectionAccepted)
                              : QMetaMethod::fromSignal(&PeerMessenger::FileConnectionRequested);
    else
        l_signal = i_accepted ? QMetaMethod::fromSignal(&PeerMessenger::DNetConnectionAccepted)
                              : QMetaMethod::fromSignal(&PeerMessenger::DNetConnectionRequested);
    if (!isSignalConnected(l_signal))
    {
        Line(1, QStringLiteral("No receiver for %1 connection from user %2, closing").arg(QChar::fromLatin1(i_type), Q(i_user)));
        ip_socket->close();
        ip_socket->deleteLater();
        return;
    }
    if (i_type == 'F' && i_accepted)
        emit FileConnectionAccepted(i_user, ip_socket);
    else if (i_type == 'F')
        emit FileConnectionRequested(i_user, ip_socket, i_requestId);
    else if (i_type == 'D' && i_accepted)
        emit DNetConnectionAccepted(i_user, ip_socket);
    else if (i_type == 'D')
        emit DNetConnectionRequested(i_user, ip_socket);
}

// ---- First frames ----

bool PeerMessenger::InitializeSocket(QTcpSocket* ip_socket, MemStream& i_message)
{
    SocketItem(m_types.mp_uninitialized, ip_socket).Remove();
    std::uint8_t l_direction = 0;
    if (!i_message.Read(l_direction))
        Line(1, QStringLiteral("Failed to read direction from new peer connection"));
    else if (l_direction == 0)
    {
        if (AcceptIndirectAnswer(ip_socket, i_message))
            return true;
    }
    else
    {
        std::string l_user;
        std::string l_type;
        std::uint32_t l_zero = 0;
        if (i_message.Read(l_user) && i_message.Read(l_type) && i_message.Read(l_zero) && !l_user.empty())
        {
            bool l_known = true;
            if (l_type == "P")
            {
                Line(1, QStringLiteral("Accepted messaging connection to user %1").arg(Q(l_user)));
                OpenMessagingConnection(ip_socket, User(l_user));
            }
            else if (l_type == "F")
            {
                Line(1, QStringLiteral("Accepted file connection to user %1").arg(Q(l_user)));
                SocketBufferInfo& l_info = Buffer(ip_socket);
                l_info.m_fileRequestExpected = true;
                l_info.m_user = l_user;
            }
            else if (l_type == "D")
            {
                Line(1, QStringLiteral("Accepted DNet connection to user %1").arg(Q(l_user)));
                HandOver(ip_socket, l_user, 'D', false);
            }
            else
                l_known = false;
            Line(1, QStringLiteral("Peer connection of type %1 opened from user %2").arg(Q(l_type), Q(l_user)));
            if (l_known)
                return true;
        }
    }
    Line(1, QStringLiteral("Failure initializing peer connection, disposing of socket"));
    return false;
}

bool PeerMessenger::AcceptIndirectAnswer(QTcpSocket* ip_socket, MemStream& i_message)
{
    std::uint32_t l_token = 0;
    if (!i_message.Read(l_token))
    {
        Line(1, QStringLiteral("Failed to read req from indirect peer connection"));
        return false;
    }
    ItemPtr const l_indirect = m_types.mp_indirect->HasItem(Value(l_token));
    if (!l_indirect)
    {
        Line(1, QStringLiteral("Req sent on indirect peer connection not found"));
        return false;
    }
    ItemPtr const l_attempt = l_indirect.GetItem("connect_to_peer_request");
    ItemPtr const l_user = l_attempt.GetItem("user");
    std::string const l_name = l_user.AsString();
    std::string const l_type = l_attempt.GetItem("peer_connection_type").AsString();
    DisposeOfPeerConnectionRequest(l_attempt);
    Line(1, QStringLiteral("Found req, accepted indirect connection to user %1, connection type %2").arg(Q(l_name), Q(l_type)),
            l_user);
    if (l_type == "P")
        OpenMessagingConnection(ip_socket, l_user);
    else if (l_type == "F" || l_type == "D")
        HandOver(ip_socket, l_name, l_type[0], true);
    else
        return false;
    return true;
}

// ---- Time-outs ----

void PeerMessenger::EveryHalfMinute()
{
    QDateTime const l_now = QDateTime::currentDateTime();
    std::map<Item*, qint64> l_ages;

    for (Item* lp_message : m_types.mp_unsent->GetItems())
        if (Expired(ItemPtr(lp_message).GetItem("send_time"), l_now, 300000, l_ages))
            RemoveUnsent(lp_message);

    for (Item* lp_item : m_types.mp_indirect->GetItems())
    {
        ItemPtr const l_indirect(lp_item);
        if (l_indirect->IsRemoved() || !Expired(l_indirect.GetItem("send_time"), l_now, 60000, l_ages))
            continue;
        ItemPtr const l_attempt = l_indirect.GetItem("connect_to_peer_request");
        Line(1, WithTypeAndUser(QStringLiteral("Indirect connection request of type %1 to %2 expired, removing."), l_attempt));
        l_indirect.Remove();
        InspectPeerConnectionRequest(l_attempt);
    }

    for (Item* lp_item : m_types.mp_attemptSocket->GetItems())
    {
        ItemPtr const l_socket(lp_item);
        if (l_socket->IsRemoved() || !Expired(l_socket.GetItem("socket_creation_time"), l_now, 60000, l_ages))
            continue;
        ItemPtr const l_attempt = l_socket.GetItem("connect_to_peer_request");
        Line(1, WithTypeAndUser(QStringLiteral("Direct connection attempt of type %1 to %2 timed out, closing."), l_attempt));
        auto* lp_socket = l_socket.AsPointer<QTcpSocket>();
        l_socket.Remove();
        CloseAndDelete(lp_socket);
        InspectPeerConnectionRequest(l_attempt);
    }

    for (Item* lp_item : m_types.mp_requestSocket->GetItems())
    {
        ItemPtr const l_socket(lp_item);
        if (l_socket->IsRemoved() || !Expired(l_socket.GetItem("socket_creation_time"), l_now, 60000, l_ages))
            continue;
        ItemPtr const l_request = l_socket.GetItem("peer_connection_request");
        Line(1, WithTypeAndUser(QStringLiteral("Indirect connection attempt of type %1 to %2 timed out, closing."), l_request));
        // A socket still connecting gives no close event: it is disposed of here, which also
        // tells the server that the dial-back failed.
        DisposeOfSocket(l_socket.AsPointer<QTcpSocket>());
    }

    if (!m_listenError.isEmpty())
        Listen();
}

// ---- Ending sockets ----

void PeerMessenger::OnSocketClosed()
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        DisposeOfSocket(lp_socket);
}

void PeerMessenger::OnSocketError(QAbstractSocket::SocketError)
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        DisposeOfSocket(lp_socket);
}

void PeerMessenger::AssertNoSocketOverlap(QTcpSocket* ip_socket)
{
    int l_count = 0;
    for (Type* lp_type : {m_types.mp_uninitialized, m_types.mp_peerSocket, m_types.mp_requestSocket, m_types.mp_attemptSocket})
        l_count += SocketItem(lp_type, ip_socket) ? 1 : 0;
    if (l_count > 1)
        Line(1, QStringLiteral("A socket is held as %1 kinds at once").arg(l_count));
}

void PeerMessenger::DisposeOfSocket(QTcpSocket* ip_socket)
{
    if (g_peerMessengerDeleted || !ip_socket)
        return;
    auto const l_found = m_buffers.find(ip_socket);
    if (l_found != m_buffers.end() && l_found->second.m_handling)
    {
        l_found->second.m_disposeWanted = true;
        return;
    }
    AssertNoSocketOverlap(ip_socket);
    DisposeOfSocketInner(ip_socket);
    for (Type* lp_type : {m_types.mp_uninitialized, m_types.mp_peerSocket, m_types.mp_requestSocket, m_types.mp_attemptSocket})
        if (ItemPtr const l_item = SocketItem(lp_type, ip_socket))
            l_item.Remove();
    // Before the socket is deleted, as a new socket can come to the same address.
    m_buffers.erase(ip_socket);
}

void PeerMessenger::DisposeOfSocketInner(QTcpSocket* ip_socket)
{
    CloseAndDelete(ip_socket);
    Line(1, QStringLiteral("Disposing of socket"));
    if (ItemPtr const l_socket = SocketItem(m_types.mp_requestSocket, ip_socket))
    {
        Line(2, QStringLiteral("Identified as peer connection request socket"));
        ItemPtr const l_request = l_socket.HasItem("peer_connection_request");
        if (!l_request)
        {
            Line(2, QStringLiteral("Request not found"));
            return;
        }
        Line(2, QStringLiteral("Request found, removing"));
        if (gp_server)
            gp_server->SendCantConnectToPeer(l_request.GetItem("peer_connection_request_id").AsUInt(),
                                             l_request.GetItem("user").AsString());
        l_request.Remove();
        l_socket.Remove();
        return;
    }
    for (auto const& [lp_type, l_line] : {std::pair{m_types.mp_uninitialized, "Identified as uninitialized socket"},
                                          std::pair{m_types.mp_peerSocket, "Identified as peer socket"}})
    {
        if (ItemPtr const l_socket = SocketItem(lp_type, ip_socket))
        {
            Line(2, QString::fromLatin1(l_line));
            l_socket.Remove();
            m_buffers.erase(ip_socket);
            return;
        }
    }
    Line(2, QStringLiteral("Socket not identified"));
}
