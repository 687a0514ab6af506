#include "store/PathNode.h"

#include "store/Data.h"

PathNode::PathNode(Item* ip_item)
    : mp_data(ip_item->GetType()->GetData()), m_parentInfo(nullptr, TriggerConnected),
      mp_type(ip_item->GetType()), mp_item(ip_item)
{
}

PathNode::PathNode(Data* ip_data, char const* i_typeName)
    : mp_data(ip_data), m_parentInfo(nullptr, TriggerConnected), mp_type(ip_data->GetType(i_typeName)),
      mp_item(nullptr)
{
}

PathNode::PathNode(PathNode* ip_parent, char const* i_typeName, PathNodeRelation i_relation)
    : mp_data(ip_parent->mp_data), m_parentInfo(ip_parent, i_relation),
      mp_type(ip_parent->mp_data->GetType(i_typeName)), mp_item(nullptr)
{
    ip_parent->m_subNodes.insert({this, i_relation});
}

PathNode::PathNode(PathNode* ip_parent, Item* ip_item, PathNodeRelation i_relation)
    : mp_data(ip_parent->mp_data), m_parentInfo(ip_parent, i_relation), mp_type(ip_item->GetType()),
      mp_item(ip_item)
{
    ip_parent->m_subNodes.insert({this, i_relation});
}

PathNode::~PathNode()
{
    for (auto const& l_sub : m_subNodes)
        delete l_sub.first;
}
