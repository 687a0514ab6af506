#include "transfers/TransferWait.h"

#include <QAbstractSocket>
#include <QMutexLocker>
#include <QThread>

#include <algorithm>

TransferWait::TransferWait(int i_timeoutMs)
    : m_timeoutMs(i_timeoutMs)
{
}

void TransferWait::SignalExit()
{
    QMutexLocker l_lock(&m_mutex);
    m_exit = true;
}

bool TransferWait::IsExitSignalled() const
{
    QMutexLocker l_lock(&m_mutex);
    return m_exit;
}

QDeadlineTimer TransferWait::Deadline() const
{
    return QDeadlineTimer(m_timeoutMs);
}

TransferWait::Outcome TransferWait::ForReadyRead(QAbstractSocket& io_socket, QDeadlineTimer i_deadline)
{
    return InSlices(io_socket, &QAbstractSocket::waitForReadyRead, i_deadline);
}

TransferWait::Outcome TransferWait::ForBytesWritten(QAbstractSocket& io_socket)
{
    return InSlices(io_socket, &QAbstractSocket::waitForBytesWritten, Deadline());
}

TransferWait::Outcome TransferWait::ForDisconnected(QAbstractSocket& io_socket)
{
    // Asking an unconnected socket to wait only earns a warning.
    if (io_socket.state() == QAbstractSocket::UnconnectedState)
        return Outcome::Ready;
    return InSlices(io_socket, &QAbstractSocket::waitForDisconnected, Deadline());
}

TransferWait::Outcome TransferWait::Sleep(long long i_ms)
{
    QDeadlineTimer const l_deadline(i_ms);
    while (!l_deadline.hasExpired())
    {
        if (IsExitSignalled())
            return Outcome::ExitSignalled;
        QThread::msleep(static_cast<unsigned long>(std::min<long long>(s_sliceMs, l_deadline.remainingTime())));
    }
    return Outcome::Ready;
}

TransferWait::Outcome TransferWait::InSlices(QAbstractSocket& io_socket, bool (QAbstractSocket::*i_wait)(int), QDeadlineTimer i_deadline)
{
    for (;;)
    {
        if (IsExitSignalled())
            return Outcome::ExitSignalled;
        if (i_deadline.hasExpired())
            return Outcome::TimedOut;
        int const l_slice = static_cast<int>(std::min<long long>(s_sliceMs, i_deadline.remainingTime()));
        if ((io_socket.*i_wait)(l_slice))
            return Outcome::Ready;
        // A slice that merely ran out leaves the connection up; anything else ended it.
        if (io_socket.state() != QAbstractSocket::ConnectedState)
            return Outcome::Failed;
    }
}

QString TransferWait::Describe(Outcome i_outcome) const
{
    switch (i_outcome)
    {
    case Outcome::Ready:
        break;
    case Outcome::Failed:
        return QStringLiteral("the connection closed");
    case Outcome::TimedOut:
        return QStringLiteral("timed out after %1 ms").arg(m_timeoutMs);
    case Outcome::ExitSignalled:
        return QStringLiteral("stopped");
    }
    return QString();
}
