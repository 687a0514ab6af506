#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <string>
#include <vector>

#include "shares/MP3Scanner.h"
#include "support/MP3Frames.h"
#include "support/WaitFor.h"

using MP3Frames::Frame;

namespace
{
// A scanner on a thread of its own, as the shares manager runs it, whose results are taken
// on the main thread.
class MP3ScannerThreadTest : public ::testing::Test
{
protected:
    struct Result
    {
        QString m_file;
        int m_bitrate;
        bool m_onMainThread;
    };

    void SetUp() override
    {
        m_scanner.moveToThread(&m_thread);
        QObject::connect(&m_scanner, &MP3Scanner::MP3Scanned, &m_receiver,
                         [this](QString i_file, int, QString, int, bool, int i_bitrate) {
                             m_results.push_back({i_file, i_bitrate, QThread::currentThread() == qApp->thread()});
                         });
        m_thread.start(QThread::InheritPriority);
    }
    void TearDown() override
    {
        m_scanner.Quit();
        m_thread.quit();
        m_thread.wait();
    }

    // The path as it crosses the thread: one character for each byte of its UTF-8 form.
    QString Crossing(std::string const& i_name) const { return QString::fromLatin1(m_root + "/" + i_name); }
    QString WriteFile(std::string const& i_name, std::string const& i_bytes)
    {
        EXPECT_TRUE(MP3Frames::Save(m_root + "/" + i_name, i_bytes));
        return Crossing(i_name);
    }
    void Request(QString const& i_file)
    {
        QMetaObject::invokeMethod(&m_scanner, [this, i_file] { m_scanner.OnMP3ScanRequired(i_file); }, Qt::QueuedConnection);
    }
    // Waits until every request made so far has been taken off the scanner's queue.
    bool Drain(int i_timeoutMs)
    {
        std::atomic<bool> l_reached = false;
        QMetaObject::invokeMethod(&m_scanner, [&l_reached] { l_reached = true; }, Qt::QueuedConnection);
        bool const l_drained = WaitFor([&] { return l_reached.load(); }, i_timeoutMs);
        QCoreApplication::processEvents(); // results sent before the end of the queue
        return l_drained;
    }
    static std::string Frames(int i_bitrate)
    {
        std::string l_bytes;
        MP3Frames::Append(l_bytes, Frame{.m_bitrate = i_bitrate}, 200);
        return l_bytes;
    }

    QTemporaryDir m_dir;
    std::string const m_root = m_dir.path().toStdString();
    QThread m_thread;
    MP3Scanner m_scanner;
    QObject m_receiver;
    std::vector<Result> m_results;
};
} // namespace

TEST_F(MP3ScannerThreadTest, ResultsComeBackInOrderOnTheMainThreadWithThePathAsGiven)
{
    QString const l_nordic = WriteFile("Ærø – Søndag på fjörð.mp3", Frames(128));
    QString const l_plain = WriteFile("plain.mp3", Frames(192));
    QString const l_text = WriteFile("text.mp3", "no frames here");
    QString const l_last = WriteFile("last.mp3", Frames(64));
    for (QString const& l_file : {l_nordic, l_text, Crossing("missing.mp3"), l_plain, l_nordic, l_last})
        Request(l_file);
    EXPECT_TRUE(m_results.empty()) << "a request returns before its result";

    ASSERT_TRUE(WaitFor([&] { return m_results.size() >= 4; }));
    ASSERT_TRUE(Drain(5000));
    // Files that fail leave no trace; a repeated request is scanned again.
    ASSERT_EQ(m_results.size(), 4u);
    QString const l_expected[] = {l_nordic, l_plain, l_nordic, l_last};
    int const l_rates[] = {128, 192, 128, 64};
    for (std::size_t l_index = 0; l_index < 4; ++l_index)
    {
        EXPECT_EQ(m_results[l_index].m_file, l_expected[l_index]) << l_index;
        EXPECT_EQ(m_results[l_index].m_bitrate, l_rates[l_index]) << l_index;
        EXPECT_TRUE(m_results[l_index].m_onMainThread) << l_index;
    }
}

TEST_F(MP3ScannerThreadTest, QuitGivesUpTheFileUnderWayAndEveryRequestAfter)
{
    // Far too large to read while the test waits: a sparse file, zeros from end to end.
    {
        QFile l_huge(QString::fromStdString(m_root + "/huge.mp3"));
        ASSERT_TRUE(l_huge.open(QIODevice::WriteOnly) && l_huge.resize(64LL << 30));
    }
    QString const l_small = WriteFile("small.mp3", Frames(128));
    Request(Crossing("huge.mp3"));
    Request(l_small);
    QThread::msleep(200);

    QElapsedTimer l_clock;
    l_clock.start();
    m_scanner.Quit();
    Request(l_small);
    ASSERT_TRUE(Drain(10000));
    EXPECT_LT(l_clock.elapsed(), 5000);
    EXPECT_TRUE(m_results.empty());
}
