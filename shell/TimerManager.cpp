#include "shell/TimerManager.h"

TimerManager* timerManager = nullptr;

TimerManager::TimerManager(QObject* ip_parent) : QObject(ip_parent)
{
    timerManager = this;
    m_halfMinuteTimer.setInterval(30000);
    m_fiveMinuteTimer.setInterval(300000);
    m_hourTimer.setInterval(3600000);
    m_saveTimer.setInterval(TIDEWICK_SAVE_PERIOD_MS);
    m_halfMinuteTimer.start();
    m_fiveMinuteTimer.start();
    m_hourTimer.start();
    m_saveTimer.start();
}

TimerManager::~TimerManager()
{
    if (timerManager == this)
        timerManager = nullptr;
}
