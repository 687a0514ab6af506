#include "server/ServerMessageHandler.h"

#include <cstdint>
#include <list>
#include <set>
#include <utility>
#include <vector>

#include "server/Server.h"
#include "server/ServerMessageCode.h"
#include "server/TCPAddress.h"
#include "server/UserStats.h"
#include "store/Data.h"
#include "stream/ToString.h"

namespace
{
// An attribute keyed by text, replacing the one the holder had.
void SetAttribute(ItemPtr i_holder, char const* i_typeName, std::string const& i_value)
{
    i_holder += d.GetType(i_typeName)->GetItem(i_value);
}

void SetStats(ItemPtr i_user, UserStats const& i_stats)
{
    SetAttribute(i_user, "average_download_speed", ToString(i_stats.m_averageSpeed));
    SetAttribute(i_user, "shared_files_count", ToString(i_stats.m_sharedFiles));
}

void SetAddress(ItemPtr i_user, TCPAddress const& i_address)
{
    SetAttribute(i_user, "user_address", ToString(i_address.m_ip));
    SetAttribute(i_user, "user_port", ToString(i_address.m_port));
}

// A list of records with a count of at most the read limit. The records read before a failure
// are kept; a count over the limit gives none.
bool ReadStatsList(MemStream& i_message, std::vector<UserStats>& o_stats)
{
    std::uint32_t l_count = 0;
    if (!i_message.Read(l_count) || l_count > g_maxReadLength)
        return false;
    for (std::uint32_t l_index = 0; l_index < l_count; ++l_index)
    {
        UserStats l_stats;
        if (!i_message.Read(l_stats))
            return false;
        o_stats.push_back(l_stats);
    }
    return true;
}
} // namespace

ItemPtr ServerMessageHandler::User(std::string const& i_name)
{
    return i_name.empty() ? ItemPtr() : ItemPtr(d.GetType("user")->GetItem(i_name));
}

ItemPtr ServerMessageHandler::Room(std::string const& i_name)
{
    return i_name.empty() ? ItemPtr() : ItemPtr(d.GetType("room")->GetItem(i_name));
}

void ServerMessageHandler::Handle(int i_code, MemStream& i_message)
{
    switch (i_code)
    {
    case ServerCode::UserAddress: OnUserAddress(i_message); break;
    case ServerCode::AddUser: OnAddUserResponse(i_message); break;
    case ServerCode::UserStatus: OnUserStatus(i_message); break;
    case ServerCode::RoomChat: OnRoomChat(i_message); break;
    case ServerCode::EnterRoom: OnEnteredRoom(i_message); break;
    case ServerCode::LeaveRoom: OnLeftRoom(i_message); break;
    case ServerCode::UserJoinedRoom: OnUserJoinedRoom(i_message); break;
    case ServerCode::UserLeftRoom: OnUserLeftRoom(i_message); break;
    case ServerCode::ConnectToPeer: OnConnectToPeer(i_message); break;
    case ServerCode::PrivateChat: OnPrivateChat(i_message); break;
    case ServerCode::UserStats: OnUserStats(i_message); break;
    case ServerCode::RoomList: OnRoomList(i_message); break;
    case ServerCode::PrivilegedUsers: OnPrivilegedUsers(i_message); break;
    case ServerCode::DNetPossibleParents: OnPossibleParents(i_message); break;
    case ServerCode::DNetMessage: emit mr_server.DNetMessage(i_message); break;
    case ServerCode::DNetReset: emit mr_server.DNetReset(); break;
    case ServerCode::DNetParentMinSpeed:
    case ServerCode::DNetParentSpeedConnectionRatio:
    case ServerCode::WishListWait:
    case ServerCode::DNetDeliveryReport:
    case ServerCode::CantConnectToPeer:
    {
        std::uint32_t l_value = 0;
        if (!i_message.Read(l_value))
            break;
        if (i_code == ServerCode::DNetParentMinSpeed)
            emit mr_server.DNetParentMinSpeed(static_cast<int>(l_value));
        else if (i_code == ServerCode::DNetParentSpeedConnectionRatio)
            emit mr_server.DNetParentSpeedConnectionRatio(static_cast<int>(l_value));
        else if (i_code == ServerCode::WishListWait)
            emit mr_server.WishListWait(l_value);
        else if (i_code == ServerCode::DNetDeliveryReport)
            emit mr_server.DNetDeliveryReport(static_cast<int>(l_value));
        else
            emit mr_server.IndirectPeerConnectionFailure(l_value);
        break;
    }
    default: break;
    }
}

void ServerMessageHandler::OnUserAddress(MemStream& i_message)
{
    std::string l_name;
    TCPAddress l_address;
    if (!i_message.Read(l_name))
        return;
    ItemPtr const l_user = User(l_name);
    // Without an address the look-up stays open and is asked again at the next login.
    if (!l_user || !i_message.Read(l_address))
        return;
    SetAddress(l_user, l_address);
    l_user.Disconnect("user_address_request");
}

void ServerMessageHandler::OnAddUserResponse(MemStream& i_message)
{
    std::string l_name;
    bool l_exists = false;
    if (!i_message.Read(l_name) || !i_message.Read(l_exists))
        return;
    emit mr_server.AddUserResponse(l_name, l_exists);
    ItemPtr const l_user = User(l_name);
    std::int32_t l_status = 0;
    if (!l_exists || !l_user || !i_message.Read(l_status))
        return;
    if (l_status <= 0)
    {
        l_user.Disconnect("is_online");
        return;
    }
    l_user.NewItem("is_online");
    UserStats l_unused;
    std::string l_country;
    if (i_message.Read(l_unused) && i_message.Read(l_country))
        SetAttribute(l_user, "country_code", l_country);
}

void ServerMessageHandler::OnUserStatus(MemStream& i_message)
{
    std::string l_name;
    std::int32_t l_status = 0;
    bool l_privileged = false;
    if (!i_message.Read(l_name) || !i_message.Read(l_status))
        return;
    ItemPtr const l_user = User(l_name);
    if (!l_user)
        return;
    if (l_status > 0)
        l_user.NewItem("is_online");
    else
        l_user.Disconnect("is_online");
    // The privilege is only ever granted here, never taken away.
    if (i_message.Read(l_privileged) && l_privileged)
        l_user.NewItem("is_privileged");
}

void ServerMessageHandler::OnRoomChat(MemStream& i_message)
{
    std::string l_room;
    std::string l_user;
    std::string l_text;
    if (i_message.Read(l_room) && i_message.Read(l_user) && i_message.Read(l_text))
        emit mr_server.RoomChat(l_room, l_user, l_text);
}

void ServerMessageHandler::OnEnteredRoom(MemStream& i_message)
{
    std::string l_name;
    if (!i_message.Read(l_name))
        return;
    ItemPtr const l_room = Room(l_name);
    if (!l_room)
        return;
    // Each list is tried even when the one before broke off, as far as the bytes allow.
    std::vector<std::string> l_users;
    std::vector<std::int32_t> l_unused;
    std::vector<UserStats> l_stats;
    std::vector<std::string> l_countries;
    i_message.Read(l_users);
    i_message.Read(l_unused);
    ReadStatsList(i_message, l_stats);
    i_message.Read(l_unused);
    i_message.Read(l_countries);

    std::string l_ownerName;
    std::set<std::string> l_operators;
    // A room without an owner ends with the countries.
    if (i_message.Read(l_ownerName))
    {
        i_message.Read(l_operators);
        if (ItemPtr const l_owner = User(l_ownerName))
            l_room.NewItem("room_owner").Connect(l_owner);
        l_room.Disconnect("room_operator");
        for (std::string const& l_operatorName : l_operators)
            if (ItemPtr const l_operator = User(l_operatorName))
                l_room.NewItem("room_operator").Connect(l_operator);
    }

    l_room.NewItem("in_room");
    l_room.Disconnect("user");
    for (std::string const& l_userName : l_users)
        if (ItemPtr const l_user = User(l_userName))
            l_room += l_user;
    // Users, records and countries go side by side; a list that broke off short covers fewer.
    for (std::size_t l_index = 0; l_index < l_users.size(); ++l_index)
    {
        ItemPtr const l_user = User(l_users[l_index]);
        if (!l_user)
            continue;
        if (l_index < l_stats.size())
            SetStats(l_user, l_stats[l_index]);
        if (l_index < l_countries.size())
            SetAttribute(l_user, "country_code", l_countries[l_index]);
    }
}

void ServerMessageHandler::OnLeftRoom(MemStream& i_message)
{
    std::string l_name;
    if (!i_message.Read(l_name))
        return;
    ItemPtr const l_room = d.GetType("room")->HasItem(l_name);
    if (!l_room || !l_room.IsConnected("in_room"))
        return;
    l_room.Disconnect("in_room");
    l_room.Disconnect("user");
}

void ServerMessageHandler::OnUserJoinedRoom(MemStream& i_message)
{
    std::string l_roomName;
    std::string l_userName;
    if (!i_message.Read(l_roomName) || !i_message.Read(l_userName))
        return;
    ItemPtr const l_room = Room(l_roomName);
    ItemPtr const l_user = User(l_userName);
    if (!l_room || !l_user)
        return;
    l_room += l_user;
    std::uint32_t l_unused = 0;
    UserStats l_stats;
    std::string l_country;
    if (!i_message.Read(l_unused) || !i_message.Read(l_stats))
        return;
    SetStats(l_user, l_stats);
    if (i_message.Read(l_unused) && i_message.Read(l_country))
        SetAttribute(l_user, "country_code", l_country);
}

void ServerMessageHandler::OnUserLeftRoom(MemStream& i_message)
{
    std::string l_roomName;
    std::string l_userName;
    if (!i_message.Read(l_roomName) || !i_message.Read(l_userName))
        return;
    ItemPtr const l_room = d.GetType("room")->HasItem(l_roomName);
    ItemPtr const l_user = d.GetType("user")->HasItem(l_userName);
    if (l_room && l_user)
        l_room -= l_user;
}

void ServerMessageHandler::OnConnectToPeer(MemStream& i_message)
{
    std::string l_name;
    std::string l_type;
    TCPAddress l_address;
    std::uint32_t l_token = 0;
    bool l_privileged = false;
    // A request that lacks any part could never be answered: it makes no item at all.
    if (!i_message.Read(l_name) || !i_message.Read(l_type) || !i_message.Read(l_address) ||
        !i_message.Read(l_token) || l_type.empty())
        return;
    ItemPtr const l_user = User(l_name);
    if (!l_user)
        return;
    // The address comes first: the dial-back starts as soon as the request reaches the user,
    // with whatever address the user holds then, and an older one may name a port since given up.
    SetAddress(l_user, l_address);
    ItemPtr const l_request = d.GetType("peer_connection_request")->NewItem();
    l_request += d.GetType("peer_connection_request_id")->GetItem(Value(l_token));
    l_request += d.GetType("peer_connection_type")->GetItem(l_type);
    l_request += l_user;
    if (i_message.Read(l_privileged) && l_privileged)
        l_user.NewItem("is_privileged");
}

void ServerMessageHandler::OnPrivateChat(MemStream& i_message)
{
    std::uint32_t l_id = 0;
    std::uint32_t l_time = 0;
    std::string l_user;
    std::string l_text;
    bool l_spontaneous = false;
    if (!i_message.Read(l_id) || !i_message.Read(l_time) || !i_message.Read(l_user) || !i_message.Read(l_text) ||
        !i_message.Read(l_spontaneous))
        return;
    emit mr_server.PrivateChat(l_user, l_text, static_cast<time_t>(l_time), l_spontaneous);
    mr_server.SendPrivateChatAck(l_id);
}

void ServerMessageHandler::OnUserStats(MemStream& i_message)
{
    std::string l_user;
    UserStats l_stats;
    if (i_message.Read(l_user) && i_message.Read(l_stats))
        emit mr_server.ReceivedUserStats(l_user, l_stats);
}

void ServerMessageHandler::OnRoomList(MemStream& i_message)
{
    Type* lp_userCount = d.GetType("user_count");
    // Three groups of rooms, each a list of names and a list of counts side by side; rooms not
    // mentioned keep what they had.
    for (int l_group = 0; l_group < 3; ++l_group)
    {
        std::vector<std::string> l_names;
        std::vector<std::int32_t> l_counts;
        i_message.Read(l_names);
        i_message.Read(l_counts);
        for (std::size_t l_index = 0; l_index < l_names.size() && l_index < l_counts.size(); ++l_index)
            if (ItemPtr const l_room = Room(l_names[l_index]))
                l_room += lp_userCount->GetItem(Value(l_counts[l_index]));
    }
}

void ServerMessageHandler::OnPrivilegedUsers(MemStream& i_message)
{
    std::set<std::string> l_names;
    i_message.Read(l_names);
    for (std::string const& l_name : l_names)
        if (ItemPtr const l_user = User(l_name))
            l_user.NewItem("is_privileged");
}

void ServerMessageHandler::OnPossibleParents(MemStream& i_message)
{
    std::list<std::pair<std::string, TCPAddress>> l_parents;
    std::uint32_t l_count = 0;
    if (i_message.Read(l_count) && l_count <= g_maxReadLength)
    {
        for (std::uint32_t l_index = 0; l_index < l_count; ++l_index)
        {
            std::pair<std::string, TCPAddress> l_parent;
            if (!i_message.Read(l_parent.first) || !i_message.Read(l_parent.second))
                break;
            l_parents.push_back(std::move(l_parent));
        }
    }
    emit mr_server.DNetPossibleParents(l_parents);
}
