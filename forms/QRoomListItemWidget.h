#pragma once

#include <QTreeWidgetItem>

// A row of the room list: a room's name and the user count of its first sight.
class QRoomListItemWidget : public QTreeWidgetItem
{
public:
    QRoomListItemWidget(QString const& i_name, QString const& i_userCount);

    // By name without regard to case, or by user count as a number, so 9 comes before 10.
    bool operator<(QTreeWidgetItem const& i_other) const override;
};
