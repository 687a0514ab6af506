#include "store/Data.h"
#include "store/Require.h"

namespace
{
bool WatchesConnection(PathNodeRelation i_relation)
{
    return i_relation == TriggerConnected || i_relation == NewlyConnected;
}

bool WatchesDisconnection(PathNodeRelation i_relation)
{
    return i_relation == TriggerDisconnected || i_relation == NewlyDisconnected;
}

bool NeedsConnected(PathNodeRelation i_relation)
{
    return i_relation == TriggerConnected || i_relation == StillConnected;
}

void RequireTestable(PathNodeRelation i_relation)
{
    TW_REQUIRE(i_relation != NewlyConnected && i_relation != NewlyDisconnected,
               "path event: a Newly edge can only be the triggering edge", "");
}
} // namespace

void Data::AddPathEventHandler(PathNode* ip_node, EventHandlerBase<Item*>* ip_handler)
{
    TW_REQUIRE(ip_node->m_parentInfo.first == nullptr, "AddPathEventHandler: node is not a root",
               ip_node->mp_type->Name());
    // The paths of listeners that went are taken out here too, not only when an edge of theirs
    // fires: one whose edges never fire again would otherwise stay for the rest of the run.
    for (PathNodeHandlerInfo* lp_old : RegisteredPaths())
        if (lp_old->mp_handler->m_removed)
            RemovePathEventHandler(lp_old);
    auto* lp_info = new PathNodeHandlerInfo;
    lp_info->mp_handler = ip_handler;
    lp_info->mp_rootNode = ip_node;
    GetPathNodePairs(ip_node, lp_info->m_pairMap);

    for (auto const& l_edge : lp_info->m_pairMap)
    {
        PathNodeRelation const l_relation = l_edge.second.m_relation;
        bool const l_connection = WatchesConnection(l_relation);
        if (!l_connection && !WatchesDisconnection(l_relation))
            continue;
        auto& l_infoMap = l_connection ? m_typePairConnectionHandlerInfoMap : m_typePairDisconnectionHandlerInfoMap;
        auto& l_handlerMap = l_connection ? m_typePairConnectionHandlerMap : m_typePairDisconnectionHandlerMap;
        if (l_infoMap.count(l_edge.first) == 0)
        {
            PairHandler* lp_internal =
                MakeHandler(l_connection ? &Data::OnPathNodeEventConnection : &Data::OnPathNodeEventDisconnection);
            if (l_connection)
                AddConnectionEventHandler(l_edge.first.first, l_edge.first.second, lp_internal);
            else
                AddDisconnectionEventHandler(l_edge.first.first, l_edge.first.second, lp_internal);
            l_handlerMap[l_edge.first] = lp_internal;
        }
        l_infoMap[l_edge.first].insert(lp_info);
    }
}

std::set<Data::PathNodeHandlerInfo*> Data::RegisteredPaths() const
{
    std::set<PathNodeHandlerInfo*> l_infos;
    for (auto const* lp_map : {&m_typePairConnectionHandlerInfoMap, &m_typePairDisconnectionHandlerInfoMap})
        for (auto const& l_entry : *lp_map)
            l_infos.insert(l_entry.second.begin(), l_entry.second.end());
    return l_infos;
}

std::size_t Data::PathHandlerCount() const
{
    return RegisteredPaths().size();
}

void Data::GetPathNodePairs(PathNode* ip_node, std::map<TypePair, PathNodePairInfo>& o_pairMap)
{
    for (auto const& l_sub : ip_node->m_subNodes)
    {
        TypePair const l_pair{ip_node->mp_type, l_sub.first->mp_type};
        TW_REQUIRE(o_pairMap.count(l_pair) == 0, "AddPathEventHandler: type pair twice in one tree",
                   (l_pair.first->GetName() + " / " + l_pair.second->GetName()).c_str());
        o_pairMap[l_pair] = PathNodePairInfo{ip_node, l_sub.first, l_sub.second};
        GetPathNodePairs(l_sub.first, o_pairMap);
    }
}

void Data::OnPathNodeEventConnection(ConnectionInfo& i_info)
{
    OnPathNodeEvent(i_info, m_typePairConnectionHandlerInfoMap);
}

void Data::OnPathNodeEventDisconnection(ConnectionInfo& i_info)
{
    OnPathNodeEvent(i_info, m_typePairDisconnectionHandlerInfoMap);
}

void Data::OnPathNodeEvent(ConnectionInfo& i_info, std::map<TypePair, PathInfoSet>& io_infoMap)
{
    TypePair const l_pair{i_info.m_from->GetType(), i_info.m_to->GetType()};
    auto l_it = io_infoMap.find(l_pair);
    TW_REQUIRE(l_it != io_infoMap.end(), "path event: pair not watched",
               (l_pair.first->GetName() + " / " + l_pair.second->GetName()).c_str());
    // Infos removed during this walk stay allocated until the outermost delivery ends.
    EventDelivery::Walk l_walk;
    PathInfoSet const l_copy = l_it->second;
    for (PathNodeHandlerInfo* lp_info : l_copy)
    {
        if (lp_info->m_unregistered)
            continue;
        if (lp_info->mp_handler->m_removed)
        {
            RemovePathEventHandler(lp_info);
            continue;
        }
        auto l_edge = lp_info->m_pairMap.find(l_pair);
        TW_REQUIRE(l_edge != lp_info->m_pairMap.end(), "path event: pair missing from its path",
                   l_pair.first->Name());
        Item* lp_root = nullptr;
        if (!VerifyPathNodeParentNodeConnections(i_info.m_from, l_edge->second.mp_parentNode,
                                                 l_edge->second.mp_subNode, lp_root))
            continue;
        if (!VerifyPathNodeSubNodeConnections(i_info.m_to, l_edge->second.mp_subNode, nullptr))
            continue;
        if (!lp_info->mp_handler->m_removed)
            lp_info->mp_handler->Handle(lp_root);
    }
}

void Data::RemovePathEventHandler(PathNodeHandlerInfo* ip_info)
{
    for (auto const& l_edge : ip_info->m_pairMap)
    {
        PathNodeRelation const l_relation = l_edge.second.m_relation;
        bool const l_connection = WatchesConnection(l_relation);
        if (!l_connection && !WatchesDisconnection(l_relation))
            continue;
        auto& l_infoMap = l_connection ? m_typePairConnectionHandlerInfoMap : m_typePairDisconnectionHandlerInfoMap;
        auto& l_handlerMap = l_connection ? m_typePairConnectionHandlerMap : m_typePairDisconnectionHandlerMap;
        auto& l_pairHandlers =
            l_connection ? m_typePairConnectionEventHandlers : m_typePairDisconnectionEventHandlers;
        auto l_infos = l_infoMap.find(l_edge.first);
        if (l_infos == l_infoMap.end())
            continue;
        l_infos->second.erase(ip_info);
        if (!l_infos->second.empty())
            continue;
        auto l_handler = l_handlerMap.find(l_edge.first);
        TW_REQUIRE(l_handler != l_handlerMap.end(), "RemovePathEventHandler: pair has no internal handler",
                   l_edge.first.first->Name());
        PairHandler* lp_internal = l_handler->second;
        auto l_set = l_pairHandlers.find(l_edge.first);
        if (l_set != l_pairHandlers.end() && l_set->second.erase(lp_internal) > 0)
        {
            if (l_set->second.empty())
                l_pairHandlers.erase(l_set);
            // A walk up the stack may still hold it: mark it so that it is not called, and
            // free it once every walk has ended.
            lp_internal->m_removed = true;
            m_handlers.erase(lp_internal);
            EventDelivery::Bury(lp_internal);
        }
        l_handlerMap.erase(l_handler);
        l_infoMap.erase(l_infos);
    }
    ip_info->m_unregistered = true;
    EventDelivery::BuryLater(
        [](void* ip_object) {
            auto* lp_info = static_cast<PathNodeHandlerInfo*>(ip_object);
            delete lp_info->mp_handler;
            delete lp_info->mp_rootNode;
            delete lp_info;
        },
        ip_info);
}

bool Data::VerifyPathNodeSubNodeConnections(Item* ip_item, PathNode* ip_node, PathNode* ip_skipNode)
{
    if (ip_node->mp_item && ip_node->mp_item != ip_item)
        return false;
    for (auto const& l_sub : ip_node->m_subNodes)
    {
        if (l_sub.first == ip_skipNode)
            continue;
        RequireTestable(l_sub.second);
        ItemRange const l_connected = ip_item->ConnectedOfType(l_sub.first->mp_type);
        bool l_anySatisfies = false;
        for (Item* lp_other : l_connected)
            if (VerifyPathNodeSubNodeConnections(lp_other, l_sub.first, nullptr))
            {
                l_anySatisfies = true;
                break;
            }
        if (NeedsConnected(l_sub.second))
        {
            if (!l_anySatisfies)
                return false;
        }
        else if (!l_connected.empty() && AllSatisfy(l_connected, l_sub.first))
            return false;
    }
    return true;
}

bool Data::AllSatisfy(ItemRange const& i_items, PathNode* ip_node)
{
    for (Item* lp_item : i_items)
        if (!VerifyPathNodeSubNodeConnections(lp_item, ip_node, nullptr))
            return false;
    return true;
}

bool Data::VerifyPathNodeParentNodeConnections(Item* ip_item, PathNode* ip_node, PathNode* ip_skipNode,
                                               Item*& o_rootItem)
{
    if (ip_node->mp_item && ip_node->mp_item != ip_item)
        return false;
    if (!VerifyPathNodeSubNodeConnections(ip_item, ip_node, ip_skipNode))
        return false;
    PathNode* lp_parent = ip_node->m_parentInfo.first;
    if (!lp_parent)
    {
        o_rootItem = ip_item;
        return true;
    }
    PathNodeRelation const l_relation = ip_node->m_parentInfo.second;
    RequireTestable(l_relation);
    ItemRange const l_parents = ip_item->ConnectedOfType(lp_parent->mp_type);
    if (NeedsConnected(l_relation))
    {
        for (Item* lp_candidate : l_parents)
            if (VerifyPathNodeParentNodeConnections(lp_candidate, lp_parent, ip_node, o_rootItem))
                return true;
        return false;
    }
    if (l_parents.empty())
        return true;
    for (Item* lp_candidate : l_parents)
    {
        Item* lp_root = nullptr;
        if (!VerifyPathNodeParentNodeConnections(lp_candidate, lp_parent, ip_node, lp_root))
            return true;
    }
    return false;
}
