#pragma once

#include <QProcess>
#include <QString>

// The central server program of this build under load: started on a free loopback port with
// its log in a file, and ended with this process whatever way that ends.
class LoadServer
{
public:
    explicit LoadServer(QString i_logPath);
    // Kills the program if it still runs.
    ~LoadServer();

    // Starts the program and waits for the port it logs.
    bool Start(QString& o_error);
    quint16 Port() const { return m_port; }
    qint64 Pid() const { return m_process.processId(); }
    // The most resident memory the program has had, in KiB; 0 when not known.
    qint64 PeakMemoryKiB() const;
    // Asks the program to stop, and kills it after i_graceMs; true when it stopped by itself
    // with success.
    bool Stop(int i_graceMs);
    QString LogTail(int i_lines) const;

private:
    QString ReadLog() const;

    QString m_logPath;
    QProcess m_process;
    quint16 m_port = 0;
};
