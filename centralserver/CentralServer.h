#pragma once

#include "AccountBook.h"
#include "PrivateMessageBox.h"
#include "RoomDirectory.h"
#include "SearchTree.h"
#include "ServerOptions.h"
#include "SessionRegistry.h"
#include "UserDirectory.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QTcpServer>

class ClientConnection;
class WireReader;

// The listener: accepts clients, logs them in and out, and hands each message to the part
// of the server that serves it.
class CentralServer : public QObject
{
    Q_OBJECT

public:
    explicit CentralServer(ServerOptions const& i_options, QObject* ip_parent = nullptr);
    ~CentralServer() override;

    // Loads the accounts and starts listening; logs the address and port on success.
    bool Start(QString& o_error);
    quint16 Port() const { return m_listener.serverPort(); }

private slots:
    void OnNewConnection();
    void OnConnectionClosed(ClientConnection* ip_connection);
    void OnAcceptError(QAbstractSocket::SocketError i_error);

private:
    bool HandleFrame(ClientConnection& i_client, quint32 i_code, WireReader& i_reader);
    bool HandleLogin(ClientConnection& i_client, WireReader& i_reader);
    bool HandleSessionMessage(ClientConnection& i_client, quint32 i_code, WireReader& i_reader);
    void Refuse(ClientConnection& i_client, QByteArray const& i_name, QByteArray const& i_reason);
    // Takes one line of the client's chat allowance; false when the line is to be dropped,
    // which is logged as i_what. A client that keeps pushing is closed.
    bool AllowChat(ClientConnection& i_client, QString const& i_what);
    // With i_replaced the name goes on in a newer session, so trackers are not told.
    void Logout(ClientConnection& i_client, bool i_replaced);

    ServerOptions m_options;
    AccountBook m_accounts;
    SessionRegistry m_sessions;
    UserDirectory m_users;
    RoomDirectory m_rooms;
    PrivateMessageBox m_messages;
    SearchTree m_tree;
    QTcpServer m_listener;
    QSet<ClientConnection*> m_connections;
    // Connections not logged in yet, oldest first.
    QList<ClientConnection*> m_strangers;
};
