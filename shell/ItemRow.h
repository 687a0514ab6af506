#pragma once

class Item;
class QTreeWidget;
class QTreeWidgetItem;

// Tree rows that stand for graph items. A row is held by a node item of a type of its own,
// keyed by the row and connected to the item it shows, so the row is found from the item and
// goes with its node.

// The item's row, or null.
QTreeWidgetItem* ItemRow(Item* ip_item, char const* i_nodeType);
// The item's row, made with the item's text in column 0 if it has none yet.
QTreeWidgetItem* AddItemRow(QTreeWidget* ip_tree, Item* ip_item, char const* i_nodeType);
// Deletes the item's row, if any, and removes its node.
void DropItemRow(Item* ip_item, char const* i_nodeType);
