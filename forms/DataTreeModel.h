#pragma once

#include <QAbstractItemModel>
#include <memory>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class Item;
class Type;

// The connections of one item as a tree that is filled on demand. A node stands for an item;
// a node whose item has connections to show starts with one "~~unloaded~~" child until it is
// opened. The children of an opened node are taken from the graph at once but made in batches,
// as the view asks for them, so that an item of a hundred thousand connections shows at once.
class DataTreeModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    static constexpr int s_batch = 256;

    explicit DataTreeModel(QObject* ip_parent);
    ~DataTreeModel() override;

    void Clear();
    // Makes the top node of the item and returns it; the tree must be empty.
    QModelIndex SetTop(Item* ip_item);
    // Gives the node its item's connections, those to types of the set left out.
    void AddItemSubnodes(QModelIndex const& i_node, std::set<Type*> const& i_types);
    // Whether the node's one child is the "~~unloaded~~" one; then takes it off.
    bool TakeUnloaded(QModelIndex const& i_node);
    // Takes out every node of the item, with its subtree, and the item from the connections
    // still to be made.
    void RemoveItem(Item* ip_item);

    Item* ItemOf(QModelIndex const& i_node) const;
    // The nodes that still hold connections to be made.
    std::vector<QModelIndex> NodesWithPending() const;
    // How many nodes stand for the item, and for any item; what the lookups hold.
    std::size_t NodeCount(Item* ip_item) const;
    std::size_t NodeCount() const { return m_nodeItems; }

    QModelIndex index(int i_row, int i_column, QModelIndex const& i_parent = QModelIndex()) const override;
    QModelIndex parent(QModelIndex const& i_index) const override;
    int rowCount(QModelIndex const& i_parent = QModelIndex()) const override;
    int columnCount(QModelIndex const& i_parent = QModelIndex()) const override;
    bool hasChildren(QModelIndex const& i_parent = QModelIndex()) const override;
    QVariant data(QModelIndex const& i_index, int i_role) const override;
    bool canFetchMore(QModelIndex const& i_parent) const override;
    void fetchMore(QModelIndex const& i_parent) override;

private:
    // Connections of one type still to be made into children, in address order from m_next on.
    struct Pending
    {
        Type* mp_type;
        std::vector<Item*> m_items;
        std::size_t m_next = 0;
    };
    struct Node
    {
        Item* mp_item = nullptr; // null for the "~~unloaded~~" child
        Node* mp_parent = nullptr;
        int m_row = 0;
        std::vector<std::unique_ptr<Node>> m_children;
        std::vector<Pending> m_pending;
    };

    Node* NodeOf(QModelIndex const& i_index) const;
    QModelIndex IndexOf(Node* ip_node) const;
    Node* Append(Node* ip_parent, Item* ip_item);
    void RemoveNode(Node* ip_node);
    // Drops the node and its descendants from the lookups.
    void Forget(Node* ip_node);
    void DropPending(Item* ip_item);

    Node m_root;
    std::unordered_map<Item*, std::vector<Node*>> m_nodesOfItem;
    std::unordered_set<Node*> m_withPending;
    std::size_t m_nodeItems = 0;
};
