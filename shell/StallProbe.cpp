#include "shell/StallProbe.h"

#include <ctime>

#include "store/Log.h"

StallProbe::StallProbe(QObject* ip_parent) : QObject(ip_parent)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(s_tickMs);
    connect(&m_timer, &QTimer::timeout, this, &StallProbe::OnTick);
    m_clock.start();
    m_lastCpuMs = ThreadCpuMs();
    m_timer.start();
}

void StallProbe::OnTick()
{
    qint64 const l_nowMs = m_clock.elapsed();
    qint64 const l_cpuMs = ThreadCpuMs();
    qint64 const l_lateMs = l_nowMs - m_lastTickMs - s_tickMs;
    qint64 const l_busyMs = l_cpuMs - m_lastCpuMs;
    m_lastTickMs = l_nowMs;
    m_lastCpuMs = l_cpuMs;
    if (l_lateMs <= s_reportedStallMs)
        return;
    m_longestBusyMs = qMax(m_longestBusyMs, l_busyMs);
    Log(QStringLiteral("Main Thread"), 1,
        QStringLiteral("Event loop stalled for %1 ms, %2 ms of it busy").arg(l_lateMs).arg(l_busyMs));
}

qint64 StallProbe::ThreadCpuMs()
{
    timespec l_time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &l_time);
    return qint64(l_time.tv_sec) * 1000 + l_time.tv_nsec / 1000000;
}
