// The frames on D sockets: the read loop, the messages from the server, a parent or a
// candidate, adoption, and the loss of a parent.

#include "dnet/DNetManager.h"

#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

#include <cstdint>
#include <limits>
#include <utility>

#include "dnet/DNetState.h"
#include "server/Server.h"
#include "store/Data.h"

namespace
{
constexpr std::uint8_t s_distributedCode = 3;
constexpr std::uint8_t s_levelCode = 4;
constexpr std::uint8_t s_leaderCode = 5;
constexpr std::uint32_t s_searchRequest = 49;

ItemPtr Candidate(QTcpSocket* ip_socket)
{
    return d.GetType("dnet_parent_candidate")->HasItem(Value(ip_socket));
}

QTcpSocket* ParentSocket()
{
    return GetDNetValue("dnet_parent_socket").AsPointer<QTcpSocket>();
}
} // namespace

void DNetManager::OnSocketReadyToRead()
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        ReadFrames(lp_socket, false);
}

void DNetManager::OnChildSocketReadyToRead()
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        ReadFrames(lp_socket, true);
}

void DNetManager::ReadFrames(QTcpSocket* ip_socket, bool i_child)
{
    std::uint32_t const l_maxLength = i_child ? DNetLimits::s_maxChildFrameLength : DNetLimits::s_maxParentFrameLength;
    // Only whole frames leave the socket, so one read stream serves every socket.
    for (int l_frames = 0; ip_socket->isOpen() && ip_socket->bytesAvailable() >= 4; ++l_frames)
    {
        if (l_frames == DNetLimits::s_maxFramesPerTurn)
        {
            QMetaObject::invokeMethod(ip_socket, "readyRead", Qt::QueuedConnection);
            return;
        }
        std::uint32_t l_length = 0;
        if (ip_socket->peek(reinterpret_cast<char*>(&l_length), 4) != 4)
            return;
        l_length = qFromLittleEndian(l_length);
        if (l_length > l_maxLength)
        {
            DNetLog(1, QStringLiteral("Frame of %1 bytes announced on a %2 connection, above the bound of %3; closing it")
                           .arg(l_length)
                           .arg(i_child ? QStringLiteral("child") : QStringLiteral("parent/candidate"))
                           .arg(l_maxLength));
            ip_socket->close();
            return;
        }
        if (ip_socket->bytesAvailable() - 4 < static_cast<qint64>(l_length))
            return;
        char l_lengthBytes[4];
        ip_socket->read(l_lengthBytes, 4);
        m_readStream.Reset();
        if (m_readStream.GetBufferSize() < static_cast<int>(l_length))
            m_readStream.GrowBuffer(static_cast<int>(l_length));
        if (ip_socket->read(m_readStream.GetWriteBuffer(), l_length) != static_cast<qint64>(l_length))
            return;
        m_readStream.AdvanceWriteIndex(static_cast<int>(l_length));
        if (i_child)
            HandleChildMessage(ip_socket, m_readStream);
        else
            HandleMessage(ip_socket, m_readStream);
    }
}

void DNetManager::HandleMessage(QTcpSocket* ip_socket, MemStream& i_message)
{
    // What is passed on starts here: for the server's message, behind the server's own code.
    char const* lp_frame = i_message.GetReadBuffer();
    int const l_size = i_message.GetPendingReadLength();
    std::uint8_t l_code = 0;
    if (!i_message.Read(l_code))
    {
        DNetLog(1, QStringLiteral("Error reading message code, closing parent/candidate connection"));
        if (ip_socket)
            ip_socket->close();
        return;
    }
    Sender l_sender = Sender::Server;
    if (ip_socket)
    {
        bool const l_haveParent = !GetDNetValue("dnet_parent_user").IsNull();
        if (l_haveParent ? ParentSocket() != ip_socket : Candidate(ip_socket).IsNull())
        {
            DNetLog(1, QStringLiteral("Message from a connection that is neither parent nor candidate, closing it"));
            CloseAndDelete(ip_socket);
            return;
        }
        l_sender = l_haveParent ? Sender::Parent : Sender::Candidate;
    }
    switch (l_code)
    {
    case s_levelCode: HandleLevel(ip_socket, l_sender, i_message); break;
    case s_leaderCode: HandleLeader(ip_socket, l_sender, i_message, lp_frame, l_size); break;
    case s_distributedCode: HandleDistributed(ip_socket, l_sender, i_message, lp_frame, l_size); break;
    default: break;
    }
}

void DNetManager::Unreadable(QTcpSocket* ip_socket, int i_code, bool i_child)
{
    if (!ip_socket)
    {
        DNetLog(1, QStringLiteral("Error reading distributed message with code %1 from the server, dropping it").arg(i_code));
        return;
    }
    DNetLog(1, QStringLiteral("Error reading message with code %1, closing %2 connection")
                   .arg(i_code)
                   .arg(i_child ? QStringLiteral("child") : QStringLiteral("parent/candidate")));
    ip_socket->close();
}

void DNetManager::HandleLevel(QTcpSocket* ip_socket, Sender i_sender, MemStream& i_message)
{
    ItemPtr const l_own = GetDNetValue("dnet_level");
    int const l_ownLevel = l_own ? l_own.AsInt() : -1;
    std::int32_t l_level = 0;
    if (!i_message.Read(l_level))
        return Unreadable(ip_socket, s_levelCode, false);
    // The level under the sender; a sender at the largest level keeps this one there too.
    if (l_level != -1 && l_level != std::numeric_limits<std::int32_t>::max())
        ++l_level;
    if (i_sender == Sender::Candidate && l_level != -1)
        Candidate(ip_socket) += d.GetType("dnet_candidate_level")->GetItem(Value(l_level));
    if (i_sender != Sender::Parent || l_level == l_ownLevel)
        return;
    DNetLog(1, QStringLiteral("Received level from parent, updating to %1").arg(l_level));
    if (l_level == -1)
        ClearDNetValue("dnet_level");
    else
        SetDNetValue("dnet_level", Value(l_level));
    mp_server->SendDNetLevel(l_level);
    SendMessageToChildren(LevelMessage(l_level));
}

void DNetManager::HandleLeader(QTcpSocket* ip_socket, Sender i_sender, MemStream& i_message, char const* ip_frame,
                               int i_size)
{
    std::string const l_own = GetDNetValue("dnet_group_leader").AsString();
    std::string l_leader;
    if (!i_message.Read(l_leader))
        return Unreadable(ip_socket, s_leaderCode, false);
    if (i_sender == Sender::Candidate)
        Candidate(ip_socket) += d.GetType("dnet_candidate_leader")->GetItem(Value(l_leader));
    if (i_sender != Sender::Parent || l_leader == l_own)
        return;
    DNetLog(1, QStringLiteral("Received group leader from parent, updating to %1").arg(QString::fromStdString(l_leader)));
    SetDNetValue("dnet_group_leader", Value(l_leader));
    mp_server->SendDNetGroupLeader(l_leader);
    SendMessageToChildren(ip_frame, i_size);
}

void DNetManager::HandleDistributed(QTcpSocket* ip_socket, Sender i_sender, MemStream& i_message,
                                    char const* ip_frame, int i_size)
{
    std::uint32_t l_inner = 0;
    if (!i_message.Read(l_inner))
        return Unreadable(ip_socket, s_distributedCode, false);
    if (!TakeSearch())
        return;
    if (l_inner != s_searchRequest)
        return SendMessageToChildren(ip_frame, i_size);
    std::string l_user;
    std::uint32_t l_token = 0;
    std::string l_text;
    if (!i_message.Read(l_user) || !i_message.Read(l_token) || !i_message.Read(l_text))
        return Unreadable(ip_socket, s_distributedCode, false);
    emit DNetSearchRequest(l_user, l_token, l_text);
    if (i_sender == Sender::Candidate)
        Adopt(ip_socket, Candidate(ip_socket));
    SendMessageToChildren(ip_frame, i_size);
}

bool DNetManager::TakeSearch()
{
    std::int64_t const l_second = m_clock.elapsed() / 1000;
    if (l_second != m_searchSecond)
    {
        m_searchSecond = l_second;
        m_searchesTaken = 0;
    }
    if (m_searchesTaken < DNetLimits::s_maxSearchesPerSecond)
    {
        ++m_searchesTaken;
        return true;
    }
    if (m_searchesDropped++ == 0)
    {
        DNetLog(1, QStringLiteral("More than %1 distributed messages came within a second; the rest of that second are "
                                  "dropped")
                       .arg(DNetLimits::s_maxSearchesPerSecond));
        // The count is told once the flood has had its second, whether more come or not.
        QTimer::singleShot(1000 - m_clock.elapsed() % 1000, this, [this] {
            DNetLog(1, QStringLiteral("%1 distributed messages were dropped").arg(std::exchange(m_searchesDropped, 0)));
        });
    }
    return false;
}

void DNetManager::Adopt(QTcpSocket* ip_socket, ItemPtr i_candidate)
{
    std::string const l_user = i_candidate.GetItem("user").AsString();
    SetDNetValue("dnet_parent_user", Value(l_user));
    SetDNetValue("dnet_parent_socket", Value(ip_socket));
    DNetLog(1, QStringLiteral("Received first search request from parent candidate %1, adopting as parent.")
                   .arg(QString::fromStdString(l_user)));

    if (ItemPtr const l_level = i_candidate["dnet_candidate_level"])
    {
        DNetLog(2, QStringLiteral("Level recorded as %1.").arg(l_level.AsInt()));
        SetDNetValue("dnet_level", Value(l_level.AsInt()));
        mp_server->SendDNetLevel(l_level.AsInt());
        SendMessageToChildren(LevelMessage(l_level.AsInt()));
    }

    std::string const l_leader = i_candidate["dnet_candidate_leader"].AsString();
    DNetLog(2, QStringLiteral("Group leader recorded as %1.").arg(QString::fromStdString(l_leader)));
    SetDNetValue("dnet_group_leader", Value(l_leader));
    mp_server->SendDNetGroupLeader(l_leader);
    SendMessageToChildren(LeaderMessage(l_leader));

    for (Item* lp_item : d.GetType("dnet_parent_candidate")->GetItems())
    {
        auto* lp_socket = lp_item->AsPointer<QTcpSocket>();
        lp_item->Remove();
        if (lp_socket != ip_socket)
            CloseAndDelete(lp_socket);
    }
    mp_server->SendDNetHasParent(true);
}

void DNetManager::OnSocketError(QAbstractSocket::SocketError)
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        SocketClosed(lp_socket);
}

void DNetManager::OnSocketClosed()
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        SocketClosed(lp_socket);
}

void DNetManager::SocketClosed(QTcpSocket* ip_socket)
{
    if (ParentSocket() == ip_socket)
    {
        DNetLog(1, QStringLiteral("Parent socket closed"));
        for (char const* lp_key : {"dnet_parent_user", "dnet_parent_socket", "dnet_group_leader", "dnet_level"})
            ClearDNetValue(lp_key);
        // The children stay and are told nothing: a new list from the server brings a new parent.
        mp_server->SendDNetHasParent(false);
        mp_server->SendDNetGroupLeader(std::string());
        mp_server->SendDNetLevel(-1);
    }
    else if (ItemPtr const l_candidate = Candidate(ip_socket))
    {
        DNetLog(1, QStringLiteral("Parent candidate socket closed"));
        l_candidate.Remove();
    }
    ip_socket->deleteLater();
}
