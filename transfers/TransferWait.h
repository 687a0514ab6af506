#pragma once

#include <QDeadlineTimer>
#include <QMutex>
#include <QString>

class QAbstractSocket;

// A transfer thread's exit flag and the blocking waits that watch it. Every wait runs in slices
// of at most 50 ms and looks at the flag between them, so that a thread asked to stop is gone
// within a slice instead of after its time-out. The mutex guards the flag only.
class TransferWait
{
public:
    enum class Outcome
    {
        Ready,
        Failed,
        TimedOut,
        ExitSignalled
    };

    static int constexpr s_defaultTimeoutMs = 30000;
    static int constexpr s_sliceMs = 50;

    explicit TransferWait(int i_timeoutMs);

    // Any thread may call it.
    void SignalExit();
    bool IsExitSignalled() const;

    // A new deadline of the time-out from now.
    QDeadlineTimer Deadline() const;
    // Ready when bytes came, Failed when the connection ended, TimedOut when the deadline passed.
    Outcome ForReadyRead(QAbstractSocket& io_socket, QDeadlineTimer i_deadline);
    // Ready when some of the pending bytes went, within the time-out.
    Outcome ForBytesWritten(QAbstractSocket& io_socket);
    // Ready when the peer has closed, within the time-out.
    Outcome ForDisconnected(QAbstractSocket& io_socket);
    // Ready after the whole span.
    Outcome Sleep(long long i_ms);
    // Why a wait that was not Ready ended, in the words of the log.
    QString Describe(Outcome i_outcome) const;

private:
    Outcome InSlices(QAbstractSocket& io_socket, bool (QAbstractSocket::*i_wait)(int), QDeadlineTimer i_deadline);

    mutable QMutex m_mutex;
    bool m_exit = false;
    int const m_timeoutMs;
};
