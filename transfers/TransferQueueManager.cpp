#include "transfers/TransferQueueManager.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTcpSocket>

#include <algorithm>

#include "peer/PeerMessageCode.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "server/ServerSchema.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/PathNode.h"
#include "store/Settings.h"
#include "stream/MemStream.h"
#include "stream/PathNames.h"
#include "transfers/DownloadThread.h"
#include "transfers/TransferParts.h"
#include "transfers/TransferSupport.h"
#include "transfers/UploadThread.h"

TransferQueueManager* transferQueueManager = nullptr;

namespace
{
void DeclareDownloadSchema()
{
    DeclareTypeOnce("download_entry", true, true, true);
    for (char const* lp_type : {"file_name", "remote_folder", "file_size", "remote_transfer_req", "write_position",
                                "bytes_per_second", "download_entry_status", "download_order", "place_in_line",
                                "denial_reason", "last_place_in_line_request_time", "local_file_name"})
        DeclareTypeOnce(lp_type, false, false, true);
    for (char const* lp_type : {"download_socket", "download_file", "download_thread"})
        DeclareTypeOnce(lp_type, true, false, true);
    DeclareTypeOnce("is_active", false, true, true);

    for (char const* lp_type : {"user", "file_name", "remote_folder", "file_size", "remote_transfer_req", "write_position",
                                "download_entry_status", "place_in_line", "local_file_name"})
        RelateOnceByName("download_entry", lp_type, One, Many);
    for (char const* lp_type : {"download_socket", "download_thread", "download_file", "download_order", "bytes_per_second"})
        RelateOnceByName("download_entry", lp_type, One, One);
    RelateOnceByName("download_entry_status", "is_active", One, Many);
    RelateOnceByName("user", "last_place_in_line_request_time", One, Many);
    RelateOnceByName("denial_reason", "download_entry", Many, One);

    dataSaver->m_savedTypes.insert("download_entry");
    for (char const* lp_type : {"user", "file_name", "remote_folder", "file_size", "download_entry_status", "download_order",
                                "local_file_name"})
        dataSaver->AddSavedByConnectionType(lp_type, "download_entry");
}

bool IsOnline(ItemPtr i_user)
{
    return i_user && i_user.HasItem("is_online");
}

std::list<Item*> ByOrder(ItemSet const& i_entries)
{
    // Only loaded entries are sorted, and DataLoaded has given each a numeric order.
    return i_entries.SortNumericBy("download_order", true);
}
} // namespace

TransferQueueManager::TransferQueueManager(QObject* ip_parent) : QObject(ip_parent)
{
    transferQueueManager = this;
    DeclareDownloadSchema();
    DeclareUploadSchema();
    ItemPtr const l_downloading = d.GetType("download_entry_status")->GetItem("downloading");
    if (!l_downloading.HasItem("is_active"))
        l_downloading.NewItem("is_active");
    SetGlobalIfUnset("download_folder", Value((QDir::homePath() + QStringLiteral("/Tidewick Downloads")).toStdString()));
    SetGlobalIfUnset("transfer_order_counter", Value("1"));
    SetGlobalIfUnset("upload_speed_limit", Value("0"));
    SetGlobalIfUnset("upload_speed_limit_enabled", Value("no"));
    // Set at every start; a saved number replaces it, so a peer never sees a request number
    // of an earlier run again.
    SetGlobal("transfer_req_counter", Value("1"));

    ListenItemRemoved("write_position", &TransferQueueManager::OnWritePositionRemoved);
    ListenItemRemoved("bytes_per_second", &TransferQueueManager::OnBytesPerSecondRemoved);
    ListenItemRemoved("read_position", &TransferQueueManager::OnReadPositionRemoved);
    auto* lp_user = new PathNode(&d, "user");
    new PathNode(lp_user, "is_online", TriggerConnected);
    ListenPath(lp_user, &TransferQueueManager::OnUserOnline);

    if (peerMessenger)
    {
        connect(peerMessenger, &PeerMessenger::FileTransferRequested, this, &TransferQueueManager::OnFileTransferRequest);
        connect(peerMessenger, &PeerMessenger::FileConnectionRequested, this, &TransferQueueManager::OnFileConnection);
        connect(peerMessenger, &PeerMessenger::UploadFailed, this, &TransferQueueManager::OnUploadFailedNotification);
        connect(peerMessenger, &PeerMessenger::UploadDenied, this, &TransferQueueManager::OnUploadDeniedNotification);
        connect(peerMessenger, &PeerMessenger::DownloadPlaceInLine, this, &TransferQueueManager::OnDownloadPlaceInLine);
        connect(peerMessenger, &PeerMessenger::QueueUploadRequested, this, &TransferQueueManager::OnQueueUploadRequested);
        connect(peerMessenger, &PeerMessenger::FileTransferResponse, this, &TransferQueueManager::OnFileTransferResponse);
        connect(peerMessenger, &PeerMessenger::FileConnectionAccepted, this, &TransferQueueManager::OnFileConnectionAccepted);
    }
    SharedFoldersManager::SetUploadSlotSource(
        [this]
        {
            SharedFoldersManager::UploadSlots l_slots;
            l_slots.m_free = IsFreeToUpload();
            l_slots.m_queued = static_cast<std::uint32_t>(QueuedUploadCount());
            return l_slots;
        });
}

TransferQueueManager::~TransferQueueManager()
{
    // All are told first, so that they stop side by side rather than one after another.
    SharedFoldersManager::SetUploadSlotSource(nullptr);
    ItemSet const l_threads = d.GetType("download_thread")->GetItems();
    for (Item* lp_thread : l_threads)
        lp_thread->AsPointer<DownloadThread>()->SignalExit();
    ItemSet const l_uploadThreads = d.GetType("upload_thread")->GetItems();
    for (Item* lp_thread : l_uploadThreads)
        lp_thread->AsPointer<UploadThread>()->SignalExit();
    for (Item* lp_entry : l_threads.GetItems("download_entry"))
        TakeDownTransfer(lp_entry);
    // Nothing of an upload is saved: the whole queue goes, and with it every open file.
    for (Item* lp_entry : d.GetType("upload_entry")->GetItems())
        RemoveUpload(lp_entry);
    RemoveDataHandlers();
    // Values no transfer holds any more, which no removal handler would free from now on.
    for (Item* lp_item : d.GetType("write_position")->GetItems())
        delete lp_item->AsPointer<long long>();
    for (Item* lp_item : d.GetType("read_position")->GetItems())
        delete lp_item->AsPointer<long long>();
    for (Item* lp_item : d.GetType("bytes_per_second")->GetItems())
        delete lp_item->AsPointer<int>();
    for (char const* lp_type : {"write_position", "read_position", "bytes_per_second"})
        d.GetType(lp_type)->GetItems().Remove();
    if (transferQueueManager == this)
        transferQueueManager = nullptr;
}

void TransferQueueManager::DataLoaded()
{
    RepairLoadedEntries();
    ItemPtr const l_queued = d.GetType("download_entry_status")->GetItem("queued");
    ItemSet const l_entries = d.GetType("download_entry")->GetItems();
    // In order, so that the older of two entries that meet keeps the plain name.
    for (Item* lp_entry : ByOrder(l_entries))
    {
        if (StatusOf(lp_entry) != "complete")
            ItemPtr(lp_entry) += l_queued;
        ItemPtr(lp_entry).Disconnect("denial_reason");
        if (!ItemPtr(lp_entry).HasItem("local_file_name"))
            ChooseLocalFileName(lp_entry);
    }
    for (Item* lp_user : l_entries.GetItems("user"))
        if (gp_server)
            gp_server->TrackUser(lp_user->AsString());
    emit TransfersLoaded();
    DetermineUploadSpeedLimit();
}

void TransferQueueManager::AddDownload(std::string const& i_user, std::string const& i_fileName,
                                       std::string const& i_remoteFolder, long long i_fileSize)
{
    if (GetDownloadEntry(i_user, i_fileName, i_remoteFolder))
        return;
    QString const l_file = QString::fromStdString(i_fileName);
    QString const l_user = QString::fromStdString(i_user);
    if (!DownloadPath::IsUsableFileName(i_fileName) || i_user.empty())
    {
        TransferLog(1, QStringLiteral("Refused download of %1 from %2: unusable file name").arg(l_file, l_user));
        return;
    }
    if (i_fileSize < 0)
    {
        TransferLog(1, QStringLiteral("Refused download of %1 from %2: negative size %3").arg(l_file, l_user).arg(i_fileSize));
        return;
    }
    ItemPtr const l_entry = d.GetType("download_entry")->NewItem();
    ItemPtr const l_userItem = d.GetType("user")->GetItem(Value(i_user));
    l_entry += l_userItem;
    l_entry += d.GetType("file_name")->GetItem(Value(i_fileName));
    l_entry += d.GetType("remote_folder")->GetItem(Value(i_remoteFolder));
    l_entry += d.GetType("file_size")->GetItem(Value(i_fileSize));
    long long const l_order = std::max(1LL, DecimalOf(GetGlobal("transfer_order_counter")).value_or(1));
    l_entry += d.GetType("download_order")->GetItem(Value(l_order));
    SetGlobal("transfer_order_counter", Value(l_order + 1));
    ChooseLocalFileName(l_entry);
    if (gp_server)
        gp_server->TrackUser(i_user);
    if (DoesDownloadItemCompleteFilenameExist(l_entry))
    {
        SetDownloadEntryStatus(l_entry, "complete");
        return;
    }
    SetDownloadEntryStatus(l_entry, "queued");
    if (IsOnline(l_userItem) && peerMessenger)
    {
        peerMessenger->QueueDownload(i_user, RemotePath(l_entry));
        RequestDownloadPlaceInLine(l_entry);
    }
}

ItemPtr TransferQueueManager::GetDownloadEntry(std::string const& i_user, std::string const& i_fileName,
                                               std::string const& i_remoteFolder) const
{
    ItemSet l_parts;
    for (auto const& [lp_type, l_key] : {std::pair<char const*, std::string const&>{"user", i_user},
                                         {"file_name", i_fileName},
                                         {"remote_folder", i_remoteFolder}})
    {
        ItemPtr const l_item = d.GetType(lp_type)->HasItem(Value(l_key));
        if (!l_item)
            return ItemPtr();
        l_parts.insert(l_item);
    }
    return d.GetItem(l_parts, "download_entry");
}

void TransferQueueManager::RemoveDownload(ItemPtr i_entry)
{
    if (!i_entry)
        return;
    TakeDownTransfer(i_entry);
    i_entry.Remove();
}

void TransferQueueManager::SetDownloadEntryStatus(ItemPtr i_entry, std::string const& i_status)
{
    bool const l_wasActive = i_entry.HasItem("download_entry_status").HasItem("is_active");
    ItemPtr const l_status = d.GetType("download_entry_status")->GetItem(Value(i_status));
    // A status no entry holds is swept with its flag, and made again without it; an entry that
    // then left "downloading" would keep its thread, file and socket.
    if (i_status == "downloading" && !l_status.HasItem("is_active"))
        l_status.NewItem("is_active");
    i_entry += l_status;
    if (l_wasActive && !l_status.HasItem("is_active"))
        TakeDownTransfer(i_entry);
}

void TransferQueueManager::TakeDownTransfer(ItemPtr i_entry)
{
    TakeDownTransferParts<DownloadThread>(i_entry, {"download_thread", "download_file", "download_socket", "write_position"});
}

void TransferQueueManager::OnWritePositionRemoved(Item* ip_item)
{
    delete ip_item->AsPointer<long long>();
}

void TransferQueueManager::OnBytesPerSecondRemoved(Item* ip_item)
{
    delete ip_item->AsPointer<int>();
}

std::string TransferQueueManager::RemotePath(ItemPtr i_entry)
{
    return i_entry.HasItem("remote_folder").AsString() + "\\" + i_entry.HasItem("file_name").AsString();
}

std::string TransferQueueManager::StatusOf(ItemPtr i_entry)
{
    return i_entry.HasItem("download_entry_status").AsString();
}

bool TransferQueueManager::IsActivelyDownloadingFromUser(std::string const& i_user) const
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    ItemPtr const l_downloading = d.GetType("download_entry_status")->HasItem("downloading");
    return l_user && l_downloading && !l_user.GetItems("download_entry").Connected(ItemSet{l_downloading.Get()}).empty();
}

// ---- The queue and its reminders ----

void TransferQueueManager::QueueDownloadIfUserOnline(ItemPtr i_entry)
{
    ItemPtr const l_user = i_entry.HasItem("user");
    QString const l_path = QString::fromStdString(RemotePath(i_entry));
    QString const l_name = QString::fromStdString(l_user.AsString());
    std::string const l_status = StatusOf(i_entry);
    if (l_status == "local error")
        TransferLog(1, QStringLiteral("Download status %1, not re-queueing %2").arg(QString::fromStdString(l_status), l_path), l_user);
    else if (IsOnline(l_user))
    {
        TransferLog(1, QStringLiteral("User %1 appears to still be online, re-queueing %2").arg(l_name, l_path), l_user);
        if (peerMessenger)
            peerMessenger->QueueDownload(l_user.AsString(), RemotePath(i_entry));
    }
    else
        TransferLog(1, QStringLiteral("User %1 offline, not re-queueing %2").arg(l_name, l_path), l_user);
}

void TransferQueueManager::RequestDownloadPlaceInLine(ItemPtr i_entry)
{
    ItemPtr const l_user = i_entry.HasItem("user");
    TransferLog(1, QStringLiteral("Requesting place in line for download of %1 from %2")
                       .arg(QString::fromStdString(i_entry.HasItem("file_name").AsString()), QString::fromStdString(l_user.AsString())),
                l_user);
    if (!peerMessenger)
        return;
    MemStream l_message;
    l_message.Write(static_cast<std::uint32_t>(PeerCode::UploadPlaceInLineRequest));
    l_message.Write(RemotePath(i_entry));
    peerMessenger->SendMessage(l_user.AsString(), l_message);
}

void TransferQueueManager::RequestUserDownloadsPlaceInLine(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    ItemPtr const l_queued = d.GetType("download_entry_status")->HasItem("queued");
    if (!l_user || !l_queued)
        return;
    for (Item* lp_entry : ByOrder(l_user.GetItems("download_entry").Connected(ItemSet{l_queued.Get()})))
        RequestDownloadPlaceInLine(lp_entry);
}

void TransferQueueManager::OnDownloadPlaceInLine(std::string const& i_user, std::string const& i_file, int i_place)
{
    ItemPtr const l_entry = GetDownloadEntry(i_user, GetFileName(i_file), GetFolder(i_file));
    if (l_entry)
        ReplaceValue(l_entry, "place_in_line", Value(i_place));
}

void TransferQueueManager::OnUserOnline(Item* ip_user)
{
    ItemSet const l_entries = ItemPtr(ip_user).GetItems("download_entry");
    if (!l_entries.empty())
        TransferLog(1, QStringLiteral("User %1 went online, processing pending downloads").arg(QString::fromStdString(ip_user->AsString())),
                    ip_user);
    for (Item* lp_entry : ByOrder(l_entries))
    {
        std::string const l_status = StatusOf(lp_entry);
        if (l_status == "complete" || l_status == "denied")
            continue;
        if (DoesDownloadItemCompleteFilenameExist(lp_entry))
        {
            SetDownloadEntryStatus(lp_entry, "complete");
            continue;
        }
        if (peerMessenger)
            peerMessenger->QueueDownload(ip_user->AsString(), RemotePath(lp_entry));
        RequestDownloadPlaceInLine(lp_entry);
        TransferLog(2, QStringLiteral("Queueing %1").arg(QString::fromStdString(ItemPtr(lp_entry).HasItem("file_name").AsString())),
                    ip_user);
    }
    StartNewUploads();
}

void TransferQueueManager::PeriodicCheck()
{
    PruneFinishedUploads();
    ItemPtr const l_downloading = d.GetType("download_entry_status")->HasItem("downloading");
    if (l_downloading && !l_downloading.GetItems("download_entry").empty())
        return;
    ItemSet l_waiting;
    for (char const* lp_status : {"aborted", "queued"})
        if (ItemPtr const l_status = d.GetType("download_entry_status")->HasItem(lp_status))
            for (Item* lp_entry : l_status.GetItems("download_entry"))
                if (IsOnline(ItemPtr(lp_entry).HasItem("user")))
                    l_waiting.insert(lp_entry);
    if (l_waiting.empty())
        return;
    TransferLog(1, QStringLiteral("Not currently downloading anything, re-queueing inactive downloads"));
    for (Item* lp_entry : ByOrder(l_waiting))
        QueueDownloadIfUserOnline(lp_entry);
}

void TransferQueueManager::EveryHalfMinute()
{
    if (AbortStalledUploads())
        StartNewUploads();
    ItemPtr const l_queued = d.GetType("download_entry_status")->HasItem("queued");
    if (!l_queued)
        return;
    QDateTime const l_now = QDateTime::currentDateTime();
    for (Item* lp_user : l_queued.GetItems("download_entry").GetItems("user"))
    {
        if (!IsOnline(lp_user) || IsActivelyDownloadingFromUser(lp_user->AsString()))
            continue;
        if (ItemPtr const l_last = ItemPtr(lp_user).HasItem("last_place_in_line_request_time"))
        {
            QDateTime const l_then = QDateTime::fromString(QString::fromUtf8(l_last.AsCStr()), Qt::TextDate);
            if (l_then.isValid() && l_then.msecsTo(l_now) < 600000)
                continue;
        }
        RequestUserDownloadsPlaceInLine(lp_user->AsString());
        ReplaceValue(lp_user, "last_place_in_line_request_time", Value(l_now.toString(Qt::TextDate).toStdString()));
    }
}

ItemPtr TransferQueueManager::NotifiedEntry(std::string const& i_user, std::string const& i_file, QString const& i_line) const
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    TransferLog(1, i_line, l_user);
    ItemPtr const l_entry = GetDownloadEntry(i_user, GetFileName(i_file), GetFolder(i_file));
    if (!l_entry)
        TransferLog(2, QStringLiteral("Download not found."), l_user);
    return l_entry;
}

void TransferQueueManager::OnUploadFailedNotification(std::string const& i_user, std::string const& i_file)
{
    ItemPtr const l_entry = NotifiedEntry(i_user, i_file,
                                          QStringLiteral("Received peer notification from %1 that upload of %2 failed")
                                              .arg(QString::fromStdString(i_user), QString::fromStdString(i_file)));
    if (!l_entry)
        return;
    TransferLog(2, QStringLiteral("Download found!"), l_entry.HasItem("user"));
    QueueDownloadIfUserOnline(l_entry);
}

void TransferQueueManager::OnUploadDeniedNotification(std::string const& i_user, std::string const& i_file,
                                                      std::string const& i_reason)
{
    ItemPtr const l_entry =
        NotifiedEntry(i_user, i_file,
                      QStringLiteral("Received peer notification from %1 that upload of %2 was denied, reason: %3")
                          .arg(QString::fromStdString(i_user), QString::fromStdString(i_file), QString::fromStdString(i_reason)));
    if (!l_entry)
        return;
    TransferLog(2, QStringLiteral("Download found, marking as denied."), l_entry.HasItem("user"));
    ReplaceValue(l_entry, "denial_reason", Value(i_reason));
    SetDownloadEntryStatus(l_entry, "denied");
}
