#include "UserDirectory.h"

#include "AccountBook.h"
#include "ClientConnection.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "ServerOptions.h"
#include "SessionRegistry.h"
#include "WireWriter.h"

#include <algorithm>

namespace
{
constexpr quint32 c_statusOffline = 0;
constexpr quint32 c_statusOnline = 2;
}

UserDirectory::UserDirectory(SessionRegistry const& i_sessions, AccountBook const& i_accounts,
    ServerOptions const& i_options)
    : m_sessions(i_sessions)
    , m_accounts(i_accounts)
    , m_options(i_options)
{
}

bool UserDirectory::IsPrivileged(QByteArray const& i_user) const
{
    return m_options.m_privileged.contains(i_user);
}

void UserDirectory::SendPrivileged(ClientConnection& i_client) const
{
    QList<QByteArray> l_names = m_options.m_privileged.values();
    std::sort(l_names.begin(), l_names.end());
    i_client.Send(WireWriter(69).StringList(l_names).Frame());
}

void UserDirectory::AppendStats(WireWriter& o_frame, QByteArray const& i_user) const
{
    quint32 const l_speed = m_accounts.UploadSpeed(i_user).value_or(m_options.m_uploadSpeeds.value(i_user));
    o_frame.UserStats(l_speed, m_options.m_sharedFiles.value(i_user));
}

QByteArray UserDirectory::Country(QByteArray const& i_user) const
{
    return m_options.m_countries.value(i_user);
}

void UserDirectory::Track(ClientConnection& i_client, QByteArray const& i_user)
{
    // Kept also for a name without account, which may be registered later; a name too long
    // to be registered ever is not kept.
    bool l_exists = m_accounts.Exists(i_user);
    if (i_client.Tracked().size() < ServerLimits::c_maxTrackedPerClient
        && i_user.size() <= ServerLimits::c_maxNameLength)
        i_client.Tracked().insert(i_user);
    ServerLog::Write(QStringLiteral("track %1 %2")
                         .arg(ServerLog::Printable(i_client.Name()), ServerLog::Printable(i_user)));
    WireWriter l_answer(5);
    l_answer.String(i_user).U8(l_exists ? 1 : 0);
    if (l_exists)
    {
        quint32 l_status = Status(i_user);
        AppendStats(l_answer.U32(l_status), i_user);
        if (l_status > 0)
            l_answer.String(Country(i_user));
    }
    i_client.Send(l_answer.Frame());
}

void UserDirectory::Untrack(ClientConnection& i_client, QByteArray const& i_user)
{
    i_client.Tracked().remove(i_user);
    ServerLog::Write(QStringLiteral("untrack %1 %2")
                         .arg(ServerLog::Printable(i_client.Name()), ServerLog::Printable(i_user)));
}

void UserDirectory::SendStatus(ClientConnection& i_client, QByteArray const& i_user) const
{
    i_client.Send(WireWriter(7)
                      .String(i_user)
                      .U32(Status(i_user))
                      .U8(IsPrivileged(i_user) ? 1 : 0)
                      .Frame());
}

void UserDirectory::NotifyTrackers(QByteArray const& i_user, bool i_online) const
{
    QByteArray l_frame = WireWriter(7)
                             .String(i_user)
                             .U32(i_online ? c_statusOnline : c_statusOffline)
                             .U8(IsPrivileged(i_user) ? 1 : 0)
                             .Frame();
    for (ClientConnection* lp_client : m_sessions.All())
    {
        if (!lp_client->Tracked().contains(i_user))
            continue;
        lp_client->Send(l_frame);
        ServerLog::Write(QStringLiteral("status %1 %2 to %3")
                             .arg(ServerLog::Printable(i_user),
                                  i_online ? QStringLiteral("online") : QStringLiteral("offline"),
                                  ServerLog::Printable(lp_client->Name())));
    }
}

void UserDirectory::SendAddress(ClientConnection& i_client, QByteArray const& i_user) const
{
    // An offline user has the null address, which nobody can connect to.
    ClientConnection* lp_user = m_sessions.Find(i_user);
    i_client.Send(WireWriter(3)
                      .String(i_user)
                      .Address(lp_user ? lp_user->PeerIPv4() : 0, lp_user ? lp_user->ListenPort() : 0)
                      .Frame());
}

void UserDirectory::SendStats(ClientConnection& i_client, QByteArray const& i_user) const
{
    WireWriter l_stats(36);
    AppendStats(l_stats.String(i_user), i_user);
    i_client.Send(l_stats.Frame());
}

void UserDirectory::RelayConnectRequest(ClientConnection& i_caller, quint32 i_token,
    QByteArray const& i_user, QByteArray const& i_type) const
{
    QString l_route = QStringLiteral("%1 -> %2 %3 token %4")
                          .arg(ServerLog::Printable(i_caller.Name()), ServerLog::Printable(i_user),
                              ServerLog::Printable(i_type))
                          .arg(i_token);
    ClientConnection* lp_called = m_sessions.Find(i_user);
    if (!lp_called)
    {
        // Nobody could ever answer, so the caller hears of the failure at once.
        ServerLog::Write(QStringLiteral("indirect connection failed %1: user offline").arg(l_route));
        i_caller.Send(WireWriter(1001).U32(i_token).Frame());
        return;
    }
    ServerLog::Write(QStringLiteral("indirect connection %1").arg(l_route));
    lp_called->Send(WireWriter(18)
                        .String(i_caller.Name())
                        .String(i_type)
                        .Address(i_caller.PeerIPv4(), i_caller.ListenPort())
                        .U32(i_token)
                        .U8(IsPrivileged(i_caller.Name()) ? 1 : 0)
                        .Frame());
}

void UserDirectory::RelayCannotConnect(ClientConnection& i_called, quint32 i_token,
    QByteArray const& i_caller) const
{
    ServerLog::Write(QStringLiteral("cannot connect %1 -> %2 token %3")
            .arg(ServerLog::Printable(i_called.Name()), ServerLog::Printable(i_caller))
            .arg(i_token));
    m_sessions.Send(i_caller, WireWriter(1001).U32(i_token).Frame());
}

quint32 UserDirectory::Status(QByteArray const& i_user) const
{
    return m_sessions.IsOnline(i_user) ? c_statusOnline : c_statusOffline;
}
