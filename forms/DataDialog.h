#pragma once

#include <QDialog>
#include <QTimer>
#include <memory>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "store/DataHandler.h"

namespace Ui
{
class DataDialog;
}
class Data;
class DataItemListModel;
class DataTreeModel;
class Item;
class QModelIndex;
class QTreeWidgetItem;
class Type;

// A live view of the graph: every type with its number of items, the items of the selected
// type, and the connections of the clicked item as a tree that opens on demand. It only reads:
// items are looked at through iteration, never looked up in a way that could make one.
class DataDialog : public QDialog, public DataHandler
{
    Q_OBJECT
public:
    DataDialog(Data* ip_data, QWidget* ip_parent);
    ~DataDialog() override;

private slots:
    void OnTypeItemSelectionChanged();
    void OnItemClicked(QModelIndex const& i_index);
    void OnDataSubItemExpanded(QModelIndex const& i_index);
    // Makes the next batch of every opened node whose last child made is in sight.
    void FetchChildrenInSight();
    void ShowChangedCounts();

private:
    void OnItemAdded(Item* ip_item);
    void OnItemRemoved(Item* ip_item);
    void AddItemSubnodes(QModelIndex const& i_node, std::set<Type*> const& i_types);
    void CountChanged(Type* ip_type);
    void ShowCount(Type* ip_type, std::size_t i_count);
    void ClearItemDataTree();

    Data* mp_data;
    std::unique_ptr<Ui::DataDialog> mp_ui;
    DataItemListModel* mp_itemModel;
    DataTreeModel* mp_treeModel;
    std::unordered_map<Type*, QTreeWidgetItem*> m_typeRows;
    Type* mp_selectedType = nullptr;
    Item* mp_clickedItem = nullptr;
    bool m_fetching = false;
    std::unordered_set<Type*> m_changedCounts;
    QTimer m_countTimer;
};
