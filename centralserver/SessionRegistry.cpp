#include "SessionRegistry.h"

#include "ClientConnection.h"

void SessionRegistry::Add(ClientConnection* ip_connection)
{
    m_sessions.insert(ip_connection->Name(), ip_connection);
}

void SessionRegistry::Remove(ClientConnection* ip_connection)
{
    auto l_found = m_sessions.find(ip_connection->Name());
    if (l_found != m_sessions.end() && l_found.value() == ip_connection)
        m_sessions.erase(l_found);
}

void SessionRegistry::Send(QByteArray const& i_name, QByteArray const& i_frame) const
{
    if (ClientConnection* lp_connection = Find(i_name))
        lp_connection->Send(i_frame);
}
