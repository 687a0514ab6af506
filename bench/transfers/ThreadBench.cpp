#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtEndian>

#include <chrono>
#include <cmath>
#include <memory>

#include "transfers/DownloadThread.h"
#include "transfers/UploadSpeedLimit.h"
#include "transfers/UploadThread.h"

namespace
{
using Clock = std::chrono::steady_clock;

QTemporaryDir* gp_dir = nullptr;

QString PathOf(char const* i_name)
{
    return gp_dir->filePath(QString::fromUtf8(i_name));
}

void WriteRandomFile(QString const& i_path, long long i_size)
{
    QFile l_file(i_path);
    if (!l_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot write the source file");
    std::vector<quint32> l_chunk(1 << 18);
    for (long long l_left = i_size; l_left > 0;)
    {
        QRandomGenerator::global()->fillRange(l_chunk.data(), l_chunk.size());
        long long const l_length = std::min<long long>(l_left, l_chunk.size() * sizeof(quint32));
        l_file.write(reinterpret_cast<char const*>(l_chunk.data()), l_length);
        l_left -= l_length;
    }
}

// Sends the file at i_path from an upload thread to a download thread that writes a fresh
// target, the way the two clients' managers hand their sockets over; the wall time of the
// whole transfer, from the request number to the last byte on disk.
double Transfer(QString const& i_path, UploadSpeedLimit const& i_limit)
{
    QTcpServer l_server;
    l_server.listen(QHostAddress::LocalHost);
    auto lp_up = std::make_unique<QTcpSocket>();
    lp_up->connectToHost(QHostAddress::LocalHost, l_server.serverPort());
    if (!lp_up->waitForConnected(5000) || !l_server.waitForNewConnection(5000))
        qFatal("no loopback connection");
    std::unique_ptr<QTcpSocket> lp_down(l_server.nextPendingConnection());
    lp_down->setParent(nullptr);
    lp_down->setReadBufferSize(256 * 1024);

    QFile l_source(i_path);
    QFile l_target(PathOf("target"));
    if (!l_source.open(QIODevice::ReadOnly) || !l_target.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot open the files");

    auto const l_start = Clock::now();
    UploadThread l_upload(lp_up.get(), &l_source, 1, i_limit);
    lp_up->setParent(nullptr);
    lp_up->moveToThread(&l_upload);
    QEventLoop l_loop;
    int l_ended = 0;
    bool l_failed = false;
    auto const l_end = [&](bool i_failed) {
        l_failed = l_failed || i_failed;
        if (++l_ended == 2)
            l_loop.quit();
    };
    // Progress is delivered to the main thread as in the client, where it lands in the graph.
    qint64 l_lastOffset = 0;
    QObject::connect(&l_upload, &UploadThread::UploadProgress, &l_loop, [&](qint64 i_offset, int) { l_lastOffset = i_offset; });
    QObject::connect(&l_upload, &UploadThread::UploadComplete, &l_loop, [&] { l_end(false); });
    QObject::connect(&l_upload, &UploadThread::UploadError, &l_loop, [&] { l_end(true); });
    l_upload.start();

    while (lp_down->bytesAvailable() < 4)
        lp_down->waitForReadyRead(5000);
    lp_down->read(4);
    uchar l_offset[8];
    qToLittleEndian<qint64>(0, l_offset);
    lp_down->write(reinterpret_cast<char const*>(l_offset), sizeof l_offset);
    lp_down->flush();
    DownloadThread l_download(lp_down.get(), &l_target, 0, l_source.size());
    lp_down->moveToThread(&l_download);
    QObject::connect(&l_download, &DownloadThread::DownloadProgress, &l_loop, [&](qint64 i_offset, int) { l_lastOffset = i_offset; });
    QObject::connect(&l_download, &DownloadThread::DownloadComplete, &l_loop, [&] { l_end(false); });
    QObject::connect(&l_download, &DownloadThread::DownloadError, &l_loop, [&] { l_end(true); });
    l_download.start();
    l_loop.exec();
    double const l_seconds = std::chrono::duration<double>(Clock::now() - l_start).count();
    l_upload.wait();
    l_download.wait();
    if (l_failed)
        qFatal("the transfer failed");
    return l_seconds;
}

void UploadIntoDownload(benchmark::State& io_state)
{
    long long const l_size = io_state.range(0) << 20;
    WriteRandomFile(PathOf("source"), l_size);
    UploadSpeedLimit const l_noLimit;
    for (auto l_ : io_state)
        io_state.SetIterationTime(Transfer(PathOf("source"), l_noLimit));
    io_state.SetBytesProcessed(io_state.iterations() * l_size);
    io_state.counters["MiB/s"] = benchmark::Counter(static_cast<double>(io_state.iterations() * io_state.range(0)),
                                                    benchmark::Counter::kIsRate);
}
BENCHMARK(UploadIntoDownload)->Arg(512)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

// A file the limit takes the given seconds to send; the average is over the whole transfer.
void Pacing(benchmark::State& io_state)
{
    int const l_limit = static_cast<int>(io_state.range(0));
    long long const l_size = static_cast<long long>(l_limit) * 1024 * io_state.range(1);
    WriteRandomFile(PathOf("paced"), l_size);
    UploadSpeedLimit l_inForce;
    l_inForce.Set(l_limit);
    double l_seconds = 0;
    for (auto l_ : io_state)
    {
        l_seconds = Transfer(PathOf("paced"), l_inForce);
        io_state.SetIterationTime(l_seconds);
    }
    double const l_kibPerSecond = static_cast<double>(l_size) / 1024 / l_seconds;
    io_state.counters["KiB/s"] = l_kibPerSecond;
    io_state.counters["off_limit_%"] = 100 * (l_kibPerSecond - l_limit) / l_limit;
    if (std::abs(l_kibPerSecond - l_limit) > 0.03 * l_limit)
        io_state.SkipWithError("the average is more than 3% off the limit");
}
BENCHMARK(Pacing)->Args({100, 20})->Args({4096, 20})->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
} // namespace

int main(int i_argc, char** i_argv)
{
    QCoreApplication l_app(i_argc, i_argv);
    // Source and target on the same file system as the working folder.
    QTemporaryDir l_dir(QDir::currentPath() + QStringLiteral("/bench_transfers_XXXXXX"));
    gp_dir = &l_dir;
    benchmark::Initialize(&i_argc, i_argv);
    if (benchmark::ReportUnrecognizedArguments(i_argc, i_argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
