#include "store/Data.h"

#include "store/Require.h"

#include <algorithm>
#include <set>
#include <vector>

Data d;

Data::~Data()
{
    // The internal path handlers are listed by this object, and the list is read again by the
    // base class's destructor: empty it before they go.
    RemoveDataHandlers();
    for (PathNodeHandlerInfo* lp_info : RegisteredPaths())
    {
        delete lp_info->mp_handler;
        delete lp_info->mp_rootNode;
        delete lp_info;
    }
    for (auto* lp_map : {&m_typePairConnectionEventHandlers, &m_typePairDisconnectionEventHandlers})
        for (auto const& l_entry : *lp_map)
            for (PairHandler* lp_handler : l_entry.second)
                delete lp_handler;
    // Each type destroys its events with their handlers, and its items.
    m_types.clear();
    m_ownedTypes.clear();
}

Type* Data::NewType(std::string i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate)
{
    TW_REQUIRE(m_types.count(i_name) == 0, "NewType: name in use", i_name.c_str());
    Type* lp_type = new Type(this, i_name, i_isRoot, i_isNull, i_autoCreate);
    m_ownedTypes.emplace_back(lp_type);
    m_types.emplace(std::move(i_name), lp_type);
    m_typeAddedEvent.Notify(lp_type);
    return lp_type;
}

Type* Data::GetType(std::string const& i_name) const
{
    Type* lp_type = FindType(i_name);
    TW_REQUIRE(lp_type != nullptr, "GetType: no such type", i_name.c_str());
    return lp_type;
}

Type* Data::FindType(std::string const& i_name) const
{
    auto l_it = m_types.find(i_name);
    return l_it != m_types.end() ? l_it->second : nullptr;
}

void Data::AddPairHandler(std::map<TypePair, PairHandlerSet>& io_map, Type* ip_first, Type* ip_second,
                          PairHandler* ip_handler, char const* i_call)
{
    TW_REQUIRE(ip_first->IsRelated(ip_second), i_call, (ip_first->GetName() + " / " + ip_second->GetName()).c_str());
    io_map[{ip_first, ip_second}].insert(ip_handler);
}

void Data::AddConnectionEventHandler(Type* ip_first, Type* ip_second, PairHandler* ip_handler)
{
    AddPairHandler(m_typePairConnectionEventHandlers, ip_first, ip_second, ip_handler,
                   "AddConnectionEventHandler: types are not related");
}

void Data::AddDisconnectionEventHandler(Type* ip_first, Type* ip_second, PairHandler* ip_handler)
{
    AddPairHandler(m_typePairDisconnectionEventHandlers, ip_first, ip_second, ip_handler,
                   "AddDisconnectionEventHandler: types are not related");
}

void Data::NotifyConnectionEventHandlers(Item* ip_a, Item* ip_b)
{
    NotifyPairs(m_typePairConnectionEventHandlers, ip_a, ip_b);
}

void Data::NotifyDisconnectionEventHandlers(Item* ip_a, Item* ip_b)
{
    NotifyPairs(m_typePairDisconnectionEventHandlers, ip_a, ip_b);
}

void Data::NotifyPairs(std::map<TypePair, PairHandlerSet>& io_map, Item* ip_a, Item* ip_b)
{
    auto l_deliver = [&io_map](Item* ip_from, Item* ip_to) {
        TypePair const l_pair{ip_from->GetType(), ip_to->GetType()};
        auto l_it = io_map.find(l_pair);
        if (l_it == io_map.end() || l_it->second.empty())
            return;
        ConnectionInfo l_info{ip_from, ip_to};
        // The entry may vanish during the walk (its last path removed), so look it up again
        // whenever a marked handler has to be taken out.
        Event<ConnectionInfo&>::Deliver<ConnectionInfo&>(PairHandlerSet(l_it->second), l_info, [&io_map, l_pair](PairHandler* ip_handler) {
            auto l_entry = io_map.find(l_pair);
            if (l_entry == io_map.end() || l_entry->second.erase(ip_handler) == 0)
                return false;
            if (l_entry->second.empty())
                io_map.erase(l_entry);
            return true;
        });
    };
    l_deliver(ip_a, ip_b);
    // A listener of the first direction may have removed an end: the second hears nothing.
    if (!ip_a->IsRemoved() && !ip_b->IsRemoved())
        l_deliver(ip_b, ip_a);
}

int Data::RemoveDisconnectedItems()
{
    // Items removed below, by the sweep or by listeners, stay readable until it has ended, so
    // the lists of this walk never hold a freed item.
    EventDelivery::Walk l_walk;
    // Every item that exists now counts as unreached until the walk from the roots reaches it.
    m_sweepEpoch = !m_sweepEpoch;

    std::vector<Item*> l_removeNow;
    std::vector<Type*> l_owners;
    for (auto const& l_typeEntry : m_types)
    {
        Type* lp_type = l_typeEntry.second;
        l_owners.clear();
        for (auto const& l_relation : lp_type->Relations())
            if (l_relation.second.m_ownedBy)
                l_owners.push_back(l_relation.first);
        if (l_owners.empty())
            continue;
        for (Item* lp_item : lp_type->Items())
            if (!std::all_of(l_owners.begin(), l_owners.end(), [lp_item](Type* ip_owner) { return lp_item->IsConnected(ip_owner); }))
                l_removeNow.push_back(lp_item);
    }

    // Both removals go in address order; an item that a listener removed first is skipped.
    int l_removed = 0;
    auto l_removeAll = [&l_removed](std::vector<Item*>& io_items) {
        std::sort(io_items.begin(), io_items.end());
        for (Item* lp_item : io_items)
            if (lp_item->m_state == Item::State::Alive)
            {
                lp_item->Remove();
                ++l_removed;
            }
    };
    l_removeAll(l_removeNow);

    std::vector<Item*> l_roots;
    for (auto const& l_typeEntry : m_types)
    {
        if (!l_typeEntry.second->IsRoot())
            continue;
        l_roots.assign(l_typeEntry.second->Items().begin(), l_typeEntry.second->Items().end());
        std::sort(l_roots.begin(), l_roots.end());
        for (Item* lp_item : l_roots)
            MarkItemConnections(lp_item);
    }

    m_sweepPassedOver.clear();
    std::vector<Item*> l_unreached;
    for (auto const& l_typeEntry : m_types)
        for (Item* lp_item : l_typeEntry.second->Items())
            if (lp_item->m_sweepMark != m_sweepEpoch)
                l_unreached.push_back(lp_item);
    l_removeAll(l_unreached);
    return l_removed;
}

// Marks what a root reaches through attribute items of pairwise different types: a type is
// flagged while it is on the current path and unflagged on the way back. A group whose type
// is on the path is passed over. When it held an unmarked item, the item keeps that type, and
// so does every item above it on the walk (but for an item of that very type, which any path
// to it holds): a later path on which one of the kept types is free walks the item again.
// Without that, an item first reached from the wrong side, as a folder through a value that
// one of its files shares, would be marked while its other files never are. Every type kept
// by an item is freed at most once per neighbouring type, so the walks again stay few.
void Data::MarkItemConnections(Item* ip_item)
{
    Type* lp_type = ip_item->GetType();
    if (lp_type->m_sweepVisited)
        return;
    if (ip_item->m_sweepMark == m_sweepEpoch)
    {
        auto const l_pending = m_sweepPassedOver.find(ip_item);
        if (l_pending == m_sweepPassedOver.end()
            || std::all_of(l_pending->second.begin(), l_pending->second.end(), [](Type* ip_passed) { return ip_passed->m_sweepVisited; }))
            return;
    }
    lp_type->m_sweepVisited = true;
    ip_item->m_sweepMark = m_sweepEpoch;
    std::vector<Type*> l_passedOver;
    auto const l_keep = [&l_passedOver, lp_type](Type* ip_passed) {
        if (ip_passed != lp_type && std::find(l_passedOver.begin(), l_passedOver.end(), ip_passed) == l_passedOver.end())
            l_passedOver.push_back(ip_passed);
    };
    for (ConnectionGroup const& l_group : ip_item->ConnectedItems())
    {
        TW_REQUIRE(!l_group.IsEmpty(), "RemoveDisconnectedItems: empty connection set", l_group.GetType()->Name());
        Type* lp_other = l_group.GetType();
        if (lp_other->IsRoot())
            continue;
        ItemRange const l_items = l_group.Items();
        if (lp_other->m_sweepVisited)
        {
            if (std::any_of(l_items.begin(), l_items.end(), [this](Item* ip_other) { return ip_other->m_sweepMark != m_sweepEpoch; }))
                l_keep(lp_other);
            continue;
        }
        for (Item* lp_other : l_items)
        {
            MarkItemConnections(lp_other);
            if (auto const l_below = m_sweepPassedOver.find(lp_other); l_below != m_sweepPassedOver.end())
                for (Type* lp_passed : l_below->second)
                    l_keep(lp_passed);
        }
    }
    if (l_passedOver.empty())
        m_sweepPassedOver.erase(ip_item);
    else
        m_sweepPassedOver[ip_item] = std::move(l_passedOver);
    lp_type->m_sweepVisited = false;
}

ItemSet Data::GetItemSubset(ItemSet const& i_items, char const* i_typeName) const
{
    if (i_items.empty())
        return ItemSet();
    Type* lp_type = GetType(i_typeName);
    // Start from the smallest group, then keep what every other item holds too; the result
    // is the same from any start.
    std::vector<ItemRange> l_held;
    l_held.reserve(i_items.size());
    for (Item* lp_item : i_items)
    {
        l_held.push_back(lp_item->ConnectedOfType(lp_type));
        if (l_held.back().empty())
            return ItemSet();
    }
    auto l_smallest = std::min_element(l_held.begin(), l_held.end(),
                                       [](ItemRange const& i_a, ItemRange const& i_b) { return i_a.size() < i_b.size(); });
    std::vector<Item*> l_candidates(l_smallest->begin(), l_smallest->end());
    auto l_item = i_items.begin();
    for (auto l_range = l_held.begin(); l_range != l_held.end(); ++l_range, ++l_item)
    {
        if (l_range == l_smallest)
            continue;
        // Each candidate is looked up in the other item's group.
        Item* lp_holder = *l_item;
        std::erase_if(l_candidates, [lp_holder](Item* ip_candidate) { return !lp_holder->IsConnected(ip_candidate); });
        if (l_candidates.empty())
            return ItemSet();
    }
    return ItemSet(l_candidates.begin(), l_candidates.end());
}

ItemSet Data::GetItems(ItemPtr i_a, ItemPtr i_b, char const* i_typeName) const
{
    return GetItemSubset(ItemSet{i_a.Get(), i_b.Get()}, i_typeName);
}

ItemPtr Data::GetItem(ItemSet const& i_items, char const* i_typeName) const
{
    ItemSet const l_subset = GetItemSubset(i_items, i_typeName);
    TW_REQUIRE(l_subset.size() <= 1, "Data::GetItem: more than one item of the type", i_typeName);
    return l_subset.empty() ? ItemPtr() : ItemPtr(*l_subset.begin());
}

ItemPtr Data::GetItem(ItemPtr i_a, ItemPtr i_b, char const* i_typeName) const
{
    return GetItem(ItemSet{i_a.Get(), i_b.Get()}, i_typeName);
}

ItemSet Data::GetItems(ItemSet const& i_items, char const* i_typeName) const
{
    return i_items.GetItems(i_typeName);
}

ItemSet g(char const* i_typeName)
{
    return d.GetType(i_typeName)->GetItems();
}

ItemSet i(char const* i_typeName, Value const& i_value)
{
    ItemPtr const l_item = d.GetType(i_typeName)->HasItem(i_value);
    return l_item ? ItemSet{l_item.Get()} : ItemSet();
}
