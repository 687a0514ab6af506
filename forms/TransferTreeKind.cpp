#include "forms/TransferTreeKind.h"

#include "store/Data.h"
#include "stream/PathNames.h"
#include "transfers/TransferQueueManager.h"
#include "transfers/TransferSupport.h"

namespace
{
long long Number(ItemPtr i_item)
{
    // Sizes come from the data file or from a peer: read, never asserted on.
    return DecimalOf(i_item.AsString()).value_or(0);
}

ItemPtr SharedFile(ItemPtr i_entry)
{
    return i_entry.HasItem("shared_file");
}

// A download lies under "downloading" until it is complete.
QString DownloadPlace(ItemPtr i_entry, bool i_folder)
{
    if (!transferQueueManager)
        return QString();
    DownloadPath const l_path =
        transferQueueManager->TargetOf(i_entry, TransferQueueManager::StatusOf(i_entry) == "complete");
    if (!l_path.IsValid())
        return QString();
    return i_folder ? l_path.Folder() : l_path.File();
}

QString UploadFolder(ItemPtr i_entry)
{
    return QString::fromStdString(SharedFile(i_entry).HasItem("shared_file_folder").AsString());
}
} // namespace

TransferTreeKind const& TransferTreeKind::Downloads()
{
    static TransferTreeKind const s_kind{
        true,
        "download_entry",
        "download_entry_status",
        "download_list_user_node",
        "download_list_folder_node",
        "download_list_node",
        "remote_folder",
        "write_position",
        [](ItemPtr i_entry) { return i_entry.HasItem("remote_folder"); },
        [](ItemPtr i_entry) { return QString::fromStdString(i_entry.HasItem("file_name").AsString()); },
        [](ItemPtr i_entry) { return Number(i_entry.HasItem("file_size")); },
        [](ItemPtr i_entry) { return DownloadPlace(i_entry, false); },
        [](ItemPtr i_entry) { return DownloadPlace(i_entry, true); },
    };
    return s_kind;
}

TransferTreeKind const& TransferTreeKind::Uploads()
{
    static TransferTreeKind const s_kind{
        false,
        "upload_entry",
        "upload_entry_status",
        "upload_list_user_node",
        "upload_list_folder_node",
        "upload_list_node",
        "shared_file_folder",
        "read_position",
        [](ItemPtr i_entry) { return SharedFile(i_entry).HasItem("shared_file_folder"); },
        [](ItemPtr i_entry)
        { return QString::fromStdString(GetFileName(SharedFile(i_entry).HasItem("shared_file_name").AsString())); },
        [](ItemPtr i_entry) { return Number(SharedFile(i_entry).HasItem("shared_file_size")); },
        [](ItemPtr i_entry)
        {
            QString const l_folder = UploadFolder(i_entry);
            return l_folder.isEmpty() ? QString()
                                      : l_folder + QLatin1Char('/') +
                                            QString::fromStdString(SharedFile(i_entry).HasItem("shared_file_name").AsString());
        },
        [](ItemPtr i_entry) { return UploadFolder(i_entry); },
    };
    return s_kind;
}
