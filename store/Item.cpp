#include "store/Item.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <sstream>
#include <vector>

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

Item* Item::Create(Type* ip_type, std::string_view i_value)
{
    TW_REQUIRE(i_value.size() < std::numeric_limits<std::uint32_t>::max(), "NewItem: value too long", ip_type->Name());
    std::size_t const l_bytes = sizeof(Item) + (i_value.empty() ? 0 : i_value.size() + 1);
    auto* lp_item = new (::operator new(l_bytes)) Item(ip_type, static_cast<std::uint32_t>(i_value.size()));
    if (!i_value.empty())
    {
        char* lp_text = reinterpret_cast<char*>(lp_item + 1);
        std::memcpy(lp_text, i_value.data(), i_value.size());
        lp_text[i_value.size()] = '\0';
    }
    return lp_item;
}

void Item::Destroy(Item* ip_item)
{
    ip_item->~Item();
    ::operator delete(ip_item);
}

Item::~Item()
{
    ConnectionGroup* lp_groups = GroupArray();
    for (std::uint16_t l_index = 0; l_index < m_groupCount; ++l_index)
        lp_groups[l_index].Release();
    if (m_groupCount > 1)
        std::free(lp_groups);
}

ConnectionGroup* Item::GroupArray() const
{
    auto* lp_storage = const_cast<unsigned char*>(m_groups);
    if (m_groupCount <= 1)
        return std::launder(reinterpret_cast<ConnectionGroup*>(lp_storage));
    ConnectionGroup* lp_groups = nullptr;
    std::memcpy(&lp_groups, lp_storage, sizeof lp_groups);
    return lp_groups;
}

void Item::SetGroupArray(ConnectionGroup* ip_groups) { std::memcpy(m_groups, &ip_groups, sizeof ip_groups); }

ConnectionGroup* Item::FindGroup(Type* ip_type) const
{
    ConnectionGroup* lp_begin = GroupArray();
    ConnectionGroup* lp_end = lp_begin + m_groupCount;
    ConnectionGroup* lp_group = std::lower_bound(lp_begin, lp_end, ip_type, [](ConnectionGroup const& i_group, Type* ip_key) {
        return std::less<Type*>()(i_group.GetType(), ip_key);
    });
    return lp_group != lp_end && lp_group->GetType() == ip_type ? lp_group : nullptr;
}

Item* Item::Connect(Item* ip_other)
{
    // An item on its way out takes no new connection: its memory goes when the walk ends, and
    // the other end would keep a pointer to it. A caller may still hold such an item, as when a
    // listener removed it before the call that made it returned.
    if (m_state != State::Alive || ip_other->m_state != State::Alive)
        return ip_other;
    RelationInfo const l_relation = mp_type->GetRelation(ip_other->mp_type);
    // Most connections add to a group this item already has towards Many: one search of the
    // group both finds out whether the items are connected and inserts.
    ConnectionGroup* lp_group = l_relation.m_typeTo == Many ? FindGroup(ip_other->mp_type) : nullptr;
    if (lp_group)
    {
        if (!lp_group->Insert(ip_other))
            return ip_other;
        ++mp_type->m_changes;
    }
    else
    {
        if (IsConnected(ip_other))
            return ip_other;
        ConnectThisEnd(ip_other, l_relation.m_typeTo);
    }
    ip_other->ConnectThisEnd(this, l_relation.m_typeFrom);

    // A listener may remove either end; both stay readable until the announcement is over,
    // and listeners further on hear nothing of a connection that is gone.
    EventDelivery::Walk l_walk;
    Data* lp_data = mp_type->mp_data;
    ConnectionInfo l_info{this, ip_other};
    mp_type->m_connectionEvent.Notify(l_info);
    if (!EitherRemoved(ip_other))
        lp_data->m_connectionEvent.Notify(l_info);
    ConnectionInfo l_reverse{ip_other, this};
    if (!EitherRemoved(ip_other))
        ip_other->mp_type->m_connectionEvent.Notify(l_reverse);
    if (!EitherRemoved(ip_other))
        lp_data->NotifyConnectionEventHandlers(this, ip_other);
    return ip_other;
}

void Item::ConnectThisEnd(Item* ip_other, OneOrMany i_howMany)
{
    Type* lp_otherType = ip_other->mp_type;
    if (i_howMany == One)
        if (ConnectionGroup* lp_held = FindGroup(lp_otherType))
            Disconnect(lp_held->First());
    ++mp_type->m_changes;
    if (ConnectionGroup* lp_group = FindGroup(lp_otherType))
    {
        lp_group->Insert(ip_other);
        return;
    }
    // A new group, in type order: the first is held in the item, then an array grows to the
    // next power of two whenever it is full.
    TW_REQUIRE(m_groupCount < std::numeric_limits<std::uint16_t>::max(), "Connect: too many connected types",
               mp_type->Name());
    ConnectionGroup const l_new(lp_otherType, ip_other);
    if (m_groupCount == 0)
    {
        new (m_groups) ConnectionGroup(l_new);
        m_groupCount = 1;
        return;
    }
    ConnectionGroup* lp_groups = GroupArray();
    if (m_groupCount == 1)
    {
        auto* lp_array = static_cast<ConnectionGroup*>(std::malloc(2 * sizeof(ConnectionGroup)));
        if (!lp_array)
            throw std::bad_alloc();
        std::memcpy(static_cast<void*>(lp_array), lp_groups, sizeof(ConnectionGroup));
        lp_groups = lp_array;
    }
    else if (std::has_single_bit(m_groupCount))
    {
        void* lp_grown = std::realloc(lp_groups, sizeof(ConnectionGroup) * m_groupCount * 2u);
        if (!lp_grown)
            throw std::bad_alloc();
        lp_groups = static_cast<ConnectionGroup*>(lp_grown);
    }
    ConnectionGroup* lp_end = lp_groups + m_groupCount;
    ConnectionGroup* lp_at = std::lower_bound(lp_groups, lp_end, lp_otherType, [](ConnectionGroup const& i_group, Type* ip_key) {
        return std::less<Type*>()(i_group.GetType(), ip_key);
    });
    std::memmove(static_cast<void*>(lp_at + 1), lp_at, static_cast<std::size_t>(lp_end - lp_at) * sizeof(ConnectionGroup));
    std::memcpy(static_cast<void*>(lp_at), &l_new, sizeof(ConnectionGroup));
    ++m_groupCount;
    SetGroupArray(lp_groups);
}

void Item::DisconnectThisEnd(Item* ip_other)
{
    ConnectionGroup* lp_group = FindGroup(ip_other->mp_type);
    if (!lp_group || !lp_group->Erase(ip_other))
        return;
    ++mp_type->m_changes;
    if (!lp_group->IsEmpty())
        return;
    if (m_groupCount == 1)
    {
        m_groupCount = 0;
        return;
    }
    ConnectionGroup* lp_groups = GroupArray();
    ConnectionGroup* lp_end = lp_groups + m_groupCount;
    std::memmove(static_cast<void*>(lp_group), lp_group + 1, static_cast<std::size_t>(lp_end - lp_group - 1) * sizeof(ConnectionGroup));
    --m_groupCount;
    if (m_groupCount == 1)
    {
        // The one group left goes back into the item.
        ConnectionGroup const l_last = lp_groups[0];
        std::free(lp_groups);
        new (m_groups) ConnectionGroup(l_last);
    }
    else if (std::has_single_bit(m_groupCount))
        if (void* lp_shrunk = std::realloc(lp_groups, sizeof(ConnectionGroup) * m_groupCount))
            SetGroupArray(static_cast<ConnectionGroup*>(lp_shrunk));
}

void Item::Disconnect(Item* ip_other)
{
    DisconnectThisEnd(ip_other);
    ip_other->DisconnectThisEnd(this);

    EventDelivery::Walk l_walk;
    ConnectionInfo l_info{this, ip_other};
    mp_type->m_disconnectionEvent.Notify(l_info);
    mp_type->mp_data->m_disconnectionEvent.Notify(l_info);
    ConnectionInfo l_reverse{ip_other, this};
    ip_other->mp_type->m_disconnectionEvent.Notify(l_reverse);
    mp_type->mp_data->NotifyDisconnectionEventHandlers(this, ip_other);
}

void Item::Disconnect(char const* i_typeName)
{
    ItemRange const l_items = ConnectedOfType(mp_type->mp_data->GetType(i_typeName));
    if (l_items.empty())
        return;
    std::vector<Item*> const l_copy(l_items.begin(), l_items.end());
    for (Item* lp_other : l_copy)
        Disconnect(lp_other);
}

bool Item::IsConnected(Item* ip_other) const
{
    ConnectionGroup const* lp_group = FindGroup(ip_other->mp_type);
    return lp_group && lp_group->Contains(ip_other);
}

bool Item::IsConnected(char const* i_typeName) const
{
    return IsConnected(mp_type->mp_data->GetType(i_typeName));
}

ItemRange Item::ConnectedOfType(Type* ip_type) const
{
    ConnectionGroup const* lp_group = FindGroup(ip_type);
    return lp_group ? lp_group->Items() : ItemRange();
}

void Item::GetConnectedItems(std::map<Type*, ItemSet>& o_items) const
{
    o_items.clear();
    for (ConnectionGroup const& l_group : ConnectedItems())
    {
        ItemRange const l_items = l_group.Items();
        o_items.emplace(l_group.GetType(), ItemSet(l_items.begin(), l_items.end()));
    }
}

Item* Item::GetItem(char const* i_typeName) const
{
    return GetItem(mp_type->mp_data->GetType(i_typeName));
}

Item* Item::GetItem(Type* ip_type) const
{
    TW_REQUIRE(mp_type->GetRelation(ip_type).m_typeTo == One, "GetItem/HasItem by name: relation holds Many",
               (mp_type->GetName() + " -> " + ip_type->GetName()).c_str());
    ConnectionGroup const* lp_group = FindGroup(ip_type);
    return lp_group ? lp_group->First() : nullptr;
}

void Item::GetItems(char const* i_typeName, ItemSet& o_items) const
{
    GetItems(mp_type->mp_data->GetType(i_typeName), o_items);
}

void Item::GetItems(Type* ip_type, ItemSet& o_items) const
{
    mp_type->GetRelation(ip_type);
    ItemRange const l_items = ConnectedOfType(ip_type);
    if (!l_items.empty())
        o_items = ItemSet(l_items.begin(), l_items.end());
}

Item* Item::NewItem(char const* i_typeName)
{
    Type* lp_type = mp_type->mp_data->GetType(i_typeName);
    TW_REQUIRE(lp_type->IsNull(), "Item::NewItem: type has values", i_typeName);
    RelationInfo const l_relation = mp_type->GetRelation(lp_type);
    if (l_relation.m_typeTo == Many)
        return Connect(lp_type->NewItem());
    if (ConnectionGroup const* lp_held = FindGroup(lp_type))
        return lp_held->First();
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

    std::vector<Item*> l_connections;
    for (ConnectionGroup const& l_group : ConnectedItems())
        for (Item* lp_other : l_group.Items())
            l_connections.push_back(lp_other);
    for (Item* lp_other : l_connections)
        if (!lp_other->IsRemoved())
            Disconnect(lp_other);

    m_state = State::Removed;
    mp_type->Forget(this);
    EventDelivery::BuryLater([](void* ip_item) { Destroy(static_cast<Item*>(ip_item)); }, this);
}
