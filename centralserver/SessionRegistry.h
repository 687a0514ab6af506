#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>

class ClientConnection;

// The logged-in sessions by name: at most one per name.
class SessionRegistry
{
public:
    ClientConnection* Find(QByteArray const& i_name) const { return m_sessions.value(i_name); }
    bool IsOnline(QByteArray const& i_name) const { return m_sessions.contains(i_name); }
    void Add(ClientConnection* ip_connection);
    // Removes the name only while it still belongs to this connection.
    void Remove(ClientConnection* ip_connection);
    // In name order; a copy, so that sending may drop sessions on the way.
    QList<ClientConnection*> All() const { return m_sessions.values(); }
    void Send(QByteArray const& i_name, QByteArray const& i_frame) const;

private:
    QMap<QByteArray, ClientConnection*> m_sessions;
};
