#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

// One line per event on standard output, flushed at once so that a watching process
// sees each line as it happens.
class ServerLog
{
public:
    // Names and texts from clients are cut to this many bytes: enough to recognise any
    // honest name or line, while a client that sends 128 KiB texts cannot fill the disk.
    static constexpr qsizetype c_maxTextBytes = 200;

    using Sink = std::function<void(QString const&)>;

    static void Write(QString const& i_line);
    // Lines go to the sink instead of standard output while one is set; an empty sink
    // restores standard output.
    static void SetSink(Sink i_sink);
    // Names and texts come from clients: control characters become '?' so that no client
    // can break or forge a log line, and a text above c_maxTextBytes is cut at a character
    // boundary and ends in "...".
    static QString Printable(QByteArray const& i_bytes);
};
