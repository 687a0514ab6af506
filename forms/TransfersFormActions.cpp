#include <QDesktopServices>
#include <QDir>
#include <QMenu>
#include <QUrl>

#include "forms/TransfersForm.h"
#include "forms/UserMenuOptions.h"
#include "shell/ActionSetToolBar.h"
#include "store/Data.h"
#include "transfers/TransferQueueManager.h"
#include "ui_TransfersForm.h"

// ---- actions

QString TransfersForm::ExpandText(char const* i_what, bool i_on)
{
    return QString::fromLatin1(i_what) + (i_on ? QStringLiteral(" [on]") : QStringLiteral(" [off]"));
}

void TransfersForm::OnActionBarTriggered(std::string i_action)
{
    if (i_action == "remove_download")
        RemoveSelectedDownloads();
    else if (i_action == "expand_download_folders")
        ToggleExpand(m_downloads, false, "expand_download_folders");
    else if (i_action == "expand_download_users")
        ToggleExpand(m_downloads, true, "expand_download_users");
    else if (i_action == "expand_upload_folders")
        ToggleExpand(m_uploads, false, "expand_upload_folders");
    else if (i_action == "expand_upload_users")
        ToggleExpand(m_uploads, true, "expand_upload_users");
}

void TransfersForm::RemoveSelectedDownloads()
{
    // All entries first: removing a folder's entries deletes file rows that may be selected too.
    ItemSet l_entries;
    for (QTreeWidgetItem* lp_row : mp_ui->downloadsList->selectedItems())
        l_entries.Add(GetNodeDownloadEntryItems(lp_row));
    if (!transferQueueManager)
        return;
    for (Item* lp_entry : l_entries)
        transferQueueManager->RemoveDownload(lp_entry);
}

void TransfersForm::ToggleExpand(TransferTree& io_tree, bool i_users, char const* i_action)
{
    bool& l_flag = i_users ? io_tree.m_expandUsers : io_tree.m_expandFolders;
    l_flag = !l_flag;
    if (actionBar)
        actionBar->SetWidgetActionText(io_tree.Tree(), QString::fromLatin1(i_action),
                                       ExpandText(i_users ? "Expand Users" : "Expand Folders", l_flag));
    io_tree.SetLevelExpanded(i_users ? TransferRow::Level::User : TransferRow::Level::Folder, l_flag);
}

void TransfersForm::OnItemExpanded(QTreeWidgetItem* ip_row)
{
    TreeOf(ip_row).ShowGroupStatus(static_cast<TransferRow*>(ip_row));
}

void TransfersForm::OnItemCollapsed(QTreeWidgetItem* ip_row)
{
    TreeOf(ip_row).ShowGroupStatus(static_cast<TransferRow*>(ip_row));
}

// ---- menus and folders

void TransfersForm::OnDownloadsContextMenuRequested(QPoint const& i_point)
{
    ShowMenu(m_downloads, i_point);
}

void TransfersForm::OnUploadsContextMenuRequested(QPoint const& i_point)
{
    ShowMenu(m_uploads, i_point);
}

void TransfersForm::ShowMenu(TransferTree& io_tree, QPoint const& i_point)
{
    QTreeWidgetItem* lp_row = io_tree.Tree()->itemAt(i_point);
    ItemPtr const l_user = lp_row ? io_tree.UserOfRow(lp_row) : ItemPtr();
    if (!l_user)
        return;
    QMenu l_menu;
    QIcon const l_icon(QStringLiteral(":/icons/transfer_icon"));
    if (io_tree.Kind().m_downloads)
        connect(l_menu.addAction(l_icon, QStringLiteral("Remove Download(s)")), &QAction::triggered, this,
                &TransfersForm::RemoveSelectedDownloads);
    QString const l_folder = io_tree.LocalFolderOf(lp_row);
    if (!l_folder.isEmpty())
    {
        QAction* lp_open = l_menu.addAction(QStringLiteral("Open Folder"));
        lp_open->setEnabled(QDir(l_folder).exists());
        connect(lp_open, &QAction::triggered, this, [&io_tree, this, lp_row] { OpenFolderOf(io_tree, lp_row); });
    }
    if (!l_menu.isEmpty())
        l_menu.addSeparator();
    new UserMenuOptions(&l_menu, l_user.AsString(), &l_menu);
    l_menu.exec(io_tree.Tree()->viewport()->mapToGlobal(i_point));
}

void TransfersForm::OpenFolderOf(TransferTree const& i_tree, QTreeWidgetItem* ip_row)
{
    // Only ever the folder: a file from a peer is never opened from here.
    QString const l_folder = i_tree.LocalFolderOf(ip_row);
    if (!l_folder.isEmpty() && QDir(l_folder).exists())
        QDesktopServices::openUrl(QUrl::fromLocalFile(l_folder));
}

// ---- the upload speed limit

void TransfersForm::OnUploadSpeedLimitSpinValueChanged(int i_value)
{
    mp_ui->uploadLimitCheckBox->setChecked(i_value != 0);
    if (transferQueueManager)
        transferQueueManager->SetUploadSpeedLimit(i_value);
}

void TransfersForm::OnUploadSpeedLimitCheckStateChanged(int i_state)
{
    if (!transferQueueManager)
        return;
    if (i_state == Qt::Checked)
        transferQueueManager->EnableUploadSpeedLimit(true);
    else if (i_state == Qt::Unchecked)
        transferQueueManager->EnableUploadSpeedLimit(false);
}
