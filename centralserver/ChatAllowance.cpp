#include "ChatAllowance.h"

#include <QDeadlineTimer>

ChatAllowance::Verdict ChatAllowance::Take()
{
    return TakeAt(QDeadlineTimer::current().deadline());
}

ChatAllowance::Verdict ChatAllowance::TakeAt(qint64 i_nowMs)
{
    if (m_lastMs >= 0 && i_nowMs > m_lastMs)
    {
        // A rate of N lines a second refills N thousandths of a line each millisecond.
        qint64 l_refill = (i_nowMs - m_lastMs) * c_linesPerSecond;
        m_milliLines = qMin(c_fullMilliLines, m_milliLines + l_refill);
    }
    m_lastMs = qMax(m_lastMs, i_nowMs);
    // A client that paused long enough to refill the bucket starts again with a clean slate.
    if (m_milliLines == c_fullMilliLines)
        m_drops = 0;
    if (m_milliLines >= c_milliLinesPerLine)
    {
        m_milliLines -= c_milliLinesPerLine;
        return Verdict::Pass;
    }
    return ++m_drops >= c_dropsBeforeClose ? Verdict::Close : Verdict::Drop;
}
