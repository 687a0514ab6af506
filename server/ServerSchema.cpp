#include "server/ServerSchema.h"

#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Require.h"

namespace
{
// Arguments in the reading of the schema tables: what each left item holds, then what each
// right item holds.
void Relate(char const* i_left, char const* i_right, OneOrMany i_leftHolds, OneOrMany i_rightHolds)
{
    d.GetType(i_left)->RelateToType(d.GetType(i_right), i_rightHolds, i_leftHolds, false);
}

void DeclareCoreTypes()
{
    d.NewType("user", true, false, true);
    d.NewType("is_online", false, true, true);
    d.NewType("is_tracked", false, true, true);
    d.NewType("is_privileged", false, true, true);
    d.NewType("room", true, false, true);
    d.NewType("room_autojoin", false, true, true);
    d.NewType("user_count", false, false, true);
    d.NewType("in_room", false, true, true);
    d.NewType("room_owner", false, true, true);
    d.NewType("room_operator", false, true, true);
    d.NewType("average_download_speed", false, false, true);
    d.NewType("shared_files_count", false, false, true);
    d.NewType("country_code", false, false, true);
    d.NewType("in_user_list", false, true, true);
    d.NewType("user_list_group", true, false, true);
    d.NewType("group_download_priority", false, false, true);
    d.NewType("user_address_request", false, true, true);

    Relate("user", "is_online", One, Many);
    Relate("user", "is_tracked", One, Many);
    Relate("user", "is_privileged", One, Many);
    Relate("user", "average_download_speed", One, Many);
    Relate("user", "shared_files_count", One, Many);
    Relate("user", "country_code", One, Many);
    Relate("user", "in_user_list", One, One);
    Relate("in_user_list", "user_list_group", Many, Many);
    Relate("user_list_group", "group_download_priority", One, Many);
    Relate("room", "user", Many, Many);
    Relate("room", "user_count", One, Many);
    Relate("room", "in_room", One, Many);
    Relate("room", "room_autojoin", One, Many);
    Relate("room", "room_owner", One, One);
    Relate("room", "room_operator", Many, One);
    Relate("room_owner", "user", One, Many);
    Relate("room_operator", "user", One, Many);
    Relate("user_address_request", "user", Many, One);
}

void DeclareSharedTypes()
{
    DeclareTypeOnce("peer_connection_request", true, true, false);
    DeclareTypeOnce("peer_connection_request_id", false, false, true);
    DeclareTypeOnce("peer_connection_type", false, false, true);
    DeclareTypeOnce("user_address", false, false, true);
    DeclareTypeOnce("user_port", false, false, true);
    RelateOnceByName("peer_connection_request", "peer_connection_request_id", One, Many);
    RelateOnceByName("peer_connection_request", "peer_connection_type", One, Many);
    RelateOnceByName("peer_connection_request", "user", One, Many);
    RelateOnceByName("user", "user_address", One, Many);
    RelateOnceByName("user", "user_port", One, Many);

    DeclareTypeOnce("search_request", true, false, false);
    DeclareTypeOnce("search_request_text", false, false, true);
    DeclareTypeOnce("wishlist_search", false, true, true);
    RelateOnceByName("search_request", "search_request_text", One, Many);
    RelateOnceByName("search_request", "wishlist_search", One, Many);
}
} // namespace

Type* DeclareTypeOnce(char const* i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate)
{
    Type* lp_type = d.FindType(i_name);
    if (!lp_type)
        return d.NewType(i_name, i_isRoot, i_isNull, i_autoCreate);
    TW_REQUIRE(lp_type->IsRoot() == i_isRoot && lp_type->IsNull() == i_isNull &&
                   lp_type->IsAutoCreate() == i_autoCreate,
               "DeclareTypeOnce: declared before with other flags", i_name);
    return lp_type;
}

void RelateOnce(Type* ip_left, Type* ip_right, OneOrMany i_typeFrom, OneOrMany i_typeTo, bool i_owning)
{
    if (!ip_left->IsRelated(ip_right))
    {
        ip_left->RelateToType(ip_right, i_typeFrom, i_typeTo, i_owning);
        return;
    }
    RelationInfo const& l_relation = ip_left->GetRelation(ip_right);
    TW_REQUIRE(l_relation.m_typeFrom == i_typeFrom && l_relation.m_typeTo == i_typeTo &&
                   l_relation.m_owns == i_owning,
               "RelateOnce: related before in another way", ip_left->Name());
}

void RelateOnceByName(char const* i_left, char const* i_right, OneOrMany i_leftHolds, OneOrMany i_rightHolds,
                      bool i_owning)
{
    RelateOnce(d.GetType(i_left), d.GetType(i_right), i_rightHolds, i_leftHolds, i_owning);
}

void DeclareServerSchema()
{
    TW_REQUIRE(dataSaver != nullptr, "DeclareServerSchema: the data saver must exist first", "");
    DeclareCoreTypes();
    DeclareSharedTypes();

    dataSaver->m_savedTypes.insert("room_autojoin");
    dataSaver->m_savedTypes.insert("in_user_list");
    dataSaver->m_savedTypes.insert("user_list_group");
    dataSaver->AddSavedByConnectionType("room", "room_autojoin");
    dataSaver->AddSavedByConnectionType("user", "in_user_list");
}
