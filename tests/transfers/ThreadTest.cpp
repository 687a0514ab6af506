#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <tuple>

#include "ThreadRig.h"
#include "support/WaitFor.h"
#include "transfers/DownloadThread.h"
#include "transfers/UploadSpeedLimit.h"
#include "transfers/UploadThread.h"

namespace
{
long long constexpr g_block = 8192;
long long constexpr g_fourGiB = 4LL << 30;

// A started thread that is always stopped and joined, also when a test fails half way.
template <class Thread>
struct Running
{
    std::unique_ptr<Thread> mp_thread;
    explicit Running(std::unique_ptr<Thread> ip_thread) : mp_thread(std::move(ip_thread)) {}
    Running(Running&&) = default;
    ~Running()
    {
        if (!mp_thread)
            return;
        mp_thread->SignalExit();
        mp_thread->wait();
    }
    Thread* operator->() const { return mp_thread.get(); }
};

class ThreadTest : public ::testing::Test
{
protected:
    QString Path(char const* i_name) const { return m_dir.filePath(QString::fromUtf8(i_name)); }

    std::unique_ptr<QFile> Open(char const* i_name, QIODevice::OpenMode i_mode)
    {
        auto lp_file = std::make_unique<QFile>(Path(i_name));
        EXPECT_TRUE(lp_file->open(i_mode));
        return lp_file;
    }

    // Hands the socket to a new thread, watches its three signals and starts it.
    template <class Thread, class... Signals, class... Args>
    Running<Thread> Start(QTcpSocket& io_socket, Reports& o_reports, std::tuple<Signals...> i_signals, Args... i_args)
    {
        Running<Thread> l_run(std::make_unique<Thread>(&io_socket, i_args...));
        HandOver(io_socket, *l_run.mp_thread);
        std::apply([&](auto... i_signal) { o_reports.Watch(*l_run.mp_thread, i_signal...); }, i_signals);
        l_run->start();
        return l_run;
    }

    Running<DownloadThread> StartDownload(QTcpSocket& io_socket, QFile& io_file, long long i_offset, long long i_size,
                                          Reports& o_reports, int i_timeoutMs = TransferWait::s_defaultTimeoutMs)
    {
        return Start<DownloadThread>(io_socket, o_reports,
                                     std::tuple(&DownloadThread::DownloadProgress, &DownloadThread::DownloadComplete,
                                                &DownloadThread::DownloadError),
                                     &io_file, i_offset, i_size, i_timeoutMs);
    }

    Running<UploadThread> StartUpload(QTcpSocket& io_socket, QFile& io_file, int i_req, Reports& o_reports,
                                      int i_timeoutMs = TransferWait::s_defaultTimeoutMs)
    {
        return Start<UploadThread>(io_socket, o_reports,
                                   std::tuple(&UploadThread::UploadProgress, &UploadThread::UploadComplete,
                                              &UploadThread::UploadError),
                                   &io_file, i_req, std::cref(m_limit), i_timeoutMs);
    }

    // An upload of a file of i_size random bytes into a download that already holds the first
    // i_offset of them.
    void Transfer(long long i_size, long long i_offset)
    {
        QByteArray const l_source = RandomBytes(i_size);
        WriteFile(Path("source"), l_source);
        WriteFile(Path("target"), l_source.left(i_offset));
        auto lp_source = Open("source", QIODevice::ReadOnly);
        auto lp_target = Open("target", QIODevice::WriteOnly | QIODevice::Append);
        SocketPair l_pair = ConnectedPair();
        Reports l_up, l_down;
        Running<UploadThread> l_upload = StartUpload(*l_pair.mp_near, *lp_source, 0x01020304, l_up);

        // The request number, then the offset: what the manager does before the download starts.
        EXPECT_EQ(ReadExactly(*l_pair.mp_far, 4), QByteArray("\x04\x03\x02\x01", 4));
        l_pair.mp_far->write(LittleEndian64(i_offset));
        l_pair.mp_far->flush();
        Running<DownloadThread> l_download = StartDownload(*l_pair.mp_far, *lp_target, i_offset, i_size, l_down);

        ASSERT_TRUE(WaitFor([&] { return l_up.IsOver() && l_down.IsOver(); }, 20000));
        l_upload->wait();
        l_download->wait();
        EXPECT_TRUE(l_up.m_complete);
        EXPECT_TRUE(l_down.m_complete);
        EXPECT_EQ(ReadFile(Path("target")), l_source);
        std::size_t const l_blocks = static_cast<std::size_t>((i_size - i_offset + g_block - 1) / g_block);
        EXPECT_EQ(l_up.m_offsets.size(), l_blocks);
        EXPECT_EQ(l_down.m_offsets.size(), l_blocks);
        EXPECT_EQ(l_down.m_offsets.back(), i_size);
        EXPECT_FALSE(lp_target->isOpen());
        QThread* const lp_main = QCoreApplication::instance()->thread();
        EXPECT_EQ(l_pair.mp_near->thread(), lp_main);
        EXPECT_EQ(l_pair.mp_far->thread(), lp_main);
    }

    QTemporaryDir m_dir;
    UploadSpeedLimit m_limit;
};

struct Span
{
    long long m_size;
    long long m_offset;
};

class WholeTransferTest : public ThreadTest, public ::testing::WithParamInterface<Span>
{
};

TEST_P(WholeTransferTest, UploadFeedsDownloadByteForByte)
{
    Transfer(GetParam().m_size, GetParam().m_offset);
}

INSTANTIATE_TEST_SUITE_P(SizesAndOffsets, WholeTransferTest,
                         ::testing::Values(Span{1, 0}, Span{8191, 0}, Span{8192, 0}, Span{8193, 0},
                                           Span{5 * 8192 + 17, 0}, Span{5 * 8192 + 17, 10000}, Span{8193, 8192}));

TEST_F(ThreadTest, DownloadEndsAtTheExpectedSize)
{
    // A partial of exactly the size completes at once; an empty file is such a partial.
    for (long long const l_size : {0LL, 100LL})
    {
        WriteFile(Path("target"), QByteArray(l_size, 'x'));
        auto lp_target = Open("target", QIODevice::WriteOnly | QIODevice::Append);
        SocketPair l_pair = ConnectedPair();
        Reports l_down;
        Running<DownloadThread> l_download = StartDownload(*l_pair.mp_near, *lp_target, l_size, l_size, l_down);
        ASSERT_TRUE(WaitFor([&] { return l_down.IsOver(); }, 1000));
        EXPECT_TRUE(l_down.m_complete);
        EXPECT_EQ(ReadFile(Path("target")).size(), l_size);
    }

    // A partial longer than the size fails without reading; a peer sending too much is read
    // only up to the size.
    QByteArray const l_bytes = RandomBytes(20000);
    WriteFile(Path("target"), QByteArray());
    auto lp_target = Open("target", QIODevice::WriteOnly | QIODevice::Append);
    SocketPair l_pair = ConnectedPair();
    l_pair.mp_far->write(l_bytes);
    Reports l_beyond, l_down;
    {
        Running<DownloadThread> l_download = StartDownload(*l_pair.mp_near, *lp_target, 101, 100, l_beyond);
        ASSERT_TRUE(WaitFor([&] { return l_beyond.IsOver(); }, 1000));
        EXPECT_TRUE(l_beyond.m_error);
        EXPECT_EQ(l_download->FailureReason(), QStringLiteral("the partial file of 101 bytes is longer than the expected 100"));
    }
    ASSERT_TRUE(lp_target->open(QIODevice::WriteOnly | QIODevice::Append));
    Running<DownloadThread> l_download = StartDownload(*l_pair.mp_near, *lp_target, 0, 10000, l_down);
    ASSERT_TRUE(WaitFor([&] { return l_down.IsOver(); }));
    EXPECT_TRUE(l_down.m_complete);
    EXPECT_EQ(ReadFile(Path("target")), l_bytes.left(10000));
}

TEST_F(ThreadTest, DownloadFailsOnAStoppedPeerOrAFailedWrite)
{
    QByteArray const l_bytes = RandomBytes(10000);
    WriteFile(Path("target"), QByteArray());
    auto lp_target = Open("target", QIODevice::WriteOnly | QIODevice::Append);
    SocketPair l_closing = ConnectedPair();
    Reports l_closed;
    Running<DownloadThread> l_download = StartDownload(*l_closing.mp_near, *lp_target, 0, 20000, l_closed);
    l_closing.mp_far->write(l_bytes);
    l_closing.mp_far->disconnectFromHost();
    ASSERT_TRUE(WaitFor([&] { return l_closed.IsOver(); }));
    EXPECT_TRUE(l_closed.m_error);
    EXPECT_EQ(l_download->FailureReason(), QStringLiteral("waiting for bytes at 10000: the connection closed"));
    // The whole blocks stay: a later connection resumes from them.
    EXPECT_EQ(ReadFile(Path("target")), l_bytes.left(g_block));

    ASSERT_TRUE(lp_target->open(QIODevice::WriteOnly | QIODevice::Append));
    SocketPair l_silent = ConnectedPair();
    Reports l_timedOut;
    Running<DownloadThread> l_waiting = StartDownload(*l_silent.mp_near, *lp_target, g_block, 20000, l_timedOut, 300);
    ASSERT_TRUE(WaitFor([&] { return l_timedOut.IsOver(); }));
    EXPECT_TRUE(l_timedOut.m_error);
    EXPECT_GE(l_timedOut.m_endMs, 300);
    EXPECT_EQ(l_waiting->FailureReason(), QStringLiteral("waiting for bytes at 8192: timed out after 300 ms"));

    // A full disk, also when the file holds the block back until it is flushed.
    QFile l_full(QStringLiteral("/dev/full"));
    ASSERT_TRUE(l_full.open(QIODevice::WriteOnly | QIODevice::Append));
    SocketPair l_pair = ConnectedPair();
    l_pair.mp_far->write(l_bytes);
    Reports l_failed;
    Running<DownloadThread> l_writing = StartDownload(*l_pair.mp_near, l_full, 0, 100, l_failed);
    ASSERT_TRUE(WaitFor([&] { return l_failed.IsOver(); }));
    EXPECT_TRUE(l_failed.m_error);
    EXPECT_TRUE(l_writing->FailureReason().startsWith(QStringLiteral("writing the file failed: "))) << l_writing->FailureReason().toStdString();
}

TEST_F(ThreadTest, ExitIsHonouredWithinASliceOfAStalledTransfer)
{
    WriteFile(Path("target"), QByteArray());
    auto lp_target = Open("target", QIODevice::WriteOnly | QIODevice::Append);
    SocketPair l_down = ConnectedPair();
    Reports l_downloading;
    Running<DownloadThread> l_download = StartDownload(*l_down.mp_near, *lp_target, 0, 20000, l_downloading);
    l_down.mp_far->write(RandomBytes(100));

    // A peer that reads nothing fills the socket buffers and stalls the upload.
    QFile l_sparse(Path("sparse"));
    ASSERT_TRUE(l_sparse.open(QIODevice::ReadWrite) && l_sparse.resize(256LL << 20));
    SocketPair l_up = ConnectedPair();
    l_up.mp_far->setReadBufferSize(g_block);
    Reports l_uploading;
    Running<UploadThread> l_upload = StartUpload(*l_up.mp_near, l_sparse, 1, l_uploading);
    ASSERT_EQ(ReadExactly(*l_up.mp_far, 4).size(), 4);
    l_up.mp_far->write(LittleEndian64(0));
    std::size_t l_seen = 0;
    ASSERT_TRUE(WaitFor([&] {
        bool const l_still = l_uploading.m_offsets.size() == l_seen && l_seen > 0;
        l_seen = l_uploading.m_offsets.size();
        QThread::msleep(100);
        return l_still;
    }, 10000));

    // And an upload waiting for an offset that never comes.
    SocketPair l_offset = ConnectedPair();
    Reports l_waiting;
    Running<UploadThread> l_noOffset = StartUpload(*l_offset.mp_near, l_sparse, 2, l_waiting);
    QThread::msleep(200);

    qint64 const l_signalledMs = l_uploading.m_clock.elapsed();
    l_download->SignalExit();
    l_upload->SignalExit();
    l_noOffset->SignalExit();
    ASSERT_TRUE(WaitFor([&] { return l_downloading.IsOver() && l_uploading.IsOver() && l_waiting.IsOver(); }));
    for (Reports const* lp_reports : {&l_downloading, &l_uploading, &l_waiting})
    {
        EXPECT_TRUE(lp_reports->m_error);
        EXPECT_LT(lp_reports->m_endMs - l_signalledMs, 500);
    }
    EXPECT_EQ(l_download->FailureReason(), QStringLiteral("waiting for bytes at 100: stopped"));
    EXPECT_EQ(l_upload->FailureReason(), QStringLiteral("sending: stopped"));
    EXPECT_EQ(l_noOffset->FailureReason(), QStringLiteral("waiting for the offset: stopped"));
}

TEST_F(ThreadTest, ExitIsHonouredWithinASliceOfAPacingSleep)
{
    WriteFile(Path("source"), RandomBytes(100000));
    auto lp_source = Open("source", QIODevice::ReadOnly);
    m_limit.Set(1);
    SocketPair l_pair = ConnectedPair();
    Reports l_up;
    Running<UploadThread> l_upload = StartUpload(*l_pair.mp_near, *lp_source, 1, l_up);
    ASSERT_EQ(ReadExactly(*l_pair.mp_far, 4).size(), 4);
    l_pair.mp_far->write(LittleEndian64(0));
    // After the first block the thread sleeps off eight seconds at 1 KiB/s.
    ASSERT_TRUE(WaitFor([&] { return !l_up.m_offsets.empty(); }));
    WaitFor([] { return false; }, 200);
    qint64 const l_signalledMs = l_up.m_clock.elapsed();
    l_upload->SignalExit();
    ASSERT_TRUE(WaitFor([&] { return l_up.IsOver(); }));
    EXPECT_TRUE(l_up.m_error);
    EXPECT_LT(l_up.m_endMs - l_signalledMs, 500);
    EXPECT_EQ(l_up.m_offsets.size(), 1u);
}

TEST_F(ThreadTest, UploadRefusesOffsetsOutsideTheFile)
{
    WriteFile(Path("source"), RandomBytes(1000));
    WriteFile(Path("empty"), QByteArray());
    struct Case
    {
        char const* m_file;
        qint64 m_offset;
    };
    for (Case const l_case : {Case{"source", -1}, Case{"source", 1000}, Case{"source", g_fourGiB}, Case{"empty", 0}})
    {
        auto lp_source = Open(l_case.m_file, QIODevice::ReadOnly);
        SocketPair l_pair = ConnectedPair();
        Reports l_up;
        Running<UploadThread> l_upload = StartUpload(*l_pair.mp_near, *lp_source, 7, l_up);
        ASSERT_EQ(ReadExactly(*l_pair.mp_far, 4).size(), 4);
        l_pair.mp_far->write(LittleEndian64(l_case.m_offset));
        ASSERT_TRUE(WaitFor([&] { return l_up.IsOver(); }));
        EXPECT_TRUE(l_up.m_error) << l_case.m_offset;
        EXPECT_EQ(l_upload->FailureReason(), QStringLiteral("the peer asked for offset %1 of a file of %2 bytes")
                                                 .arg(static_cast<quint64>(l_case.m_offset))
                                                 .arg(lp_source->size()));
        EXPECT_TRUE(l_up.m_offsets.empty());
        EXPECT_TRUE(ReadExactly(*l_pair.mp_far, 1, 100).isEmpty());
    }
}

TEST_F(ThreadTest, UploadGivesUpOnAnOffsetThatNeverComesWhole)
{
    WriteFile(Path("source"), RandomBytes(1000));
    auto lp_source = Open("source", QIODevice::ReadOnly);
    SocketPair l_pair = ConnectedPair();
    Reports l_up;
    // The time-out counts for the offset as a whole, not per piece.
    Running<UploadThread> l_upload = StartUpload(*l_pair.mp_near, *lp_source, 7, l_up, 600);
    for (int l_piece = 0; l_piece < 7; ++l_piece)
    {
        l_pair.mp_far->write(QByteArray(1, '\0'));
        WaitFor([] { return false; }, 150);
    }
    ASSERT_TRUE(WaitFor([&] { return l_up.IsOver(); }));
    EXPECT_TRUE(l_up.m_error);
    EXPECT_GE(l_up.m_endMs, 600);
    EXPECT_LT(l_up.m_endMs, 1000);
    EXPECT_EQ(l_upload->FailureReason(), QStringLiteral("waiting for the offset: timed out after 600 ms"));
}

TEST_F(ThreadTest, SparseFileIsSentFromAnOffsetBeyondFourGiB)
{
    QByteArray const l_tail = RandomBytes(20000);
    {
        QFile l_file(Path("sparse"));
        ASSERT_TRUE(l_file.open(QIODevice::WriteOnly) && l_file.seek(g_fourGiB));
        ASSERT_EQ(l_file.write(l_tail), l_tail.size());
    }
    auto lp_source = Open("sparse", QIODevice::ReadOnly);
    SocketPair l_pair = ConnectedPair();
    Reports l_up;
    // The peer never closes: the upload still counts as complete after the time-out.
    Running<UploadThread> l_upload = StartUpload(*l_pair.mp_near, *lp_source, -2, l_up, 300);
    EXPECT_EQ(ReadExactly(*l_pair.mp_far, 4), QByteArray("\xfe\xff\xff\xff", 4));
    // The offset arrives in pieces.
    QByteArray const l_offset = LittleEndian64(g_fourGiB + 5000);
    l_pair.mp_far->write(l_offset.left(3));
    WaitFor([] { return false; }, 120);
    l_pair.mp_far->write(l_offset.mid(3));
    EXPECT_EQ(ReadExactly(*l_pair.mp_far, 15000), l_tail.mid(5000));
    ASSERT_TRUE(WaitFor([&] { return l_up.IsOver(); }));
    EXPECT_TRUE(l_up.m_complete);
    EXPECT_GE(l_up.m_endMs, 300);
    EXPECT_EQ(l_up.m_offsets.back(), g_fourGiB + 20000);
}

TEST_F(ThreadTest, UploadFollowsTheLimitInForce)
{
    WriteFile(Path("source"), RandomBytes(128 * 1024));
    auto lp_source = Open("source", QIODevice::ReadOnly);
    for (bool const l_lift : {false, true})
    {
        ASSERT_TRUE(lp_source->seek(0));
        m_limit.Set(l_lift ? 8 : 64);
        SocketPair l_pair = ConnectedPair();
        Reports l_up;
        Running<UploadThread> l_upload = StartUpload(*l_pair.mp_near, *lp_source, 1, l_up);
        ASSERT_EQ(ReadExactly(*l_pair.mp_far, 4).size(), 4);
        l_pair.mp_far->write(LittleEndian64(0));
        if (l_lift)
        {
            ASSERT_TRUE(WaitFor([&] { return !l_up.m_offsets.empty(); }));
            m_limit.Set(0);
        }
        ASSERT_EQ(ReadExactly(*l_pair.mp_far, 128 * 1024, 10000).size(), 128 * 1024);
        qint64 const l_ms = l_up.m_clock.elapsed();
        l_pair.mp_far->disconnectFromHost();
        ASSERT_TRUE(WaitFor([&] { return l_up.IsOver(); }));
        EXPECT_TRUE(l_up.m_complete);
        // 120 KiB after the first block at 64 KiB/s; lifted, the 8 KiB/s of the start (15 s)
        // end with the first sleep.
        if (l_lift)
            EXPECT_LT(l_ms, 3000);
        else
        {
            EXPECT_GT(l_ms, 1700);
            EXPECT_LT(l_ms, 3000);
        }
    }
}
} // namespace
