#pragma once

#include "HostileGroup.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

class LoadServer;

// The attacks on the server, one at a time. Each returns what went wrong, empty when the server
// did what it should; connections an attack leaves standing are held until ReleaseHeld(), so
// that honest clients can be checked while they stand.
class HostileCases
{
public:
    struct Case
    {
        char const* mp_name;
        std::function<QString()> m_run;
    };

    HostileCases(quint16 i_port, LoadServer const& i_server);
    ~HostileCases();

    std::vector<Case> All();
    void ReleaseHeld() { m_held.clear(); }
    // Clients that send a byte a second, started before the other attacks and checked after.
    void StartSlowWriters();
    QString CheckSlowWriters();

private:
    QString BadLengths();
    QString HollowCounts();
    QString IdleBeforeLogin(int i_count);
    QString OpenedAndClosed();
    QString RoomFlood();
    QString UserLists(int i_readers);
    QString Garbage(int i_clients);
    QString UnknownCodes(int i_clients);
    QString AssemblyFlood(int i_clients);
    // i_count connections logged in under names of their own; null when not all are in time.
    std::unique_ptr<HostileGroup> LoggedIn(int i_count);
    // As LoggedIn, then each connection sends what i_bytes makes for it and asks for the room
    // list, whose answer shows its connection served after.
    std::unique_ptr<HostileGroup> LoggedInSending(int i_count, std::function<QByteArray()> const& i_bytes);
    // Log lines containing i_text since the last call with it.
    qsizetype NewLogLines(QString const& i_text);

    quint16 m_port;
    LoadServer const& m_server;
    std::vector<std::unique_ptr<HostileGroup>> m_held;
    std::unique_ptr<HostileGroup> mp_slowBeforeLogin;
    std::unique_ptr<HostileGroup> mp_slowAfterLogin;
    qint64 m_slowStartMs = 0;
    QHash<QString, qsizetype> m_logSeen;
};
