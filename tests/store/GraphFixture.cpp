#include "GraphFixture.h"

GraphFixture::GraphFixture()
{
    mp_global = m_data.NewType("global", true, false, true);
    mp_globalValue = m_data.NewType("global_value", false, false, true);
    mp_global->RelateToType(mp_globalValue, Many, One, false);
    mp_user = m_data.NewType("user", true, false, true);
    mp_isOnline = m_data.NewType("is_online", false, true, true);
    mp_user->RelateToType(mp_isOnline, Many, One, false);
    mp_inUserList = m_data.NewType("in_user_list", false, true, true);
    mp_user->RelateToType(mp_inUserList, One, One, false);
    mp_room = m_data.NewType("room", true, false, true);
    mp_room->RelateToType(mp_user, Many, Many, false);
    mp_request = m_data.NewType("search_request", true, false, false);
    mp_results = m_data.NewType("search_results", true, true, false);
    mp_request->RelateToType(mp_results, One, Many, true);
    mp_socket = m_data.NewType("peer_socket", true, false, false);
    mp_socket->RelateToType(mp_user, Many, One, false);
}

std::string Recorder::Name(Item* ip_item)
{
    return ip_item->GetType()->IsNull() ? ip_item->GetType()->GetName() : ip_item->AsString();
}

std::string Recorder::Describe(ConnectionInfo const& i_info)
{
    return Name(i_info.m_from) + ">" + Name(i_info.m_to);
}

void Recorder::ListenType(Type* ip_type)
{
    ip_type->m_itemAddedEvent.Add(MakeHandler(&Recorder::OnAdded));
    ip_type->m_itemRemovedEvent.Add(MakeHandler(&Recorder::OnRemoved));
    ip_type->m_connectionEvent.Add(MakeHandler(&Recorder::OnConnection));
    ip_type->m_disconnectionEvent.Add(MakeHandler(&Recorder::OnDisconnection));
}

void Recorder::ListenData()
{
    mr_data.m_connectionEvent.Add(MakeHandler(&Recorder::OnDataConnection));
    mr_data.m_disconnectionEvent.Add(MakeHandler(&Recorder::OnDataDisconnection));
}

void Recorder::ListenPair(Type* ip_first, Type* ip_second)
{
    mr_data.AddConnectionEventHandler(ip_first, ip_second, MakeHandler(&Recorder::OnPairConnection));
    mr_data.AddDisconnectionEventHandler(ip_first, ip_second, MakeHandler(&Recorder::OnPairDisconnection));
}

void Recorder::ListenPath(PathNode* ip_root)
{
    mr_data.AddPathEventHandler(ip_root, MakeHandler(&Recorder::OnPath));
}
