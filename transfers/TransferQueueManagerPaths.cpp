#include <QDir>


#include "store/Data.h"
#include "store/Settings.h"
#include "transfers/TransferQueueManager.h"
#include "transfers/TransferSupport.h"

namespace
{
QString Backslashed(QString i_path)
{
    return i_path.replace(QLatin1Char('/'), QLatin1Char('\\'));
}

std::string LocalNameOf(ItemPtr i_entry)
{
    ItemPtr const l_local = i_entry.HasItem("local_file_name");
    return l_local ? l_local.AsString() : i_entry.HasItem("file_name").AsString();
}
} // namespace

DownloadPath TransferQueueManager::TargetOf(ItemPtr i_entry, bool i_complete) const
{
    return DownloadPath(GetGlobal("download_folder"), i_entry.HasItem("remote_folder").AsString(), LocalNameOf(i_entry),
                        i_complete);
}

QString TransferQueueManager::GetDownloadTargetFolder(ItemPtr i_entry, bool i_complete) const
{
    DownloadPath const l_path = TargetOf(i_entry, i_complete);
    return l_path.IsValid() ? Backslashed(l_path.Folder()) : QString();
}

QString TransferQueueManager::GetDownloadTargetPath(ItemPtr i_entry, bool i_complete) const
{
    DownloadPath const l_path = TargetOf(i_entry, i_complete);
    return l_path.IsValid() ? Backslashed(l_path.File()) : QString();
}

bool TransferQueueManager::DoesDownloadItemCompleteFilenameExist(ItemPtr i_entry) const
{
    return TargetOf(i_entry, true).FileExists();
}

void TransferQueueManager::RemoveDownloadDownloadingFolderIfAppropriate(ItemPtr i_entry)
{
    ItemPtr const l_complete = d.GetType("download_entry_status")->HasItem("complete");
    ItemSet l_others = i_entry.HasItem("remote_folder").GetItems("download_entry");
    if (l_complete)
        l_others = l_others.NotConnected(ItemSet{l_complete.Get()});
    if (l_others.empty())
        TargetOf(i_entry, false).RemoveFolderIfEmpty();
}

bool TransferQueueManager::IsLocalNameTaken(ItemPtr i_entry, std::string const& i_subFolder, std::string const& i_name,
                                            bool i_countComplete) const
{
    ItemPtr const l_name = d.GetType("local_file_name")->HasItem(Value(i_name));
    if (!l_name)
        return false;
    for (Item* lp_other : l_name.GetItems("download_entry"))
        if (lp_other != i_entry.Get() && (i_countComplete || StatusOf(lp_other) != "complete") &&
            DownloadPath::SubFolder(ItemPtr(lp_other).HasItem("remote_folder").AsString()) == i_subFolder)
            return true;
    return false;
}

void TransferQueueManager::ChooseLocalFileName(ItemPtr i_entry)
{
    std::string const l_fileName = i_entry.HasItem("file_name").AsString();
    if (!DownloadPath::IsUsableFileName(l_fileName))
        return;
    std::string const l_base = DownloadPath::TameComponent(l_fileName);
    std::string const l_folder = i_entry.HasItem("remote_folder").AsString();
    std::string const l_sub = DownloadPath::SubFolder(l_folder);
    std::string l_name = l_base;
    if (IsLocalNameTaken(i_entry, l_sub, l_base, false))
    {
        std::string const l_downloadFolder = GetGlobal("download_folder");
        for (int l_number = 2;; ++l_number)
        {
            l_name = DownloadPath::NumberedName(l_base, l_number);
            if (!IsLocalNameTaken(i_entry, l_sub, l_name, true) &&
                !DownloadPath(l_downloadFolder, l_folder, l_name, false).FileExists() &&
                !DownloadPath(l_downloadFolder, l_folder, l_name, true).FileExists())
                break;
        }
        TransferLog(1, QStringLiteral("Another download has the local name %1; %2 from %3 is saved as %4")
                           .arg(QString::fromStdString(l_base), QString::fromStdString(RemotePath(i_entry)),
                                QString::fromStdString(i_entry.HasItem("user").AsString()), QString::fromStdString(l_name)),
                    i_entry.HasItem("user"));
    }
    ReplaceValue(i_entry, "local_file_name", Value(l_name));
}

bool TransferQueueManager::FreeCompleteName(ItemPtr i_entry)
{
    std::string const l_base = DownloadPath::TameComponent(i_entry.HasItem("file_name").AsString());
    std::string const l_folder = i_entry.HasItem("remote_folder").AsString();
    std::string const l_sub = DownloadPath::SubFolder(l_folder);
    std::string const l_downloadFolder = GetGlobal("download_folder");
    for (int l_number = 2; l_number < 10000; ++l_number)
    {
        std::string const l_name = DownloadPath::NumberedName(l_base, l_number);
        if (IsLocalNameTaken(i_entry, l_sub, l_name, true) || DownloadPath(l_downloadFolder, l_folder, l_name, true).FileExists())
            continue;
        TransferLog(1, QStringLiteral("A file named %1 appeared among the complete downloads; %2 is saved as %3")
                           .arg(QString::fromStdString(LocalNameOf(i_entry)), QString::fromStdString(RemotePath(i_entry)),
                                QString::fromStdString(l_name)),
                    i_entry.HasItem("user"));
        ReplaceValue(i_entry, "local_file_name", Value(l_name));
        return true;
    }
    return false;
}

void TransferQueueManager::RepairLoadedEntries()
{
    long long l_highest = 0;
    ItemSet l_unordered;
    for (Item* lp_entry : d.GetType("download_entry")->GetItems())
    {
        ItemPtr const l_entry(lp_entry);
        char const* lp_missing = nullptr;
        for (char const* lp_part : {"user", "file_name", "remote_folder", "file_size"})
            if (!lp_missing && !l_entry.HasItem(lp_part))
                lp_missing = lp_part;
        if (lp_missing || !DecimalOf(l_entry.HasItem("file_size").AsString()))
        {
            TransferLog(1, QStringLiteral("Dropped a saved download of %1 from %2: %3")
                               .arg(QString::fromStdString(l_entry.HasItem("file_name").AsString()),
                                    QString::fromStdString(l_entry.HasItem("user").AsString()),
                                    lp_missing ? QStringLiteral("no %1").arg(QLatin1String(lp_missing))
                                               : QStringLiteral("its size is no number")),
                        l_entry.HasItem("user"));
            l_entry.Remove();
            continue;
        }
        std::optional<long long> const l_order = DecimalOf(l_entry.HasItem("download_order").AsString());
        if (!l_order)
            l_unordered.insert(lp_entry);
        else
            l_highest = std::max(l_highest, *l_order);
        if (!l_entry.HasItem("download_entry_status"))
            l_entry += d.GetType("download_entry_status")->GetItem("queued");
        if (ItemPtr const l_local = l_entry.HasItem("local_file_name"); l_local && !DownloadPath::IsUsableFileName(l_local.AsString()))
            l_entry.Disconnect("local_file_name");
    }
    long long l_next = std::max(DecimalOf(GetGlobal("transfer_order_counter")).value_or(1), l_highest + 1);
    for (Item* lp_entry : l_unordered)
    {
        TransferLog(1, QStringLiteral("A saved download of %1 from %2 had no place in the order; it is placed last")
                           .arg(QString::fromStdString(ItemPtr(lp_entry).HasItem("file_name").AsString()),
                                QString::fromStdString(ItemPtr(lp_entry).HasItem("user").AsString())),
                    ItemPtr(lp_entry).HasItem("user"));
        ItemPtr(lp_entry).Disconnect("download_order");
        ItemPtr(lp_entry) += d.GetType("download_order")->GetItem(Value(l_next++));
    }
    SetGlobal("transfer_order_counter", Value(l_next));
}
