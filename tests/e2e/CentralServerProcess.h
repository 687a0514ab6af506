#pragma once

#include <QProcess>
#include <QStringList>

// The real central server program on the client's fixed port, with its log lines collected.
class CentralServerProcess
{
public:
    // i_options go to the program after the port, address and accounts file.
    explicit CentralServerProcess(QString i_accountsFile, QStringList i_options = {});
    ~CentralServerProcess();

    bool Start();
    bool Stop(int i_timeoutMs = 10000);
    qint64 Pid() const { return m_process.processId(); }
    // Waits until a line holding the text has been logged; true if one has.
    bool WaitForLine(QString const& i_text, int i_timeoutMs = 10000);
    int CountLines(QString const& i_text);
    QString Log();

private:
    void Collect();

    QString m_accountsFile;
    QProcess m_process;
    QByteArray m_partial;
    QStringList m_lines;
};
