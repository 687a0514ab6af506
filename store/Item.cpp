#include "store/Item.h"

#include <sstream>

#include "store/Data.h"
#include "store/Require.h"

namespace
{
// Reads a decimal number the way stream extraction does: leading white space skipped, reading
// stops at the first character that cannot continue the number. Failure is a programming error.
template <class T>
T ReadNumber(Item const* ip_item, char const* i_call)
{
    TW_REQUIRE(!ip_item->GetType()->IsNull(), i_call, ip_item->GetType()->Name());
    std::istringstream l_stream(ip_item->AsString());
    T l_number{};
    l_stream >> l_number;
    TW_REQUIRE(!l_stream.fail(), i_call, (ip_item->GetType()->GetName() + " value '" + ip_item->AsString() + "'").c_str());
    return l_number;
}
} // namespace

int Item::AsInt() const { return ReadNumber<int>(this, "AsInt: not a number"); }
unsigned int Item::AsUInt() const { return ReadNumber<unsigned int>(this, "AsUInt: not a number"); }
long long Item::AsInt64() const { return ReadNumber<long long>(this, "AsInt64: not a number"); }

std::uintptr_t Item::AsAddress() const
{
    return ReadNumber<unsigned long long>(this, "AsAddress: not an address");
}

Item* Item::Connect(Item* ip_other)
{
    RelationInfo const l_relation = mp_type->GetRelation(ip_other->mp_type);
    if (IsConnected(ip_other))
        return ip_other;
    ConnectThisEnd(ip_other, l_relation.m_typeTo);
    ip_other->ConnectThisEnd(this, l_relation.m_typeFrom);

    ConnectionInfo l_info{this, ip_other};
    mp_type->m_connectionEvent.Notify(l_info);
    mp_type->mp_data->m_connectionEvent.Notify(l_info);
    ConnectionInfo l_reverse{ip_other, this};
    ip_other->mp_type->m_connectionEvent.Notify(l_reverse);
    mp_type->mp_data->NotifyConnectionEventHandlers(this, ip_other);
    return ip_other;
}

void Item::ConnectThisEnd(Item* ip_other, OneOrMany i_howMany)
{
    if (i_howMany == One)
    {
        auto l_it = m_typeItemsMap.find(ip_other->mp_type);
        if (l_it != m_typeItemsMap.end() && !l_it->second.empty())
            Disconnect(*l_it->second.begin());
    }
    m_typeItemsMap[ip_other->mp_type].insert(ip_other);
}

void Item::DisconnectThisEnd(Item* ip_other)
{
    auto l_it = m_typeItemsMap.find(ip_other->mp_type);
    if (l_it == m_typeItemsMap.end())
        return;
    l_it->second.erase(ip_other);
    if (l_it->second.empty())
        m_typeItemsMap.erase(l_it);
}

void Item::Disconnect(Item* ip_other)
{
    DisconnectThisEnd(ip_other);
    ip_other->DisconnectThisEnd(this);

    ConnectionInfo l_info{this, ip_other};
    mp_type->m_disconnectionEvent.Notify(l_info);
    mp_type->mp_data->m_disconnectionEvent.Notify(l_info);
    ConnectionInfo l_reverse{ip_other, this};
    ip_other->mp_type->m_disconnectionEvent.Notify(l_reverse);
    mp_type->mp_data->NotifyDisconnectionEventHandlers(this, ip_other);
}

void Item::Disconnect(char const* i_typeName)
{
    auto l_it = m_typeItemsMap.find(mp_type->mp_data->GetType(i_typeName));
    if (l_it == m_typeItemsMap.end())
        return;
    ItemSet const l_copy = l_it->second;
    for (Item* lp_other : l_copy)
        Disconnect(lp_other);
}

bool Item::IsConnected(Item* ip_other) const
{
    auto l_it = m_typeItemsMap.find(ip_other->mp_type);
    return l_it != m_typeItemsMap.end() && l_it->second.count(ip_other) > 0;
}

bool Item::IsConnected(char const* i_typeName) const
{
    return IsConnected(mp_type->mp_data->GetType(i_typeName));
}

bool Item::IsConnected(Type* ip_type) const
{
    return m_typeItemsMap.count(ip_type) > 0;
}

ItemSet const* Item::ConnectedOfType(Type* ip_type) const
{
    auto l_it = m_typeItemsMap.find(ip_type);
    return l_it != m_typeItemsMap.end() ? &l_it->second : nullptr;
}

Item* Item::GetItem(char const* i_typeName) const
{
    return GetItem(mp_type->mp_data->GetType(i_typeName));
}

Item* Item::GetItem(Type* ip_type) const
{
    TW_REQUIRE(mp_type->GetRelation(ip_type).m_typeTo == One, "GetItem/HasItem by name: relation holds Many",
               (mp_type->GetName() + " -> " + ip_type->GetName()).c_str());
    ItemSet const* lp_items = ConnectedOfType(ip_type);
    return lp_items ? *lp_items->begin() : nullptr;
}

void Item::GetItems(char const* i_typeName, ItemSet& o_items) const
{
    GetItems(mp_type->mp_data->GetType(i_typeName), o_items);
}

void Item::GetItems(Type* ip_type, ItemSet& o_items) const
{
    mp_type->GetRelation(ip_type);
    if (ItemSet const* lp_items = ConnectedOfType(ip_type))
        o_items = *lp_items;
}

Item* Item::NewItem(char const* i_typeName)
{
    Type* lp_type = mp_type->mp_data->GetType(i_typeName);
    TW_REQUIRE(lp_type->IsNull(), "Item::NewItem: type has values", i_typeName);
    RelationInfo const l_relation = mp_type->GetRelation(lp_type);
    if (l_relation.m_typeTo == Many)
        return Connect(lp_type->NewItem());
    if (ItemSet const* lp_items = ConnectedOfType(lp_type))
        return *lp_items->begin();
    if (l_relation.m_typeFrom == Many)
        return Connect(lp_type->GetGlobalNullItem());
    return Connect(lp_type->NewItem());
}

void Item::Remove()
{
    if (m_state != State::Alive)
        return;
    m_state = State::Removing;
    // Handlers may remove this item or its neighbours while it goes; keep every such item's
    // memory until the outermost delivery is over, and skip those already gone.
    EventDelivery::Walk l_walk;
    Item* lp_self = this;
    mp_type->m_itemRemovedEvent.Notify(lp_self);
    mp_type->mp_data->m_itemRemovedEvent.Notify(lp_self);

    TypeItemsMap const l_connections = m_typeItemsMap;
    for (auto const& l_entry : l_connections)
        for (Item* lp_other : l_entry.second)
            if (!lp_other->IsRemoved())
                Disconnect(lp_other);

    m_state = State::Removed;
    mp_type->Forget(this);
    mp_type->mp_data->m_sweepCandidates.erase(this);
    mp_type->mp_data->m_sweepRemoveNow.erase(this);
    EventDelivery::BuryLater([](void* ip_item) { delete static_cast<Item*>(ip_item); }, this);
}
