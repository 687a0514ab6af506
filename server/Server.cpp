#include "server/Server.h"

#include <charconv>

#include "portforward/PortForwarder.h"
#include "server/ServerMessageCode.h"
#include "server/ServerSchema.h"
#include "store/Data.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "stream/md5/md5.h"

Server* gp_server = nullptr;

namespace
{
QString const s_area = QStringLiteral("server");
constexpr std::uint32_t s_loginVersion = 157;
constexpr std::uint32_t s_loginMinorVersion = 100;

MemStream NewMessage(int i_code)
{
    MemStream l_message;
    l_message.Write(static_cast<std::uint32_t>(i_code));
    return l_message;
}

// The setting comes from the data file, so it is checked rather than trusted.
bool ListeningPort(int& o_port)
{
    std::string const l_text = GetGlobal("listening_port");
    int l_port = 0;
    auto const l_result = std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_port);
    if (l_result.ec != std::errc() || l_port < 1 || l_port > 65535)
        return false;
    o_port = l_port;
    return true;
}

bool UseUPnP()
{
    return GetGlobal("use_upnp") == "yes";
}
} // namespace

Server::Server(QObject* ip_parent)
    : QObject(ip_parent), m_host(QString::fromLatin1(TIDEWICK_SERVER_HOST)), m_handler(*this),
      mp_portForwarder(std::make_unique<PortForwarder>())
{
    gp_server = this;
    connect(&m_socket, &QTcpSocket::connected, this, &Server::OnConnected);
    connect(&m_socket, &QTcpSocket::readyRead, this, &Server::OnSocketReadyToRead);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, &Server::OnSocketError);
    connect(&m_socket, &QTcpSocket::disconnected, this, &Server::OnSocketClosed);
}

Server::~Server()
{
    // The socket closes as a member goes; nothing of this object may hear it any more.
    m_socket.disconnect(this);
    m_socket.abort();
    if (gp_server == this)
        gp_server = nullptr;
}

void Server::CreateData()
{
    DeclareServerSchema();
}

void Server::SetAddress(QString const& i_host, quint16 i_port)
{
    m_host = i_host;
    m_port = i_port;
}

void Server::Connect()
{
    if (m_state != StateDisconnected || GetGlobalValue("username").IsNull())
        return;
    m_state = StateConnecting;
    emit Connecting();
    AbandonSocket();
    m_reader.Clear();
    m_unsentOverflow = false;
    m_socket.connectToHost(m_host, m_port, QIODevice::ReadWrite);
    if (UseUPnP())
        mp_portForwarder->Init();
}

void Server::AbandonSocket()
{
    if (m_socket.state() == QAbstractSocket::UnconnectedState)
        return;
    m_ignoreSocketEvents = true;
    m_socket.abort();
    m_ignoreSocketEvents = false;
    // The close a user's Disconnect waited for has just happened unheard.
    m_closingByRequest = false;
}

void Server::OnConnected()
{
    if (m_ignoreSocketEvents)
        return;
    if (GetGlobalValue("username").IsNull() || GetGlobalValue("password").IsNull())
    {
        SetGlobal("username", "TidewickQT");
        SetGlobal("password", "TidewickQTLoginKey");
    }
    std::string const l_name = GetGlobal("username");
    std::string const l_password = GetGlobal("password");

    std::string const l_joined = l_name + l_password;
    MD5 l_md5;
    l_md5.update(reinterpret_cast<unsigned char const*>(l_joined.data()), static_cast<unsigned int>(l_joined.size()));

    MemStream l_message = NewMessage(ServerCode::Login);
    l_message.Write(l_name);
    l_message.Write(l_password);
    l_message.Write(s_loginVersion);
    l_message.Write(l_md5.hex_digest());
    l_message.Write(s_loginMinorVersion);
    SendMessage(l_message, true);
    m_reconnectWanted = false;
}

void Server::OnSocketReadyToRead()
{
    if (m_ignoreSocketEvents)
        return;
    for (;;)
    {
        ServerFrameReader::Result const l_result = m_reader.ReadFrom(m_socket);
        if (l_result == ServerFrameReader::NeedMore)
            return;
        if (l_result == ServerFrameReader::FrameTooLong)
        {
            Log(s_area, 1,
                QStringLiteral("The server announced a message of %1 bytes, more than the limit of %2; closing the connection.")
                    .arg(m_reader.FrameLength())
                    .arg(ServerFrameReader::s_maxFrameLength));
            m_reader.Clear();
            m_socket.abort();
            return;
        }
        MemStream l_message = m_reader.Frame();
        std::uint32_t l_code = 0;
        // A body too short to hold a code is a message of no known code: dropped.
        if (l_message.Read(l_code) && l_code <= std::uint32_t(INT32_MAX))
            HandleMessage(static_cast<int>(l_code), l_message);
        m_reader.NextFrame();
        // A handler may have ended this connection or started another.
        if (m_socket.state() != QAbstractSocket::ConnectedState)
            return;
    }
}

void Server::HandleMessage(int i_code, MemStream& i_message)
{
    if (m_state == StateDisconnected)
        return;
    if (i_code == ServerCode::Login)
    {
        if (m_state == StateConnecting)
            OnLoginResponse(i_message);
        return;
    }
    m_handler.Handle(i_code, i_message);
}

void Server::OnLoginResponse(MemStream& i_message)
{
    std::uint8_t l_success = 0;
    if (!i_message.Read(l_success))
        return;
    if (l_success == 0)
    {
        std::string l_reason;
        i_message.Read(l_reason);
        emit ConnectionFailed(l_reason);
        // The server closes the socket; that close then finds state 0 and starts no retry.
        m_state = StateDisconnected;
        return;
    }
    std::string l_greeting;
    std::uint32_t l_number = 0;
    std::string l_further;
    static_cast<void>(i_message.Read(l_greeting) && i_message.Read(l_number) && i_message.Read(l_further));
    m_state = StateConnected;
    emit Connected();
    if (m_state == StateConnected)
        OnConnectedToServer();
}

void Server::OnConnectedToServer()
{
    if (m_firstLogin)
    {
        m_firstLogin = false;
        for (Item* lp_room : g("room_autojoin").GetItems("room"))
            EnterRoom(lp_room->AsString());
        if (UseUPnP())
            AddPortMapping();
    }
    for (Item* lp_user : g("is_tracked").GetItems("user"))
        AddUser(lp_user->AsString());
    for (Item* lp_user : g("user_address_request").GetItems("user"))
    {
        MemStream l_message = NewMessage(ServerCode::UserAddress);
        l_message.Write(lp_user->AsString());
        SendMessage(l_message);
    }
}

void Server::AddPortMapping()
{
    int l_port = 0;
    if (!ListeningPort(l_port))
    {
        Log(s_area, 2, QStringLiteral("No valid listening port is set, so no port mapping is made."));
        return;
    }
    mp_portForwarder->AddPortMapping(&m_socket, l_port);
}

void Server::OnSocketError(QAbstractSocket::SocketError)
{
    OnSocketClosed();
}

void Server::OnSocketClosed()
{
    if (m_ignoreSocketEvents)
        return;
    if (m_closingByRequest)
    {
        m_closingByRequest = false;
        return;
    }
    if (m_state == StateDisconnected)
        return;
    if (m_state == StateConnecting)
        emit ConnectionFailed("socket error");
    OnDisconnected();
    m_reconnectWanted = true;
}

void Server::OnDisconnected()
{
    m_state = StateDisconnected;
    emit Disconnected();
    for (Item* lp_user : g("is_online").GetItems("user"))
        lp_user->Disconnect("is_online");
}

void Server::Disconnect()
{
    if (m_state != StateConnected)
        return;
    OnDisconnected();
    m_reconnectWanted = false;
    // Only a close that will really come may be waited for, or a later one would be swallowed.
    if (m_socket.state() != QAbstractSocket::UnconnectedState)
    {
        m_closingByRequest = true;
        m_socket.close();
    }
}

void Server::AttemptReconnect()
{
    if (m_reconnectWanted)
        Connect();
}

void Server::RenewPortMapping()
{
    if (m_state != StateConnected || !UseUPnP())
        return;
    Log(s_area, 1, QStringLiteral("Renewing UPnP port mapping."));
    AddPortMapping();
}

void Server::DataLoaded()
{
    if (GetGlobalValue("use_upnp").IsNull())
        SetGlobal("use_upnp", "yes");
}

void Server::SendMessage(MemStream& i_message, bool i_force)
{
    if (m_state == StateDisconnected || (m_state == StateConnecting && !i_force) || m_unsentOverflow)
        return;
    int const l_length = i_message.GetPendingReadLength();
    MemStream l_frame;
    l_frame.Write(static_cast<std::uint32_t>(l_length));
    l_frame.WriteBuffer(i_message.GetReadBuffer(), static_cast<unsigned long>(l_length));
    m_socket.write(l_frame.GetReadBuffer(), l_frame.GetPendingReadLength());
    if (m_socket.bytesToWrite() <= s_maxUnsentBytes)
        return;
    Log(s_area, 1,
        QStringLiteral("More than %1 MiB wait unsent to the server; reconnecting").arg(s_maxUnsentBytes / (1024 * 1024)));
    m_unsentOverflow = true;
    // Dropped from the event loop rather than inside the caller that sent, which may be in the
    // middle of a graph change that the end of the connection would disturb.
    QMetaObject::invokeMethod(this, &Server::DropOverfullLink, Qt::QueuedConnection);
}

void Server::DropOverfullLink()
{
    // A connection started since then has its own bytes and is left alone.
    if (!m_unsentOverflow)
        return;
    m_unsentOverflow = false;
    // The abort is heard as a lost connection, so the half-minute timer reconnects.
    m_socket.abort();
}

void Server::SetWaitPort(int i_port)
{
    MemStream l_message = NewMessage(ServerCode::SetWaitPort);
    l_message.Write(static_cast<std::uint32_t>(i_port));
    SendMessage(l_message);
}

void Server::GetUserAddress(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(i_user);
    if (l_user.IsConnected("user_address_request"))
        return;
    SendStrings(ServerCode::UserAddress, {i_user});
    // Kept while no answer came, so that the next login asks again.
    l_user.NewItem("user_address_request");
}

void Server::SendStrings(int i_code, std::initializer_list<std::string> i_fields)
{
    MemStream l_message = NewMessage(i_code);
    for (std::string const& l_field : i_fields)
        l_message.Write(l_field);
    SendMessage(l_message);
}

void Server::AddUser(std::string const& i_user)
{
    SendStrings(ServerCode::AddUser, {i_user});
}

void Server::TrackUser(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(i_user);
    if (l_user.IsConnected("is_tracked"))
        return;
    // The flag alone is enough for the next login to ask again if this message is dropped.
    l_user.NewItem("is_tracked");
    AddUser(i_user);
}

void Server::UntrackUser(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(i_user);
    if (!l_user || !l_user.IsConnected("is_tracked"))
        return;
    l_user.Disconnect("is_tracked");
    SendStrings(ServerCode::UntrackUser, {i_user});
}

void Server::GetUserStatus(std::string const& i_user)
{
    SendStrings(ServerCode::UserStatus, {i_user});
}

void Server::SendRoomChat(std::string const& i_room, std::string const& i_text)
{
    SendStrings(ServerCode::RoomChat, {i_room, i_text});
}

void Server::EnterRoom(std::string const& i_room)
{
    SendStrings(ServerCode::EnterRoom, {i_room});
}

void Server::LeaveRoom(std::string const& i_room)
{
    ItemPtr const l_room = d.GetType("room")->HasItem(i_room);
    if (!l_room || !l_room.IsConnected("in_room"))
        return;
    SendStrings(ServerCode::LeaveRoom, {i_room});
}

unsigned int Server::SendIndirectConnectionRequest(std::string const& i_user, std::string const& i_type)
{
    std::uint32_t const l_token = m_nextIndirectToken++;
    MemStream l_message = NewMessage(ServerCode::ConnectToPeer);
    l_message.Write(l_token);
    l_message.Write(i_user);
    l_message.Write(i_type);
    SendMessage(l_message);
    Log(s_area, 1, QStringLiteral("Sent indirect connection request to %1").arg(QString::fromStdString(i_user)),
        d.GetType("user")->HasItem(i_user));
    return l_token;
}

void Server::SendPrivateChat(std::string const& i_user, std::string const& i_text)
{
    SendStrings(ServerCode::PrivateChat, {i_user, i_text});
}

void Server::SendPrivateChatAck(std::uint32_t i_id)
{
    MemStream l_message = NewMessage(ServerCode::PrivateChatAck);
    l_message.Write(i_id);
    SendMessage(l_message);
}

unsigned int Server::FileSearch(std::string const& i_search, bool i_wishList)
{
    std::uint32_t const l_token = m_nextSearchToken++;
    MemStream l_message = NewMessage(i_wishList ? ServerCode::WishListSearch : ServerCode::FileSearch);
    l_message.Write(l_token);
    l_message.Write(i_search);
    SendMessage(l_message);

    ItemPtr const l_request = d.GetType("search_request")->NewItem(Value(l_token));
    l_request += d.GetType("search_request_text")->GetItem(i_search);
    if (i_wishList)
        l_request += d.GetType("wishlist_search")->GetGlobalNullItem();
    emit SearchRequested(l_token, i_search, i_wishList);
    return l_token;
}

void Server::GetUserStats(std::string const& i_user)
{
    SendStrings(ServerCode::UserStats, {i_user});
}

void Server::GetRoomList()
{
    MemStream l_message = NewMessage(ServerCode::RoomList);
    SendMessage(l_message);
}

void Server::SendDNetHasParent(bool i_hasParent)
{
    // The server asks whether a parent is wanted: the byte is the inverse.
    MemStream l_message = NewMessage(ServerCode::DNetHasParent);
    l_message.Write(static_cast<std::uint8_t>(i_hasParent ? 0 : 1));
    SendMessage(l_message);
}

void Server::SendDNetCanParent(bool i_canParent)
{
    MemStream l_message = NewMessage(ServerCode::DNetCanParent);
    l_message.Write(static_cast<std::uint8_t>(i_canParent ? 1 : 0));
    SendMessage(l_message);
}

void Server::SendUploadSpeed(int i_speed)
{
    MemStream l_message = NewMessage(ServerCode::UploadSpeed);
    l_message.Write(static_cast<std::uint32_t>(i_speed));
    SendMessage(l_message);
}

void Server::SendDNetLevel(int i_level)
{
    MemStream l_message = NewMessage(ServerCode::DNetLevel);
    l_message.Write(static_cast<std::uint32_t>(i_level));
    SendMessage(l_message);
}

void Server::SendDNetGroupLeader(std::string const& i_user)
{
    SendStrings(ServerCode::DNetGroupLeader, {i_user});
}

void Server::SendChildDepth(bool i_value)
{
    MemStream l_message = NewMessage(ServerCode::ChildDepth);
    l_message.Write(static_cast<std::uint8_t>(i_value ? 1 : 0));
    SendMessage(l_message);
}

void Server::SendCantConnectToPeer(unsigned int i_token, std::string const& i_user)
{
    MemStream l_message = NewMessage(ServerCode::CantConnectToPeer);
    l_message.Write(static_cast<std::uint32_t>(i_token));
    l_message.Write(i_user);
    SendMessage(l_message);
}
