#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QRandomGenerator>
#include <QString>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

// Downloads the peer's shared files one after another, at random, through the download queue
// the window's Download actions fill. A file that is complete is compared byte for byte with
// the peer's copy, its entry is removed as the Transfers tab removes one, and the file goes,
// so that the disk does not fill.
class DownloadLoop : public QObject
{
    Q_OBJECT
public:
    DownloadLoop(std::string i_peer, QString i_peerShare, int i_maxOutstanding, QObject* ip_parent = nullptr);

    // Walks the peer's shared folder on this machine; false when it holds no file.
    bool FindPeerFiles();
    // Queues one file that is not on the queue already, unless enough wait.
    void QueueNext();
    // Follows every queued file: verifies and clears the complete ones, fails the stuck ones.
    void Check();

    int Outstanding() const { return static_cast<int>(m_outstanding.size()); }
    std::uint64_t Transfers() const { return m_transfers; }
    std::uint64_t Bytes() const { return m_bytes; }
    std::uint32_t Failures() const { return m_failures; }
    std::uint32_t Aborts() const { return m_aborts; }
    std::string const& Faults() const { return m_faults; }

private:
    struct PeerFile
    {
        QString m_local; // the peer's copy
        std::string m_name;
        std::string m_folder; // as the peer names it, with backslashes
        qint64 m_size = 0;
    };
    struct Queued
    {
        PeerFile const* mp_file;
        QElapsedTimer m_since;
        std::string m_lastStatus;
    };
    // True when the entry is finished with, either way.
    bool Follow(Queued& io_queued);
    void Fail(PeerFile const& i_file, std::string const& i_why);

    std::string m_peer;
    QString m_peerShare;
    int m_maxOutstanding;
    std::vector<PeerFile> m_files;
    std::list<Queued> m_outstanding;
    std::uint64_t m_transfers = 0;
    std::uint64_t m_bytes = 0;
    std::uint32_t m_failures = 0;
    std::uint32_t m_aborts = 0;
    std::string m_faults; // the first few, one per line
    QRandomGenerator m_random;
};

// Whether both files hold the same bytes, read a slice at a time.
bool SameBytes(QString const& i_first, QString const& i_second);
