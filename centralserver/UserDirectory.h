#pragma once

#include <QByteArray>

class AccountBook;
class ClientConnection;
class ServerOptions;
class SessionRegistry;
class WireWriter;

// What clients learn about each other: status, tracking, addresses and statistics, and
// the relay of requests to connect back.
class UserDirectory
{
public:
    UserDirectory(SessionRegistry const& i_sessions, AccountBook const& i_accounts,
        ServerOptions const& i_options);

    bool IsPrivileged(QByteArray const& i_user) const;
    void SendPrivileged(ClientConnection& i_client) const;
    // The user's statistics record: its upload speed, as reported or else as set for it, and
    // the files it is said to share.
    void AppendStats(WireWriter& o_frame, QByteArray const& i_user) const;
    QByteArray Country(QByteArray const& i_user) const;

    void Track(ClientConnection& i_client, QByteArray const& i_user);
    void Untrack(ClientConnection& i_client, QByteArray const& i_user);
    void SendStatus(ClientConnection& i_client, QByteArray const& i_user) const;
    // Tells everybody who tracks the user that it came or went.
    void NotifyTrackers(QByteArray const& i_user, bool i_online) const;

    void SendAddress(ClientConnection& i_client, QByteArray const& i_user) const;
    void SendStats(ClientConnection& i_client, QByteArray const& i_user) const;

    void RelayConnectRequest(ClientConnection& i_caller, quint32 i_token,
        QByteArray const& i_user, QByteArray const& i_type) const;
    void RelayCannotConnect(ClientConnection& i_called, quint32 i_token,
        QByteArray const& i_caller) const;

private:
    quint32 Status(QByteArray const& i_user) const;

    SessionRegistry const& m_sessions;
    AccountBook const& m_accounts;
    ServerOptions const& m_options;
};
