#pragma once

#include <QString>

#include <functional>
#include <string>
#include <vector>

#include "forms/TransferRow.h"
#include "forms/TransferTally.h"
#include "forms/TransferTreeKind.h"
#include "store/ItemSet.h"

class QLabel;
class QProgressBar;
class QTreeWidget;
class QTreeWidgetItem;

// One of the two transfer trees, users over folders over entries. Rows are graph items too,
// keyed by the row, so that an entry finds its row and a group is found by its user and folder.
// Progress only marks rows; they are drawn together by Redraw, which the owner calls from one
// timer. A status change or a removal draws at once, so that no figure outlives its transfer.
// Implemented in two parts: the rows (TransferTree.cpp) and the figures (TransferTreeFigures.cpp).
class TransferTree
{
public:
    TransferTree(TransferTreeKind const& i_kind, QTreeWidget* ip_tree, QLabel* ip_summary,
                 std::function<void()> i_scheduleRedraw);

    TransferTreeKind const& Kind() const { return m_kind; }
    QTreeWidget* Tree() const { return mp_tree; }

    // The three row types and their relations; once per process.
    void DeclareTypes();

    // While a build runs, new user rows wait outside the tree and go in together at its end.
    void BeginBuild();
    void EndBuild();

    TransferRow* AddEntry(ItemPtr i_entry);
    void RemoveEntry(ItemPtr i_entry);
    void OnStatusChange(ItemPtr i_entry);
    void OnProgress(ItemPtr i_entry);
    // Column 0 of the user's row, with " [offline]" behind the name on the downloads tree.
    void ShowUserName(ItemPtr i_user);

    // An open group shows its entries' statuses, a closed one its own.
    void ShowGroupStatus(TransferRow* ip_group);
    void SetLevelExpanded(TransferRow::Level i_level, bool i_expanded);

    TransferRow* FileRowOf(ItemPtr i_entry) const;
    TransferRow* UserRowOf(ItemPtr i_user) const;
    static TransferRow* UserRowAbove(QTreeWidgetItem* ip_row);
    ItemPtr UserOfRow(QTreeWidgetItem* ip_row) const;
    ItemSet EntriesUnder(QTreeWidgetItem* ip_row) const;
    // The folder on this disk that a row's files lie in; empty for a user row.
    QString LocalFolderOf(QTreeWidgetItem* ip_row) const;

    // Draws every row marked since the last time, and the summary.
    void Redraw();
    QString ToolTipOf(TransferRow const* ip_row, int i_column) const;
    QString SummaryText() const;

    // The status a row shows: the status, or the peer's reason for a refusal, lower-cased.
    std::string StatusTextOf(ItemPtr i_entry) const;
    std::string StatusOf(ItemPtr i_entry) const;
    std::string AggregateStatusOf(ItemSet const& i_entries) const;
    // What the entries add up to, by the same rules as each group's running sums.
    TransferRow::Sums ProgressStatsOf(ItemSet const& i_entries) const;
    void SetItemColorByStatus(QTreeWidgetItem* ip_row, QString const& i_status) const;
    static QProgressBar* BarOf(QTreeWidgetItem* ip_row);

    bool m_expandUsers = true;
    bool m_expandFolders = true;

private:
    TransferRow* NewUserRow(ItemPtr i_user);
    TransferRow* FolderRow(TransferRow* ip_userRow, ItemPtr i_folder);
    void DropRow(TransferRow* ip_row, char const* i_nodeType);
    ItemPtr NodeOf(QTreeWidgetItem* ip_row, char const* i_nodeType) const;
    void MarkDirty(TransferRow* ip_row);
    void ApplyContribution(TransferRow* ip_file, TransferRow::Sums const& i_new);
    void CountStatus(TransferRow* ip_file, std::string const& i_status, int i_count);
    void ShowStatus(TransferRow* ip_file, ItemPtr i_entry);
    void ShowAggregateIfClosed(TransferRow* ip_group);

    long long PositionOf(ItemPtr i_entry) const;
    static long long SpeedOf(ItemPtr i_entry);
    static TransferRow::Sums ContributionOf(std::string const& i_status, long long i_position, long long i_size);
    void DrawFile(TransferRow* ip_row);
    // i_mayMakeBar: only progress gives a row its first bar.
    void DrawGroup(TransferRow* ip_row, bool i_mayMakeBar);
    void SetBar(TransferRow* ip_row, long long i_done, double i_percent, bool i_mayMakeBar);
    void DrawSummary();

    TransferTreeKind const& m_kind;
    QTreeWidget* mp_tree;
    QLabel* mp_summary;
    std::function<void()> m_scheduleRedraw;
    bool m_building = false;
    std::vector<TransferRow*> m_builtUsers;
    std::vector<TransferRow*> m_dirty;
    bool m_summaryDirty = false;
    TransferTally m_tally;
    long long m_runningSpeed = 0;
};
