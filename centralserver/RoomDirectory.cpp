#include "RoomDirectory.h"

#include "ClientConnection.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "ServerOptions.h"
#include "SessionRegistry.h"
#include "UserDirectory.h"
#include "WireWriter.h"

#include <QStringList>

#include <algorithm>

namespace
{
constexpr quint32 c_statusOnline = 2;
}

RoomDirectory::RoomDirectory(SessionRegistry const& i_sessions, UserDirectory const& i_users,
    ServerOptions const& i_options)
    : m_sessions(i_sessions)
    , m_users(i_users)
    , m_options(i_options)
{
}

void RoomDirectory::Enter(ClientConnection& i_client, QByteArray const& i_room)
{
    QByteArray const& l_user = i_client.Name();
    if (i_room.isEmpty() || i_room.size() > ServerLimits::c_maxNameLength)
        return;
    if (!m_rooms.contains(i_room) && m_rooms.size() >= ServerLimits::c_maxRooms)
    {
        ServerLog::Write(QStringLiteral("enter room refused %1 %2: too many rooms")
                .arg(ServerLog::Printable(l_user), ServerLog::Printable(i_room)));
        return;
    }
    QList<QByteArray>& l_members = m_rooms[i_room];
    bool l_isNew = !l_members.contains(l_user);
    if (l_isNew)
    {
        WireWriter l_joinedFrame(16);
        m_users.AppendStats(l_joinedFrame.String(i_room).String(l_user).U32(c_statusOnline), l_user);
        QByteArray l_joined = l_joinedFrame.U32(0).String(m_users.Country(l_user)).Frame();
        for (QByteArray const& l_member : l_members)
            m_sessions.Send(l_member, l_joined);
        l_members.append(l_user);
        ServerLog::Write(QStringLiteral("enter room %1 %2")
                .arg(ServerLog::Printable(l_user), ServerLog::Printable(i_room)));
    }

    WireWriter l_answer(14);
    l_answer.String(i_room).StringList(l_members);
    l_answer.U32List(QList<quint32>(l_members.size(), c_statusOnline));
    l_answer.U32(static_cast<quint32>(l_members.size()));
    QList<QByteArray> l_countries;
    for (QByteArray const& l_member : l_members)
    {
        m_users.AppendStats(l_answer, l_member);
        l_countries.append(m_users.Country(l_member));
    }
    l_answer.U32List(QList<quint32>(l_members.size(), 0));
    l_answer.StringList(l_countries);
    // Owner and operators go only with an owner: readers take the end of the frame after
    // the countries as "no owner".
    auto l_owner = m_options.m_roomOwners.constFind(i_room);
    if (l_owner != m_options.m_roomOwners.constEnd())
    {
        QList<QByteArray> l_operators = m_options.m_roomOperators.value(i_room).values();
        std::sort(l_operators.begin(), l_operators.end());
        l_answer.String(l_owner.value()).StringList(l_operators);
    }
    i_client.Send(l_answer.Frame());
}

void RoomDirectory::Leave(ClientConnection& i_client, QByteArray const& i_room)
{
    auto l_room = m_rooms.constFind(i_room);
    if (l_room == m_rooms.constEnd() || !l_room->contains(i_client.Name()))
        return;
    RemoveMember(i_room, i_client.Name());
    i_client.Send(WireWriter(15).String(i_room).Frame());
}

void RoomDirectory::Chat(ClientConnection& i_client, QByteArray const& i_room,
    QByteArray const& i_text)
{
    auto l_room = m_rooms.constFind(i_room);
    if (l_room == m_rooms.constEnd() || !l_room->contains(i_client.Name()))
        return;
    QByteArray l_line = WireWriter(13).String(i_room).String(i_client.Name()).String(i_text).Frame();
    QStringList l_reached;
    for (QByteArray const& l_member : *l_room)
    {
        m_sessions.Send(l_member, l_line);
        l_reached << ServerLog::Printable(l_member);
    }
    l_reached.sort();
    ServerLog::Write(QStringLiteral("room chat %1 %2 to %3")
                         .arg(ServerLog::Printable(i_client.Name()), ServerLog::Printable(i_room),
                              l_reached.join(QStringLiteral(", "))));
}

void RoomDirectory::SendList(ClientConnection& i_client) const
{
    QList<QByteArray> l_names;
    QList<quint32> l_counts;
    for (auto l_room = m_rooms.constBegin(); l_room != m_rooms.constEnd(); ++l_room)
    {
        l_names.append(l_room.key());
        l_counts.append(static_cast<quint32>(l_room->size()));
    }
    // The second and third groups of rooms and the trailing set and list are not used here.
    WireWriter l_list(64);
    l_list.StringList(l_names).U32List(l_counts);
    l_list.StringList({}).U32List({}).StringList({}).U32List({}).StringList({}).U32List({});
    i_client.Send(l_list.Frame());
}

void RoomDirectory::LeaveAll(QByteArray const& i_user)
{
    QList<QByteArray> l_rooms;
    for (auto l_room = m_rooms.constBegin(); l_room != m_rooms.constEnd(); ++l_room)
    {
        if (l_room->contains(i_user))
            l_rooms.append(l_room.key());
    }
    for (QByteArray const& l_room : l_rooms)
        RemoveMember(l_room, i_user);
}

void RoomDirectory::RemoveMember(QByteArray const& i_room, QByteArray const& i_user)
{
    QList<QByteArray>& l_members = m_rooms[i_room];
    l_members.removeAll(i_user);
    ServerLog::Write(QStringLiteral("leave room %1 %2")
            .arg(ServerLog::Printable(i_user), ServerLog::Printable(i_room)));
    if (l_members.isEmpty())
    {
        m_rooms.remove(i_room);
        return;
    }
    QByteArray l_left = WireWriter(17).String(i_room).String(i_user).Frame();
    for (QByteArray const& l_member : l_members)
        m_sessions.Send(l_member, l_left);
}
