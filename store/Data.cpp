#include "store/Data.h"

#include "store/Require.h"

Data d;

Data::~Data() = default;

Type* Data::NewType(std::string i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate)
{
    TW_REQUIRE(m_types.count(i_name) == 0, "NewType: name in use", i_name.c_str());
    Type* lp_type = new Type(this, i_name, i_isRoot, i_isNull, i_autoCreate);
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
    l_deliver(ip_b, ip_a);
}

int Data::RemoveDisconnectedItems()
{
    ItemSet l_removeNow;
    for (auto const& l_typeEntry : m_types)
    {
        Type* lp_type = l_typeEntry.second;
        std::vector<Type*> l_owners;
        for (auto const& l_relation : lp_type->Relations())
            if (l_relation.second.m_ownedBy)
                l_owners.push_back(l_relation.first);
        for (Item* lp_item : lp_type->GetItems())
        {
            bool l_ownersPresent = true;
            for (Type* lp_owner : l_owners)
                if (!lp_item->IsConnected(lp_owner))
                    l_ownersPresent = false;
            (l_ownersPresent ? m_sweepCandidates : l_removeNow).insert(lp_item);
        }
    }

    // Removal may fire handlers that remove further items, so each item is taken from the
    // front of the set before it goes, and Remove drops any removed item from the candidates.
    int l_removed = 0;
    m_sweepRemoveNow = std::move(l_removeNow);
    while (!m_sweepRemoveNow.empty())
    {
        Item* lp_item = *m_sweepRemoveNow.begin();
        m_sweepRemoveNow.erase(m_sweepRemoveNow.begin());
        m_sweepCandidates.erase(lp_item);
        lp_item->Remove();
        ++l_removed;
    }

    for (auto const& l_typeEntry : m_types)
    {
        if (!l_typeEntry.second->IsRoot())
            continue;
        for (Item* lp_item : l_typeEntry.second->GetItems())
        {
            std::set<Type*> l_visited;
            MarkItemConnections(lp_item, l_visited);
        }
    }

    while (!m_sweepCandidates.empty())
    {
        Item* lp_item = *m_sweepCandidates.begin();
        m_sweepCandidates.erase(m_sweepCandidates.begin());
        lp_item->Remove();
        ++l_removed;
    }
    return l_removed;
}

void Data::MarkItemConnections(Item* ip_item, std::set<Type*>& io_visited)
{
    if (m_sweepCandidates.count(ip_item) == 0)
        return;
    if (!io_visited.insert(ip_item->GetType()).second)
        return;
    m_sweepCandidates.erase(ip_item);
    for (auto const& l_entry : ip_item->ConnectedItems())
    {
        TW_REQUIRE(!l_entry.second.empty(), "RemoveDisconnectedItems: empty connection set",
                   l_entry.first->Name());
        if (l_entry.first->IsRoot())
            continue;
        for (Item* lp_other : l_entry.second)
            MarkItemConnections(lp_other, io_visited);
    }
    io_visited.erase(ip_item->GetType());
}

ItemSet Data::GetItemSubset(ItemSet const& i_items, char const* i_typeName) const
{
    if (i_items.empty())
        return ItemSet();
    Type* lp_type = GetType(i_typeName);
    auto l_it = i_items.begin();
    ItemSet const* lp_first = (*l_it)->ConnectedOfType(lp_type);
    if (!lp_first)
        return ItemSet();
    ItemSet l_candidates = *lp_first;
    for (++l_it; l_it != i_items.end(); ++l_it)
    {
        ItemSet const* lp_held = (*l_it)->ConnectedOfType(lp_type);
        if (!lp_held)
            return ItemSet();
        l_candidates = l_candidates.Common(*lp_held);
        if (l_candidates.empty())
            return ItemSet();
    }
    return l_candidates;
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
