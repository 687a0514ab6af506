#include "SeededClient.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <algorithm>

#include <gtest/gtest.h>

#include "support/FreePort.h"
#include "support/WaitFor.h"

namespace
{
constexpr int c_loginWaitMs = 20000;
}

SeededClient::SeededClient(std::string i_name) : m_name(std::move(i_name)), m_seed(std::in_place)
{
    m_seed->SetIdentity(m_name, (Home() + QStringLiteral("/dl")).toStdString());
    m_port = static_cast<quint16>(std::stoi(m_seed->Setting("global", "listening_port").value_or("0")));
}

QString SeededClient::Complete(QString const& i_rest) const
{
    return Home() + QStringLiteral("/dl/complete/") + i_rest;
}

QString SeededClient::Downloading(QString const& i_rest) const
{
    return Home() + QStringLiteral("/dl/downloading/") + i_rest;
}

QString SeededClient::Share(QString const& i_folder, std::vector<std::pair<QString, QByteArray>> const& i_files)
{
    QString const l_root = Home() + QLatin1Char('/') + i_folder;
    QDir().mkpath(l_root);
    for (auto const& [l_path, l_bytes] : i_files)
        EXPECT_TRUE(WriteFile(l_root + QLatin1Char('/') + l_path, l_bytes)) << l_path.toStdString();
    m_seed->ShareFolder(l_root.toStdString(), SavedGraph::Access::Everyone);
    return l_root;
}

void SeededClient::QueueDownload(std::string const& i_user, QString const& i_remoteFile, qint64 i_size)
{
    std::string const l_path = RemotePath(i_remoteFile);
    std::size_t const l_split = l_path.rfind('\\');
    QueueDownload(i_user, l_path.substr(0, l_split), l_path.substr(l_split + 1), i_size);
}

void SeededClient::QueueDownload(std::string const& i_user, std::string const& i_remoteFolder, std::string const& i_fileName,
                                 qint64 i_size)
{
    SavedGraph::Download l_entry;
    l_entry.m_user = i_user;
    l_entry.m_remoteFolder = i_remoteFolder;
    l_entry.m_fileName = i_fileName;
    l_entry.m_fileSize = std::to_string(i_size);
    l_entry.m_status = "queued";
    l_entry.m_order = std::to_string(++m_order);
    m_seed->AddDownload(l_entry);
}

bool SeededClient::Start(CentralServerProcess& io_server)
{
    if (m_seed)
    {
        bool const l_saved = m_seed->Save(DataFile());
        m_seed.reset();
        if (!l_saved)
            return false;
    }
    QString const l_login = QStringLiteral("login %1 from").arg(QString::fromStdString(m_name));
    int const l_logins = io_server.CountLines(l_login);
    return m_client.Start() && WaitFor([&] { return io_server.CountLines(l_login) > l_logins; }, c_loginWaitMs);
}

std::vector<SavedGraph::Download> SeededClient::Stop()
{
    EXPECT_TRUE(m_client.Terminate(c_loginWaitMs)) << m_name << ": " << m_client.Output().toStdString();
    EXPECT_EQ(m_client.ExitCode(), 0) << m_name << ": " << m_client.Output().toStdString();
    SavedGraph l_saved;
    l_saved.Load(DataFile());
    return l_saved.Downloads();
}

std::string RemotePath(QString const& i_local)
{
    std::string l_path = i_local.toStdString();
    std::replace(l_path.begin(), l_path.end(), '/', '\\');
    return l_path;
}

QByteArray RandomBytes(qsizetype i_size, quint32 i_seed)
{
    QByteArray l_bytes(i_size, 0);
    QRandomGenerator l_random(i_seed);
    l_random.fillRange(reinterpret_cast<quint32*>(l_bytes.data()), i_size / 4);
    return l_bytes;
}

QByteArray ReadAll(QString const& i_file)
{
    QFile l_file(i_file);
    return l_file.open(QIODevice::ReadOnly) ? l_file.readAll() : QByteArray();
}

bool WriteFile(QString const& i_file, QByteArray const& i_bytes)
{
    QDir().mkpath(QFileInfo(i_file).path());
    QFile l_file(i_file);
    return l_file.open(QIODevice::WriteOnly) && l_file.write(i_bytes) == i_bytes.size();
}

FileStates FilesUnder(QString const& i_folder)
{
    FileStates l_files;
    QDirIterator l_walk(i_folder, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
    while (l_walk.hasNext())
    {
        QFileInfo const l_info = l_walk.nextFileInfo();
        l_files[l_info.filePath()] = {l_info.size(), l_info.lastModified()};
    }
    return l_files;
}

std::optional<std::string> StatusOf(std::vector<SavedGraph::Download> const& i_saved, std::string const& i_file)
{
    for (SavedGraph::Download const& l_entry : i_saved)
        if (l_entry.m_fileName == i_file)
            return l_entry.m_status;
    return std::nullopt;
}
