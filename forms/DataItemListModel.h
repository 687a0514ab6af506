#pragma once

#include <QAbstractListModel>
#include <vector>

class Item;
class Type;

// The items of one type as rows, sorted by their whole value (bytes, then address for equal
// values, as all items of a null type have). Rows are found by binary search, so a type of a
// hundred thousand items is listed without a widget per row.
class DataItemListModel : public QAbstractListModel
{
    Q_OBJECT
public:
    explicit DataItemListModel(QObject* ip_parent);

    // Lists the items of the type; null empties the list.
    void Show(Type const* ip_type);
    void Add(Item* ip_item);
    void Remove(Item* ip_item);
    Item* ItemAt(int i_row) const;
    int RowOf(Item* ip_item) const; // -1 when the item has no row

    int rowCount(QModelIndex const& i_parent = QModelIndex()) const override;
    QVariant data(QModelIndex const& i_index, int i_role) const override;

private:
    std::vector<Item*>::const_iterator Place(Item* ip_item) const;

    std::vector<Item*> m_items;
};
