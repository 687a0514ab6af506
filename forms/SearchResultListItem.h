#pragma once

#include <QString>
#include <QTreeWidgetItem>
#include <cstdint>

// A row of a results tab: a user, one of the user's folders, or a file in it. The numbers the
// order compares are kept here, so that a sort reads no texts but the file name.
class SearchResultListItem : public QTreeWidgetItem
{
public:
    enum Column
    {
        UserColumn,
        FreeColumn,
        SpeedColumn,
        FolderColumn,
        FileColumn,
        SizeColumn,
        AttributesColumn,
        ColumnCount
    };

    explicit SearchResultListItem(QTreeWidget* ip_tree) : QTreeWidgetItem(ip_tree) {}
    explicit SearchResultListItem(QTreeWidgetItem* ip_parent) : QTreeWidgetItem(ip_parent) {}

    // "Free" is "Y" for a free slot, else the queue length, centred; "K/s" one decimal of
    // kibibytes, empty at 0.
    void SetUser(QString const& i_name, bool i_available, std::uint32_t i_queue, std::uint32_t i_speed);
    void SetFolder(QString const& i_folder);
    void SetFile(QString const& i_name, QString const& i_size, QString const& i_attributes);

    QString const& FileName() const { return m_file; }
    // The top-level row above this one, or this row itself.
    QTreeWidgetItem* UserRow();

    // Available users first, then shorter queues, then faster users; files by name under the
    // descending sort of the tabs.
    bool operator<(QTreeWidgetItem const& i_other) const override;

private:
    bool SameFree(SearchResultListItem const& i_other) const;

    bool m_available = false;
    std::uint32_t m_queue = 0;
    // The speed as the "K/s" column shows it, in tenths, so that equal texts compare equal.
    std::int64_t m_speedTenths = 0;
    QString m_file;
};
