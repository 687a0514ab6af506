#pragma once

#include <QByteArray>
#include <QString>

// One line per event on standard output, flushed at once so that a watching process
// sees each line as it happens.
class ServerLog
{
public:
    static void Write(QString const& i_line);
    // Names and texts come from clients: control characters become '?' so that no client
    // can break or forge a log line.
    static QString Printable(QByteArray const& i_bytes);
};
