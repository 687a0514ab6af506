#pragma once

#include <QtGlobal>

// How fast one client may send room chat and private messages: a token bucket of lines.
// A person typing, even pasting a few lines or answering several people at once, stays
// far below it; a script sending lines in a loop hits it within seconds. Lines above it
// are dropped, and a client that keeps pushing is closed, so that it is the flooder who
// is bounded and not the people who read the room.
class ChatAllowance
{
public:
    // Twenty lines at once covers a pasted paragraph; five a second sustained is beyond
    // what anyone types.
    static constexpr int c_burstLines = 20;
    static constexpr int c_linesPerSecond = 5;
    // Dropped lines, without a pause long enough to refill the bucket, before the client is
    // closed: a person who hits the limit stops well before this.
    static constexpr int c_dropsBeforeClose = 20;

    enum class Verdict
    {
        Pass,
        Drop,
        Close
    };

    // One line now; the clock is the steady clock of the process.
    Verdict Take();
    // One line at i_nowMs on any clock that only goes forward.
    Verdict TakeAt(qint64 i_nowMs);

private:
    static constexpr qint64 c_milliLinesPerLine = 1000;
    static constexpr qint64 c_fullMilliLines = c_burstLines * c_milliLinesPerLine;

    // Kept in thousandths of a line, so that every millisecond refills a whole number.
    qint64 m_milliLines = c_fullMilliLines;
    qint64 m_lastMs = -1;
    int m_drops = 0;
};
