#pragma once

#include <QByteArray>
#include <QPointer>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "FuzzSocket.h"

class DNetManager;
class PeerMessenger;
class Server;
class SharedFoldersManager;
class TransferQueueManager;

// The client as each fuzz input meets it. Once per process: an application object, the graph
// with the settings types, and the server link, which never connects. Per input: a peer
// messenger, the search tree's manager, the shares manager and the transfer queue, made and wired
// as the main window makes them, and destroyed after the input together with every item the input made, so
// that each input starts from the same graph and a crash is reproduced by its input alone.
// No process that links this can open a network connection (see FuzzRig.cpp).
class FuzzRig
{
public:
    FuzzRig();
    ~FuzzRig();
    FuzzRig(FuzzRig const&) = delete;
    FuzzRig& operator=(FuzzRig const&) = delete;

    // The peer every target's bytes come from, and the ticket of the search the client has open.
    static constexpr char s_peer[] = "peer";
    static constexpr std::uint32_t s_searchTicket = 1;

    // Makes the process-wide objects, if not yet made; returns the server link. Called by each
    // target before its first input.
    static Server& Init();
    // What the graph holds now stays for every later input; the rest goes after each one.
    static void KeepGraph();

    Server& GetServer();
    PeerMessenger& Messenger() { return *mp_messenger; }
    DNetManager& DNet() { return *mp_dnet; }
    SharedFoldersManager& Shares() { return *mp_shares; }
    TransferQueueManager& Transfers() { return *mp_transfers; }

    // A connected socket with i_bytes waiting on it, handed to whoever the caller gives it to.
    FuzzSocket* Socket(QByteArray i_bytes);
    // A socket the listener took, with i_bytes waiting on it; the messenger reads it at once.
    FuzzSocket* Accept(QByteArray i_bytes);
    // A messaging connection greeted by i_user, then i_bytes read from it.
    FuzzSocket* AcceptMessaging(char const* i_user, QByteArray i_bytes);
    // Tells the socket's reader that bytes arrived.
    static void Deliver(FuzzSocket* ip_socket);

    // The frame of a body as peers send it: a u32 little-endian length first.
    static QByteArray Frame(QByteArray const& i_body);

private:
    std::unique_ptr<PeerMessenger> mp_messenger;
    std::unique_ptr<DNetManager> mp_dnet;
    std::unique_ptr<SharedFoldersManager> mp_shares;
    std::unique_ptr<TransferQueueManager> mp_transfers;
    QList<QPointer<FuzzSocket>> m_sockets;
};

// The bytes of a fuzz input.
inline QByteArray InputBytes(std::uint8_t const* ip_data, std::size_t i_size)
{
    return QByteArray(reinterpret_cast<char const*>(ip_data), static_cast<qsizetype>(i_size));
}
