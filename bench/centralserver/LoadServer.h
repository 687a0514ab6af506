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
    // Allows i_descriptors open files, starts the program and has the benchmark's deadline kill
    // it; false, with the reason printed after i_bench, when any step fails.
    bool StartWatched(char const* ip_bench, int i_descriptors);
    quint16 Port() const { return m_port; }
    qint64 Pid() const { return m_process.processId(); }
    bool IsRunning() const { return m_process.state() == QProcess::Running; }
    // The most resident memory the program has had, in KiB, since it started or since the
    // last ResetPeakMemory(); 0 when not known.
    qint64 PeakMemoryKiB() const;
    qint64 MemoryKiB() const;
    bool ResetPeakMemory() const;
    // Log lines so far that contain i_text.
    qsizetype LogCount(QString const& i_text) const;
    // Asks the program to stop, and kills it after i_graceMs; true when it stopped by itself
    // with success.
    bool Stop(int i_graceMs);
    // Stops the program at the end of a benchmark and gives the benchmark's exit status: 2 when
    // the program did not stop cleanly, else i_code. Its last lines are printed with a 2.
    int Finish(int i_code);
    QString LogTail(int i_lines) const;

private:
    QString ReadLog() const;
    // A field of the program's /proc status in KiB; 0 when not known.
    qint64 StatusKiB(QByteArray const& i_field) const;

    QString m_logPath;
    QProcess m_process;
    quint16 m_port = 0;
};
