#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

// Watches the main thread's event loop: a tick is due every few milliseconds, and one that
// comes more than s_reportedStallMs late means the loop was held up. Such a stall is logged in
// "Main Thread" with how much of it the thread spent computing; the rest it spent waiting for
// the processor or in a blocking call. The computed part is what a peer's input could cause.
class StallProbe : public QObject
{
    Q_OBJECT
public:
    explicit StallProbe(QObject* ip_parent = nullptr);

    static constexpr int s_tickMs = 20;
    static constexpr qint64 s_reportedStallMs = 100;

    qint64 LongestBusyMs() const { return m_longestBusyMs; }

private slots:
    void OnTick();

private:
    static qint64 ThreadCpuMs();

    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_lastTickMs = 0;
    qint64 m_lastCpuMs = 0;
    qint64 m_longestBusyMs = 0;
};
