#include "forms/DataItemListModel.h"

#include <algorithm>

#include "forms/DataValueText.h"
#include "store/Item.h"
#include "store/Type.h"

namespace
{
bool Before(Item* ip_a, Item* ip_b)
{
    int const l_order = ip_a->AsView().compare(ip_b->AsView());
    return l_order != 0 ? l_order < 0 : ip_a < ip_b;
}
} // namespace

DataItemListModel::DataItemListModel(QObject* ip_parent) : QAbstractListModel(ip_parent) {}

void DataItemListModel::Show(Type const* ip_type)
{
    beginResetModel();
    m_items.clear();
    if (ip_type)
    {
        m_items.assign(ip_type->Items().begin(), ip_type->Items().end());
        std::sort(m_items.begin(), m_items.end(), Before);
    }
    endResetModel();
}

std::vector<Item*>::const_iterator DataItemListModel::Place(Item* ip_item) const
{
    return std::lower_bound(m_items.begin(), m_items.end(), ip_item, Before);
}

void DataItemListModel::Add(Item* ip_item)
{
    auto const l_at = Place(ip_item);
    if (l_at != m_items.end() && *l_at == ip_item)
        return;
    int const l_row = static_cast<int>(l_at - m_items.begin());
    beginInsertRows(QModelIndex(), l_row, l_row);
    m_items.insert(l_at, ip_item);
    endInsertRows();
}

void DataItemListModel::Remove(Item* ip_item)
{
    int const l_row = RowOf(ip_item);
    if (l_row < 0)
        return;
    beginRemoveRows(QModelIndex(), l_row, l_row);
    m_items.erase(m_items.begin() + l_row);
    endRemoveRows();
}

Item* DataItemListModel::ItemAt(int i_row) const
{
    return i_row >= 0 && static_cast<std::size_t>(i_row) < m_items.size() ? m_items[static_cast<std::size_t>(i_row)]
                                                                           : nullptr;
}

int DataItemListModel::RowOf(Item* ip_item) const
{
    auto const l_at = Place(ip_item);
    return l_at != m_items.end() && *l_at == ip_item ? static_cast<int>(l_at - m_items.begin()) : -1;
}

int DataItemListModel::rowCount(QModelIndex const& i_parent) const
{
    return i_parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

QVariant DataItemListModel::data(QModelIndex const& i_index, int i_role) const
{
    Item* const lp_item = i_role == Qt::DisplayRole ? ItemAt(i_index.row()) : nullptr;
    return lp_item ? QVariant(ShownValue(lp_item->AsView())) : QVariant();
}
