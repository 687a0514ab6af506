#include "support/WaitFor.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

bool WaitFor(std::function<bool()> const& i_condition, int i_timeoutMs)
{
    QDeadlineTimer l_deadline(i_timeoutMs);
    while (!i_condition())
    {
        if (l_deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(2);
    }
    return true;
}
