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
    mp_group = m_data.NewType("user_list_group", true, false, true);
    mp_inUserList->RelateToType(mp_group, Many, Many, false);
    mp_room = m_data.NewType("room", true, false, true);
    mp_room->RelateToType(mp_user, Many, Many, false);
    mp_request = m_data.NewType("search_request", true, false, false);
    mp_results = m_data.NewType("search_results", true, true, false);
    mp_request->RelateToType(mp_results, One, Many, true);
    mp_socket = m_data.NewType("peer_socket", true, false, false);
    mp_socket->RelateToType(mp_user, Many, One, false);
    mp_pcr = m_data.NewType("peer_connection_request", true, true, false);
    for (char const* lp_name : {"peer_connection_request_id", "peer_connection_type", "user_address", "user_port"})
        mp_pcr->RelateToType(m_data.NewType(lp_name, false, false, true), Many, One, false);
    mp_pcr->RelateToType(mp_user, Many, One, false);
    mp_order = m_data.NewType("download_order", false, false, true);
    mp_user->RelateToType(mp_order, Many, One, false);
    mp_folder = m_data.NewType("remote_folder", true, false, true);
    mp_entry = m_data.NewType("download_entry", true, false, true);
    mp_entry->RelateToType(mp_user, Many, One, false);
    mp_entry->RelateToType(mp_folder, Many, One, false);
    // Attributes that hold each other, for islands no root reaches.
    mp_attrA = m_data.NewType("attr_a", false, false, true);
    mp_attrB = m_data.NewType("attr_b", false, false, true);
    mp_attrA->RelateToType(mp_attrB, Many, Many, false);
    mp_user->RelateToType(mp_attrA, Many, Many, false);
}
