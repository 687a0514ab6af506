// The upload speed limit of a real client, as a real downloading client sees it. For each limit
// a fresh pair of clients logs in at the central server: the uploader shares the folder of FILE
// with the limit seeded in its data file, the downloader is seeded with a queued download of
// FILE. The speed is the growth of the downloader's partial file over the measuring time, after
// a warm-up; it must be within 5% of the limit. With the limit off, the whole file goes through
// the two clients, beside a plain loopback copy of it with blocking 8 KiB system calls. Exits 1
// when a limit is missed or the unlimited copy differs, 2 when a phase fails; whatever happens,
// the clients are killed at the time limit.
//
//   bench_upload_limit --source FILE --work DIR [--limits 64,512,4096] [--warmup S] [--measure S] [--limit S]
//
// DIR, on the file system of FILE, holds the downloads, the plain copy and the server's accounts.
// Runs the server on its fixed port: bench/transfers/upload_limit gives it a network of its own.
#include "PlainCopy.h"
#include "bench/BenchDeadline.h"

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "support/SavedGraph.h"
#include "support/WaitFor.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <optional>

namespace
{
constexpr double c_tolerance = 0.05;
constexpr int c_startWaitMs = 30000;
constexpr double c_mib = 1024.0 * 1024.0;

void Fail(char const* i_phase)
{
    std::fprintf(stderr, "bench_upload_limit: %s failed\n", i_phase);
    std::exit(2);
}

void Pause(int i_ms)
{
    WaitFor([] { return false; }, i_ms);
}

bool StartAndLogIn(ClientProcess& io_client, CentralServerProcess& io_server, QString const& i_name)
{
    QString const l_line = QStringLiteral("login %1 from").arg(i_name);
    int const l_before = io_server.CountLines(l_line);
    return io_client.Start() && WaitFor([&] { return io_server.CountLines(l_line) > l_before; }, c_startWaitMs);
}

QByteArray Digest(QString const& i_file)
{
    QFile l_file(i_file);
    QCryptographicHash l_hash(QCryptographicHash::Sha256);
    return l_file.open(QIODevice::ReadOnly) && l_hash.addData(&l_file) ? l_hash.result() : QByteArray();
}

// A pair of clients for one round: the uploader with the limit (0: off) and the downloader asking
// for the file, both logged in, the download under way.
class Round
{
public:
    Round(CentralServerProcess& io_server, QFileInfo const& i_source, QString const& i_downloads, int i_limitKib)
        : m_source(i_source), m_downloads(i_downloads)
    {
        QString const l_folder = m_source.absolutePath();
        {
            SavedGraph l_seed;
            l_seed.SetIdentity("benchuploader", (m_downloads + QStringLiteral("-unused")).toStdString());
            l_seed.SetUploadLimit(i_limitKib, i_limitKib > 0);
            l_seed.ShareFolder(l_folder.toStdString(), SavedGraph::Access::Everyone);
            l_seed.Save(m_uploader.DataFile());
        }
        {
            SavedGraph l_seed;
            l_seed.SetIdentity("benchdownloader", m_downloads.toStdString());
            std::string l_remote = l_folder.toStdString();
            std::replace(l_remote.begin(), l_remote.end(), '/', '\\');
            SavedGraph::Download l_entry;
            l_entry.m_user = "benchuploader";
            l_entry.m_remoteFolder = l_remote;
            l_entry.m_fileName = m_source.fileName().toStdString();
            l_entry.m_fileSize = std::to_string(m_source.size());
            l_entry.m_status = "queued";
            l_entry.m_order = "1";
            l_seed.AddDownload(l_entry);
            l_seed.Save(m_downloader.DataFile());
        }
        QString const l_last = QFileInfo(l_folder).fileName() + QLatin1Char('/') + m_source.fileName();
        m_partial = m_downloads + QStringLiteral("/downloading/") + l_last;
        m_complete = m_downloads + QStringLiteral("/complete/") + l_last;
        if (!StartAndLogIn(m_uploader, io_server, QStringLiteral("benchuploader")))
            Fail("starting the uploader");
        BenchDeadline::Watch(0, m_uploader.Pid());
        if (!StartAndLogIn(m_downloader, io_server, QStringLiteral("benchdownloader")))
            Fail("starting the downloader");
        BenchDeadline::Watch(1, m_downloader.Pid());
        if (!WaitFor([&] { return PartialSize() > 0; }, c_startWaitMs))
            Fail("starting the download");
        m_clock.start();
    }
    ~Round()
    {
        m_downloader.Terminate();
        m_uploader.Terminate();
        BenchDeadline::Watch(1, 0);
        BenchDeadline::Watch(0, 0);
    }

    qint64 PartialSize() const { return QFileInfo(m_partial).size(); }
    QString const& Complete() const { return m_complete; }
    double Seconds() const { return m_clock.nsecsElapsed() / 1e9; }

private:
    QFileInfo m_source;
    QString m_downloads;
    QString m_partial;
    QString m_complete;
    ClientProcess m_uploader;
    ClientProcess m_downloader;
    QElapsedTimer m_clock;
};
} // namespace

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    QCommandLineParser l_parser;
    QCommandLineOption const l_sourceOption(QStringLiteral("source"), QStringLiteral("File to upload."), QStringLiteral("file"));
    QCommandLineOption const l_workOption(QStringLiteral("work"), QStringLiteral("Working folder."), QStringLiteral("dir"));
    QCommandLineOption const l_limitsOption(QStringLiteral("limits"), QStringLiteral("Limits in KiB/s."), QStringLiteral("list"),
                                            QStringLiteral("64,512,4096"));
    QCommandLineOption const l_warmupOption(QStringLiteral("warmup"), QStringLiteral("Warm-up seconds."), QStringLiteral("s"),
                                            QStringLiteral("5"));
    QCommandLineOption const l_measureOption(QStringLiteral("measure"), QStringLiteral("Measuring seconds."), QStringLiteral("s"),
                                             QStringLiteral("30"));
    QCommandLineOption const l_timeOption(QStringLiteral("limit"), QStringLiteral("Time limit in seconds."), QStringLiteral("s"),
                                          QStringLiteral("300"));
    l_parser.addOptions({l_sourceOption, l_workOption, l_limitsOption, l_warmupOption, l_measureOption, l_timeOption});
    l_parser.process(l_app);
    QFileInfo const l_source(l_parser.value(l_sourceOption));
    QString const l_work = l_parser.value(l_workOption);
    double const l_warmup = l_parser.value(l_warmupOption).toDouble();
    double const l_measure = l_parser.value(l_measureOption).toDouble();
    if (!l_source.isFile() || l_work.isEmpty())
        Fail("reading the options");
    BenchDeadline::Arm(l_parser.value(l_timeOption).toUInt(), "bench_upload_limit: time limit passed, clients killed\n");

    CentralServerProcess l_server(l_work + QStringLiteral("/accounts"));
    if (!l_server.Start())
        Fail("starting the central server");

    bool l_met = true;
    std::printf("%-14s %12s %12s %9s\n", "limit KiB/s", "KiB/s", "deviation", "within 5%");
    for (QString const& l_text : l_parser.value(l_limitsOption).split(QLatin1Char(',')))
    {
        int const l_limit = l_text.toInt();
        Round l_round(l_server, l_source, l_work + QStringLiteral("/dl-") + l_text, l_limit);
        Pause(static_cast<int>(l_warmup * 1000));
        qint64 const l_from = l_round.PartialSize();
        double const l_start = l_round.Seconds();
        Pause(static_cast<int>(l_measure * 1000));
        qint64 const l_to = l_round.PartialSize();
        double const l_seconds = l_round.Seconds() - l_start;
        if (QFileInfo::exists(l_round.Complete()))
            Fail("measuring: the file was finished before the time was up; take a larger one");
        double const l_speed = static_cast<double>(l_to - l_from) / 1024.0 / l_seconds;
        double const l_deviation = l_speed / l_limit - 1.0;
        bool const l_within = std::abs(l_deviation) <= c_tolerance;
        l_met = l_met && l_within;
        std::printf("%-14d %12.1f %+11.2f%% %9s\n", l_limit, l_speed, l_deviation * 100.0, l_within ? "yes" : "NO");
        std::fflush(stdout);
    }

    // With the limit off: the whole file through the clients, then the plain copy.
    double l_clientSeconds = 0;
    qint64 l_clientBytes = 0;
    {
        Round l_round(l_server, l_source, l_work + QStringLiteral("/dl-off"), 0);
        qint64 const l_from = l_round.PartialSize();
        double const l_start = l_round.Seconds();
        if (!WaitFor([&] { return QFileInfo::exists(l_round.Complete()); }, 120000))
            Fail("the unlimited download");
        l_clientSeconds = l_round.Seconds() - l_start;
        l_clientBytes = l_source.size() - l_from;
        if (Digest(l_round.Complete()) != Digest(l_source.filePath()))
        {
            std::printf("the unlimited download differs from the source\n");
            l_met = false;
        }
    }
    QString const l_plainTarget = l_work + QStringLiteral("/plain-copy");
    std::optional<PlainCopyFigures> const l_plain =
        PlainCopy(l_source.filePath().toStdString(), l_plainTarget.toStdString(), l_source.size());
    if (!l_plain)
        Fail("the plain copy");
    double const l_clientMib = static_cast<double>(l_clientBytes) / c_mib / l_clientSeconds;
    double const l_plainMib = static_cast<double>(l_source.size()) / c_mib / l_plain->m_seconds;
    std::printf("limit off: clients %.1f MiB/s, plain loopback copy %.1f MiB/s (%.0f%%), %.0f MiB\n", l_clientMib, l_plainMib,
                100.0 * l_clientMib / l_plainMib, static_cast<double>(l_source.size()) / c_mib);
    l_server.Stop();
    return l_met ? 0 : 1;
}
