#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

// Runs the event loop until i_done holds or i_timeoutMs pass; whether i_done holds.
template <typename Done>
bool RunUntil(Done i_done, int i_timeoutMs)
{
    QDeadlineTimer const l_deadline(i_timeoutMs);
    // Wakes the loop often enough to see the deadline when nothing else happens.
    QTimer l_tick;
    l_tick.start(5);
    while (!i_done())
    {
        if (l_deadline.hasExpired())
            return i_done();
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

// Lets the event loop run for i_ms, whatever happens.
inline void RunFor(int i_ms)
{
    RunUntil([] { return false; }, i_ms);
}
