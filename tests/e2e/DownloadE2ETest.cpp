// A real client downloads, both logged in to the real central server: from a second real client
// where the uploader behaves, and from a peer played by hand where the scenario needs one that
// does what a real client would not: a way of connecting forced, an upload given up half way, an
// offer nobody asked for, hostile names or bytes past the end.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <map>
#include <memory>
#include <vector>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "SeededClient.h"
#include "Uploader.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"
#include "support/ScriptedPeer.h"
#include "support/WaitFor.h"

namespace
{
constexpr int c_long = 20000;
// The downloader writes what it receives in blocks of this size; a block cut short by the
// uploader is not kept.
constexpr qsizetype c_block = 8192;

// The client under test, with its downloads seeded in its data file before it starts.
class Downloader
{
public:
    Downloader() : m_port(FreePort())
    {
        for (auto [lp_key, l_value] : {std::pair{"username", std::string("fetcher")}, {"password", "fetcher-pw"},
                                       {"use_upnp", "no"}, {"listening_port", std::to_string(m_port)},
                                       {"download_folder", Folder().toStdString()}})
            m_seed.Set("global", lp_key, l_value);
    }

    quint16 Port() const { return m_port; }
    QString Home() const { return m_client.Home(); }
    QString Folder() const { return m_client.Home() + QStringLiteral("/dl"); }
    QString Downloading(QString const& i_rest = {}) const { return Folder() + QStringLiteral("/downloading/") + i_rest; }
    QString Complete(QString const& i_rest = {}) const { return Folder() + QStringLiteral("/complete/") + i_rest; }

    void Add(std::string const& i_folder, std::string const& i_file, qint64 i_size, std::string const& i_status)
    {
        SavedGraph::Download l_entry;
        l_entry.m_user = "sender";
        l_entry.m_remoteFolder = i_folder;
        l_entry.m_fileName = i_file;
        l_entry.m_fileSize = std::to_string(i_size);
        l_entry.m_status = i_status;
        l_entry.m_order = std::to_string(++m_order);
        m_seed.AddDownload(l_entry);
    }
    bool Start(CentralServerProcess& io_server)
    {
        if (!QFile::exists(m_client.DataFile()) && !m_seed.Save(m_client.DataFile()))
            return false;
        int const l_logins = io_server.CountLines(QStringLiteral("login fetcher from"));
        return m_client.Start()
               && WaitFor([&] { return io_server.CountLines(QStringLiteral("login fetcher from")) > l_logins; }, c_long);
    }
    // SIGTERM, then the entries of the data file saved on the way out.
    std::vector<SavedGraph::Download> Stop()
    {
        EXPECT_TRUE(m_client.Terminate(c_long)) << m_client.Output().toStdString();
        EXPECT_EQ(m_client.ExitCode(), 0) << m_client.Output().toStdString();
        SavedGraph l_saved;
        l_saved.Load(m_client.DataFile());
        return l_saved.Downloads();
    }
    // Whether the file turns up under complete, holding exactly these bytes.
    testing::AssertionResult Finished(QString const& i_rest, QByteArray const& i_content) const
    {
        QString const l_file = Complete(i_rest);
        if (!WaitFor([&] { return QFile::exists(l_file); }, c_long))
            return testing::AssertionFailure() << l_file.toStdString() << " never came";
        if (ReadAll(l_file) != i_content)
            return testing::AssertionFailure() << l_file.toStdString() << " holds other bytes";
        return testing::AssertionSuccess();
    }
    QByteArray Output() { return m_client.Output(); }
    QString DataFile() const { return m_client.DataFile(); }

private:
    ClientProcess m_client;
    quint16 m_port;
    SavedGraph m_seed;
    int m_order = 0;
};

class DownloadEndToEnd : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_server.Start());
    }
    // The downloader first, then the uploader, so that the downloader sees it come online.
    void StartBoth()
    {
        ASSERT_TRUE(m_fetcher.Start(m_server)) << m_fetcher.Output().toStdString();
        ASSERT_TRUE(m_sender.LogIn());
    }
    // The uploader first, with its port known to the server before the downloader asks for its
    // address, so that each connection way is taken when a scenario asks for it.
    void StartUploaderFirst()
    {
        ASSERT_TRUE(m_sender.LogIn());
        m_sender.Sync();
        ASSERT_TRUE(m_fetcher.Start(m_server)) << m_fetcher.Output().toStdString();
    }

    QTemporaryDir m_dir;
    CentralServerProcess m_server{m_dir.path() + QStringLiteral("/accounts")};
    Downloader m_fetcher;
    Uploader m_sender{"sender", "fetcher", m_fetcher.Port()};
};
} // namespace

TEST_F(DownloadEndToEnd, SavedEntriesAreQueuedInOrderWhenTheUploaderComesOnline)
{
    // The download order decides, whatever the status was.
    m_fetcher.Add("music\\b", "denied.bin", 10, "denied");
    m_fetcher.Add("music\\b", "complete.bin", 10, "complete");
    m_fetcher.Add("", "queued.bin", 10, "queued");
    m_fetcher.Add("music\\a", "aborted.bin", 10, "aborted");
    StartBoth();

    std::vector<QByteArray> l_queued, l_placed;
    while (std::optional<QByteArray> l_file = m_sender.TakeQueueRequest(l_queued.empty() ? c_long : 1500))
        l_queued.push_back(*l_file);
    while (std::optional<QByteArray> l_file = m_sender.TakePlaceRequest(1500))
        l_placed.push_back(*l_file);
    std::vector<QByteArray> const l_expected{"music\\b\\denied.bin", "\\queued.bin", "music\\a\\aborted.bin"};
    EXPECT_EQ(l_queued, l_expected) << m_fetcher.Output().toStdString();
    EXPECT_EQ(l_placed, l_expected);
}

TEST_F(DownloadEndToEnd, WholeFilesArriveByEitherWayOfConnecting)
{
    QByteArray const l_direct = RandomBytes(3 << 20, 1);
    QByteArray const l_back = RandomBytes((2 << 20) + 12345, 2);
    // A drive-letter folder counts by its last component; so does one with a trailing separator.
    m_fetcher.Add("C:\\share\\albums", "direct.bin", l_direct.size(), "queued");
    m_fetcher.Add("share\\singles\\", "back.bin", l_back.size(), "queued");
    StartUploaderFirst();
    ASSERT_EQ(m_sender.TakeQueueRequest(), "C:\\share\\albums\\direct.bin");
    ASSERT_EQ(m_sender.TakeQueueRequest(), "share\\singles\\\\back.bin");

    EXPECT_EQ(m_sender.Upload(Uploader::Way::Direct, 7, "C:\\share\\albums\\direct.bin", l_direct), 0u);
    EXPECT_TRUE(m_fetcher.Finished(QStringLiteral("albums/direct.bin"), l_direct));
    EXPECT_FALSE(QFileInfo::exists(m_fetcher.Downloading(QStringLiteral("albums"))));

    EXPECT_EQ(m_sender.Upload(Uploader::Way::DialBack, 8, "share\\singles\\\\back.bin", l_back), 0u);
    EXPECT_TRUE(m_fetcher.Finished(QStringLiteral("singles/back.bin"), l_back));
    EXPECT_TRUE(QDir(m_fetcher.Downloading()).isEmpty());

    std::vector<SavedGraph::Download> const l_saved = m_fetcher.Stop();
    EXPECT_EQ(StatusOf(l_saved, "direct.bin"), "complete");
    EXPECT_EQ(StatusOf(l_saved, "back.bin"), "complete");
}

TEST_F(DownloadEndToEnd, AnInterruptedDownloadResumesFromWhatIsOnDisk)
{
    QByteArray const l_broken = RandomBytes(4 << 20, 3);
    QByteArray const l_restarted = RandomBytes((3 << 20) + 7, 4);
    m_fetcher.Add("share\\docs", "broken.bin", l_broken.size(), "queued");
    m_fetcher.Add("share\\docs", "restart.bin", l_restarted.size(), "queued");
    StartUploaderFirst();
    ASSERT_EQ(m_sender.TakeQueueRequest(), "share\\docs\\broken.bin");
    ASSERT_EQ(m_sender.TakeQueueRequest(), "share\\docs\\restart.bin");
    QString const l_brokenPart = m_fetcher.Downloading(QStringLiteral("docs/broken.bin"));
    QString const l_restartPart = m_fetcher.Downloading(QStringLiteral("docs/restart.bin"));

    // The uploader gives up half way: the whole blocks of the half stay, and its failure notice
    // queues the file again.
    qsizetype const l_half = l_broken.size() / 2 + 3;
    qsizetype const l_halfKept = l_half - l_half % c_block;
    ASSERT_TRUE(m_sender.Offer(1, "share\\docs\\broken.bin", l_broken.size()).value_or(Uploader::Answer{}).m_accepted);
    {
        Uploader::FileLink l_link = m_sender.OpenFile(Uploader::Way::Direct, 1);
        ASSERT_EQ(l_link.m_offset, 0u);
        l_link.mp_link->SendRaw(l_broken.left(l_half));
        l_link.mp_link->Close();
        EXPECT_TRUE(l_link.mp_link->WaitClosed(c_long));
    }
    EXPECT_TRUE(WaitFor([&] { return QFileInfo(l_brokenPart).size() == l_halfKept; }, c_long));
    m_sender.SendUploadFailed("share\\docs\\broken.bin");
    EXPECT_EQ(m_sender.TakeQueueRequest(5000), "share\\docs\\broken.bin");
    EXPECT_EQ(m_sender.Upload(Uploader::Way::DialBack, 2, "share\\docs\\broken.bin", l_broken), static_cast<quint64>(l_halfKept));
    EXPECT_TRUE(m_fetcher.Finished(QStringLiteral("docs/broken.bin"), l_broken));

    // The downloader is stopped while the uploader stalls in mid-transfer, and picks up where its
    // file ends once it is back.
    qsizetype const l_third = l_restarted.size() / 3;
    qsizetype const l_thirdKept = l_third - l_third % c_block;
    ASSERT_TRUE(m_sender.Offer(3, "share\\docs\\restart.bin", l_restarted.size()).value_or(Uploader::Answer{}).m_accepted);
    Uploader::FileLink l_stalled = m_sender.OpenFile(Uploader::Way::Direct, 3);
    ASSERT_EQ(l_stalled.m_offset, 0u);
    l_stalled.mp_link->SendRaw(l_restarted.left(l_third));
    // Nothing shows when the last of it has been taken in: it is given a moment.
    WaitFor([] { return false; }, 1500);
    std::vector<SavedGraph::Download> const l_atStop = m_fetcher.Stop();
    EXPECT_NE(StatusOf(l_atStop, "restart.bin"), "complete");
    EXPECT_EQ(StatusOf(l_atStop, "broken.bin"), "complete");
    EXPECT_EQ(QFileInfo(l_restartPart).size(), l_thirdKept);
    EXPECT_TRUE(l_stalled.mp_link->WaitClosed());

    ASSERT_TRUE(m_fetcher.Start(m_server)) << m_fetcher.Output().toStdString();
    EXPECT_EQ(m_sender.TakeQueueRequest(), "share\\docs\\restart.bin");
    EXPECT_EQ(m_sender.Upload(Uploader::Way::Direct, 4, "share\\docs\\restart.bin", l_restarted), static_cast<quint64>(l_thirdKept));
    EXPECT_TRUE(m_fetcher.Finished(QStringLiteral("docs/restart.bin"), l_restarted));
    // The emptied folder goes just after the file has moved, in another process than this one.
    EXPECT_TRUE(WaitFor([&] { return !QFileInfo::exists(m_fetcher.Downloading(QStringLiteral("docs"))); }, 10000));
    EXPECT_EQ(StatusOf(m_fetcher.Stop(), "restart.bin"), "complete");
}

TEST_F(DownloadEndToEnd, RefusalsAndDenials)
{
    m_fetcher.Add("share", "wanted.bin", 100, "queued");
    m_fetcher.Add("share", "have.bin", 100, "complete");
    m_fetcher.Add("share", "grown.bin", 100, "queued");
    m_fetcher.Add("share", "changed.bin", 100, "queued");
    ASSERT_TRUE(WriteFile(m_fetcher.Downloading(QStringLiteral("share/changed.bin")), QByteArray(40, 'c')));
    StartUploaderFirst();
    for (QByteArray const l_file : {"share\\wanted.bin", "share\\grown.bin", "share\\changed.bin"})
        ASSERT_EQ(m_sender.TakeQueueRequest(), l_file);

    std::optional<Uploader::Answer> l_answer = m_sender.Offer(1, "share\\unknown.bin", 100);
    ASSERT_TRUE(l_answer);
    EXPECT_FALSE(l_answer->m_accepted);
    EXPECT_EQ(l_answer->m_reason, "Cancelled");
    l_answer = m_sender.Offer(2, "share\\have.bin", 100);
    ASSERT_TRUE(l_answer);
    EXPECT_FALSE(l_answer->m_accepted);
    EXPECT_EQ(l_answer->m_reason, "Complete");
    // A request to download from the downloader is not this side's business.
    EXPECT_FALSE(m_sender.Offer(3, "share\\wanted.bin", 100, 0, 1500));
    m_sender.SendUploadDenied("share\\wanted.bin", "Too many files");
    // A new size is taken while nothing is here, and refused once part of the old file is.
    l_answer = m_sender.Offer(4, "share\\grown.bin", 250);
    ASSERT_TRUE(l_answer);
    EXPECT_TRUE(l_answer->m_accepted);
    l_answer = m_sender.Offer(5, "share\\changed.bin", 250);
    ASSERT_TRUE(l_answer);
    EXPECT_FALSE(l_answer->m_accepted);
    EXPECT_EQ(l_answer->m_reason, "File size changed");
    EXPECT_EQ(ReadAll(m_fetcher.Downloading(QStringLiteral("share/changed.bin"))), QByteArray(40, 'c'));

    std::vector<SavedGraph::Download> const l_saved = m_fetcher.Stop();
    EXPECT_EQ(StatusOf(l_saved, "wanted.bin"), "denied");
    EXPECT_EQ(StatusOf(l_saved, "changed.bin"), "denied");
    EXPECT_EQ(StatusOf(l_saved, "have.bin"), "complete");
    for (SavedGraph::Download const& l_entry : l_saved)
        EXPECT_EQ(l_entry.m_fileSize, l_entry.m_fileName == "grown.bin" ? "250" : "100") << *l_entry.m_fileName;

    // A denial lasts until the downloader starts again.
    ASSERT_TRUE(m_fetcher.Start(m_server)) << m_fetcher.Output().toStdString();
    EXPECT_TRUE(m_sender.TakeQueueRequest());
    std::vector<SavedGraph::Download> const l_restarted = m_fetcher.Stop();
    EXPECT_EQ(StatusOf(l_restarted, "wanted.bin"), "queued");
    EXPECT_EQ(StatusOf(l_restarted, "changed.bin"), "queued");
}

TEST_F(DownloadEndToEnd, HostileNamesWriteNothingOutsideTheDownloadFolders)
{
    QByteArray const l_content = RandomBytes(5000, 5);
    std::string const l_long = std::string(296, 'n') + ".bin";
    m_fetcher.Add("..", "up.bin", l_content.size(), "queued");
    m_fetcher.Add("share\\..\\..", "dots.bin", l_content.size(), "queued");
    m_fetcher.Add("..\\..", "../../.profile", l_content.size(), "queued");
    m_fetcher.Add("share", "a\\b", l_content.size(), "queued");
    m_fetcher.Add("share", l_long, l_content.size(), "queued");
    m_fetcher.Add("share", "c\x01\x1f\x7f" "d.bin", l_content.size(), "queued");
    QString const l_profile = m_fetcher.Home() + QStringLiteral("/.profile");
    QString const l_beside = m_fetcher.Folder() + QStringLiteral("/up.bin");
    ASSERT_TRUE(WriteFile(l_profile, "bait profile") && WriteFile(l_beside, "bait beside"));
    StartUploaderFirst();
    ASSERT_TRUE(m_sender.TakeQueueRequest());
    FileStates const l_before = FilesUnder(m_fetcher.Home());

    quint32 l_req = 0;
    for (QByteArray const& l_file : {QByteArray("..\\up.bin"), QByteArray("share\\..\\..\\dots.bin"),
                                    QByteArray("share\\") + QByteArray::fromStdString(l_long), QByteArray("share\\c\x01\x1f\x7f" "d.bin")})
        EXPECT_EQ(m_sender.Upload(Uploader::Way::Direct, ++l_req, l_file, l_content), 0u) << l_file.toStdString();
    // Split at their last separator, the paths of names with separators name files nobody asked
    // for; a file connection for a request never accepted gets no offset.
    for (QByteArray const l_file : {"..\\..\\../../.profile", "share\\a\\b"})
        EXPECT_EQ(m_sender.Offer(++l_req, l_file, l_content.size()).value_or(Uploader::Answer{}).m_reason, "Cancelled");
    Uploader::FileLink l_refused = m_sender.OpenFile(Uploader::Way::Direct, l_req);
    EXPECT_FALSE(l_refused.m_offset);
    EXPECT_TRUE(!l_refused.mp_link || l_refused.mp_link->WaitClosed());

    std::string const l_tamed = std::string(251, 'n') + ".bin";
    for (QString const& l_name : {QStringLiteral("up.bin"), QStringLiteral("dots.bin"), QStringLiteral("share/c___d.bin"),
                                  QStringLiteral("share/") + QString::fromStdString(l_tamed)})
    {
        EXPECT_TRUE(m_fetcher.Finished(l_name, l_content));
    }
    for (auto const& [l_path, l_state] : FilesUnder(m_fetcher.Home()))
    {
        bool const l_inside = l_path.startsWith(m_fetcher.Downloading()) || l_path.startsWith(m_fetcher.Complete());
        auto const l_old = l_before.find(l_path);
        EXPECT_TRUE(l_inside || (l_old != l_before.end() && l_old->second == l_state) || l_path.startsWith(m_fetcher.DataFile()))
            << "written: " << l_path.toStdString();
    }
    EXPECT_EQ(ReadAll(l_profile), "bait profile");
    EXPECT_EQ(ReadAll(l_beside), "bait beside");
    std::vector<SavedGraph::Download> const l_saved = m_fetcher.Stop();
    EXPECT_EQ(StatusOf(l_saved, "up.bin"), "complete");
}

TEST_F(DownloadEndToEnd, APartialBeyondFourGibibytesIsContinuedFromItsExactSize)
{
    qint64 const l_partial = (4ll << 30) + 4099;
    QByteArray const l_marker = RandomBytes(4096, 6);
    QByteArray const l_tail = RandomBytes((1 << 20) + 5, 7);
    qint64 const l_total = l_partial + l_tail.size();
    m_fetcher.Add("share\\big", "huge.bin", l_total, "queued");
    {
        // Sparse: only the marker at its end takes room on disk.
        QDir().mkpath(m_fetcher.Downloading(QStringLiteral("big")));
        QFile l_file(m_fetcher.Downloading(QStringLiteral("big/huge.bin")));
        ASSERT_TRUE(l_file.open(QIODevice::WriteOnly) && l_file.resize(l_partial - l_marker.size()) && l_file.seek(l_partial - l_marker.size()));
        ASSERT_EQ(l_file.write(l_marker), l_marker.size());
    }
    StartUploaderFirst();
    ASSERT_EQ(m_sender.TakeQueueRequest(), "share\\big\\huge.bin");

    ASSERT_TRUE(m_sender.Offer(1, "share\\big\\huge.bin", static_cast<quint64>(l_total)).value_or(Uploader::Answer{}).m_accepted);
    Uploader::FileLink l_link = m_sender.OpenFile(Uploader::Way::DialBack, 1);
    ASSERT_EQ(l_link.m_offset, static_cast<quint64>(l_partial));
    // What follows the end of the file is not the downloader's to take.
    l_link.mp_link->SendRaw(l_tail + QByteArray(3000, 'x'));
    EXPECT_TRUE(l_link.mp_link->WaitClosed(c_long));
    QString const l_done = m_fetcher.Complete(QStringLiteral("big/huge.bin"));
    ASSERT_TRUE(WaitFor([&] { return QFile::exists(l_done); }, c_long));
    EXPECT_EQ(QFileInfo(l_done).size(), l_total);
    QFile l_file(l_done);
    ASSERT_TRUE(l_file.open(QIODevice::ReadOnly) && l_file.seek(l_partial - l_marker.size()));
    EXPECT_TRUE(l_file.readAll() == l_marker + l_tail);
    EXPECT_EQ(StatusOf(m_fetcher.Stop(), "huge.bin"), "complete");
}

namespace
{
// The uploader a real client, sharing one folder with everyone.
class DownloadFromRealClient : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_server.Start());
    }
    void StartBoth()
    {
        ASSERT_TRUE(m_sender.Start(m_server)) << m_sender.Output().toStdString();
        ASSERT_TRUE(m_fetcher.Start(m_server)) << m_fetcher.Output().toStdString();
    }
    // The remote folder of a file under the shared folder, as the downloader keeps it.
    std::string RemoteFolder(QString const& i_under) const { return RemotePath(m_shared + u'/' + i_under); }

    QTemporaryDir m_dir;
    CentralServerProcess m_server{m_dir.path() + QStringLiteral("/accounts")};
    Downloader m_fetcher;
    SeededClient m_sender{"sender"};
    QString m_shared = m_sender.Home() + QStringLiteral("/share");
};
} // namespace

TEST_F(DownloadFromRealClient, WholeFilesArriveInTheirLastFolder)
{
    QByteArray const l_first = RandomBytes(3 << 20, 31);
    QByteArray const l_second = RandomBytes((2 << 20) + 12345, 32);
    m_sender.Share(QStringLiteral("share"), {{QStringLiteral("albums/first.bin"), l_first},
                                             {QStringLiteral("albums/singles/second.bin"), l_second}});
    m_fetcher.Add(RemoteFolder(QStringLiteral("albums")), "first.bin", l_first.size(), "queued");
    m_fetcher.Add(RemoteFolder(QStringLiteral("albums/singles")), "second.bin", l_second.size(), "queued");
    StartBoth();

    EXPECT_TRUE(m_fetcher.Finished(QStringLiteral("albums/first.bin"), l_first)) << m_fetcher.Output().toStdString();
    EXPECT_TRUE(m_fetcher.Finished(QStringLiteral("singles/second.bin"), l_second));
    // The emptied folders go just after the file is moved.
    EXPECT_TRUE(WaitFor([&] { return QDir(m_fetcher.Downloading()).isEmpty(); }, 5000));
    std::vector<SavedGraph::Download> const l_saved = m_fetcher.Stop();
    EXPECT_EQ(StatusOf(l_saved, "first.bin"), "complete");
    EXPECT_EQ(StatusOf(l_saved, "second.bin"), "complete");
    m_sender.Stop();
}

TEST_F(DownloadFromRealClient, APartialBeyondFourGibibytesIsContinuedFromItsExactSize)
{
    // Both files sparse: only the marker at the partial's end and the tail of the shared file
    // take room on disk.
    qint64 const l_partial = (4ll << 30) + 4099;
    QByteArray const l_marker = RandomBytes(4096, 33);
    QByteArray const l_tail = RandomBytes((1 << 20) + 5, 34);
    qint64 const l_total = l_partial + l_tail.size();
    auto const l_sparse = [](QString const& i_file, qint64 i_at, QByteArray const& i_end)
    {
        QDir().mkpath(QFileInfo(i_file).path());
        QFile l_file(i_file);
        return l_file.open(QIODevice::WriteOnly) && l_file.resize(i_at) && l_file.seek(i_at) && l_file.write(i_end) == i_end.size();
    };
    ASSERT_TRUE(l_sparse(m_shared + QStringLiteral("/big/huge.bin"), l_partial, l_tail));
    m_sender.Share(QStringLiteral("share"), {});
    ASSERT_TRUE(l_sparse(m_fetcher.Downloading(QStringLiteral("big/huge.bin")), l_partial - l_marker.size(), l_marker));
    m_fetcher.Add(RemoteFolder(QStringLiteral("big")), "huge.bin", l_total, "queued");
    StartBoth();

    QString const l_done = m_fetcher.Complete(QStringLiteral("big/huge.bin"));
    ASSERT_TRUE(WaitFor([&] { return QFile::exists(l_done); }, c_long)) << m_fetcher.Output().toStdString();
    EXPECT_EQ(QFileInfo(l_done).size(), l_total);
    QFile l_file(l_done);
    ASSERT_TRUE(l_file.open(QIODevice::ReadOnly) && l_file.seek(l_partial - l_marker.size()));
    EXPECT_TRUE(l_file.readAll() == l_marker + l_tail);
    EXPECT_EQ(StatusOf(m_fetcher.Stop(), "huge.bin"), "complete");
    m_sender.Stop();
}
