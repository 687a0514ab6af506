#pragma once

#include <set>
#include <utility>

#include "store/PathNodeRelation.h"

class Data;
class Item;
class Type;

// One node of a standing query over the graph: a small tree of types with a condition on each
// edge. A node owns its children.
class PathNode
{
public:
    explicit PathNode(Item* ip_item);
    PathNode(Data* ip_data, char const* i_typeName);
    PathNode(PathNode* ip_parent, char const* i_typeName, PathNodeRelation i_relation);
    PathNode(PathNode* ip_parent, Item* ip_item, PathNodeRelation i_relation);
    ~PathNode();
    PathNode(PathNode const&) = delete;
    PathNode& operator=(PathNode const&) = delete;

    Data* mp_data;
    std::pair<PathNode*, PathNodeRelation> m_parentInfo;
    Type* mp_type;
    Item* mp_item;
    std::set<std::pair<PathNode*, PathNodeRelation>> m_subNodes;
};
