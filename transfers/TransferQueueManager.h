#pragma once

#include <QObject>
#include <QString>

#include <string>

#include "store/DataHandler.h"
#include "store/DataLoadedEventHandler.h"
#include "store/ItemPtr.h"
#include "transfers/DownloadPath.h"
#include "transfers/TransferWait.h"
#include "transfers/UploadSpeedLimit.h"

class QTcpSocket;

// Owns the transfer queues. A download is one `download_entry` item tied to its user, file
// name, remote folder, size, status and order; a downloader never pulls, so everything here
// reacts to a peer's message or reminds the peer now and then. The bytes are moved by a
// `DownloadThread` per running transfer, which reports back by queued signals.
// Uploads are `upload_entry` items in one queue for all peers, served one at a time by an
// `UploadThread`; this side is the active one, it asks, connects and pushes.
// Implemented in five parts: this file's source (schema, life, the download queue), the answers
// to transfer requests and file connections, the local paths, the upload speed limit, and the
// upload queue.
class TransferQueueManager : public QObject, public DataHandler, public DataLoadedEventHandler
{
    Q_OBJECT
public:
    explicit TransferQueueManager(QObject* ip_parent = nullptr);
    ~TransferQueueManager() override;

    void DataLoaded() override;

    // Does nothing for a triple that has an entry, whatever its status.
    void AddDownload(std::string const& i_user, std::string const& i_fileName, std::string const& i_remoteFolder,
                     long long i_fileSize);
    // Finds without creating anything: the words may be a peer's.
    ItemPtr GetDownloadEntry(std::string const& i_user, std::string const& i_fileName,
                             std::string const& i_remoteFolder) const;
    // Stops the transfer; the file stays and the peer is not told.
    void RemoveDownload(ItemPtr i_entry);
    void SetDownloadEntryStatus(ItemPtr i_entry, std::string const& i_status);
    void QueueDownloadIfUserOnline(ItemPtr i_entry);
    void RequestDownloadPlaceInLine(ItemPtr i_entry);
    void RequestUserDownloadsPlaceInLine(std::string const& i_user);
    bool IsActivelyDownloadingFromUser(std::string const& i_user) const;

    // The backslash forms of the local places; empty when the names cannot make a safe one.
    QString GetDownloadTargetFolder(ItemPtr i_entry, bool i_complete) const;
    QString GetDownloadTargetPath(ItemPtr i_entry, bool i_complete) const;
    bool DoesDownloadItemCompleteFilenameExist(ItemPtr i_entry) const;
    void RemoveDownloadDownloadingFolderIfAppropriate(ItemPtr i_entry);
    // The entry's file under `downloading` or `complete`, made by the one path maker.
    DownloadPath TargetOf(ItemPtr i_entry, bool i_complete) const;

    // The path by which the peer knows the file: remote folder, "\", file name.
    static std::string RemotePath(ItemPtr i_entry);
    static std::string StatusOf(ItemPtr i_entry);

    // The upload speed limit in force in KiB/s, 0 for none; read by upload threads.
    int GetUploadSpeed() const { return m_uploadSpeedLimit.Get(); }
    UploadSpeedLimit const& UploadLimit() const { return m_uploadSpeedLimit; }
    void SetUploadSpeedLimit(int i_kibPerSecond);
    void EnableUploadSpeedLimit(bool i_enabled);
    void DetermineUploadSpeedLimit();

    // How long a download waits for the peer's next bytes before it fails.
    void SetDownloadTimeout(int i_milliseconds) { m_downloadTimeoutMs = i_milliseconds; }
    // How long an upload waits for the peer's offset and for each block to leave.
    void SetUploadTimeout(int i_milliseconds) { m_uploadTimeoutMs = i_milliseconds; }

    // ---- the upload queue (TransferQueueManagerUploads.cpp)
    void StartNewUploads();
    void DetermineUploadsEffectiveOrder();
    bool UploadEntrySortCompare(ItemPtr i_first, ItemPtr i_second) const;
    static int GetUserGroupDownloadPriority(std::string const& i_user);
    void SetUploadEntryStatus(ItemPtr i_entry, std::string const& i_status);
    bool IsFreeToUpload() const;
    int QueuedUploadCount() const;
    void UnshareUser(std::string const& i_user);
    void ReshareUser(std::string const& i_user);
    void RemoveUpload(ItemPtr i_entry);
    static std::string UploadStatusOf(ItemPtr i_entry);
    // The entry of a user for a shared file, found without creating anything.
    static ItemPtr GetUploadEntry(ItemPtr i_user, ItemPtr i_sharedFile);

signals:
    void DownloadProgressed(ItemPtr i_download);
    void UploadProgressed(ItemPtr i_upload);
    void TransfersLoaded();
    // A transfer that ran to its end: the file is whole in complete/, or whole at the peer.
    void DownloadFinished(ItemPtr i_download);
    void UploadFinished(ItemPtr i_upload);

public slots:
    void OnFileTransferRequest(std::string const& i_user, int i_direction, unsigned int i_req, std::string const& i_file,
                               qint64 i_fileSize);
    void OnFileConnection(std::string const& i_user, QTcpSocket* ip_socket, unsigned int i_requestID);
    void OnUploadFailedNotification(std::string const& i_user, std::string const& i_file);
    void OnUploadDeniedNotification(std::string const& i_user, std::string const& i_file, std::string const& i_reason);
    void OnDownloadPlaceInLine(std::string const& i_user, std::string const& i_file, int i_place);
    void OnDownloadProgress(qint64 i_offset, int i_bytesPerSecond);
    void OnDownloadComplete();
    void OnDownloadError();
    void EveryHalfMinute();
    void PeriodicCheck();

    void OnQueueUploadRequested(std::string const& i_user, std::string const& i_file);
    void OnFileTransferResponse(std::string const& i_user, unsigned int i_req, bool i_accepted, bool i_receivedFileSize,
                                qint64 i_fileSize, std::string const& i_denialReason);
    void OnFileConnectionAccepted(std::string const& i_user, QTcpSocket* ip_socket);
    void OnUploadError();
    void OnUploadProgress(qint64 i_offset, int i_bytesPerSecond);
    void OnUploadComplete();

private:
    void OnUserOnline(Item* ip_user);
    void OnWritePositionRemoved(Item* ip_item);
    void OnBytesPerSecondRemoved(Item* ip_item);

    ItemPtr EntryOfSender() const;
    // Logs a peer's notification and finds its entry; logs when there is none.
    ItemPtr NotifiedEntry(std::string const& i_user, std::string const& i_file, QString const& i_line) const;
    // Stops the thread and closes file and socket of an entry, thread first.
    void TakeDownTransfer(ItemPtr i_entry);
    // Whether a transfer request's size may be taken; denies it otherwise.
    bool AcceptOfferedSize(ItemPtr i_entry, unsigned int i_req, qint64 i_fileSize);
    void StartThread(ItemPtr i_entry, QTcpSocket* ip_socket, QFile* ip_file, long long i_offset);

    // ---- local names and the data file's entries (TransferQueueManagerPaths.cpp)
    // The local file name of an entry that has none: the tamed name, numbered when another
    // entry that is not complete already uses it in the same sub-folder.
    void ChooseLocalFileName(ItemPtr i_entry);
    bool IsLocalNameTaken(ItemPtr i_entry, std::string const& i_subFolder, std::string const& i_name,
                          bool i_countComplete) const;
    // At completion: a free name in `complete` for the entry, or false when there is none.
    bool FreeCompleteName(ItemPtr i_entry);
    // Drops or repairs saved entries that lack a part or hold a size or order that is no number.
    void RepairLoadedEntries();

    // ---- the upload queue (TransferQueueManagerUploads.cpp)
    static void DeclareUploadSchema();
    ItemPtr UploadEntryOfSender() const;
    void OnReadPositionRemoved(Item* ip_item);
    // Stops the thread and closes file and socket of an upload, thread first. An upload that did
    // not complete has its connection reset: what is still buffered for the peer is dropped.
    void TakeDownUpload(ItemPtr i_entry, bool i_reset);
    void StartUploadThread(ItemPtr i_entry, QTcpSocket* ip_socket);
    // Times out uploads stuck in an active status before their thread runs; true if any was.
    bool AbortStalledUploads();
    // Removes complete uploads that ended a day ago or more.
    void PruneFinishedUploads();

    UploadSpeedLimit m_uploadSpeedLimit;
    int m_downloadTimeoutMs = TransferWait::s_defaultTimeoutMs;
    int m_uploadTimeoutMs = TransferWait::s_defaultTimeoutMs;
};

extern TransferQueueManager* transferQueueManager;
