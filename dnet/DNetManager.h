#pragma once

#include <QAbstractSocket>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QTcpSocket>

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

#include "dnet/DNetLimits.h"
#include "server/TCPAddress.h"
#include "store/DataHandler.h"
#include "store/ItemPtr.h"
#include "stream/MemStream.h"

class PeerMessenger;
class QTcpSocket;
class Server;

// The client's place in the distributed search tree: at most one parent, from which searches
// arrive, and any number of children, to which they are passed on. The server names possible
// parents; each is dialled, and the first that delivers a search becomes the parent. The state
// lives in the graph and is never saved: the tree is built anew in each run.
// Implemented in three parts: this file's source (set-up, server messages, becoming a child),
// the frames on D sockets, and being a parent.
class DNetManager : public QObject, public DataHandler
{
    Q_OBJECT
public:
    explicit DNetManager(QObject* ip_parent = nullptr);
    // Closes the sockets it holds and removes its items.
    ~DNetManager() override;

    // The server's and the peer layer's signals; both must outlive this manager.
    void Attach(Server* ip_server, PeerMessenger* ip_messenger);
    // How long a replaced child connection is kept in reserve.
    void SetChildStandbyMs(int i_ms) { m_childStandbyMs = i_ms; }

public slots:
    void OnDNetParentMinSpeed(int i_speed);
    void OnDNetParentSpeedConnectionRatio(int i_ratio);
    void OnDNetPossibleParents(std::list<std::pair<std::string, TCPAddress>>& i_parents);
    void OnDNetMessage(MemStream& i_message);
    void OnDNetDeliveryReport(int i_req);
    void OnDNetReset();
    void OnDNetConnectionAccepted(std::string const& i_user, QTcpSocket* ip_socket);
    void OnDNetConnectionRequested(std::string const& i_user, QTcpSocket* ip_socket);
    void OnConnected();
    void OnSocketReadyToRead();
    void OnSocketError(QAbstractSocket::SocketError i_error);
    void OnSocketClosed();
    void OnChildSocketReadyToRead();
    void OnChildSocketError(QAbstractSocket::SocketError i_error);
    void OnChildSocketClosed();

signals:
    void DNetSearchRequest(std::string const& i_user, quint32 i_req, std::string const& i_searchText);

private:
    enum class Sender
    {
        Server,
        Parent,
        Candidate
    };

    void OnReceivedOwnUploadSpeed(Item* ip_value);
    void DetermineCanParent();
    void DetermineChildDepth();
    // Whether a search from the tree fits this second's bound; counts and logs the dropped.
    bool TakeSearch();

    // ---- frames (DNetManagerFrames.cpp)
    // Takes every whole frame out of the socket into the read stream and handles it.
    void ReadFrames(QTcpSocket* ip_socket, bool i_child);
    void HandleMessage(QTcpSocket* ip_socket, MemStream& i_message);
    void HandleLevel(QTcpSocket* ip_socket, Sender i_sender, MemStream& i_message);
    void HandleLeader(QTcpSocket* ip_socket, Sender i_sender, MemStream& i_message, char const* ip_frame, int i_size);
    void HandleDistributed(QTcpSocket* ip_socket, Sender i_sender, MemStream& i_message, char const* ip_frame,
                           int i_size);
    void Adopt(QTcpSocket* ip_socket, ItemPtr i_candidate);
    void HandleChildMessage(QTcpSocket* ip_socket, MemStream& i_message);
    void SocketClosed(QTcpSocket* ip_socket);
    void ChildSocketClosed(QTcpSocket* ip_socket);
    // Logs why a message cannot be read; closes its socket, whose close handler cleans up.
    void Unreadable(QTcpSocket* ip_socket, int i_code, bool i_child);

    // ---- being a parent (DNetManagerChildren.cpp)
    // The frame is the body, code byte first; it gets its length in front.
    void SendMessageToChildren(char const* ip_frame, int i_size);
    void SendMessageToChildren(MemStream const& i_message);
    static void SendFrame(QTcpSocket* ip_socket, char const* ip_frame, int i_size);
    static void SendFrame(QTcpSocket* ip_socket, MemStream const& i_message);
    static MemStream LevelMessage(int i_level);
    static MemStream LeaderMessage(std::string const& i_leader);
    void DropChild(ItemPtr i_child);

    // The sockets taken over are watched by one of two sets of slots.
    void WatchParentSocket(QTcpSocket* ip_socket);
    void WatchChildSocket(QTcpSocket* ip_socket);
    static void HoldWholeFrames(QTcpSocket* ip_socket, std::uint32_t i_maxFrameLength);
    void Unwatch(QTcpSocket* ip_socket);
    void CloseAndDelete(QTcpSocket* ip_socket);
    // A child's connection replaced by a second one of the same user is kept open, unused, for
    // a while. When a child dials and is dialled back at once, both sockets reach this side,
    // and the later one is often the one the child closes as the loser of that race; the
    // former connection then takes its place again.
    void KeepInStandby(std::string const& i_user, QTcpSocket* ip_socket);
    bool ReinstateStandby(std::string const& i_user);
    void SendStateToChild(QTcpSocket* ip_socket);

    Server* mp_server = nullptr;
    PeerMessenger* mp_messenger = nullptr;
    int m_parentMinSpeed = -1;
    int m_speedConnectionRatio = -1;
    bool m_canParent = false;
    MemStream m_readStream;
    std::map<std::string, QPointer<QTcpSocket>> m_standbyChildren;
    int m_childStandbyMs = 10000;
    // The second distributed messages are counted in, by m_clock, and what it took and dropped.
    QElapsedTimer m_clock;
    std::int64_t m_searchSecond = -1;
    int m_searchesTaken = 0;
    int m_searchesDropped = 0;
};

extern DNetManager* dnetManager;
