#include "shell/ItemRow.h"

#include <QTreeWidget>

#include "store/Data.h"

QTreeWidgetItem* ItemRow(Item* ip_item, char const* i_nodeType)
{
    return ItemPtr(ip_item)[i_nodeType].AsPointer<QTreeWidgetItem>();
}

QTreeWidgetItem* AddItemRow(QTreeWidget* ip_tree, Item* ip_item, char const* i_nodeType)
{
    if (QTreeWidgetItem* lp_row = ItemRow(ip_item, i_nodeType))
        return lp_row;
    auto* lp_row = new QTreeWidgetItem(ip_tree);
    lp_row->setText(0, QString::fromStdString(ItemPtr(ip_item).AsString()));
    ItemPtr(ip_item) += d.GetType(i_nodeType)->GetItem(Value(lp_row));
    return lp_row;
}

void DropItemRow(Item* ip_item, char const* i_nodeType)
{
    ItemPtr const l_node = ItemPtr(ip_item)[i_nodeType];
    if (!l_node)
        return;
    delete l_node.AsPointer<QTreeWidgetItem>();
    l_node.Remove();
}
