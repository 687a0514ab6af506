#include "DownloadLoop.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

#include "forms/RemoteFile.h"
#include "transfers/TransferQueueManager.h"

namespace
{
// A download still not complete after this long is lost: over loopback even the biggest file
// takes seconds, and the queue holds at most a few.
constexpr qint64 c_stuckMs = 10 * 60 * 1000;
constexpr std::size_t c_maxFaultText = 4000;
} // namespace

DownloadLoop::DownloadLoop(std::string i_peer, QString i_peerShare, int i_maxOutstanding, QObject* ip_parent)
    : QObject(ip_parent), m_peer(std::move(i_peer)), m_peerShare(std::move(i_peerShare)),
      m_maxOutstanding(i_maxOutstanding), m_random(static_cast<quint32>(std::hash<std::string>{}(m_peer)))
{
}

bool DownloadLoop::FindPeerFiles()
{
    QDirIterator l_walk(m_peerShare, QDir::Files, QDirIterator::Subdirectories);
    while (l_walk.hasNext())
    {
        QFileInfo const l_info(l_walk.next());
        std::string l_folder = l_info.absolutePath().toStdString();
        std::replace(l_folder.begin(), l_folder.end(), '/', '\\');
        m_files.push_back({l_info.absoluteFilePath(), l_info.fileName().toStdString(), l_folder, l_info.size()});
    }
    return !m_files.empty();
}

void DownloadLoop::QueueNext()
{
    if (Outstanding() >= m_maxOutstanding || static_cast<std::size_t>(Outstanding()) >= m_files.size())
        return;
    PeerFile const* lp_file = nullptr;
    do
        lp_file = &m_files[m_random.bounded(static_cast<quint32>(m_files.size()))];
    while (std::any_of(m_outstanding.begin(), m_outstanding.end(),
                       [lp_file](Queued const& i_queued) { return i_queued.mp_file == lp_file; }));
    AddDownloads({RemoteFile{m_peer, lp_file->m_name, lp_file->m_folder, lp_file->m_size}});
    m_outstanding.push_back({lp_file, {}, {}});
    m_outstanding.back().m_since.start();
}

void DownloadLoop::Check()
{
    for (auto l_it = m_outstanding.begin(); l_it != m_outstanding.end();)
        l_it = Follow(*l_it) ? m_outstanding.erase(l_it) : std::next(l_it);
}

bool DownloadLoop::Follow(Queued& io_queued)
{
    PeerFile const& l_file = *io_queued.mp_file;
    ItemPtr const l_entry = transferQueueManager->GetDownloadEntry(m_peer, l_file.m_name, l_file.m_folder);
    if (!l_entry)
    {
        Fail(l_file, "its download entry vanished");
        return true;
    }
    std::string const l_status = TransferQueueManager::StatusOf(l_entry);
    if (l_status != io_queued.m_lastStatus && l_status == "aborted")
        ++m_aborts;
    io_queued.m_lastStatus = l_status;
    if (l_status == "complete")
    {
        QString const l_arrived = transferQueueManager->TargetOf(l_entry, true).File();
        if (SameBytes(l_arrived, l_file.m_local))
        {
            ++m_transfers;
            m_bytes += static_cast<std::uint64_t>(l_file.m_size);
        }
        else
            Fail(l_file, "arrived with other bytes at " + l_arrived.toStdString());
        transferQueueManager->RemoveDownload(l_entry);
        QFile::remove(l_arrived);
        return true;
    }
    if (l_status == "denied" || l_status == "local error" || io_queued.m_since.elapsed() > c_stuckMs)
    {
        Fail(l_file, "ended " + l_status + " after " + std::to_string(io_queued.m_since.elapsed() / 1000) + " s");
        transferQueueManager->RemoveDownload(l_entry);
        return true;
    }
    return false;
}

void DownloadLoop::Fail(PeerFile const& i_file, std::string const& i_why)
{
    ++m_failures;
    if (m_faults.size() < c_maxFaultText)
        m_faults += i_file.m_local.toStdString() + " (" + std::to_string(i_file.m_size) + " bytes): " + i_why + '\n';
}

bool SameBytes(QString const& i_first, QString const& i_second)
{
    QFile l_first(i_first), l_second(i_second);
    if (!l_first.open(QIODevice::ReadOnly) || !l_second.open(QIODevice::ReadOnly) || l_first.size() != l_second.size())
        return false;
    constexpr qint64 c_slice = 1 << 20;
    while (!l_first.atEnd())
        if (l_first.read(c_slice) != l_second.read(c_slice))
            return false;
    return l_second.atEnd();
}
