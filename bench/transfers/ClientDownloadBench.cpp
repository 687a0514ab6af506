// A real downloading client at full speed, against a plain copy of the same file. A sender logs
// in at its own central server, and the client, seeded with one download of the sender's file per
// round, asks for them all. Each round then copies the file over loopback with blocking 8 KiB
// system calls, and feeds it into the client: the sender answers a queue request with a transfer
// request and sends the file over the file connection from an upload thread, while its messaging
// connection asks for the client's share list every 20 ms and times the answers against an idle
// baseline. Prints the median figures of the rounds; exits 1 when a target is missed or a copy
// differs, 2 when a phase fails. Whatever happens, the program, the client and the server are
// gone within the time limit.
//
//   bench_download_client --source FILE --work DIR [--rounds N] [--limit SECONDS]
//
// FILE is the random file to copy; DIR, on the same file system, holds the copies, the server's
// accounts and the client's home. Runs the server on its fixed port: bench/transfers/run gives it
// a network of its own.
#include "PlainCopy.h"
#include "bench/BenchDeadline.h"
#include "bench/BenchStats.h"

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"
#include "support/ScriptedPeer.h"
#include "support/WaitFor.h"
#include "transfers/UploadSpeedLimit.h"
#include "transfers/UploadThread.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace
{
constexpr double c_targetRatio = 0.8;
constexpr double c_targetStallMs = 50;
constexpr int c_probeIntervalMs = 20;
constexpr int c_idleMs = 1000;
constexpr char c_clientName[] = "benchclient";
constexpr char c_senderName[] = "benchsender";
constexpr quint32 c_firstTransferReq = 100;
constexpr double c_mib = 1024.0 * 1024.0;

// User plus system time from a stat file of /proc; -1 when unreadable.
double StatCpuSeconds(QString const& i_path)
{
    QFile l_stat(i_path);
    if (!l_stat.open(QIODevice::ReadOnly))
        return -1;
    // The name in parentheses may hold spaces; the fields counted from the state on follow it.
    QList<QByteArray> const l_fields = l_stat.readAll().split(')').last().simplified().split(' ');
    if (l_fields.size() < 13)
        return -1;
    return static_cast<double>(l_fields[11].toLongLong() + l_fields[12].toLongLong()) / sysconf(_SC_CLK_TCK);
}

// All threads of the process.
double ProcessCpuSeconds(qint64 i_pid)
{
    return StatCpuSeconds(QStringLiteral("/proc/%1/stat").arg(i_pid));
}

// The main thread only, whose id is the process's.
double MainThreadCpuSeconds(qint64 i_pid)
{
    return StatCpuSeconds(QStringLiteral("/proc/%1/task/%1/stat").arg(i_pid));
}

double OwnCpuSeconds()
{
    rusage l_usage{};
    getrusage(RUSAGE_SELF, &l_usage);
    auto const l_seconds = [](timeval const& i_time) { return i_time.tv_sec + i_time.tv_usec / 1e6; };
    return l_seconds(l_usage.ru_utime) + l_seconds(l_usage.ru_stime);
}

bool SameBytes(QString const& i_one, QString const& i_other)
{
    QFile l_one(i_one);
    QFile l_other(i_other);
    if (!l_one.open(QIODevice::ReadOnly) || !l_other.open(QIODevice::ReadOnly) || l_one.size() != l_other.size())
        return false;
    while (!l_one.atEnd())
        if (l_one.read(1 << 20) != l_other.read(1 << 20))
            return false;
    return true;
}

void RunEventLoop(int i_ms)
{
    QEventLoop l_loop;
    QTimer::singleShot(i_ms, &l_loop, &QEventLoop::quit);
    l_loop.exec();
}

// Asks for the share list on the client's messaging connection every 20 ms and times each answer
// from its request. The client answers in order on one connection, so an answer belongs to the
// oldest request still open. Requests do not wait for answers: one sent just before the client's
// main thread stalls waits out the whole stall.
class ShareListProbe
{
public:
    explicit ShareListProbe(PeerLink& io_link) : m_link(io_link)
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(c_probeIntervalMs);
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { Ask(); });
        m_link.WhenReadable(&m_timer, [this] { Collect(); });
        m_clock.start();
    }

    void Start()
    {
        m_latenciesMs.clear();
        m_timer.start();
        Ask();
    }

    // Stops asking; true when every answer came within the time.
    bool Finish(int i_timeoutMs)
    {
        m_timer.stop();
        bool const l_answered = WaitFor([this] { return m_asked.empty(); }, i_timeoutMs);
        m_asked.clear();
        return l_answered;
    }

    std::vector<double> const& LatenciesMs() const { return m_latenciesMs; }

private:
    void Ask()
    {
        m_asked.push_back(m_clock.nsecsElapsed());
        m_link.Send(Body(4));
    }

    void Collect()
    {
        while (!m_asked.empty() && !m_link.TakeFrame(5, 0).isEmpty())
        {
            m_latenciesMs.push_back(static_cast<double>(m_clock.nsecsElapsed() - m_asked.front()) / 1e6);
            m_asked.pop_front();
        }
    }

    PeerLink& m_link;
    QTimer m_timer;
    QElapsedTimer m_clock;
    std::deque<qint64> m_asked;
    std::vector<double> m_latenciesMs;
};

struct Figures
{
    double m_seconds = 0;
    double m_senderCpuSeconds = 0;
    double m_receiverCpuSeconds = 0;
    // The client's main thread, where every progress report of the download lands.
    double m_receiverMainCpuSeconds = 0;
};

// Opens a file connection to the client for the accepted request and lets an upload thread send
// the file from the offset the client answers with; the wall time from the dial until the client
// closed the connection, which it does once the last byte is in its file.
std::optional<Figures> FeedClient(QString const& i_source, quint16 i_clientPort, quint32 i_req, qint64 i_clientPid,
                                  ShareListProbe& io_probe)
{
    QFile l_file(i_source);
    if (!l_file.open(QIODevice::ReadOnly))
        return std::nullopt;
    auto lp_socket = std::make_unique<QTcpSocket>();
    double const l_ownCpu = OwnCpuSeconds();
    double const l_clientCpu = ProcessCpuSeconds(i_clientPid);
    double const l_clientMainCpu = MainThreadCpuSeconds(i_clientPid);
    QElapsedTimer l_clock;
    l_clock.start();
    lp_socket->connectToHost(QHostAddress::LocalHost, i_clientPort);
    if (!lp_socket->waitForConnected(5000))
        return std::nullopt;
    lp_socket->write(PeerLink::GreetingFrame(c_senderName, "F"));
    lp_socket->flush();

    UploadSpeedLimit const l_noLimit;
    UploadThread l_upload(lp_socket.get(), &l_file, static_cast<int>(i_req), l_noLimit);
    lp_socket->moveToThread(&l_upload);
    QEventLoop l_loop;
    bool l_complete = false;
    // Progress is not connected: the sender's main thread is left to the probe.
    QObject::connect(&l_upload, &UploadThread::UploadComplete, &l_loop, [&] {
        l_complete = true;
        l_loop.quit();
    });
    QObject::connect(&l_upload, &UploadThread::UploadError, &l_loop, &QEventLoop::quit);
    io_probe.Start();
    l_upload.start();
    l_loop.exec();
    Figures l_figures;
    l_figures.m_seconds = static_cast<double>(l_clock.nsecsElapsed()) / 1e9;
    l_figures.m_senderCpuSeconds = OwnCpuSeconds() - l_ownCpu;
    l_figures.m_receiverCpuSeconds = ProcessCpuSeconds(i_clientPid) - l_clientCpu;
    l_figures.m_receiverMainCpuSeconds = MainThreadCpuSeconds(i_clientPid) - l_clientMainCpu;
    l_upload.wait();
    bool const l_answered = io_probe.Finish(5000);
    if (!l_complete || !l_answered || l_clientCpu < 0 || l_clientMainCpu < 0 || l_figures.m_receiverCpuSeconds < 0
        || l_figures.m_receiverMainCpuSeconds < 0)
        return std::nullopt;
    return l_figures;
}

void PrintFigures(char const* i_what, Figures const& i_figures, double i_mib)
{
    std::printf("%-28s %.0f MiB in %.2f s: %7.1f MiB/s; CPU s/MiB: receiver %.5f, sender %.5f\n", i_what, i_mib,
                i_figures.m_seconds, i_mib / i_figures.m_seconds, i_figures.m_receiverCpuSeconds / i_mib,
                i_figures.m_senderCpuSeconds / i_mib);
}

Figures Median(std::vector<Figures> const& i_rounds)
{
    auto const l_median = [&](double Figures::*i_field) {
        std::vector<double> l_values;
        for (Figures const& l_round : i_rounds)
            l_values.push_back(l_round.*i_field);
        return BenchStats::Median(l_values);
    };
    return {l_median(&Figures::m_seconds), l_median(&Figures::m_senderCpuSeconds),
            l_median(&Figures::m_receiverCpuSeconds), l_median(&Figures::m_receiverMainCpuSeconds)};
}

int Fail(char const* i_why)
{
    std::printf("failed: %s\n", i_why);
    std::fflush(stdout);
    return 2;
}

struct Results
{
    std::vector<Figures> m_plain;
    std::vector<Figures> m_client;
    std::vector<double> m_idleMs;
    std::vector<double> m_busyMs;
    bool m_identical = true;
};

// The remote folder of a round's download; each round has an entry of its own, so that the
// client downloads the whole file every time.
QByteArray RoundFolder(int i_round)
{
    return "bench" + QByteArray::number(i_round);
}

// A plain copy, checked and removed.
bool CopyPlainly(QString const& i_source, QString const& i_work, Results& io_results)
{
    QString const l_target = i_work + QStringLiteral("/plain-copy");
    ::sync();
    std::optional<PlainCopyFigures> const l_plain =
        PlainCopy(i_source.toStdString(), l_target.toStdString(), QFileInfo(i_source).size());
    if (!l_plain)
        return false;
    io_results.m_plain.push_back({l_plain->m_seconds, l_plain->m_senderCpuSeconds, l_plain->m_receiverCpuSeconds});
    io_results.m_identical = SameBytes(i_source, l_target) && io_results.m_identical;
    QFile::remove(l_target);
    return true;
}

// Starts the server, logs the sender in and starts the client with one queued download of the
// sender's file per round; once the client has asked for them all and its idle answers are
// timed, each round makes a plain copy, then sends the client the file.
int RunRounds(QString const& i_source, QString const& i_work, int i_rounds, Results& o_results)
{
    long long const l_size = QFileInfo(i_source).size();
    CentralServerProcess l_central(i_work + QStringLiteral("/accounts"));
    if (!l_central.Start())
        return Fail("the central server did not start");
    BenchDeadline::Watch(0, l_central.Pid());
    ScriptedPeer l_sender;
    if (!l_sender.IsListening() || !l_sender.LogIn(2242, c_senderName, "benchsender-pw", l_sender.ListenPort()))
        return Fail("the sender could not log in");
    l_sender.Central().Sync();

    // The client's home, and so its downloads, on the file system of the plain copy.
    qputenv("TMPDIR", i_work.toLocal8Bit());
    ClientProcess l_client;
    quint16 const l_clientPort = FreePort();
    SavedGraph l_seed;
    l_seed.Set("global", "username", c_clientName);
    l_seed.Set("global", "password", "benchclient-pw");
    l_seed.Set("global", "use_upnp", "no");
    l_seed.Set("global", "listening_port", std::to_string(l_clientPort));
    for (int l_round = 1; l_round <= i_rounds; ++l_round)
    {
        SavedGraph::Download l_download;
        l_download.m_user = c_senderName;
        l_download.m_fileName = "random.bin";
        l_download.m_remoteFolder = RoundFolder(l_round).toStdString();
        l_download.m_fileSize = std::to_string(l_size);
        l_download.m_status = "queued";
        l_download.m_order = std::to_string(l_round);
        l_seed.AddDownload(l_download);
    }
    if (!l_seed.Save(l_client.DataFile()) || !l_client.Start())
        return Fail("the client did not start");
    BenchDeadline::Watch(1, l_client.Pid());

    std::unique_ptr<PeerLink> lp_link = l_sender.Accept(30000);
    if (!lp_link)
        return Fail("the client never connected to the sender");
    Fields l_greeting(lp_link->TakeFirstFrame(5000));
    if (l_greeting.U8() != 1 || l_greeting.Str() != c_clientName || l_greeting.Str() != "P")
        return Fail("the client's first frame is no messaging greeting");
    for (int l_round = 1; l_round <= i_rounds; ++l_round)
    {
        std::optional<Fields> l_queued = lp_link->Take(43, 30000);
        if (!l_queued || l_queued->Str() != RoundFolder(l_round) + "\\random.bin")
            return Fail("no queue request for a seeded download, or out of order");
    }

    ShareListProbe l_probe(*lp_link);
    l_probe.Start();
    RunEventLoop(c_idleMs);
    if (!l_probe.Finish(5000) || l_probe.LatenciesMs().empty())
        return Fail("the idle client did not answer the share list requests");
    o_results.m_idleMs = l_probe.LatenciesMs();

    for (int l_round = 1; l_round <= i_rounds; ++l_round)
    {
        if (!CopyPlainly(i_source, i_work, o_results))
            return Fail("the plain copy failed");
        quint32 const l_req = c_firstTransferReq + static_cast<quint32>(l_round);
        lp_link->Send(Body(40).U32(1).U32(l_req).Str(RoundFolder(l_round) + "\\random.bin").U64(static_cast<quint64>(l_size)));
        std::optional<Fields> l_answer = lp_link->Take(41, 10000);
        if (!l_answer || l_answer->U32() != l_req || l_answer->U8() != 1)
            return Fail("the client did not accept the transfer request");
        ::sync();
        std::optional<Figures> const l_figures = FeedClient(i_source, l_clientPort, l_req, l_client.Pid(), l_probe);
        if (!l_figures)
            return Fail("the upload into the client failed");
        o_results.m_client.push_back(*l_figures);
        o_results.m_busyMs.insert(o_results.m_busyMs.end(), l_probe.LatenciesMs().begin(), l_probe.LatenciesMs().end());
        QString const l_complete = l_client.Home() + QStringLiteral("/Tidewick Downloads/complete/")
                                 + QString::fromUtf8(RoundFolder(l_round)) + QStringLiteral("/random.bin");
        if (!WaitFor([&] { return QFile::exists(l_complete); }, 30000))
            return Fail("the client did not move the file to its complete folder");
        o_results.m_identical = SameBytes(i_source, l_complete) && o_results.m_identical;
        QFile::remove(l_complete);
        double const l_mib = static_cast<double>(l_size) / c_mib;
        std::printf("round %d: plain copy %.1f MiB/s, client %.1f MiB/s (CPU s/MiB: client %.5f, its main thread "
                    "%.5f)\n",
                    l_round, l_mib / o_results.m_plain.back().m_seconds, l_mib / l_figures->m_seconds,
                    l_figures->m_receiverCpuSeconds / l_mib, l_figures->m_receiverMainCpuSeconds / l_mib);
        std::fflush(stdout);
    }
    l_client.Terminate();
    BenchDeadline::Watch(1, 0);
    l_central.Stop();
    BenchDeadline::Watch(0, 0);
    return 0;
}
} // namespace

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    QCommandLineParser l_parser;
    QCommandLineOption const l_sourceOption(QStringLiteral("source"), QStringLiteral("File to copy."), QStringLiteral("file"));
    QCommandLineOption const l_workOption(QStringLiteral("work"), QStringLiteral("Working folder."), QStringLiteral("dir"));
    QCommandLineOption const l_roundsOption(QStringLiteral("rounds"), QStringLiteral("Rounds of both copies."),
                                            QStringLiteral("count"), QStringLiteral("5"));
    QCommandLineOption const l_limitOption(QStringLiteral("limit"), QStringLiteral("Time limit in seconds."),
                                           QStringLiteral("seconds"), QStringLiteral("240"));
    l_parser.addOptions({l_sourceOption, l_workOption, l_roundsOption, l_limitOption});
    l_parser.process(l_app);
    QString const l_source = l_parser.value(l_sourceOption);
    QString const l_work = l_parser.value(l_workOption);
    int const l_rounds = l_parser.value(l_roundsOption).toInt();
    unsigned const l_limit = l_parser.value(l_limitOption).toUInt();
    if (l_source.isEmpty() || l_work.isEmpty() || l_rounds < 1 || l_limit == 0 || !QFile::exists(l_source))
    {
        std::fprintf(stderr, "usage: bench_download_client --source FILE --work DIR [--rounds N] [--limit SECONDS]\n");
        return 2;
    }
    BenchDeadline::Arm(l_limit, "bench_download_client: time limit passed, client and server killed\n");

    Results l_results;
    if (int const l_failed = RunRounds(l_source, l_work, l_rounds, l_results))
        return l_failed;
    double const l_mib = static_cast<double>(QFileInfo(l_source).size()) / c_mib;
    Figures const l_plain = Median(l_results.m_plain);
    Figures const l_client = Median(l_results.m_client);
    QByteArray const l_medianOf = " (median of " + QByteArray::number(l_rounds) + "):";
    PrintFigures(("plain copy" + l_medianOf).constData(), l_plain, l_mib);
    PrintFigures(("client" + l_medianOf).constData(), l_client, l_mib);
    std::printf("%-28s %.5f CPU s/MiB\n", "of it the client's main thread:", l_client.m_receiverMainCpuSeconds / l_mib);

    double const l_ratio = l_plain.m_seconds / l_client.m_seconds;
    bool const l_fastEnough = l_ratio >= c_targetRatio;
    std::printf("throughput: %.1f%% of the plain copy (target at least %.0f%%): %s\n", 100 * l_ratio,
                100 * c_targetRatio, l_fastEnough ? "met" : "MISSED");
    double const l_idleMs = BenchStats::Median(l_results.m_idleMs);
    double const l_longestMs = *std::max_element(l_results.m_busyMs.begin(), l_results.m_busyMs.end());
    double const l_stallMs = l_longestMs - l_idleMs;
    bool const l_responsive = l_stallMs <= c_targetStallMs;
    std::printf("share list answers: idle median %.2f ms (%zu); during the transfers median %.2f ms, p99 %.2f ms, "
                "longest %.2f ms (%zu)\n",
                l_idleMs, l_results.m_idleMs.size(), BenchStats::Median(l_results.m_busyMs),
                BenchStats::Percentile(l_results.m_busyMs, 0.99), l_longestMs, l_results.m_busyMs.size());
    std::printf("longest main-thread stall of the client: %.2f ms (target at most %.0f ms): %s\n", l_stallMs,
                c_targetStallMs, l_responsive ? "met" : "MISSED");
    std::printf("byte-identical: %s\n", l_results.m_identical ? "every copy" : "NO, a copy differs");
    std::fflush(stdout);
    return l_fastEnough && l_responsive && l_results.m_identical ? 0 : 1;
}
