#pragma once

#include <QByteArray>

// What an attack on a real client process must leave intact, read from outside it.

// A field of /proc/<pid>/status in KiB (VmRSS, VmHWM); -1 when it cannot be read.
qint64 StatusKiB(qint64 i_pid, QByteArray const& i_field);
// Sets the process's resident high-water mark back to what is resident now.
bool ResetPeakMemory(qint64 i_pid);
// A new peer greets the client and asks for its share list; true when message 5 comes back.
bool AnswersAPeer(quint16 i_port);
// The longest busy part of the event loop stalls the log reports, 0 when there are none. The
// rest of a stall is time the client waited for the processor, which on a shared machine is
// not its own doing.
qint64 LongestBusyStallMs(QByteArray const& i_log);
