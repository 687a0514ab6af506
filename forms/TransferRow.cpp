#include "forms/TransferRow.h"

#include "forms/TransferTree.h"

TransferRow::Sums& TransferRow::Sums::operator+=(Sums const& i_other)
{
    m_done += i_other.m_done;
    m_left += i_other.m_left;
    m_total += i_other.m_total;
    m_counted += i_other.m_counted;
    return *this;
}

TransferRow::Sums& TransferRow::Sums::operator-=(Sums const& i_other)
{
    m_done -= i_other.m_done;
    m_left -= i_other.m_left;
    m_total -= i_other.m_total;
    m_counted -= i_other.m_counted;
    return *this;
}

TransferRow::TransferRow(TransferTree const* ip_tree, Level i_level, Item* ip_entry)
    : mp_tree(ip_tree), m_level(i_level), mp_entry(ip_entry)
{
}

QVariant TransferRow::data(int i_column, int i_role) const
{
    if (i_role == Qt::ToolTipRole && m_level == Level::File)
    {
        QString const l_tip = mp_tree->ToolTipOf(this, i_column);
        if (!l_tip.isEmpty())
            return l_tip;
    }
    return QTreeWidgetItem::data(i_column, i_role);
}
