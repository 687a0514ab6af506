#include <QDateTime>
#include <QFile>
#include <QTcpSocket>

#include <algorithm>
#include <charconv>
#include <unordered_map>
#include <vector>

#include "peer/PeerMessageCode.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "server/ServerSchema.h"
#include "shares/SharedFoldersManager.h"
#include "store/Data.h"
#include "store/ItemRange.h"
#include "store/Settings.h"
#include "stream/MemStream.h"
#include "transfers/TransferParts.h"
#include "transfers/TransferQueueManager.h"
#include "transfers/TransferSupport.h"
#include "transfers/UploadThread.h"

namespace
{
constexpr char const* s_activeUploadStatuses[] = {"requesting", "connecting", "waiting for offset", "uploading"};
constexpr long long s_stalledUploadMs = 30000;
constexpr long long s_finishedUploadKeptMs = 24LL * 60 * 60 * 1000;

bool IsActiveUploadStatus(std::string const& i_status)
{
    return std::find(std::begin(s_activeUploadStatuses), std::end(s_activeUploadStatuses), i_status)
        != std::end(s_activeUploadStatuses);
}

// The status item, flagged again when active: a status no entry holds is swept with its flag.
ItemPtr UploadStatusItem(std::string const& i_status)
{
    ItemPtr const l_status = d.GetType("upload_entry_status")->GetItem(Value(i_status));
    if (IsActiveUploadStatus(i_status) && !l_status.HasItem("is_active"))
        l_status.NewItem("is_active");
    return l_status;
}

ItemSet UploadsInStatus(char const* i_status)
{
    ItemPtr const l_status = d.GetType("upload_entry_status")->HasItem(Value(i_status));
    return l_status ? l_status.GetItems("upload_entry") : ItemSet();
}

// The entries in a status, walked without a copy: the hot paths meet every queued entry.
ItemRange UploadsInStatusRange(char const* i_status)
{
    Item* const lp_status = d.GetType("upload_entry_status")->HasItem(Value(i_status));
    return lp_status ? lp_status->ConnectedOfType(d.GetType("upload_entry")) : ItemRange();
}

bool AnyUploadActive()
{
    for (char const* lp_status : s_activeUploadStatuses)
        if (!UploadsInStatusRange(lp_status).empty())
            return true;
    return false;
}

QString UserName(ItemPtr i_entry)
{
    return QString::fromStdString(i_entry.HasItem("user").AsString());
}

QString SharedName(ItemPtr i_entry)
{
    return QString::fromStdString(i_entry.HasItem("shared_file").HasItem("shared_file_name").AsString());
}

long long NumberOf(ItemPtr i_entry, char const* i_type)
{
    return DecimalOf(i_entry.HasItem(i_type).AsString()).value_or(0);
}

long long AgeMs(ItemPtr i_entry, QDateTime const& i_now)
{
    QDateTime const l_then =
        QDateTime::fromString(QString::fromStdString(i_entry.HasItem("last_status_change_time").AsString()), Qt::TextDate);
    return l_then.isValid() ? l_then.msecsTo(i_now) : 0;
}

// What decides an entry's place, read once per renumbering.
struct QueueKey
{
    int m_priority;
    bool m_privileged;
    long long m_order;
    Item* mp_entry;

    bool operator<(QueueKey const& i_other) const
    {
        if (m_priority != i_other.m_priority)
            return m_priority > i_other.m_priority;
        if (m_privileged != i_other.m_privileged)
            return m_privileged;
        if (m_order != i_other.m_order)
            return m_order < i_other.m_order;
        return mp_entry < i_other.mp_entry;
    }
};

QueueKey KeyOf(ItemPtr i_entry, int i_priority)
{
    return {i_priority, bool(i_entry.HasItem("user").HasItem("is_privileged")), NumberOf(i_entry, "upload_order"),
            i_entry.Get()};
}
} // namespace

void TransferQueueManager::DeclareUploadSchema()
{
    DeclareTypeOnce("upload_entry", true, true, true);
    // The shares declare it too, alike; a queue may be made without them.
    DeclareTypeOnce("shared_file", false, true, true);
    for (char const* lp_type : {"filename_as_requested", "upload_order", "effective_upload_order", "last_status_change_time",
                                "transfer_req", "read_position", "bytes_per_second", "denial_reason"})
        DeclareTypeOnce(lp_type, false, false, true);
    for (char const* lp_type : {"upload_entry_status", "upload_socket", "upload_file", "upload_thread"})
        DeclareTypeOnce(lp_type, true, false, true);
    DeclareTypeOnce("is_active", false, true, true);

    for (char const* lp_type : {"user", "shared_file", "filename_as_requested", "upload_entry_status",
                                "last_status_change_time", "read_position"})
        RelateOnceByName("upload_entry", lp_type, One, Many);
    for (char const* lp_type : {"upload_order", "effective_upload_order", "transfer_req", "upload_socket", "upload_file",
                                "upload_thread", "bytes_per_second"})
        RelateOnceByName("upload_entry", lp_type, One, One);
    RelateOnceByName("upload_entry_status", "is_active", One, Many);
    RelateOnceByName("denial_reason", "upload_entry", Many, One);
    for (char const* lp_status : s_activeUploadStatuses)
        UploadStatusItem(lp_status);
}

std::string TransferQueueManager::UploadStatusOf(ItemPtr i_entry)
{
    return i_entry.HasItem("upload_entry_status").AsString();
}

ItemPtr TransferQueueManager::GetUploadEntry(ItemPtr i_user, ItemPtr i_sharedFile)
{
    return i_user && i_sharedFile ? d.GetItem(i_user, i_sharedFile, "upload_entry") : ItemPtr();
}

void TransferQueueManager::OnQueueUploadRequested(std::string const& i_user, std::string const& i_file)
{
    ItemPtr l_user = d.GetType("user")->HasItem(Value(i_user));
    TransferLog(1, QStringLiteral("Queue upload requested by %1 for file %2").arg(QString::fromStdString(i_user), QString::fromStdString(i_file)),
                l_user);
    std::string l_path = i_file;
    std::replace(l_path.begin(), l_path.end(), '\\', '/');
    ItemPtr const l_file = sharedFoldersManager ? sharedFoldersManager->GetSharedFileItem(l_path) : ItemPtr();
    if (!l_file || !sharedFoldersManager->IsFileSharedWithUser(l_file, i_user))
    {
        TransferLog(2, QStringLiteral("Denied, file not shared"), l_user);
        if (peerMessenger)
            peerMessenger->DenyUpload(i_user, i_file, "File not shared.");
        return;
    }
    l_user = d.GetType("user")->GetItem(Value(i_user));
    if (ItemPtr const l_entry = GetUploadEntry(l_user, l_file))
    {
        std::string const l_status = UploadStatusOf(l_entry);
        if (l_status == "queued" || IsActiveUploadStatus(l_status))
        {
            TransferLog(2, QStringLiteral("Already queued"), l_user);
            return;
        }
        TransferLog(2, QStringLiteral("%1, re-queueing").arg(QString::fromStdString(l_status)), l_user);
        SetUploadEntryStatus(l_entry, "queued");
        StartNewUploads();
        return;
    }
    ItemPtr const l_entry = d.GetType("upload_entry")->NewItem();
    l_entry += l_user;
    l_entry += l_file;
    l_entry += d.GetType("filename_as_requested")->GetItem(Value(i_file));
    SetUploadEntryStatus(l_entry, "queued");
    long long const l_order = std::max(1LL, DecimalOf(GetGlobal("transfer_order_counter")).value_or(1));
    l_entry += d.GetType("upload_order")->GetItem(Value(l_order));
    SetGlobal("transfer_order_counter", Value(l_order + 1));
    DetermineUploadsEffectiveOrder();
    TransferLog(2, QStringLiteral("Queued"), l_user);
    if (gp_server)
        gp_server->TrackUser(i_user);
    StartNewUploads();
}

int TransferQueueManager::GetUserGroupDownloadPriority(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    ItemPtr const l_listed = l_user ? l_user.HasItem("in_user_list") : ItemPtr();
    if (!l_listed)
        return 0;
    int l_best = 0;
    for (Item* lp_priority : l_listed.GetItems("user_list_group").GetItems("group_download_priority"))
    {
        std::string const l_text = lp_priority->AsString();
        int l_value = 0;
        auto const [lp_end, l_error] = std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_value);
        if (l_error == std::errc() && lp_end == l_text.data() + l_text.size())
            l_best = std::max(l_best, l_value);
    }
    return l_best;
}

bool TransferQueueManager::UploadEntrySortCompare(ItemPtr i_first, ItemPtr i_second) const
{
    return KeyOf(i_first, GetUserGroupDownloadPriority(i_first.HasItem("user").AsString()))
         < KeyOf(i_second, GetUserGroupDownloadPriority(i_second.HasItem("user").AsString()));
}

void TransferQueueManager::DetermineUploadsEffectiveOrder()
{
    ItemSet const l_entries = d.GetType("upload_entry")->GetItems();
    std::unordered_map<Item*, int> l_priorities;
    std::vector<QueueKey> l_keys;
    l_keys.reserve(l_entries.size());
    for (Item* lp_entry : l_entries)
    {
        Item* const lp_user = ItemPtr(lp_entry).HasItem("user").Get();
        auto l_found = l_priorities.find(lp_user);
        if (l_found == l_priorities.end())
            l_found = l_priorities.emplace(lp_user, GetUserGroupDownloadPriority(ItemPtr(lp_user).AsString())).first;
        l_keys.push_back(KeyOf(lp_entry, l_found->second));
    }
    std::sort(l_keys.begin(), l_keys.end());
    Type* const lp_orderType = d.GetType("effective_upload_order");
    long long l_place = 0;
    for (QueueKey const& l_key : l_keys)
    {
        ItemPtr const l_entry(l_key.mp_entry);
        // Most places stay as they were; only the moved ones are connected again.
        if (NumberOf(l_entry, "effective_upload_order") != l_place || !l_entry.HasItem("effective_upload_order"))
            l_entry += lp_orderType->GetItem(Value(l_place));
        ++l_place;
    }
}

void TransferQueueManager::StartNewUploads()
{
    if (AnyUploadActive())
        return;
    Type* const lp_userType = d.GetType("user");
    Type* const lp_onlineType = d.GetType("is_online");
    Type* const lp_placeType = d.GetType("effective_upload_order");
    Item* lp_next = nullptr;
    long long l_nextPlace = 0;
    for (Item* lp_entry : UploadsInStatusRange("queued"))
    {
        Item* const lp_user = lp_entry->GetItem(lp_userType);
        if (!lp_user || !lp_user->IsConnected(lp_onlineType))
            continue;
        Item* const lp_place = lp_entry->GetItem(lp_placeType);
        long long l_place = 0;
        if (lp_place)
        {
            std::string_view const l_text = lp_place->AsView();
            std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_place);
        }
        if (!lp_next || l_place < l_nextPlace)
        {
            lp_next = lp_entry;
            l_nextPlace = l_place;
        }
    }
    if (!lp_next || !peerMessenger)
        return;
    ItemPtr const l_entry(lp_next);
    long long const l_size = NumberOf(l_entry.HasItem("shared_file"), "shared_file_size");
    unsigned int const l_req = peerMessenger->RequestUpload(l_entry.HasItem("user").AsString(),
                                                            l_entry.HasItem("filename_as_requested").AsString(), l_size);
    SetUploadEntryStatus(l_entry, "requesting");
    ReplaceValue(l_entry, "transfer_req", Value(l_req));
}

void TransferQueueManager::SetUploadEntryStatus(ItemPtr i_entry, std::string const& i_status)
{
    bool const l_wasActive = IsActiveUploadStatus(UploadStatusOf(i_entry));
    i_entry += UploadStatusItem(i_status);
    ReplaceValue(i_entry, "last_status_change_time", Value(QDateTime::currentDateTime().toString(Qt::TextDate).toStdString()));
    if (!l_wasActive || IsActiveUploadStatus(i_status))
        return;
    TakeDownUpload(i_entry, i_status != "complete");
    if (i_status != "aborted")
        return;
    ItemPtr const l_user = i_entry.HasItem("user");
    TransferLog(1, QStringLiteral("Upload of %1 to %2 aborted, sending upload failed notification.").arg(SharedName(i_entry), UserName(i_entry)),
                l_user);
    if (!peerMessenger)
        return;
    MemStream l_message;
    l_message.Write(static_cast<std::uint32_t>(PeerCode::UploadFailed));
    l_message.Write(i_entry.HasItem("filename_as_requested").AsString());
    peerMessenger->SendMessage(l_user.AsString(), l_message);
}

void TransferQueueManager::TakeDownUpload(ItemPtr i_entry, bool i_reset)
{
    TakeDownTransferParts<UploadThread>(i_entry, {"upload_thread", "upload_file", "upload_socket", "read_position"}, i_reset);
}

void TransferQueueManager::OnReadPositionRemoved(Item* ip_item)
{
    delete ip_item->AsPointer<long long>();
}

void TransferQueueManager::RemoveUpload(ItemPtr i_entry)
{
    if (!i_entry)
        return;
    TakeDownUpload(i_entry, true);
    i_entry.Remove();
}

bool TransferQueueManager::IsFreeToUpload() const
{
    return !AnyUploadActive();
}

int TransferQueueManager::QueuedUploadCount() const
{
    return static_cast<int>(UploadsInStatusRange("queued").size());
}

void TransferQueueManager::UnshareUser(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(Value(i_user));
    if (!l_user.HasItem("unshared"))
        l_user.NewItem("unshared");
    for (Item* lp_entry : l_user.GetItems("upload_entry"))
    {
        if (peerMessenger)
            peerMessenger->DenyUpload(i_user, ItemPtr(lp_entry).HasItem("filename_as_requested").AsString(), "File not shared.");
        RemoveUpload(lp_entry);
    }
}

void TransferQueueManager::ReshareUser(std::string const& i_user)
{
    if (ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user)))
        l_user.Disconnect("unshared");
}

// ---- the peer's answer and the file connection

void TransferQueueManager::OnFileTransferResponse(std::string const& i_user, unsigned int i_req, bool i_accepted, bool,
                                                  qint64, std::string const& i_denialReason)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    TransferLog(1, QStringLiteral("Received file transfer response from user %1 for req %2, transfer %3")
                       .arg(QString::fromStdString(i_user))
                       .arg(i_req)
                       .arg(i_accepted ? QStringLiteral("accepted") : QStringLiteral("not accepted")),
                l_user);
    ItemPtr const l_req = d.GetType("transfer_req")->HasItem(Value(i_req));
    if (!l_req)
    {
        TransferLog(2, QStringLiteral("req not found"), l_user);
        return;
    }
    ItemPtr const l_entry = l_req.HasItem("upload_entry");
    if (!l_entry)
    {
        TransferLog(2, QStringLiteral("Neither upload or download attached to req, weird"), l_user);
        return;
    }
    TransferLog(2, QStringLiteral("Found upload"), l_user);
    if (l_entry.HasItem("user").AsString() != i_user)
    {
        TransferLog(2, QStringLiteral("Upload user %1 not the same as user who opened the connection, not doing anything").arg(UserName(l_entry)),
                    l_user);
        return;
    }
    // Only the one open request is answered; a second acceptance or a late refusal would
    // otherwise stop or double a running upload.
    if (UploadStatusOf(l_entry) != "requesting")
    {
        TransferLog(2, QStringLiteral("Upload is %1, not waiting for an answer; ignoring it").arg(QString::fromStdString(UploadStatusOf(l_entry))),
                    l_user);
        return;
    }
    if (!i_accepted)
    {
        TransferLog(2, QStringLiteral("Upload was not accepted, marking denied"), l_user);
        ReplaceValue(l_entry, "denial_reason", Value(i_denialReason));
        SetUploadEntryStatus(l_entry, "denied");
        StartNewUploads();
        return;
    }
    // The path comes from the share's own items; the peer's words never name what is opened.
    ItemPtr const l_shared = l_entry.HasItem("shared_file");
    QString const l_path = QString::fromUtf8(l_shared.HasItem("shared_file_folder").AsString() + "/"
                                             + l_shared.HasItem("shared_file_name").AsString())
                               .replace(QLatin1Char('\\'), QLatin1Char('/'));
    auto* lp_file = new QFile(l_path);
    if (!lp_file->open(QIODevice::ReadOnly))
    {
        delete lp_file;
        TransferLog(2, QStringLiteral("File could not be opened, marking local error and sending denial message. Shouldn't we have done "
                                      "this before we requested the transfer?"),
                    l_user);
        if (peerMessenger)
            peerMessenger->DenyUpload(i_user, l_entry.HasItem("filename_as_requested").AsString(), "File read error.");
        SetUploadEntryStatus(l_entry, "local error");
        StartNewUploads();
        return;
    }
    TransferLog(2, QStringLiteral("Requesting file connection to user"), l_user);
    l_entry += d.GetType("upload_file")->GetItem(Value(lp_file));
    SetUploadEntryStatus(l_entry, "connecting");
    if (peerMessenger)
        peerMessenger->RequestFileConnectionToUser(i_user);
}

void TransferQueueManager::OnFileConnectionAccepted(std::string const& i_user, QTcpSocket* ip_socket)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    ItemSet const l_waiting = l_user ? l_user.GetItems("upload_entry").Common(UploadsInStatus("connecting")) : ItemSet();
    if (l_waiting.empty())
    {
        TransferLog(2, QStringLiteral("File connection from %1, but no upload is connecting; closing it").arg(QString::fromStdString(i_user)),
                    l_user);
        QObject::disconnect(ip_socket, nullptr, nullptr, nullptr);
        ip_socket->close();
        ip_socket->deleteLater();
        return;
    }
    ItemPtr const l_entry = *l_waiting.begin();
    l_entry += d.GetType("upload_socket")->GetItem(Value(ip_socket));
    SetUploadEntryStatus(l_entry, "uploading");
    l_entry += d.GetType("bytes_per_second")->GetItem(Value(new int(0)));
    l_entry += d.GetType("read_position")->GetItem(Value(new long long(0)));
    StartUploadThread(l_entry, ip_socket);
}

void TransferQueueManager::StartUploadThread(ItemPtr i_entry, QTcpSocket* ip_socket)
{
    auto const l_req = static_cast<unsigned int>(NumberOf(i_entry, "transfer_req"));
    QObject::disconnect(ip_socket, nullptr, nullptr, nullptr);
    auto* lp_thread = new UploadThread(ip_socket, i_entry.HasItem("upload_file").AsPointer<QFile>(), static_cast<int>(l_req),
                                       m_uploadSpeedLimit, m_uploadTimeoutMs);
    ip_socket->setParent(nullptr);
    i_entry += d.GetType("upload_thread")->GetItem(Value(lp_thread));
    connect(lp_thread, &UploadThread::UploadError, this, &TransferQueueManager::OnUploadError, Qt::QueuedConnection);
    connect(lp_thread, &UploadThread::UploadProgress, this, &TransferQueueManager::OnUploadProgress, Qt::QueuedConnection);
    connect(lp_thread, &UploadThread::UploadComplete, this, &TransferQueueManager::OnUploadComplete, Qt::QueuedConnection);
    StartOnNextTurn(this, lp_thread, ip_socket, "upload_thread");
}

// ---- the thread's reports

ItemPtr TransferQueueManager::UploadEntryOfSender() const
{
    ItemPtr const l_thread = d.GetType("upload_thread")->HasItem(Value(qobject_cast<UploadThread*>(sender())));
    return l_thread ? l_thread.HasItem("upload_entry") : ItemPtr();
}

void TransferQueueManager::OnUploadProgress(qint64 i_offset, int i_bytesPerSecond)
{
    ItemPtr const l_entry = UploadEntryOfSender();
    if (!l_entry)
        return;
    if (long long* lp_position = l_entry.HasItem("read_position").AsPointer<long long>())
        *lp_position = i_offset;
    if (int* lp_speed = l_entry.HasItem("bytes_per_second").AsPointer<int>())
        *lp_speed = i_bytesPerSecond;
    emit UploadProgressed(l_entry);
}

void TransferQueueManager::OnUploadComplete()
{
    ItemPtr const l_entry = UploadEntryOfSender();
    if (!l_entry)
        return;
    int const* lp_speed = l_entry.HasItem("bytes_per_second").AsPointer<int>();
    int const l_speed = lp_speed ? *lp_speed : 0;
    TransferLog(1, QStringLiteral("Recording upload speed of %1").arg(l_speed), l_entry.HasItem("user"));
    if (gp_server)
        gp_server->SendUploadSpeed(l_speed);
    SetUploadEntryStatus(l_entry, "complete");
    emit UploadFinished(l_entry);
    StartNewUploads();
}

void TransferQueueManager::OnUploadError()
{
    ItemPtr const l_entry = UploadEntryOfSender();
    if (!l_entry)
        return;
    auto* const lp_thread = l_entry.HasItem("upload_thread").AsPointer<UploadThread>();
    lp_thread->wait();
    TransferLog(1, QStringLiteral("Upload of %1 to %2 failed: %3").arg(SharedName(l_entry), UserName(l_entry), lp_thread->FailureReason()),
                l_entry.HasItem("user"));
    SetUploadEntryStatus(l_entry, "aborted");
    StartNewUploads();
}

// ---- the timers

bool TransferQueueManager::AbortStalledUploads()
{
    QDateTime const l_now = QDateTime::currentDateTime();
    ItemSet l_stalled;
    for (char const* lp_status : {"requesting", "connecting", "waiting for offset"})
        for (Item* lp_entry : UploadsInStatus(lp_status))
            if (AgeMs(lp_entry, l_now) >= s_stalledUploadMs)
                l_stalled.insert(lp_entry);
    for (Item* lp_entry : l_stalled)
    {
        TransferLog(1, QStringLiteral("Upload of %1 to %2 timed out in %3 phase, aborting")
                           .arg(SharedName(lp_entry), UserName(lp_entry), QString::fromStdString(UploadStatusOf(lp_entry))),
                    ItemPtr(lp_entry).HasItem("user"));
        SetUploadEntryStatus(lp_entry, "aborted");
    }
    return !l_stalled.empty();
}

void TransferQueueManager::PruneFinishedUploads()
{
    QDateTime const l_now = QDateTime::currentDateTime();
    ItemSet l_old;
    for (Item* lp_entry : UploadsInStatus("complete"))
        if (AgeMs(lp_entry, l_now) >= s_finishedUploadKeptMs)
            l_old.insert(lp_entry);
    for (Item* lp_entry : l_old)
        RemoveUpload(lp_entry);
}
