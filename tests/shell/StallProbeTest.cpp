#include <gtest/gtest.h>

#include <QEventLoop>
#include <QRegularExpression>
#include <QTimer>

#include <ctime>
#include <functional>
#include <thread>

#include "shell/StallProbe.h"
#include "store/Log.h"

namespace
{
// Runs the event loop for 400 ms with the probe, holding it once at 100 ms; returns what the
// probe logged meanwhile.
QStringList ProbeLinesAround(std::function<void()> const& i_hold)
{
    QStringList l_lines;
    SetLogSink([&](QString const& i_area, int, QString const& i_text, ItemPtr) {
        if (i_area == QStringLiteral("Main Thread"))
            l_lines << i_text;
    });
    StallProbe l_probe;
    QEventLoop l_loop;
    QTimer::singleShot(100, &l_loop, [&] { i_hold(); });
    QTimer::singleShot(400, &l_loop, &QEventLoop::quit);
    l_loop.exec();
    SetLogSink(LogSink());
    return l_lines;
}

// The two figures of a stall line: how late the tick came, and how much of it was computing.
std::pair<int, int> Figures(QString const& i_line)
{
    QRegularExpressionMatch const l_match =
        QRegularExpression(QStringLiteral("^Event loop stalled for (\\d+) ms, (\\d+) ms of it busy$")).match(i_line);
    return l_match.hasMatch() ? std::pair{l_match.captured(1).toInt(), l_match.captured(2).toInt()} : std::pair{-1, -1};
}
} // namespace

TEST(StallProbeTest, AHeldLoopIsLoggedWithTheShareOfItSpentComputing)
{
    QStringList const l_busy = ProbeLinesAround([] {
        // Computes for 250 ms of the thread's own time, however busy the machine is.
        timespec l_start{}, l_now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &l_start);
        do
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &l_now);
        while ((l_now.tv_sec - l_start.tv_sec) * 1000 + (l_now.tv_nsec - l_start.tv_nsec) / 1000000 < 250);
    });
    ASSERT_EQ(l_busy.size(), 1) << l_busy.join(QLatin1Char('\n')).toStdString();
    auto [l_lateMs, l_busyMs] = Figures(l_busy[0]);
    EXPECT_GE(l_lateMs, 200);
    EXPECT_GE(l_busyMs, 200);

    QStringList const l_waiting = ProbeLinesAround([] { std::this_thread::sleep_for(std::chrono::milliseconds(250)); });
    ASSERT_EQ(l_waiting.size(), 1) << l_waiting.join(QLatin1Char('\n')).toStdString();
    std::tie(l_lateMs, l_busyMs) = Figures(l_waiting[0]);
    EXPECT_GE(l_lateMs, 200);
    EXPECT_LT(l_busyMs, 100);

    EXPECT_TRUE(ProbeLinesAround([] {}).isEmpty());
}
