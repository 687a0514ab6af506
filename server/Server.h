#pragma once

#include <QObject>
#include <QString>
#include <QTcpSocket>

#include <cstdint>
#include <ctime>
#include <list>
#include <memory>
#include <initializer_list>
#include <string>
#include <utility>

#include "server/ServerFrameReader.h"
#include "server/ServerMessageHandler.h"
#include "server/TCPAddress.h"
#include "server/UserStats.h"
#include "store/DataLoadedEventHandler.h"
#include "stream/MemStream.h"

class PortForwarder;

// The client's one link to the central server: the socket, the login, the frame reader, and
// every message that goes out. Incoming messages are turned into graph changes and signals by
// ServerMessageHandler.
class Server : public QObject, public DataLoadedEventHandler
{
    Q_OBJECT
public:
    enum State
    {
        StateDisconnected = 0,
        StateConnecting = 1, // from Connect until the login response
        StateConnected = 2   // logged in
    };

    static constexpr quint16 s_port = 2242;
    // What may wait unsent before the link counts as lost. The link carries small messages,
    // and even a login that replays thousands of tracked users stays far below 1 MiB, so only a
    // server that stopped reading gets here; the bound matches that on an incoming frame.
    static constexpr qint64 s_maxUnsentBytes = 16 * 1024 * 1024;

    explicit Server(QObject* ip_parent = nullptr);
    ~Server() override;

    // The core item schema; called once, after the data saver exists and before the load.
    static void CreateData();

    bool IsConnected() const { return m_state == StateConnected; }
    State GetState() const { return m_state; }
    // The product always talks to the built-in host and port; tests bring their own server.
    void SetAddress(QString const& i_host, quint16 i_port);

    void Connect();
    void Disconnect();
    void DataLoaded() override;

    // Frames the message and writes it. Unless forced, only a logged-in link sends; a forced
    // message (the login) goes out while connecting too. Nothing is queued.
    void SendMessage(MemStream& i_message, bool i_force = false);
    // Sends a message whose body after the code is a run of strings.
    void SendStrings(int i_code, std::initializer_list<std::string> i_fields);

    void SetWaitPort(int i_port);
    void GetUserAddress(std::string const& i_user);
    void AddUser(std::string const& i_user);
    void TrackUser(std::string const& i_user);
    void UntrackUser(std::string const& i_user);
    void GetUserStatus(std::string const& i_user);
    void SendRoomChat(std::string const& i_room, std::string const& i_text);
    void EnterRoom(std::string const& i_room);
    void LeaveRoom(std::string const& i_room);
    unsigned int SendIndirectConnectionRequest(std::string const& i_user, std::string const& i_type);
    void SendPrivateChat(std::string const& i_user, std::string const& i_text);
    unsigned int FileSearch(std::string const& i_search, bool i_wishList);
    void GetUserStats(std::string const& i_user);
    void GetRoomList();
    void SendDNetHasParent(bool i_hasParent);
    void SendDNetCanParent(bool i_canParent);
    void SendUploadSpeed(int i_speed);
    void SendDNetLevel(int i_level);
    void SendDNetGroupLeader(std::string const& i_user);
    void SendChildDepth(bool i_value);
    void SendCantConnectToPeer(unsigned int i_token, std::string const& i_user);

public slots:
    void AttemptReconnect(); // on the 30-second timer
    void RenewPortMapping(); // on the one-hour timer

signals:
    void Connecting();
    void Connected();
    void Disconnected();
    void ConnectionFailed(std::string const& i_reason);

    void RoomChat(std::string const& i_room, std::string const& i_user, std::string const& i_chat);
    void PrivateChat(std::string const& i_user, std::string const& i_chat, time_t i_time, bool i_spontaneous);
    void SearchRequested(unsigned int i_req, std::string const& i_search, bool i_wishListSearch);
    void IndirectPeerConnectionFailure(unsigned int i_req);
    void DNetParentMinSpeed(int i_speed);
    void DNetParentSpeedConnectionRatio(int i_ratio);
    void DNetPossibleParents(std::list<std::pair<std::string, TCPAddress>>& i_parents);
    void DNetMessage(MemStream& i_message);
    void DNetDeliveryReport(int i_report);
    void DNetReset();
    void ReceivedUserStats(std::string const& i_user, UserStats i_stats);
    void WishListWait(unsigned int i_waitPeriod);
    void AddUserResponse(std::string const& i_user, bool i_added);

private slots:
    void OnConnected();
    void OnSocketReadyToRead();
    void OnSocketError(QAbstractSocket::SocketError i_error);
    void OnSocketClosed();

private:
    friend class ServerMessageHandler;
    // The fuzz target of the server link hands it frames as its socket would.
    friend struct ServerLinkAccess;

    void HandleMessage(int i_code, MemStream& i_message);
    void OnLoginResponse(MemStream& i_message);
    void OnConnectedToServer();
    void OnDisconnected();
    void AddPortMapping();
    void SendPrivateChatAck(std::uint32_t i_id);
    // Drops what is left of an earlier connection without telling anyone: its events are not
    // those of the attempt about to start.
    void AbandonSocket();
    // Ends a connection on which too much waits unsent, as if it had been lost.
    void DropOverfullLink();

    QTcpSocket m_socket;
    QString m_host;
    quint16 m_port = s_port;
    State m_state = StateDisconnected;
    ServerFrameReader m_reader;
    ServerMessageHandler m_handler;
    std::uint32_t m_nextSearchToken = 1;
    std::uint32_t m_nextIndirectToken = 1;
    bool m_firstLogin = true;
    bool m_closingByRequest = false;
    bool m_reconnectWanted = false;
    bool m_ignoreSocketEvents = false;
    bool m_unsentOverflow = false; // the link is to be dropped; nothing more is written to it
    std::unique_ptr<PortForwarder> mp_portForwarder;
};

extern Server* gp_server;
