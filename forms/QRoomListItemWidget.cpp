#include "forms/QRoomListItemWidget.h"

#include <QTreeWidget>

QRoomListItemWidget::QRoomListItemWidget(QString const& i_name, QString const& i_userCount)
    : QTreeWidgetItem(QStringList{i_name, i_userCount})
{
}

bool QRoomListItemWidget::operator<(QTreeWidgetItem const& i_other) const
{
    QTreeWidget const* lp_tree = treeWidget();
    if (!lp_tree || lp_tree->sortColumn() == 0)
        return text(0).compare(i_other.text(0), Qt::CaseInsensitive) < 0;
    return text(1).toLongLong() < i_other.text(1).toLongLong();
}
