#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A real client process with a home folder of its own, shown on the offscreen platform.
class ClientProcess
{
public:
    ClientProcess();
    ~ClientProcess();

    QString Home() const { return m_home.path(); }
    QString DataFile() const { return m_home.path() + QStringLiteral("/.Tidewick"); }

    // A home without a data file gets one holding only a free listening port and UPnP off.
    bool Start();
    // Runs the client in a network namespace of its own with no interface up, for a test of the
    // UPnP default: its search for a gateway then reaches nothing. Needs root.
    void IsolateNetwork();
    // A variable of the client's environment, before the start. The session bus is none unless
    // a test sets DBUS_SESSION_BUS_ADDRESS: no test client talks to the desktop of whoever runs it.
    void SetEnvironment(QString const& i_name, QString const& i_value);
    bool IsRunning() const { return m_process.state() == QProcess::Running; }
    qint64 Pid() const { return m_process.processId(); }
    // Sends SIGTERM and waits; true if the process exited normally within the time.
    bool Terminate(int i_timeoutMs = 10000);
    int ExitCode() const { return m_process.exitCode(); }
    QProcess::ExitStatus ExitStatus() const { return m_process.exitStatus(); }
    QByteArray Output();

private:
    QTemporaryDir m_home;
    QProcess m_process;
    QByteArray m_output;
};
