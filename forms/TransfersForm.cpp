#include "forms/TransfersForm.h"

#include <QShortcut>

#include <algorithm>
#include <utility>

#include "shell/ActionSetToolBar.h"
#include "shell/SizeManager.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "transfers/TransferQueueManager.h"
#include "transfers/TransferSupport.h"
#include "ui_TransfersForm.h"

namespace
{
std::unique_ptr<Ui::TransfersForm> MakeUi(QWidget* ip_form)
{
    auto lp_ui = std::make_unique<Ui::TransfersForm>();
    lp_ui->setupUi(ip_form);
    return lp_ui;
}

void SetStartingWidths(QTreeWidget* ip_tree)
{
    // Wide enough for an offline mark, a peer's usual refusal, an hour-long ETA and speeds in
    // the thousands; the names of folders and files take what is left.
    int const l_widths[] = {120, 105, 120, 150, 140, 90, 60, 105, 40};
    for (int l_column = 0; l_column < ip_tree->columnCount(); ++l_column)
        ip_tree->setColumnWidth(l_column, l_widths[l_column]);
}

Item* EntryOf(ConnectionInfo const& i_info, char const* i_entryType)
{
    return i_info.m_to->GetType() == d.GetType(i_entryType) ? i_info.m_to : i_info.m_from;
}
} // namespace

TransfersForm::TransfersForm(QWidget* ip_parent)
    : QWidget(ip_parent), mp_ui(MakeUi(this)),
      m_downloads(TransferTreeKind::Downloads(), mp_ui->downloadsList, mp_ui->downloadsSummaryLabel,
                  [this] { ScheduleRedraw(); }),
      m_uploads(TransferTreeKind::Uploads(), mp_ui->uploadsList, mp_ui->uploadsSummaryLabel, [this] { ScheduleRedraw(); })
{
    for (QTreeWidget* lp_tree : {mp_ui->downloadsList, mp_ui->uploadsList})
        lp_tree->header()->setSectionsMovable(false);
    mp_ui->downloadsTab->setFocusProxy(mp_ui->downloadsList);
    mp_ui->uploadsTab->setFocusProxy(mp_ui->uploadsList);
    m_redrawTimer.setSingleShot(true);
    m_redrawTimer.setInterval(s_redrawIntervalMs);
    connect(&m_redrawTimer, &QTimer::timeout, this, &TransfersForm::OnRedrawTimeout);
}

TransfersForm::~TransfersForm() = default;

QTreeWidget* TransfersForm::DownloadsList() const
{
    return mp_ui->downloadsList;
}

QTreeWidget* TransfersForm::UploadsList() const
{
    return mp_ui->uploadsList;
}

void TransfersForm::Init()
{
    m_downloads.DeclareTypes();
    m_uploads.DeclareTypes();
    SetStartingWidths(mp_ui->downloadsList);
    SetStartingWidths(mp_ui->uploadsList);
    RegisterGraphEvents();
    DeclareActions();

    if (transferQueueManager)
    {
        connect(transferQueueManager, &TransferQueueManager::DownloadProgressed, this, &TransfersForm::OnDownloadProgress);
        connect(transferQueueManager, &TransferQueueManager::UploadProgressed, this, &TransfersForm::OnUploadProgress);
        connect(transferQueueManager, &TransferQueueManager::TransfersLoaded, this, &TransfersForm::OnTransfersLoaded);
    }
    for (QTreeWidget* lp_tree : {mp_ui->downloadsList, mp_ui->uploadsList})
    {
        connect(lp_tree, &QTreeWidget::itemExpanded, this, &TransfersForm::OnItemExpanded);
        connect(lp_tree, &QTreeWidget::itemCollapsed, this, &TransfersForm::OnItemCollapsed);
        connect(lp_tree, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* ip_row) {
            if (static_cast<TransferRow*>(ip_row)->GetLevel() == TransferRow::Level::File)
                OpenFolderOf(TreeOf(ip_row), ip_row);
        });
    }
    connect(mp_ui->downloadsList, &QWidget::customContextMenuRequested, this,
            &TransfersForm::OnDownloadsContextMenuRequested);
    connect(mp_ui->uploadsList, &QWidget::customContextMenuRequested, this, &TransfersForm::OnUploadsContextMenuRequested);
    auto* lp_delete = new QShortcut(QKeySequence::Delete, mp_ui->downloadsList, nullptr, nullptr, Qt::WidgetShortcut);
    connect(lp_delete, &QShortcut::activated, this, &TransfersForm::RemoveSelectedDownloads);
}

void TransfersForm::RegisterGraphEvents()
{
    auto* lp_download = new PathNode(&d, "download_entry");
    for (char const* lp_part : {"user", "file_name", "file_size", "remote_folder"})
        new PathNode(lp_download, lp_part, TriggerConnected);
    ListenPath(lp_download, &TransfersForm::OnDownloadEntryAdded);
    auto* lp_upload = new PathNode(&d, "upload_entry");
    for (char const* lp_part : {"user", "shared_file"})
        new PathNode(lp_upload, lp_part, TriggerConnected);
    ListenPath(lp_upload, &TransfersForm::OnUploadEntryAdded);
    auto* lp_place = new PathNode(&d, "download_entry");
    new PathNode(lp_place, "place_in_line", TriggerConnected);
    ListenPath(lp_place, &TransfersForm::OnDownloadPlaceInLine);
    for (auto [l_relation, lp_method] : {std::pair{NewlyConnected, &TransfersForm::OnUserOnline},
                                          std::pair{NewlyDisconnected, &TransfersForm::OnUserOffline}})
    {
        auto* lp_user = new PathNode(&d, "user");
        new PathNode(lp_user, "is_online", l_relation);
        ListenPath(lp_user, lp_method);
    }
    ListenPairConnection("download_entry_status", "download_entry", &TransfersForm::OnDownloadEntryStatusChange);
    ListenPairConnection("upload_entry_status", "upload_entry", &TransfersForm::OnUploadEntryStatusChange);
    ListenItemRemoved("download_entry", &TransfersForm::OnDownloadEntryRemoved);
    ListenItemRemoved("upload_entry", &TransfersForm::OnUploadEntryRemoved);
}

void TransfersForm::DeclareActions()
{
    if (!actionBar)
        return;
    std::string const l_icon = ":/icons/transfer_icon";
    actionBar->AddSetAction("downloads", "remove_download", "Remove Download(s)", l_icon, true);
    actionBar->AddSetAction("downloads", "expand_download_folders", "Expand Folders", l_icon, false);
    actionBar->AddSetAction("downloads", "expand_download_users", "Expand Users", l_icon, false);
    actionBar->AddSetAction("uploads", "expand_upload_folders", "Expand Folders", l_icon, false);
    actionBar->AddSetAction("uploads", "expand_upload_users", "Expand Users", l_icon, false);
    actionBar->RegisterWidget(mp_ui->downloadsList, QStringLiteral("downloads"));
    actionBar->RegisterWidget(mp_ui->uploadsList, QStringLiteral("uploads"));
    actionBar->SetWidgetActionText(mp_ui->downloadsList, QStringLiteral("expand_download_folders"),
                                   ExpandText("Expand Folders", true));
    actionBar->SetWidgetActionText(mp_ui->downloadsList, QStringLiteral("expand_download_users"),
                                   ExpandText("Expand Users", true));
    actionBar->SetWidgetActionText(mp_ui->uploadsList, QStringLiteral("expand_upload_folders"),
                                   ExpandText("Expand Folders", true));
    actionBar->SetWidgetActionText(mp_ui->uploadsList, QStringLiteral("expand_upload_users"),
                                   ExpandText("Expand Users", true));
    actionBar->AutoFocusTabWidget(mp_ui->transfersTabControl);
    connect(actionBar, &ActionSetToolBar::ActionTriggered, this, &TransfersForm::OnActionBarTriggered);
}

void TransfersForm::DataLoaded()
{
    // The controls take the saved values before they are wired, so that showing a limit that
    // is switched off does not switch it on.
    long long const l_limit = DecimalOf(GetGlobal("upload_speed_limit")).value_or(0);
    mp_ui->uploadLimitSpinBox->setValue(static_cast<int>(std::min<long long>(l_limit, mp_ui->uploadLimitSpinBox->maximum())));
    mp_ui->uploadLimitCheckBox->setChecked(GetGlobal("upload_speed_limit_enabled") == "yes");
    connect(mp_ui->uploadLimitSpinBox, &QSpinBox::valueChanged, this, &TransfersForm::OnUploadSpeedLimitSpinValueChanged,
            Qt::UniqueConnection);
    connect(mp_ui->uploadLimitCheckBox, &QCheckBox::stateChanged, this,
            &TransfersForm::OnUploadSpeedLimitCheckStateChanged, Qt::UniqueConnection);
    if (sizeManager && !std::exchange(m_sizesRegistered, true))
    {
        sizeManager->RegisterTreeWidget(QStringLiteral("download_list"), mp_ui->downloadsList);
        sizeManager->RegisterTreeWidget(QStringLiteral("upload_list"), mp_ui->uploadsList);
    }
}

void TransfersForm::FocusCurrentPage()
{
    if (QWidget* lp_page = mp_ui->transfersTabControl->currentWidget())
        lp_page->setFocus(Qt::OtherFocusReason);
}

// ---- rows

void TransfersForm::OnTransfersLoaded()
{
    m_transfersLoaded = true;
    m_downloads.BeginBuild();
    for (Item* lp_entry : d.GetType("download_entry")->GetItems().SortNumericBy("download_order", true))
        OnDownloadEntryAdded(lp_entry);
    m_downloads.EndBuild();
}

void TransfersForm::OnDownloadEntryAdded(Item* ip_entry)
{
    if (m_transfersLoaded)
        m_downloads.AddEntry(ip_entry);
}

void TransfersForm::OnUploadEntryAdded(Item* ip_entry)
{
    m_uploads.AddEntry(ip_entry);
}

void TransfersForm::OnDownloadPlaceInLine(Item* ip_entry)
{
    if (TransferRow* lp_row = m_downloads.FileRowOf(ip_entry))
        lp_row->setText(8, QString::fromStdString(ItemPtr(ip_entry).HasItem("place_in_line").AsString()));
}

void TransfersForm::OnUserOnline(Item* ip_user)
{
    m_downloads.ShowUserName(ip_user);
}

void TransfersForm::OnUserOffline(Item* ip_user)
{
    m_downloads.ShowUserName(ip_user);
}

void TransfersForm::OnDownloadEntryStatusChange(ConnectionInfo& i_info)
{
    m_downloads.OnStatusChange(EntryOf(i_info, "download_entry"));
}

void TransfersForm::OnUploadEntryStatusChange(ConnectionInfo& i_info)
{
    m_uploads.OnStatusChange(EntryOf(i_info, "upload_entry"));
}

void TransfersForm::OnDownloadEntryRemoved(Item* ip_entry)
{
    m_downloads.RemoveEntry(ip_entry);
}

void TransfersForm::OnUploadEntryRemoved(Item* ip_entry)
{
    m_uploads.RemoveEntry(ip_entry);
}

void TransfersForm::OnDownloadProgress(ItemPtr i_download)
{
    m_downloads.OnProgress(i_download);
}

void TransfersForm::OnUploadProgress(ItemPtr i_upload)
{
    m_uploads.OnProgress(i_upload);
}

void TransfersForm::ScheduleRedraw()
{
    if (!m_redrawTimer.isActive())
        m_redrawTimer.start();
}

void TransfersForm::OnRedrawTimeout()
{
    m_downloads.Redraw();
    m_uploads.Redraw();
}

// ---- look-ups

ItemSet TransfersForm::GetNodeDownloadEntryItems(QTreeWidgetItem* ip_row) const
{
    return m_downloads.EntriesUnder(ip_row);
}

ItemSet TransfersForm::GetNodeUploadEntryItems(QTreeWidgetItem* ip_row) const
{
    return m_uploads.EntriesUnder(ip_row);
}

QTreeWidgetItem* TransfersForm::GetDownloadNodeUserNode(QTreeWidgetItem* ip_row) const
{
    return TransferTree::UserRowAbove(ip_row);
}

QTreeWidgetItem* TransfersForm::GetUploadNodeUserNode(QTreeWidgetItem* ip_row) const
{
    return TransferTree::UserRowAbove(ip_row);
}

std::string TransfersForm::GetDownloadEntriesAggregateStatus(ItemSet const& i_entries) const
{
    return m_downloads.AggregateStatusOf(i_entries);
}

std::string TransfersForm::GetUploadEntriesAggregateStatus(ItemSet const& i_entries) const
{
    return m_uploads.AggregateStatusOf(i_entries);
}

TransferRow::Sums TransfersForm::GetDownloadsProgressStats(ItemSet const& i_entries) const
{
    return m_downloads.ProgressStatsOf(i_entries);
}

TransferRow::Sums TransfersForm::GetUploadsProgressStats(ItemSet const& i_entries) const
{
    return m_uploads.ProgressStatsOf(i_entries);
}

TransferTree& TransfersForm::TreeOf(QTreeWidgetItem* ip_row)
{
    return ip_row->treeWidget() == mp_ui->uploadsList ? m_uploads : m_downloads;
}
