// A real client, logged in to the real central server, uploading to and downloading from peers
// played by hand that abuse its file connections: offsets and sizes no file has, names that try
// to leave the download folders, and peers that read or write a byte a second. Through each
// attack the client must go on answering new peers, its memory must stay near its figure before,
// its event loop must not be held up by its own work, and its log must say what happened.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>
#include <QtEndian>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CentralServerProcess.h"
#include "ClientChecks.h"
#include "ScriptedDownloader.h"
#include "SeededClient.h"
#include "Uploader.h"
#include "support/WaitFor.h"

namespace
{
// What an attack may add to the client's resident memory at its highest.
constexpr qint64 c_memoryBoundKiB = 64 * 1024;
// The longest the client's event loop may be held up by its own work.
constexpr qint64 c_busyBoundMs = 100;
// How long an upload waits for a socket that takes nothing before it gives up.
constexpr qint64 c_uploadTimeoutMs = 30000;
constexpr quint64 c_twoTo63 = 1ull << 63;
constexpr qint64 c_smallSize = 3000;
// Far more than the buffers of both ends of a loopback connection hold.
constexpr qint64 c_bigSize = 64ll << 20;

QByteArray LittleEndian64(quint64 i_value)
{
    QByteArray l_bytes(8, Qt::Uninitialized);
    qToLittleEndian(i_value, l_bytes.data());
    return l_bytes;
}

// A download the client is seeded with, and where its file lands under complete/; nowhere for
// a name that can name no file.
struct HostileName
{
    std::string m_folder;
    std::string m_file;
    QString m_landsAs;

    QByteArray RemotePath() const { return QByteArray::fromStdString(m_folder + "\\" + m_file); }
    // The path as the client keeps it: a text ends at its first zero byte.
    QString KeptPath() const { return QString::fromUtf8(RemotePath().constData()); }
};

std::vector<HostileName> HostileNames()
{
    std::string l_accents;
    for (int l_index = 0; l_index < 200; ++l_index)
        l_accents += "\xc3\xa9";
    // Cut to 255 bytes at a character boundary, the extension kept.
    QString const l_accentsTamed = QString(125, QChar(0xe9)) + QStringLiteral(".flac");
    return {
        {"/etc", "passwd", QStringLiteral("etc/passwd")},
        {"C:\\Windows\\System32", "hosts", QStringLiteral("System32/hosts")},
        {"\\\\server\\music", "unc.bin", QStringLiteral("music/unc.bin")},
        {"..\\inner", "lead.bin", QStringLiteral("inner/lead.bin")},
        {"outer\\..\\mid", "middle.bin", QStringLiteral("mid/middle.bin")},
        {"outer\\..", "trail.bin", QStringLiteral("trail.bin")},
        {"mix/..\\../..", "mix.bin", QStringLiteral("mix.bin")},
        {"a\\b/c", "slash.bin", QStringLiteral("c/slash.bin")},
        {"....", "dots.bin", QStringLiteral("dots.bin")},
        {std::string(300, 'f'), "deep.bin", QString(255, QLatin1Char('f')) + QStringLiteral("/deep.bin")},
        {"share", l_accents + ".flac", QStringLiteral("share/") + l_accentsTamed},
        // A text ends at its first zero byte, on the wire and in the data file alike.
        {"share", std::string("nul\0.bin", 8), QStringLiteral("share/nul")},
        {"share", "....", QString()},
    };
}

class HostileTransfers : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // The default quarantine keeps 256 MiB of freed memory resident, which would hide any bound.
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":quarantine_size_mb=16");
    }

    void SetUp() override
    {
        ASSERT_TRUE(m_server.Start());
        QString const l_shared = m_target.Share(QStringLiteral("share"), {{QStringLiteral("small.bin"), m_small}});
        m_smallPath = QByteArray::fromStdString(RemotePath(l_shared + QStringLiteral("/small.bin")));
        m_bigPath = QByteArray::fromStdString(RemotePath(l_shared + QStringLiteral("/big.bin")));
        // Sparse: it takes no room on disk.
        QFile l_big(l_shared + QStringLiteral("/big.bin"));
        ASSERT_TRUE(l_big.open(QIODevice::WriteOnly) && l_big.resize(c_bigSize));

        for (HostileName const& l_name : HostileNames())
            m_target.QueueDownload("sender", l_name.m_folder, l_name.m_file, m_content.size());
        for (char const* lp_name : {"there.bin", "exists.bin"})
            m_target.QueueDownload("sender", "share", lp_name, m_content.size());
        m_target.QueueDownload("sender", std::string("nul\0dir", 7), "n.bin", m_content.size());
        ASSERT_TRUE(WriteFile(m_target.Complete(QStringLiteral("share/there.bin")), "already here"));
        for (char const* lp_name : {"over.bin", "minus.bin", "huge.bin"})
            m_target.QueueDownload("sender", "sizes", lp_name, 10000);
        m_target.QueueDownload("sender", "sizes", "short.bin", 100);
        ASSERT_TRUE(WriteFile(m_target.Downloading(QStringLiteral("sizes/short.bin")), QByteArray(300, 's')));
        m_target.QueueDownload("sender", "slow", "drip.bin", m_drip.size());

        ASSERT_TRUE(m_target.Start(m_server)) << m_target.Output().toStdString();
        ASSERT_TRUE(m_sender.LogIn());
        ASSERT_TRUE(m_getter.LogIn());
        // All queue requests go out in the one turn in which the client sees the sender online.
        ASSERT_TRUE(m_sender.TakeQueueRequest());
    }

    // Runs an attack from the resident memory and the log of now, and checks what it must leave
    // intact.
    void Attack(char const* i_name, std::function<void()> const& i_body)
    {
        ASSERT_TRUE(ResetPeakMemory(m_target.Pid()));
        qint64 const l_before = StatusKiB(m_target.Pid(), "VmRSS");
        qsizetype const l_logFrom = Log().size();
        i_body();
        EXPECT_TRUE(AnswersAPeer(m_target.Port())) << i_name;
        EXPECT_LT(StatusKiB(m_target.Pid(), "VmHWM") - l_before, c_memoryBoundKiB) << i_name;
        QByteArray const l_log = Log().mid(l_logFrom);
        EXPECT_LE(LongestBusyStallMs(l_log), c_busyBoundMs) << i_name << "\n" << l_log.toStdString();
        ASSERT_TRUE(m_target.IsRunning()) << i_name;
    }

    QByteArray Log() { return m_target.Output(); }
    bool Logs(QString const& i_text, int i_timeoutMs = 10000)
    {
        QByteArray const l_text = i_text.toUtf8();
        return WaitFor([&] { return Log().contains(l_text); }, i_timeoutMs);
    }
    testing::AssertionResult Finished(QString const& i_rest, QByteArray const& i_content)
    {
        QString const l_file = m_target.Complete(i_rest);
        if (!WaitFor([&] { return QFile::exists(l_file); }, Uploader::s_longMs))
            return testing::AssertionFailure() << l_file.toStdString() << " never came";
        if (ReadAll(l_file) != i_content)
            return testing::AssertionFailure() << l_file.toStdString() << " holds other bytes";
        return testing::AssertionSuccess();
    }

    void OffsetsOutsideTheFile();
    void HostileNamesStayInside();
    void SizesNoFileHas();

    QByteArray const m_small = RandomBytes(c_smallSize, 71);
    QByteArray const m_content = RandomBytes(5000, 72);
    QByteArray const m_drip = "twelve bytes";
    QByteArray m_smallPath;
    QByteArray m_bigPath;
    quint32 m_req = 0;
    QTemporaryDir m_dir;
    CentralServerProcess m_server{m_dir.path() + QStringLiteral("/accounts")};
    SeededClient m_target{"target"};
    Uploader m_sender{"sender", "target", m_target.Port()};
    ScriptedDownloader m_getter{"getter", "target", m_target.Port()};
};

// A downloader of the client's file asks for offsets at its end, beyond it, and 8 bytes that
// read as a negative number or as one over 2^63; then for a fair one.
void HostileTransfers::OffsetsOutsideTheFile()
{
    for (quint64 const l_offset : {quint64(c_smallSize), c_smallSize + 1 + (1ull << 32), c_twoTo63 + 7, ~0ull})
    {
        std::unique_ptr<PeerLink> lp_file = m_getter.Start(m_smallPath);
        ASSERT_TRUE(lp_file) << l_offset << Log().toStdString();
        lp_file->SendRaw(LittleEndian64(l_offset));
        EXPECT_TRUE(Logs(QStringLiteral("Upload of small.bin to getter failed: the peer asked for offset %1 of a file of %2 bytes")
                             .arg(l_offset)
                             .arg(c_smallSize)))
            << l_offset;
        std::optional<Fields> l_failed = m_getter.Take(46);
        EXPECT_EQ(l_failed ? l_failed->Str() : QByteArray(), m_smallPath) << l_offset;
        EXPECT_TRUE(lp_file->WaitClosed()) << l_offset;
    }
    std::unique_ptr<PeerLink> lp_file = m_getter.Start(m_smallPath);
    ASSERT_TRUE(lp_file);
    lp_file->SendRaw(LittleEndian64(1000));
    EXPECT_EQ(lp_file->TakeRaw(c_smallSize - 1000, 10000), m_small.mid(1000));
    lp_file->Close();
    EXPECT_TRUE(Logs(QStringLiteral("Recording upload speed")));
}

// Every file lands under complete/ in its one tamed folder, a name that can name no file is a
// local error, and a file that stands in complete/ is never written over.
void HostileTransfers::HostileNamesStayInside()
{
    FileStates const l_before = FilesUnder(m_target.Home());
    QString const l_there = m_target.Complete(QStringLiteral("share/there.bin"));
    QString const l_exists = m_target.Complete(QStringLiteral("share/exists.bin"));
    ASSERT_TRUE(WriteFile(l_exists, "came first"));

    for (HostileName const& l_name : HostileNames())
    {
        if (l_name.m_landsAs.isEmpty())
        {
            ASSERT_TRUE(m_sender.Offer(++m_req, l_name.RemotePath(), m_content.size()).value_or(Uploader::Answer{}).m_accepted);
            Uploader::FileLink l_refused = m_sender.OpenFile(Uploader::Way::Direct, m_req);
            EXPECT_FALSE(l_refused.m_offset) << l_name.m_file;
            continue;
        }
        EXPECT_EQ(m_sender.Upload(Uploader::Way::Direct, ++m_req, l_name.RemotePath(), m_content), 0u) << l_name.m_folder;
        EXPECT_TRUE(Finished(l_name.m_landsAs, m_content));
        EXPECT_TRUE(Logs(QStringLiteral("Download of %1 from sender complete, saved as %2")
                             .arg(l_name.KeptPath(), m_target.Complete(l_name.m_landsAs))));
    }
    EXPECT_TRUE(Logs(QStringLiteral("No safe local path for share\\.... from sender")));
    // The folder of this download was saved with a zero byte in it, and the peer names it so:
    // both end at the zero byte, and the file "nul" is no download.
    EXPECT_EQ(m_sender.Offer(++m_req, QByteArray("nul\0dir\\n.bin", 13), m_content.size()).value_or(Uploader::Answer{}).m_reason,
              "Cancelled");

    EXPECT_EQ(m_sender.Offer(++m_req, "share\\there.bin", m_content.size()).value_or(Uploader::Answer{}).m_reason, "Complete");
    EXPECT_EQ(m_sender.Upload(Uploader::Way::Direct, ++m_req, "share\\exists.bin", m_content), 0u);
    EXPECT_TRUE(Finished(QStringLiteral("share/exists (2).bin"), m_content));
    EXPECT_TRUE(Logs(QStringLiteral("A file named exists.bin appeared among the complete downloads; share\\exists.bin is saved as exists (2).bin")));
    EXPECT_EQ(ReadAll(l_there), "already here");
    EXPECT_EQ(ReadAll(l_exists), "came first");

    for (auto const& [l_path, l_state] : FilesUnder(m_target.Home()))
    {
        bool const l_inside = l_path.startsWith(m_target.Downloading()) || l_path.startsWith(m_target.Complete());
        auto const l_old = l_before.find(l_path);
        EXPECT_TRUE(l_inside || (l_old != l_before.end() && l_old->second == l_state) || l_path.startsWith(m_target.DataFile()))
            << "written: " << l_path.toStdString();
    }
}

// Sizes of 2^63 and more, which read as negative, are refused; one just below is taken while
// nothing of the file is here, and a peer that sends less than it said ends the download; a
// partial longer than the size it should have ends it too.
void HostileTransfers::SizesNoFileHas()
{
    for (auto const& [lp_name, l_size] : {std::pair{"over.bin", c_twoTo63 + 5}, std::pair{"minus.bin", ~0ull}})
    {
        QByteArray const l_path = QByteArrayLiteral("sizes\\") + lp_name;
        EXPECT_EQ(m_sender.Offer(++m_req, l_path, l_size).value_or(Uploader::Answer{}).m_reason, "File size changed");
        EXPECT_TRUE(Logs(QStringLiteral("Denied %1: the offered size %2 is beyond any file; 10000 was expected")
                             .arg(QString::fromLatin1(l_path))
                             .arg(l_size)));
    }

    QByteArray const l_huge = RandomBytes(10000, 73);
    ASSERT_TRUE(m_sender.Offer(++m_req, "sizes\\huge.bin", c_twoTo63 - 1).value_or(Uploader::Answer{}).m_accepted);
    EXPECT_TRUE(Logs(QStringLiteral("Size of sizes\\huge.bin is now 9223372036854775807 bytes instead of 10000")));
    Uploader::FileLink l_link = m_sender.OpenFile(Uploader::Way::Direct, m_req);
    ASSERT_EQ(l_link.m_offset, 0u);
    l_link.mp_link->SendRaw(l_huge);
    l_link.mp_link->Close();
    EXPECT_TRUE(Logs(QStringLiteral("Download of sizes\\huge.bin from sender failed: waiting for bytes at 10000: the connection closed")));
    EXPECT_EQ(ReadAll(m_target.Downloading(QStringLiteral("sizes/huge.bin"))), l_huge.left(8192));

    ASSERT_TRUE(m_sender.Offer(++m_req, "sizes\\short.bin", 100).value_or(Uploader::Answer{}).m_accepted);
    EXPECT_EQ(m_sender.OpenFile(Uploader::Way::Direct, m_req).m_offset, 300u);
    EXPECT_TRUE(Logs(QStringLiteral("Download of sizes\\short.bin from sender failed: the partial file of 300 bytes is longer than the expected 100")));
    EXPECT_EQ(ReadAll(m_target.Downloading(QStringLiteral("sizes/short.bin"))), QByteArray(300, 's'));
}
} // namespace

TEST_F(HostileTransfers, TheClientKeepsItsBoundsAndItsFilesAndSaysWhatHappened)
{
    Attack("offsets outside the file", [&] { OffsetsOutsideTheFile(); });

    // The slow reader holds the one upload until its time-out; the slow writer's download runs
    // to its end beside it, and so do the names and the sizes.
    Attack("a byte a second each way, hostile names and sizes", [&] {
        std::unique_ptr<PeerLink> lp_reader = m_getter.Start(m_bigPath);
        ASSERT_TRUE(lp_reader);
        lp_reader->NarrowReadBuffer(1);
        lp_reader->SendRaw(LittleEndian64(0));
        QElapsedTimer l_readerClock;
        l_readerClock.start();
        QByteArray l_read;
        QTimer l_reading;
        QObject::connect(&l_reading, &QTimer::timeout, &l_reading, [&] { l_read += lp_reader->TakeRaw(1, 0); });
        l_reading.start(1000);

        // The request number, then the file, a byte a second; the offset is read at the end.
        ASSERT_TRUE(m_sender.Offer(++m_req, "slow\\drip.bin", m_drip.size()).value_or(Uploader::Answer{}).m_accepted);
        Uploader::FileLink l_writer = m_sender.OpenFile(Uploader::Way::Direct, m_req, false);
        ASSERT_TRUE(l_writer.mp_link);
        QByteArray const l_drip = LittleEndian64(m_req).left(4) + m_drip;
        qsizetype l_dripped = 0;
        QTimer l_writing;
        QObject::connect(&l_writing, &QTimer::timeout, &l_writing, [&] {
            if (l_dripped < l_drip.size())
                l_writer.mp_link->SendRaw(l_drip.mid(l_dripped++, 1));
        });
        l_writing.start(1000);

        HostileNamesStayInside();
        SizesNoFileHas();

        EXPECT_TRUE(Finished(QStringLiteral("slow/drip.bin"), m_drip));
        EXPECT_TRUE(Logs(QStringLiteral("Download of slow\\drip.bin from sender complete")));
        EXPECT_EQ(l_writer.mp_link->TakeRaw(8), LittleEndian64(0));

        EXPECT_TRUE(Logs(QStringLiteral("Upload of big.bin to getter failed: sending: timed out after %1 ms").arg(c_uploadTimeoutMs),
                         static_cast<int>(c_uploadTimeoutMs + 15000 - l_readerClock.elapsed())));
        EXPECT_GE(l_readerClock.elapsed(), c_uploadTimeoutMs);
        std::optional<Fields> l_failed = m_getter.Take(46);
        EXPECT_EQ(l_failed ? l_failed->Str() : QByteArray(), m_bigPath);
        EXPECT_FALSE(l_read.isEmpty());
        // What reached the reader before the client gave up is all there is to read.
        l_reading.stop();
        lp_reader->NarrowReadBuffer(0);
        EXPECT_TRUE(lp_reader->WaitClosed(5000));
    });

    std::vector<SavedGraph::Download> const l_saved = m_target.Stop();
    EXPECT_EQ(StatusOf(l_saved, "drip.bin"), "complete");
    EXPECT_EQ(StatusOf(l_saved, "exists.bin"), "complete");
    EXPECT_EQ(StatusOf(l_saved, "over.bin"), "denied");
    EXPECT_EQ(StatusOf(l_saved, "huge.bin"), "aborted");
    EXPECT_EQ(StatusOf(l_saved, "...."), "local error");
}
