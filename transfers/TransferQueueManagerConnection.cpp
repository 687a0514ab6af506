#include <QFile>
#include <QTcpSocket>
#include <QtEndian>

#include "peer/PeerMessenger.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "stream/PathNames.h"
#include "transfers/DownloadThread.h"
#include "transfers/TransferParts.h"
#include "transfers/TransferQueueManager.h"
#include "transfers/TransferSupport.h"

namespace
{
// Enough for a few blocks in flight; a fast peer and a slow disk then wait on the network,
// not on memory.
constexpr qint64 s_fileSocketReadBuffer = 256 * 1024;

void CloseAndDispose(QTcpSocket* ip_socket)
{
    ip_socket->close();
    ip_socket->deleteLater();
}
} // namespace

void TransferQueueManager::OnFileTransferRequest(std::string const& i_user, int i_direction, unsigned int i_req,
                                                 std::string const& i_file, qint64 i_fileSize)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    QString const l_name = QString::fromStdString(i_user);
    QString const l_file = QString::fromStdString(i_file);
    if (i_direction != 1)
    {
        TransferLog(1, QStringLiteral("Received download request from %1 for file %2, currently not processing").arg(l_name, l_file),
                    l_user);
        return;
    }
    TransferLog(1, QStringLiteral("Received upload request from %1 for file %2, req %3").arg(l_name, l_file).arg(i_req), l_user);
    ItemPtr const l_entry = GetDownloadEntry(i_user, GetFileName(i_file), GetFolder(i_file));
    if (!l_entry)
    {
        TransferLog(2, QStringLiteral("Denied, Cancelled"), l_user);
        if (peerMessenger)
            peerMessenger->DenyTransferRequest(i_user, i_req, "Cancelled");
        return;
    }
    if (StatusOf(l_entry) == "complete")
    {
        TransferLog(2, QStringLiteral("Denied, Complete"), l_user);
        if (peerMessenger)
            peerMessenger->DenyTransferRequest(i_user, i_req, "Complete");
        return;
    }
    if (!AcceptOfferedSize(l_entry, i_req, i_fileSize))
        return;
    ReplaceValue(l_entry, "remote_transfer_req", Value(i_req));
    if (StatusOf(l_entry) == "downloading")
    {
        TransferLog(2, QStringLiteral("Transfer is already downloading, cancelling..."), l_user);
        SetDownloadEntryStatus(l_entry, "aborted");
    }
    if (peerMessenger)
        peerMessenger->AcceptTransferRequest(i_user, i_req, false, 0);
    TransferLog(2, QStringLiteral("Accepted"), l_user);
}

bool TransferQueueManager::AcceptOfferedSize(ItemPtr i_entry, unsigned int i_req, qint64 i_fileSize)
{
    long long const l_expected = DecimalOf(i_entry.HasItem("file_size").AsString()).value_or(-1);
    if (i_fileSize == l_expected)
        return true;
    ItemPtr const l_user = i_entry.HasItem("user");
    QString const l_file = QString::fromStdString(RemotePath(i_entry));
    DownloadPath const l_partial = TargetOf(i_entry, false);
    bool const l_started = l_partial.FileExists() && QFile(l_partial.File()).size() > 0;
    if (i_fileSize >= 0 && !l_started && StatusOf(i_entry) != "downloading")
    {
        TransferLog(1, QStringLiteral("Size of %1 is now %2 bytes instead of %3; nothing downloaded yet, taking the new size")
                           .arg(l_file)
                           .arg(i_fileSize)
                           .arg(l_expected),
                    l_user);
        i_entry += d.GetType("file_size")->GetItem(Value(static_cast<long long>(i_fileSize)));
        return true;
    }
    // Sizes from 2^63 on arrive negative: no file has them.
    QString const l_why = i_fileSize < 0 ? QStringLiteral("Denied %1: the offered size %2 is beyond any file; %3 was expected")
                                         : QStringLiteral("Denied %1: the offered size %2 differs from the expected %3 and part of the file is here");
    TransferLog(1, l_why.arg(l_file).arg(static_cast<quint64>(i_fileSize)).arg(l_expected), l_user);
    if (peerMessenger)
        peerMessenger->DenyTransferRequest(l_user.AsString(), i_req, "File size changed");
    ReplaceValue(i_entry, "denial_reason", Value("File size changed"));
    SetDownloadEntryStatus(i_entry, "denied");
    return false;
}

void TransferQueueManager::OnFileConnection(std::string const& i_user, QTcpSocket* ip_socket, unsigned int i_requestID)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
    TransferLog(1, QStringLiteral("File connection created by user %1 for req %2").arg(QString::fromStdString(i_user)).arg(i_requestID),
                l_user);
    ItemPtr const l_req = d.GetType("remote_transfer_req")->HasItem(Value(i_requestID));
    ItemPtr const l_entry = l_req && l_user ? d.GetItem(l_req, l_user, "download_entry") : ItemPtr();
    std::string const l_status = StatusOf(l_entry);
    // A running transfer goes on, and a finished file is never reopened under `downloading`.
    if (!l_entry || l_status == "complete" || l_status == "downloading")
    {
        QObject::disconnect(ip_socket, nullptr, nullptr, nullptr);
        CloseAndDispose(ip_socket);
        TransferLog(2, QStringLiteral("Download not found, aborting"), l_user);
        return;
    }
    DownloadPath const l_target = TargetOf(l_entry, false);
    std::unique_ptr<QFile> lp_file = l_target.MakeFolder() ? l_target.OpenForAppend() : nullptr;
    if (!lp_file)
    {
        if (!l_target.IsValid())
            TransferLog(1, QStringLiteral("No safe local path for %1 from %2")
                               .arg(QString::fromStdString(RemotePath(l_entry)), QString::fromStdString(i_user)),
                        l_user);
        SetDownloadEntryStatus(l_entry, "local error");
        QObject::disconnect(ip_socket, nullptr, nullptr, nullptr);
        CloseAndDispose(ip_socket);
        TransferLog(2, QStringLiteral("Could not open file, aborting"), l_user);
        return;
    }
    long long const l_offset = lp_file->pos();
    quint64 const l_wire = qToLittleEndian(static_cast<quint64>(l_offset));
    ip_socket->write(reinterpret_cast<char const*>(&l_wire), sizeof l_wire);
    ip_socket->flush();

    QFile* const lp_openFile = lp_file.release();
    l_entry += d.GetType("download_socket")->GetItem(Value(ip_socket));
    l_entry += d.GetType("download_file")->GetItem(Value(lp_openFile));
    l_entry += d.GetType("write_position")->GetItem(Value(new long long(l_offset)));
    l_entry += d.GetType("bytes_per_second")->GetItem(Value(new int(0)));
    SetDownloadEntryStatus(l_entry, "downloading");
    StartThread(l_entry, ip_socket, lp_openFile, l_offset);
    TransferLog(2, QStringLiteral("Downloading"), l_user);
}

void TransferQueueManager::StartThread(ItemPtr i_entry, QTcpSocket* ip_socket, QFile* ip_file, long long i_offset)
{
    long long const l_size = DecimalOf(i_entry.HasItem("file_size").AsString()).value_or(0);
    QObject::disconnect(ip_socket, nullptr, nullptr, nullptr);
    ip_socket->setReadBufferSize(s_fileSocketReadBuffer);
    // A socket from a listener is its child: it could not move, and would go with the listener.
    ip_socket->setParent(nullptr);
    auto* lp_thread = new DownloadThread(ip_socket, ip_file, i_offset, l_size, m_downloadTimeoutMs);
    i_entry += d.GetType("download_thread")->GetItem(Value(lp_thread));
    connect(lp_thread, &DownloadThread::DownloadError, this, &TransferQueueManager::OnDownloadError);
    connect(lp_thread, &DownloadThread::DownloadProgress, this, &TransferQueueManager::OnDownloadProgress);
    connect(lp_thread, &DownloadThread::DownloadComplete, this, &TransferQueueManager::OnDownloadComplete);
    StartOnNextTurn(this, lp_thread, ip_socket, "download_thread");
}

ItemPtr TransferQueueManager::EntryOfSender() const
{
    ItemPtr const l_thread = d.GetType("download_thread")->HasItem(Value(qobject_cast<DownloadThread*>(sender())));
    return l_thread ? l_thread.HasItem("download_entry") : ItemPtr();
}

void TransferQueueManager::OnDownloadProgress(qint64 i_offset, int i_bytesPerSecond)
{
    ItemPtr const l_entry = EntryOfSender();
    if (!l_entry)
        return;
    if (long long* lp_position = l_entry.HasItem("write_position").AsPointer<long long>())
        *lp_position = i_offset;
    if (int* lp_speed = l_entry.HasItem("bytes_per_second").AsPointer<int>())
        *lp_speed = i_bytesPerSecond;
    emit DownloadProgressed(l_entry);
}

void TransferQueueManager::OnDownloadComplete()
{
    ItemPtr const l_entry = EntryOfSender();
    if (!l_entry)
        return;
    l_entry.HasItem("download_thread").AsPointer<DownloadThread>()->wait();
    DownloadPath const l_from = TargetOf(l_entry, false);
    DownloadPath l_to = TargetOf(l_entry, true);
    l_to.MakeFolder();
    if (l_to.FileExists() && FreeCompleteName(l_entry))
        l_to = TargetOf(l_entry, true);
    // The local name may differ from the peer's much: the log tells where the file went.
    if (l_from.MoveFileTo(l_to))
        TransferLog(1, QStringLiteral("Download of %1 from %2 complete, saved as %3")
                           .arg(QString::fromStdString(RemotePath(l_entry)), QString::fromStdString(l_entry.HasItem("user").AsString()), l_to.File()),
                    l_entry.HasItem("user"));
    else
        TransferLog(1, QStringLiteral("Could not move %1 to %2; it stays where it is").arg(l_from.File(), l_to.File()),
                    l_entry.HasItem("user"));
    SetDownloadEntryStatus(l_entry, "complete");
    RemoveDownloadDownloadingFolderIfAppropriate(l_entry);
    emit DownloadFinished(l_entry);
}

void TransferQueueManager::OnDownloadError()
{
    ItemPtr const l_entry = EntryOfSender();
    if (!l_entry)
        return;
    auto* const lp_thread = l_entry.HasItem("download_thread").AsPointer<DownloadThread>();
    lp_thread->wait();
    TransferLog(1, QStringLiteral("Download of %1 from %2 failed: %3")
                       .arg(QString::fromStdString(RemotePath(l_entry)), QString::fromStdString(l_entry.HasItem("user").AsString()),
                            lp_thread->FailureReason()),
                l_entry.HasItem("user"));
    SetDownloadEntryStatus(l_entry, "aborted");
}
