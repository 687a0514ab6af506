#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QSet>

class ClientConnection;
class ServerOptions;
class SessionRegistry;
class UserDirectory;

// Chat rooms: made by their first member, gone with their last.
class RoomDirectory
{
public:
    RoomDirectory(SessionRegistry const& i_sessions, UserDirectory const& i_users,
        ServerOptions const& i_options);

    void Enter(ClientConnection& i_client, QByteArray const& i_room);
    void Leave(ClientConnection& i_client, QByteArray const& i_room);
    void Chat(ClientConnection& i_client, QByteArray const& i_room, QByteArray const& i_text);
    void SendList(ClientConnection& i_client) const;
    // The user's session is gone: it leaves every room, and the members are told.
    void LeaveAll(QByteArray const& i_user);

private:
    void RemoveMember(QByteArray const& i_room, QByteArray const& i_user);

    SessionRegistry const& m_sessions;
    UserDirectory const& m_users;
    ServerOptions const& m_options;
    // Members in the order they came in.
    QMap<QByteArray, QList<QByteArray>> m_rooms;
};
