#include "forms/DataTreeModel.h"

#include <algorithm>

#include "forms/DataValueText.h"
#include "store/Item.h"
#include "store/Type.h"

namespace
{
// Whether opening the item's node would show anything: connections to its own type are never
// shown.
bool HasConnectionsToShow(Item* ip_item)
{
    for (ConnectionGroup const& l_group : ip_item->ConnectedItems())
        if (l_group.GetType() != ip_item->GetType())
            return true;
    return false;
}
} // namespace

DataTreeModel::DataTreeModel(QObject* ip_parent) : QAbstractItemModel(ip_parent) {}

DataTreeModel::~DataTreeModel() = default;

void DataTreeModel::Clear()
{
    beginResetModel();
    m_root.m_children.clear();
    m_nodesOfItem.clear();
    m_withPending.clear();
    m_nodeItems = 0;
    endResetModel();
}

QModelIndex DataTreeModel::SetTop(Item* ip_item)
{
    beginInsertRows(QModelIndex(), 0, 0);
    Node* lp_top = Append(&m_root, ip_item);
    endInsertRows();
    return IndexOf(lp_top);
}

DataTreeModel::Node* DataTreeModel::Append(Node* ip_parent, Item* ip_item)
{
    auto lp_node = std::make_unique<Node>();
    lp_node->mp_item = ip_item;
    lp_node->mp_parent = ip_parent;
    lp_node->m_row = static_cast<int>(ip_parent->m_children.size());
    if (ip_item)
    {
        m_nodesOfItem[ip_item].push_back(lp_node.get());
        ++m_nodeItems;
    }
    ip_parent->m_children.push_back(std::move(lp_node));
    return ip_parent->m_children.back().get();
}

void DataTreeModel::AddItemSubnodes(QModelIndex const& i_node, std::set<Type*> const& i_types)
{
    Node* lp_node = NodeOf(i_node);
    if (!lp_node || !lp_node->mp_item)
        return;
    for (ConnectionGroup const& l_group : lp_node->mp_item->ConnectedItems())
        if (!i_types.count(l_group.GetType()))
        {
            ItemRange const l_items = l_group.Items();
            lp_node->m_pending.push_back(Pending{l_group.GetType(), std::vector<Item*>(l_items.begin(), l_items.end())});
        }
    if (lp_node->m_pending.empty())
        return;
    m_withPending.insert(lp_node);
    fetchMore(i_node);
}

bool DataTreeModel::canFetchMore(QModelIndex const& i_parent) const
{
    Node* lp_node = NodeOf(i_parent);
    return lp_node && !lp_node->m_pending.empty();
}

void DataTreeModel::fetchMore(QModelIndex const& i_parent)
{
    Node* lp_node = NodeOf(i_parent);
    if (!lp_node || lp_node->m_pending.empty())
        return;
    std::size_t l_count = 0;
    for (Pending const& l_pending : lp_node->m_pending)
        l_count += l_pending.m_items.size() - l_pending.m_next;
    l_count = std::min<std::size_t>(l_count, s_batch);
    int const l_first = static_cast<int>(lp_node->m_children.size());
    beginInsertRows(i_parent, l_first, l_first + static_cast<int>(l_count) - 1);
    auto l_pending = lp_node->m_pending.begin();
    for (std::size_t l_made = 0; l_made < l_count; ++l_made)
    {
        while (l_pending->m_next == l_pending->m_items.size())
            ++l_pending;
        Item* lp_item = l_pending->m_items[l_pending->m_next++];
        Node* lp_child = Append(lp_node, lp_item);
        if (HasConnectionsToShow(lp_item))
            Append(lp_child, nullptr);
    }
    std::erase_if(lp_node->m_pending, [](Pending const& i_pending) { return i_pending.m_next == i_pending.m_items.size(); });
    if (lp_node->m_pending.empty())
        m_withPending.erase(lp_node);
    endInsertRows();
}

bool DataTreeModel::TakeUnloaded(QModelIndex const& i_node)
{
    Node* lp_node = NodeOf(i_node);
    if (!lp_node || lp_node->m_children.size() != 1 || lp_node->m_children.front()->mp_item)
        return false;
    beginRemoveRows(i_node, 0, 0);
    lp_node->m_children.clear();
    endRemoveRows();
    return true;
}

void DataTreeModel::RemoveItem(Item* ip_item)
{
    // A node of the item may hold further nodes of it below; each removal takes those along.
    for (auto l_found = m_nodesOfItem.find(ip_item); l_found != m_nodesOfItem.end(); l_found = m_nodesOfItem.find(ip_item))
        RemoveNode(l_found->second.front());
    DropPending(ip_item);
}

void DataTreeModel::RemoveNode(Node* ip_node)
{
    Node* lp_parent = ip_node->mp_parent;
    int const l_row = ip_node->m_row;
    beginRemoveRows(IndexOf(lp_parent), l_row, l_row);
    Forget(ip_node);
    lp_parent->m_children.erase(lp_parent->m_children.begin() + l_row);
    for (std::size_t l_at = static_cast<std::size_t>(l_row); l_at < lp_parent->m_children.size(); ++l_at)
        lp_parent->m_children[l_at]->m_row = static_cast<int>(l_at);
    endRemoveRows();
}

void DataTreeModel::Forget(Node* ip_node)
{
    for (std::unique_ptr<Node> const& lp_child : ip_node->m_children)
        Forget(lp_child.get());
    m_withPending.erase(ip_node);
    if (!ip_node->mp_item)
        return;
    auto l_found = m_nodesOfItem.find(ip_node->mp_item);
    std::erase(l_found->second, ip_node);
    if (l_found->second.empty())
        m_nodesOfItem.erase(l_found);
    --m_nodeItems;
}

void DataTreeModel::DropPending(Item* ip_item)
{
    std::vector<Node*> l_emptied;
    for (Node* lp_node : m_withPending)
    {
        for (Pending& l_pending : lp_node->m_pending)
        {
            if (l_pending.mp_type != ip_item->GetType())
                continue;
            auto const l_from = l_pending.m_items.begin() + static_cast<std::ptrdiff_t>(l_pending.m_next);
            auto const l_at = std::lower_bound(l_from, l_pending.m_items.end(), ip_item);
            if (l_at != l_pending.m_items.end() && *l_at == ip_item)
                l_pending.m_items.erase(l_at);
        }
        std::erase_if(lp_node->m_pending, [](Pending const& i_pending) { return i_pending.m_next == i_pending.m_items.size(); });
        if (lp_node->m_pending.empty())
            l_emptied.push_back(lp_node);
    }
    for (Node* lp_node : l_emptied)
        m_withPending.erase(lp_node);
}

Item* DataTreeModel::ItemOf(QModelIndex const& i_node) const
{
    Node* lp_node = NodeOf(i_node);
    return lp_node ? lp_node->mp_item : nullptr;
}

std::vector<QModelIndex> DataTreeModel::NodesWithPending() const
{
    std::vector<QModelIndex> l_nodes;
    for (Node* lp_node : m_withPending)
        l_nodes.push_back(IndexOf(lp_node));
    return l_nodes;
}

std::size_t DataTreeModel::NodeCount(Item* ip_item) const
{
    auto const l_found = m_nodesOfItem.find(ip_item);
    return l_found == m_nodesOfItem.end() ? 0 : l_found->second.size();
}

DataTreeModel::Node* DataTreeModel::NodeOf(QModelIndex const& i_index) const
{
    return i_index.isValid() ? static_cast<Node*>(i_index.internalPointer()) : nullptr;
}

QModelIndex DataTreeModel::IndexOf(Node* ip_node) const
{
    return ip_node == &m_root ? QModelIndex() : createIndex(ip_node->m_row, 0, ip_node);
}

QModelIndex DataTreeModel::index(int i_row, int i_column, QModelIndex const& i_parent) const
{
    Node const* lp_parent = i_parent.isValid() ? NodeOf(i_parent) : &m_root;
    if (i_column != 0 || i_row < 0 || static_cast<std::size_t>(i_row) >= lp_parent->m_children.size())
        return QModelIndex();
    return createIndex(i_row, 0, lp_parent->m_children[static_cast<std::size_t>(i_row)].get());
}

QModelIndex DataTreeModel::parent(QModelIndex const& i_index) const
{
    Node* lp_node = NodeOf(i_index);
    return lp_node ? IndexOf(lp_node->mp_parent) : QModelIndex();
}

int DataTreeModel::rowCount(QModelIndex const& i_parent) const
{
    Node const* lp_parent = i_parent.isValid() ? NodeOf(i_parent) : &m_root;
    return static_cast<int>(lp_parent->m_children.size());
}

int DataTreeModel::columnCount(QModelIndex const&) const
{
    return 1;
}

bool DataTreeModel::hasChildren(QModelIndex const& i_parent) const
{
    Node const* lp_parent = i_parent.isValid() ? NodeOf(i_parent) : &m_root;
    return !lp_parent->m_children.empty() || !lp_parent->m_pending.empty();
}

QVariant DataTreeModel::data(QModelIndex const& i_index, int i_role) const
{
    Node* lp_node = i_role == Qt::DisplayRole ? NodeOf(i_index) : nullptr;
    if (!lp_node)
        return QVariant();
    Item* lp_item = lp_node->mp_item;
    if (!lp_item)
        return QStringLiteral("~~unloaded~~");
    if (lp_node->mp_parent == &m_root)
        return ShownValue(lp_item->AsView());
    QString const l_type = QString::fromStdString(lp_item->GetType()->GetName());
    if (lp_item->GetType()->IsNull())
        return QLatin1Char('[') + l_type + QStringLiteral(", null]");
    return QLatin1Char('[') + l_type + QStringLiteral("] ") + ShownValue(lp_item->AsView());
}
