#pragma once

#include <QObject>
#include <QTimer>

// The client's periodic timers. Subscribers connect to the timers' own timeout().
class TimerManager : public QObject
{
    Q_OBJECT
public:
    explicit TimerManager(QObject* ip_parent = nullptr);
    ~TimerManager() override;

    QTimer* HalfMinuteTimer() { return &m_halfMinuteTimer; }
    QTimer* FiveMinuteTimer() { return &m_fiveMinuteTimer; }
    QTimer* HourTimer() { return &m_hourTimer; }
    // The periodic save of the data file: five minutes, unless the build sets another period.
    QTimer* SaveTimer() { return &m_saveTimer; }

private:
    QTimer m_halfMinuteTimer;
    QTimer m_fiveMinuteTimer;
    QTimer m_hourTimer;
    QTimer m_saveTimer;
};

extern TimerManager* timerManager;
