#pragma once

#include <map>
#include <unordered_map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "store/ConnectionInfo.h"
#include "store/DataHandler.h"
#include "store/Event.h"
#include "store/Item.h"
#include "store/ItemPtr.h"
#include "store/ItemSet.h"
#include "store/PathNode.h"
#include "store/PathNodeRelation.h"
#include "store/Type.h"
#include "store/Value.h"

// The graph of typed items that holds all state of the running client.
class Data : public DataHandler
{
public:
    using TypePair = std::pair<Type*, Type*>;
    using PairHandler = EventHandlerBase<ConnectionInfo&>;
    using PairHandlerSet = std::set<PairHandler*>;

    struct PathNodePairInfo
    {
        PathNode* mp_parentNode = nullptr;
        PathNode* mp_subNode = nullptr;
        PathNodeRelation m_relation = TriggerConnected;
    };

    struct PathNodeHandlerInfo
    {
        std::map<TypePair, PathNodePairInfo> m_pairMap;
        EventHandlerBase<Item*>* mp_handler = nullptr;
        PathNode* mp_rootNode = nullptr;
        bool m_unregistered = false; // taken out of the maps; freed when no walk can reach it
    };

    Data() = default;
    // Frees every type with its items and handlers, and every path; fires nothing.
    ~Data() override;

    Event<Type*> m_typeAddedEvent;
    Event<Item*> m_itemAddedEvent;
    Event<Item*> m_itemRemovedEvent;
    Event<ConnectionInfo> m_connectionEvent;
    Event<ConnectionInfo> m_disconnectionEvent;

    Type* NewType(std::string i_name, bool i_isRoot, bool i_isNull, bool i_autoCreate);
    Type* GetType(std::string const& i_name) const;
    Type* FindType(std::string const& i_name) const; // null when there is no such type
    void GetTypes(std::map<std::string, Type*>& o_types) const { o_types = m_types; }
    std::map<std::string, Type*> const& Types() const { return m_types; }

    int RemoveDisconnectedItems();

    void AddConnectionEventHandler(Type* ip_first, Type* ip_second, PairHandler* ip_handler);
    void AddDisconnectionEventHandler(Type* ip_first, Type* ip_second, PairHandler* ip_handler);
    void NotifyConnectionEventHandlers(Item* ip_a, Item* ip_b);
    void NotifyDisconnectionEventHandlers(Item* ip_a, Item* ip_b);

    void AddPathEventHandler(PathNode* ip_node, EventHandlerBase<Item*>* ip_handler);
    // The paths listened to, those of listeners that went and were not yet taken out included.
    std::size_t PathHandlerCount() const;

    // Joins: items of a type connected to every item of a set.
    ItemSet GetItemSubset(ItemSet const& i_items, char const* i_typeName) const;
    ItemSet GetItems(ItemPtr i_a, ItemPtr i_b, char const* i_typeName) const;
    ItemPtr GetItem(ItemSet const& i_items, char const* i_typeName) const;
    ItemPtr GetItem(ItemPtr i_a, ItemPtr i_b, char const* i_typeName) const;
    ItemSet GetItems(ItemSet const& i_items, char const* i_typeName) const;

private:
    friend class Item;
    friend class Type;
    using PathInfoSet = std::set<PathNodeHandlerInfo*>;

    void NotifyPairs(std::map<TypePair, PairHandlerSet>& io_map, Item* ip_a, Item* ip_b);
    void AddPairHandler(std::map<TypePair, PairHandlerSet>& io_map, Type* ip_first, Type* ip_second,
                        PairHandler* ip_handler, char const* i_call);
    void MarkItemConnections(Item* ip_item);
    // During the mark: items whose walk passed over groups of types then on the path while
    // they held unmarked items, with those types.
    std::unordered_map<Item*, std::vector<Type*>> m_sweepPassedOver;

    void GetPathNodePairs(PathNode* ip_node, std::map<TypePair, PathNodePairInfo>& o_pairMap);
    void OnPathNodeEventConnection(ConnectionInfo& i_info);
    void OnPathNodeEventDisconnection(ConnectionInfo& i_info);
    void OnPathNodeEvent(ConnectionInfo& i_info, std::map<TypePair, PathInfoSet>& io_infoMap);
    void RemovePathEventHandler(PathNodeHandlerInfo* ip_info);
    std::set<PathNodeHandlerInfo*> RegisteredPaths() const;
    bool VerifyPathNodeSubNodeConnections(Item* ip_item, PathNode* ip_node, PathNode* ip_skipNode);
    bool AllSatisfy(ItemRange const& i_items, PathNode* ip_node);
    bool VerifyPathNodeParentNodeConnections(Item* ip_item, PathNode* ip_node, PathNode* ip_skipNode,
                                             Item*& o_rootItem);

    std::map<std::string, Type*> m_types;
    std::vector<std::unique_ptr<Type>> m_ownedTypes;
    bool m_sweepEpoch = false; // flips at each sweep, so that no item's mark needs clearing
    std::map<TypePair, PairHandlerSet> m_typePairConnectionEventHandlers;
    std::map<TypePair, PairHandlerSet> m_typePairDisconnectionEventHandlers;
    std::map<TypePair, PathInfoSet> m_typePairConnectionHandlerInfoMap;
    std::map<TypePair, PathInfoSet> m_typePairDisconnectionHandlerInfoMap;
    std::map<TypePair, PairHandler*> m_typePairConnectionHandlerMap;
    std::map<TypePair, PairHandler*> m_typePairDisconnectionHandlerMap;
};

extern Data d;

// Whole types, on the global graph.
ItemSet g(char const* i_typeName);
ItemSet i(char const* i_typeName, Value const& i_value);

#include "store/DataHandler.inl"
