#include "dnet/DNetManager.h"

#include <QTcpSocket>

#include <algorithm>
#include <cstdint>
#include <limits>

#include "dnet/DNetState.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "server/ServerSchema.h"
#include "store/Data.h"
#include "store/PathNode.h"
#include "store/Settings.h"
#include "stream/ToString.h"

DNetManager* dnetManager = nullptr;

namespace
{
void DeclareTypes()
{
    DeclareTypeOnce("attempted_dnet_connection", false, true, true);
    DeclareTypeOnce("dnet_global", true, false, true);
    DeclareTypeOnce("dnet_value", false, false, true);
    DeclareTypeOnce("dnet_child", true, false, true);
    DeclareTypeOnce("dnet_child_depth", false, false, true);
    DeclareTypeOnce("dnet_parent_candidate", true, false, true);
    DeclareTypeOnce("dnet_candidate_level", false, false, true);
    DeclareTypeOnce("dnet_candidate_leader", false, false, true);

    RelateOnceByName("user", "attempted_dnet_connection", One, Many);
    RelateOnceByName("dnet_global", "dnet_value", One, Many);
    RelateOnceByName("dnet_child", "user", One, One);
    RelateOnceByName("dnet_child", "dnet_child_depth", One, Many);
    RelateOnceByName("dnet_parent_candidate", "user", One, Many);
    RelateOnceByName("dnet_parent_candidate", "dnet_candidate_level", One, Many);
    RelateOnceByName("dnet_parent_candidate", "dnet_candidate_leader", One, Many);
}

QString Q(std::string const& i_text)
{
    return QString::fromStdString(i_text);
}
} // namespace

DNetManager::DNetManager(QObject* ip_parent) : QObject(ip_parent)
{
    dnetManager = this;
    m_clock.start();
    DeclareTypes();
    auto* lp_speed = new PathNode(d.GetType("global")->GetItem("upload_speed"));
    new PathNode(lp_speed, "global_value", NewlyConnected);
    ListenPath(lp_speed, &DNetManager::OnReceivedOwnUploadSpeed);
}

DNetManager::~DNetManager()
{
    RemoveDataHandlers();
    // The sockets taken over belong to this manager; without it nobody would close them.
    for (char const* lp_type : {"dnet_child", "dnet_parent_candidate"})
        for (Item* lp_item : d.GetType(lp_type)->GetItems())
        {
            auto* lp_socket = lp_item->AsPointer<QTcpSocket>();
            lp_item->Remove();
            Unwatch(lp_socket);
            delete lp_socket;
        }
    for (auto& [l_user, lp_socket] : m_standbyChildren)
        if (lp_socket)
        {
            Unwatch(lp_socket);
            delete lp_socket;
        }
    if (auto* lp_parent = GetDNetValue("dnet_parent_socket").AsPointer<QTcpSocket>())
    {
        Unwatch(lp_parent);
        delete lp_parent;
    }
    for (char const* lp_key : {"dnet_parent_user", "dnet_parent_socket", "dnet_group_leader", "dnet_level", "dnet_child_depth"})
        ClearDNetValue(lp_key);
    if (dnetManager == this)
        dnetManager = nullptr;
}

void DNetManager::Attach(Server* ip_server, PeerMessenger* ip_messenger)
{
    mp_server = ip_server;
    mp_messenger = ip_messenger;
    connect(ip_server, &Server::DNetParentMinSpeed, this, &DNetManager::OnDNetParentMinSpeed);
    connect(ip_server, &Server::DNetParentSpeedConnectionRatio, this, &DNetManager::OnDNetParentSpeedConnectionRatio);
    connect(ip_server, &Server::DNetPossibleParents, this, &DNetManager::OnDNetPossibleParents);
    connect(ip_server, &Server::DNetMessage, this, &DNetManager::OnDNetMessage);
    connect(ip_server, &Server::DNetDeliveryReport, this, &DNetManager::OnDNetDeliveryReport);
    connect(ip_server, &Server::DNetReset, this, &DNetManager::OnDNetReset);
    connect(ip_server, &Server::Connected, this, &DNetManager::OnConnected);
    connect(ip_messenger, &PeerMessenger::DNetConnectionAccepted, this, &DNetManager::OnDNetConnectionAccepted);
    connect(ip_messenger, &PeerMessenger::DNetConnectionRequested, this, &DNetManager::OnDNetConnectionRequested);
}

// ---- Server messages ----

void DNetManager::OnDNetParentMinSpeed(int i_speed)
{
    DNetLog(1, QStringLiteral("Received parent min speed %1, currently not processing").arg(i_speed));
    m_parentMinSpeed = i_speed;
    DetermineCanParent();
}

void DNetManager::OnDNetParentSpeedConnectionRatio(int i_ratio)
{
    DNetLog(1, QStringLiteral("Received parent speed connection ratio %1, currently not processing").arg(i_ratio));
    m_speedConnectionRatio = i_ratio;
    DetermineCanParent();
}

void DNetManager::OnDNetDeliveryReport(int i_req)
{
    DNetLog(1, QStringLiteral("Received DNet delivery report request, req %1").arg(i_req));
}

void DNetManager::OnDNetReset()
{
    DNetLog(1, QStringLiteral("Received DNet reset request"));
}

void DNetManager::OnDNetMessage(MemStream& i_message)
{
    HandleMessage(nullptr, i_message);
}

void DNetManager::OnConnected()
{
    mp_server->SendDNetHasParent(!GetDNetValue("dnet_parent_user").IsNull());
    // The new session knows nothing of this client yet, so a true answer goes out again.
    m_canParent = false;
    if (ItemPtr const l_leader = GetDNetValue("dnet_group_leader"))
        mp_server->SendDNetGroupLeader(l_leader.AsString());
    if (ItemPtr const l_level = GetDNetValue("dnet_level"))
        mp_server->SendDNetLevel(l_level.AsInt());
    DetermineCanParent();
}

void DNetManager::OnReceivedOwnUploadSpeed(Item*)
{
    DetermineCanParent();
}

void DNetManager::DetermineCanParent()
{
    ItemPtr const l_speed = GetGlobalValue("upload_speed");
    if (m_parentMinSpeed == -1 || m_speedConnectionRatio == -1 || !l_speed)
        return;
    DNetLog(1, QStringLiteral("Determining whether we can accept child connections."));
    // In 64 bits: a fast uploader's speed times 10, or a large minimum times 1024, would not
    // fit in an int. The speed is bounded so that times 10 stays in range whatever was stored.
    std::int64_t const l_bytesPerSecond = std::min<std::int64_t>(l_speed.AsInt64(), std::numeric_limits<std::int64_t>::max() / 10);
    bool l_answer = false;
    if (l_bytesPerSecond < std::int64_t(m_parentMinSpeed) * 1024)
        DNetLog(2, QStringLiteral("Below minimum parent speed, so no."));
    else
    {
        std::int64_t const l_capacity =
            m_speedConnectionRatio == 0 ? 0 : l_bytesPerSecond * 10 / 1024 / m_speedConnectionRatio;
        auto const l_children = static_cast<std::int64_t>(d.GetType("dnet_child")->ItemCount());
        DNetLog(2, QStringLiteral("Currently have %1 child connections, max capacity %2").arg(l_children).arg(l_capacity));
        l_answer = l_capacity > l_children;
    }
    if (l_answer == m_canParent)
    {
        DNetLog(2, QStringLiteral("No status change, not notifying."));
        return;
    }
    m_canParent = l_answer;
    DNetLog(2, QStringLiteral("Status changed, sending notification."));
    mp_server->SendDNetCanParent(l_answer);
}

// ---- Becoming a child ----

void DNetManager::OnDNetPossibleParents(std::list<std::pair<std::string, TCPAddress>>& i_parents)
{
    if (GetDNetValue("dnet_parent_user"))
    {
        DNetLog(1, QStringLiteral("Received possible parents list, but already have a parent. Not processing."));
        return;
    }
    DNetLog(1, QStringLiteral("Received possible parents list, %1 entries").arg(i_parents.size()));
    int l_started = 0;
    int l_left = 0;
    Type* lp_attempted = d.GetType("attempted_dnet_connection");
    for (auto const& [l_name, l_address] : i_parents)
    {
        if (l_name.empty())
        {
            DNetLog(2, QStringLiteral("Possible parent without a name, skipping"));
            continue;
        }
        ItemPtr const l_user = d.GetType("user")->GetItem(l_name);
        if (l_user.IsConnected("attempted_dnet_connection"))
        {
            DNetLog(2, QStringLiteral("Already attempted parent connection to %1, skipping").arg(Q(l_name)));
            continue;
        }
        if (l_started == DNetLimits::s_maxAttemptsPerList)
        {
            ++l_left;
            continue;
        }
        ++l_started;
        DNetLog(2, QStringLiteral("Attempting parent connection to %1").arg(Q(l_name)));
        l_user += d.GetType("user_address")->GetItem(ToString(l_address.m_ip));
        l_user += d.GetType("user_port")->GetItem(ToString(l_address.m_port));
        l_user += lp_attempted->GetGlobalNullItem();
        mp_messenger->RequestDNetConnection(l_name);
    }
    if (l_left > 0)
        DNetLog(2, QStringLiteral("Started %1 parent connection attempts, leaving %2 more names for a later list")
                       .arg(l_started)
                       .arg(l_left));
}

void DNetManager::OnDNetConnectionAccepted(std::string const& i_user, QTcpSocket* ip_socket)
{
    DNetLog(1, QStringLiteral("Parent connection to user %1 accepted").arg(Q(i_user)));
    if (GetDNetValue("dnet_parent_user"))
    {
        DNetLog(2, QStringLiteral("Rejecting, already have parent"));
        ip_socket->deleteLater();
        return;
    }
    DNetLog(2, QStringLiteral("Adding as possible parent candidate"));
    ItemPtr const l_candidate = d.GetType("dnet_parent_candidate")->GetItem(Value(ip_socket));
    l_candidate += d.GetType("user")->GetItem(i_user);
    WatchParentSocket(ip_socket);
    // The peer layer stops reading at the hand-over: a level or a leader may already wait here.
    ReadFrames(ip_socket, false);
    // Closed before the hand-over, it will not say so again.
    bool const l_ours = d.GetType("dnet_parent_candidate")->HasItem(Value(ip_socket)) ||
                        GetDNetValue("dnet_parent_socket").AsPointer<QTcpSocket>() == ip_socket;
    if (ip_socket->state() == QAbstractSocket::UnconnectedState && l_ours)
        SocketClosed(ip_socket);
}
