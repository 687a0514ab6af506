// Being a parent: child connections, their depth reports and what is passed down to them.

#include "dnet/DNetManager.h"

#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <cstdint>

#include "dnet/DNetState.h"
#include "server/Server.h"
#include "store/Data.h"
#include "stream/ToString.h"

namespace
{
constexpr std::uint8_t s_depthCode = 7;
}

void DNetManager::OnDNetConnectionRequested(std::string const& i_user, QTcpSocket* ip_socket)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(i_user);
    if (!l_user["dnet_child"] && d.GetType("dnet_child")->ItemCount() >= DNetLimits::s_maxChildren)
    {
        DNetLog(1, QStringLiteral("%1 children already; refusing the one from %2")
                       .arg(DNetLimits::s_maxChildren)
                       .arg(QString::fromStdString(i_user)));
        ip_socket->abort();
        ip_socket->deleteLater();
        return;
    }
    DNetLog(1, QStringLiteral("Child connection accepted from %1").arg(QString::fromStdString(i_user)));
    if (ItemPtr const l_old = l_user["dnet_child"])
    {
        DNetLog(2, QStringLiteral("Child connection already found, closing old connection."));
        auto* lp_oldSocket = l_old.AsPointer<QTcpSocket>();
        l_old.Remove();
        KeepInStandby(i_user, lp_oldSocket);
    }
    ItemPtr const l_child = d.GetType("dnet_child")->GetItem(Value(ip_socket));
    l_child += l_user;
    WatchChildSocket(ip_socket);
    SendStateToChild(ip_socket);
    // The peer layer stops reading at the hand-over: a depth report may already wait here.
    ReadFrames(ip_socket, true);
    // Closed before the hand-over, it will not say so again.
    if (ip_socket->state() == QAbstractSocket::UnconnectedState && d.GetType("dnet_child")->HasItem(Value(ip_socket)))
        ChildSocketClosed(ip_socket);
}

void DNetManager::SendStateToChild(QTcpSocket* ip_socket)
{
    if (ItemPtr const l_level = GetDNetValue("dnet_level"))
        SendFrame(ip_socket, LevelMessage(l_level.AsInt()));
    if (ItemPtr const l_leader = GetDNetValue("dnet_group_leader"))
        SendFrame(ip_socket, LeaderMessage(l_leader.AsString()));
}

void DNetManager::KeepInStandby(std::string const& i_user, QTcpSocket* ip_socket)
{
    Unwatch(ip_socket);
    QPointer<QTcpSocket>& lp_standby = m_standbyChildren[i_user];
    if (lp_standby)
        CloseAndDelete(lp_standby);
    lp_standby = ip_socket;
    QPointer<QTcpSocket> const lp_socket(ip_socket);
    auto const l_end = [this, i_user, lp_socket]
    {
        auto const l_found = m_standbyChildren.find(i_user);
        if (l_found == m_standbyChildren.end() || l_found->second != lp_socket)
            return;
        m_standbyChildren.erase(l_found);
        if (lp_socket)
            CloseAndDelete(lp_socket);
    };
    connect(ip_socket, &QTcpSocket::disconnected, this, l_end);
    QTimer::singleShot(m_childStandbyMs, this, l_end);
}

bool DNetManager::ReinstateStandby(std::string const& i_user)
{
    auto const l_found = m_standbyChildren.find(i_user);
    if (l_found == m_standbyChildren.end())
        return false;
    QPointer<QTcpSocket> const lp_socket = l_found->second;
    m_standbyChildren.erase(l_found);
    if (!lp_socket || lp_socket->state() != QAbstractSocket::ConnectedState)
        return false;
    DNetLog(2, QStringLiteral("Child connection of %1 closed; its former connection takes its place")
                   .arg(QString::fromStdString(i_user)));
    Unwatch(lp_socket);
    ItemPtr(d.GetType("dnet_child")->GetItem(Value(lp_socket.data()))) += d.GetType("user")->GetItem(i_user);
    WatchChildSocket(lp_socket);
    SendStateToChild(lp_socket);
    ReadFrames(lp_socket, true);
    return true;
}

void DNetManager::HandleChildMessage(QTcpSocket* ip_socket, MemStream& i_message)
{
    std::uint8_t l_code = 0;
    if (!i_message.Read(l_code))
    {
        DNetLog(1, QStringLiteral("Error reading message code, closing child connection"));
        ip_socket->close();
        return;
    }
    ItemPtr const l_child = d.GetType("dnet_child")->HasItem(Value(ip_socket));
    if (!l_child)
    {
        DNetLog(1, QStringLiteral("Message from a connection that is not a child, closing it"));
        CloseAndDelete(ip_socket);
        return;
    }
    DNetLog(1, QStringLiteral("Received message from child, code %1").arg(l_code));
    if (l_code != s_depthCode)
        return;
    std::uint32_t l_depth = 0;
    if (!i_message.Read(l_depth))
        return Unreadable(ip_socket, s_depthCode, true);
    DNetLog(1, QStringLiteral("Received child depth %1 from %2").arg(l_depth).arg(QString::fromStdString(l_child.GetItem("user").AsString())));
    l_child += d.GetType("dnet_child_depth")->GetItem(Value(ToString(l_depth)));
    DetermineChildDepth();
}

void DNetManager::DetermineChildDepth()
{
    std::int64_t const l_old = GetDNetValue("dnet_child_depth").AsInt64();
    std::int64_t l_new = 0;
    for (Item* lp_child : d.GetType("dnet_child")->GetItems())
        if (ItemPtr const l_depth = lp_child->GetItem("dnet_child_depth"))
            l_new = std::max<std::int64_t>(l_new, l_depth.AsInt64() + 1);
    if (l_new == l_old)
        return;
    DNetLog(1, QStringLiteral("New child depth is %1").arg(l_new));
    if (l_new == 0)
        ClearDNetValue("dnet_child_depth");
    else
        SetDNetValue("dnet_child_depth", Value(ToString(l_new)));
    mp_server->SendChildDepth(l_new != 0);
}

void DNetManager::OnChildSocketError(QAbstractSocket::SocketError)
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        ChildSocketClosed(lp_socket);
}

void DNetManager::OnChildSocketClosed()
{
    if (auto* lp_socket = qobject_cast<QTcpSocket*>(sender()))
        ChildSocketClosed(lp_socket);
}

void DNetManager::ChildSocketClosed(QTcpSocket* ip_socket)
{
    DNetLog(1, QStringLiteral("Child socket closed"));
    Unwatch(ip_socket);
    ip_socket->deleteLater();
    ItemPtr const l_child = d.GetType("dnet_child")->HasItem(Value(ip_socket));
    if (!l_child)
    {
        DNetLog(2, QStringLiteral("Child socket item not found, aborting"));
        return;
    }
    std::string const l_user = l_child.GetItem("user").AsString();
    l_child.Remove();
    ReinstateStandby(l_user);
}

void DNetManager::SendMessageToChildren(char const* ip_frame, int i_size)
{
    for (Item* lp_child : d.GetType("dnet_child")->GetItems())
    {
        auto* lp_socket = lp_child->AsPointer<QTcpSocket>();
        SendFrame(lp_socket, ip_frame, i_size);
        if (lp_socket->bytesToWrite() > DNetLimits::s_maxChildBacklog)
            DropChild(lp_child);
    }
}

void DNetManager::SendMessageToChildren(MemStream const& i_message)
{
    SendMessageToChildren(i_message.GetReadBuffer(), i_message.GetPendingReadLength());
}

void DNetManager::SendFrame(QTcpSocket* ip_socket, char const* ip_frame, int i_size)
{
    std::uint32_t const l_length = qToLittleEndian(static_cast<std::uint32_t>(i_size));
    ip_socket->write(reinterpret_cast<char const*>(&l_length), 4);
    ip_socket->write(ip_frame, i_size);
}

void DNetManager::SendFrame(QTcpSocket* ip_socket, MemStream const& i_message)
{
    SendFrame(ip_socket, i_message.GetReadBuffer(), i_message.GetPendingReadLength());
}

MemStream DNetManager::LevelMessage(int i_level)
{
    MemStream l_message;
    l_message.Write(static_cast<std::uint8_t>(4));
    l_message.Write(static_cast<std::int32_t>(i_level));
    return l_message;
}

MemStream DNetManager::LeaderMessage(std::string const& i_leader)
{
    MemStream l_message;
    l_message.Write(static_cast<std::uint8_t>(5));
    l_message.Write(i_leader);
    return l_message;
}

void DNetManager::DropChild(ItemPtr i_child)
{
    auto* lp_socket = i_child.AsPointer<QTcpSocket>();
    DNetLog(1, QStringLiteral("Child %1 leaves more than %2 bytes unread, dropping it")
                   .arg(QString::fromStdString(i_child.GetItem("user").AsString()))
                   .arg(DNetLimits::s_maxChildBacklog));
    i_child.Remove();
    Unwatch(lp_socket);
    lp_socket->abort();
    lp_socket->deleteLater();
}

void DNetManager::WatchParentSocket(QTcpSocket* ip_socket)
{
    HoldWholeFrames(ip_socket, DNetLimits::s_maxParentFrameLength);
    connect(ip_socket, &QTcpSocket::readyRead, this, &DNetManager::OnSocketReadyToRead);
    connect(ip_socket, &QTcpSocket::errorOccurred, this, &DNetManager::OnSocketError);
    connect(ip_socket, &QTcpSocket::disconnected, this, &DNetManager::OnSocketClosed);
}

void DNetManager::WatchChildSocket(QTcpSocket* ip_socket)
{
    HoldWholeFrames(ip_socket, DNetLimits::s_maxChildFrameLength);
    connect(ip_socket, &QTcpSocket::readyRead, this, &DNetManager::OnChildSocketReadyToRead);
    connect(ip_socket, &QTcpSocket::errorOccurred, this, &DNetManager::OnChildSocketError);
    connect(ip_socket, &QTcpSocket::disconnected, this, &DNetManager::OnChildSocketClosed);
}

void DNetManager::HoldWholeFrames(QTcpSocket* ip_socket, std::uint32_t i_maxFrameLength)
{
    // Frames stay in the socket until they are whole, so its buffer must hold the longest one
    // with its length; a smaller buffer would stop reading before such a frame is complete.
    ip_socket->setReadBufferSize(static_cast<qint64>(i_maxFrameLength) + 4);
}

void DNetManager::Unwatch(QTcpSocket* ip_socket)
{
    disconnect(ip_socket, nullptr, this, nullptr);
}

void DNetManager::CloseAndDelete(QTcpSocket* ip_socket)
{
    Unwatch(ip_socket);
    ip_socket->close();
    ip_socket->deleteLater();
}
