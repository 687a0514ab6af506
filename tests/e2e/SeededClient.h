#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "support/SavedGraph.h"

// A real client under a name of its own, with a password, a free listening port, no port
// mapping and a download folder in its home; the scenario adds to the seed before the start.
class SeededClient
{
public:
    explicit SeededClient(std::string i_name);

    std::string const& Name() const { return m_name; }
    // Valid until the first start.
    SavedGraph& Seed() { return *m_seed; }
    QString Home() const { return m_client.Home(); }
    QString DataFile() const { return m_client.DataFile(); }
    QString Complete(QString const& i_rest = {}) const;
    QString Downloading(QString const& i_rest = {}) const;

    // Shares the folder under the home with everyone and writes the files into it, each given
    // by its path under the folder; the folder's absolute path.
    QString Share(QString const& i_folder, std::vector<std::pair<QString, QByteArray>> const& i_files);
    // A queued download of the user's file, named by its absolute path there, in the order of
    // the calls.
    void QueueDownload(std::string const& i_user, QString const& i_remoteFile, qint64 i_size);
    // The same with the folder and the name as given, whatever they hold.
    void QueueDownload(std::string const& i_user, std::string const& i_remoteFolder, std::string const& i_fileName,
                       qint64 i_size);

    // The first start writes the seed and lets it go: a graph's saver stands in for the global
    // one while it lives, which a window in the test process must have back. Then it starts and
    // waits for the login.
    bool Start(CentralServerProcess& io_server);
    // SIGTERM and a normal exit within the time; the downloads of the data file saved on the way out.
    std::vector<SavedGraph::Download> Stop();
    bool IsRunning() const { return m_client.IsRunning(); }
    ClientProcess& Process() { return m_client; }
    qint64 Pid() const { return m_client.Pid(); }
    quint16 Port() const { return m_port; }
    QByteArray Output() { return m_client.Output(); }

private:
    std::string m_name;
    std::optional<SavedGraph> m_seed;
    ClientProcess m_client;
    quint16 m_port = 0;
    int m_order = 0;
};

// A file's path as peers name it: the separators of the network are backslashes.
std::string RemotePath(QString const& i_local);
QByteArray RandomBytes(qsizetype i_size, quint32 i_seed);
QByteArray ReadAll(QString const& i_file);
bool WriteFile(QString const& i_file, QByteArray const& i_bytes);
// The saved status of the download of the file name.
std::optional<std::string> StatusOf(std::vector<SavedGraph::Download> const& i_saved, std::string const& i_file);
// Every file under the folder with its size and time of change.
using FileStates = std::map<QString, std::pair<qint64, QDateTime>>;
FileStates FilesUnder(QString const& i_folder);
