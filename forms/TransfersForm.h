#pragma once

#include <QTimer>
#include <QWidget>

#include <memory>
#include <string>

#include "forms/TransferRow.h"
#include "forms/TransferTree.h"
#include "store/DataHandler.h"
#include "store/DataLoadedEventHandler.h"
#include "store/ItemPtr.h"

namespace Ui
{
class TransfersForm;
}
class QTreeWidget;
class QTreeWidgetItem;

// The "Transfers" page: every download and every upload as a tree of user, folder and file,
// with the upload speed limit under the uploads. It owns no state of the transfers: it follows
// the graph and the queue manager, and writes back only removals and the limit.
class TransfersForm : public QWidget, public DataHandler, public DataLoadedEventHandler
{
    Q_OBJECT
public:
    // How often, at most, reported progress is drawn.
    static constexpr int s_redrawIntervalMs = 250;

    explicit TransfersForm(QWidget* ip_parent = nullptr);
    ~TransfersForm() override;

    // Runs once the managers exist and before the data file is loaded: row types, graph
    // listeners, tool bar and signals.
    void Init();
    void DataLoaded() override;

    void OnDownloadEntryAdded(Item* ip_entry);
    void OnUploadEntryAdded(Item* ip_entry);
    void OnDownloadPlaceInLine(Item* ip_entry);
    void OnUserOnline(Item* ip_user);
    void OnUserOffline(Item* ip_user);
    void OnDownloadEntryStatusChange(ConnectionInfo& i_info);
    void OnUploadEntryStatusChange(ConnectionInfo& i_info);
    void OnDownloadEntryRemoved(Item* ip_entry);
    void OnUploadEntryRemoved(Item* ip_entry);

    ItemSet GetNodeDownloadEntryItems(QTreeWidgetItem* ip_row) const;
    ItemSet GetNodeUploadEntryItems(QTreeWidgetItem* ip_row) const;
    QTreeWidgetItem* GetDownloadNodeUserNode(QTreeWidgetItem* ip_row) const;
    QTreeWidgetItem* GetUploadNodeUserNode(QTreeWidgetItem* ip_row) const;
    std::string GetDownloadEntriesAggregateStatus(ItemSet const& i_entries) const;
    std::string GetUploadEntriesAggregateStatus(ItemSet const& i_entries) const;
    TransferRow::Sums GetDownloadsProgressStats(ItemSet const& i_entries) const;
    TransferRow::Sums GetUploadsProgressStats(ItemSet const& i_entries) const;

    // Hands the focus, and with it the tool bar, to the tree on show.
    void FocusCurrentPage();

    QTreeWidget* DownloadsList() const;
    QTreeWidget* UploadsList() const;
    TransferTree& Downloads() { return m_downloads; }
    TransferTree& Uploads() { return m_uploads; }

public slots:
    void OnDownloadProgress(ItemPtr i_download);
    void OnUploadProgress(ItemPtr i_upload);
    void OnTransfersLoaded();
    void OnActionBarTriggered(std::string i_action);
    void OnItemExpanded(QTreeWidgetItem* ip_row);
    void OnItemCollapsed(QTreeWidgetItem* ip_row);
    void OnDownloadsContextMenuRequested(QPoint const& i_point);
    void OnUploadsContextMenuRequested(QPoint const& i_point);
    void OnUploadSpeedLimitSpinValueChanged(int i_value);
    void OnUploadSpeedLimitCheckStateChanged(int i_state);
    // Draws the progress reported since the last time.
    void OnRedrawTimeout();

private:
    void ScheduleRedraw();
    void RegisterGraphEvents();
    void DeclareActions();
    void RemoveSelectedDownloads();
    void ToggleExpand(TransferTree& io_tree, bool i_users, char const* i_action);
    // An expand action's text with the mark of its state.
    static QString ExpandText(char const* i_what, bool i_on);
    void ShowMenu(TransferTree& io_tree, QPoint const& i_point);
    void OpenFolderOf(TransferTree const& i_tree, QTreeWidgetItem* ip_row);
    TransferTree& TreeOf(QTreeWidgetItem* ip_row);

    std::unique_ptr<Ui::TransfersForm> mp_ui;
    TransferTree m_downloads;
    TransferTree m_uploads;
    QTimer m_redrawTimer;
    bool m_transfersLoaded = false;
    bool m_sizesRegistered = false;
};
