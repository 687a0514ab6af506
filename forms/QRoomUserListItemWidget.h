#pragma once

#include <QTreeWidgetItem>

// A row of a room's user list, made once from the numbers the user had when he appeared. The
// numbers stay on the row so that "Files" and "K/s" sort by value, not by their formatted text.
class QRoomUserListItemWidget : public QTreeWidgetItem
{
public:
    enum Column
    {
        FlagColumn = 1,
        UserColumn = 2,
        FilesColumn = 3,
        SpeedColumn = 4
    };

    QRoomUserListItemWidget(QString const& i_user, long long i_files, long long i_speed, QString const& i_country);

    // Where the flag of a country code would be, or the empty text for a code that cannot
    // name one.
    static QString FlagResource(QString const& i_country);

    // By the sorted column's value, an empty one counting as 0; ties by name without regard
    // to case.
    bool operator<(QTreeWidgetItem const& i_other) const override;
    bool LessThan(QTreeWidgetItem const& i_other, int i_column) const;

private:
    long long m_files;
    long long m_speed;
    QString m_country;
};
