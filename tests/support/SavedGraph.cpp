#include "support/SavedGraph.h"

#include "support/FreePort.h"

SavedGraph::SavedGraph(bool i_withRunOnlyKeys)
{
    Type* lp_value = m_data.NewType("global_value", false, false, true);
    for (char const* lp_keyType : {"global", "vglobal"})
        m_data.NewType(lp_keyType, true, false, true)->RelateToType(lp_value, Many, One, false);
    m_data.NewType("room", true, false, true)
        ->RelateToType(m_data.NewType("room_autojoin", false, true, true), Many, One, false);
    Type* lp_listed = m_data.NewType("in_user_list", false, true, true);
    m_data.NewType("user", true, false, true)->RelateToType(lp_listed, One, One, false);
    lp_listed->RelateToType(m_data.NewType("user_list_group", true, false, true), Many, Many, false);
    m_saver.m_savedTypes = {"global", "room_autojoin", "in_user_list", "user_list_group"};
    m_saver.AddSavedByConnectionType("global_value", "global");
    m_saver.AddSavedByConnectionType("room", "room_autojoin");
    m_saver.AddSavedByConnectionType("user", "in_user_list");
    if (i_withRunOnlyKeys)
    {
        m_saver.m_savedTypes.insert("vglobal");
        m_saver.AddSavedByConnectionType("global_value", "vglobal");
    }
}

void SavedGraph::Set(char const* i_keyType, std::string const& i_key, std::string const& i_value)
{
    m_data.GetType(i_keyType)->GetItem(i_key)->Connect(m_data.GetType("global_value")->GetItem(i_value));
}

void SavedGraph::SetFreeListeningPort()
{
    Set("global", "listening_port", std::to_string(FreePort()));
}

std::optional<std::string> SavedGraph::Setting(char const* i_keyType, std::string const& i_key) const
{
    ItemPtr const l_value = m_data.GetType(i_keyType)->HasItem(i_key)["global_value"];
    return l_value ? std::optional<std::string>(l_value.AsString()) : std::nullopt;
}

void SavedGraph::AddAutojoinRoom(std::string const& i_room)
{
    m_data.GetType("room")->GetItem(i_room)->NewItem("room_autojoin");
}

bool SavedGraph::IsAutojoinRoom(std::string const& i_room) const
{
    ItemPtr const l_room = m_data.GetType("room")->HasItem(i_room);
    return l_room && l_room.IsConnected("room_autojoin");
}

void SavedGraph::ListUser(std::string const& i_user, std::vector<std::string> const& i_groups)
{
    ItemPtr const l_listed = m_data.GetType("user")->GetItem(i_user)->NewItem("in_user_list");
    for (std::string const& l_group : i_groups)
        l_listed.Connect(m_data.GetType("user_list_group")->GetItem(l_group));
}

std::optional<std::vector<std::string>> SavedGraph::ListedUserGroups(std::string const& i_user) const
{
    ItemPtr const l_listed = m_data.GetType("user")->HasItem(i_user)["in_user_list"];
    if (!l_listed)
        return std::nullopt;
    std::vector<std::string> l_groups;
    for (Item* lp_group : l_listed.GetItems("user_list_group").SortAlphabetic(true))
        l_groups.push_back(ItemPtr(lp_group).AsString());
    return l_groups;
}
