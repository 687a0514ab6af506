#pragma once

#include <QObject>
#include <QTimer>

// The client's three periodic timers. Subscribers connect to the timers' own timeout().
class TimerManager : public QObject
{
    Q_OBJECT
public:
    explicit TimerManager(QObject* ip_parent = nullptr);
    ~TimerManager() override;

    QTimer* HalfMinuteTimer() { return &m_halfMinuteTimer; }
    QTimer* FiveMinuteTimer() { return &m_fiveMinuteTimer; }
    QTimer* HourTimer() { return &m_hourTimer; }

private:
    QTimer m_halfMinuteTimer;
    QTimer m_fiveMinuteTimer;
    QTimer m_hourTimer;
};

extern TimerManager* timerManager;
