#include "forms/SearchResultListItem.h"

#include <QTreeWidget>

void SearchResultListItem::SetUser(QString const& i_name, bool i_available, std::uint32_t i_queue,
                                   std::uint32_t i_speed)
{
    m_available = i_available;
    m_queue = i_queue;
    QString const l_speed = i_speed == 0 ? QString() : QString::number(static_cast<double>(i_speed) / 1024.0, 'f', 1);
    // Read back from the text, so that speeds shown alike compare alike, however they rounded.
    m_speedTenths = QString(l_speed).remove(QLatin1Char('.')).toLongLong();
    setText(UserColumn, i_name);
    setText(FreeColumn, i_available ? QStringLiteral("Y") : QString::number(i_queue));
    setTextAlignment(FreeColumn, Qt::AlignCenter);
    setText(SpeedColumn, l_speed);
}

void SearchResultListItem::SetFolder(QString const& i_folder)
{
    setText(FolderColumn, i_folder);
}

void SearchResultListItem::SetFile(QString const& i_name, QString const& i_size, QString const& i_attributes)
{
    m_file = i_name;
    setText(FileColumn, i_name);
    setText(SizeColumn, i_size);
    setText(AttributesColumn, i_attributes);
}

QTreeWidgetItem* SearchResultListItem::UserRow()
{
    QTreeWidgetItem* lp_row = this;
    while (lp_row->parent())
        lp_row = lp_row->parent();
    return lp_row;
}

bool SearchResultListItem::SameFree(SearchResultListItem const& i_other) const
{
    return m_available == i_other.m_available && (m_available || m_queue == i_other.m_queue);
}

bool SearchResultListItem::operator<(QTreeWidgetItem const& i_other) const
{
    auto const& l_other = static_cast<SearchResultListItem const&>(i_other);
    QTreeWidget const* lp_tree = treeWidget();
    int const l_column = lp_tree ? lp_tree->sortColumn() : -1;
    if (l_column == FreeColumn)
    {
        if (!SameFree(l_other))
        {
            if (m_available != l_other.m_available)
                return l_other.m_available;
            return m_queue > l_other.m_queue;
        }
        if (m_speedTenths != l_other.m_speedTenths)
            return m_speedTenths < l_other.m_speedTenths;
    }
    else if (l_column == SpeedColumn && m_speedTenths != l_other.m_speedTenths)
        return m_speedTenths < l_other.m_speedTenths;
    // Reversed, so that the descending sort lists files alphabetically, case aside; folders
    // have no file name and keep the order they came in.
    int const l_order = l_other.m_file.compare(m_file, Qt::CaseInsensitive);
    return l_order != 0 ? l_order < 0 : l_other.m_file < m_file;
}
