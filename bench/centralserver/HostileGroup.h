#pragma once

#include "LoadClient.h"

#include <QByteArray>
#include <QHash>

#include <memory>
#include <vector>

// Connections to the server that an attack drives together: opened bare or logged in under
// names of their own, then sent whatever the attack sends.
class HostileGroup
{
public:
    // Opens i_count connections; with i_logIn each logs in under a name no other connection of
    // the run has, followed by i_after.
    HostileGroup(quint16 i_port, int i_count, bool i_logIn, QByteArray const& i_after = {});

    int Size() const { return static_cast<int>(m_members.size()); }
    // Waits until every connection is open, or logged in when asked to log in; false when any
    // is not within i_timeoutMs or was closed first.
    bool WaitReady(int i_timeoutMs);
    // Waits until every connection is open or closed; those open.
    int WaitSettled(int i_timeoutMs);
    bool WaitClosed(int i_count, int i_timeoutMs);
    LoadClient& At(int i_index) { return *m_members[static_cast<size_t>(i_index)].mp_link; }
    void SendAll(QByteArray const& i_bytes);
    void StopReadingAll();
    int Closed() const;
    int LoggedIn() const;
    // Connections that received message i_code at least i_times, the room list that comes with
    // the login included.
    int Received(quint32 i_code, int i_times = 1) const;

private:
    struct Member
    {
        std::unique_ptr<LoadClient> mp_link;
        bool m_loggedIn = false;
        QHash<quint32, int> m_codes;
    };

    bool m_logIn;
    std::vector<Member> m_members;
};
