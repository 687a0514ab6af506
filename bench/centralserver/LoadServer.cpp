#include "LoadServer.h"

#include "DescriptorLimit.h"
#include "bench/BenchDeadline.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>

LoadServer::LoadServer(QString i_logPath)
    : m_logPath(std::move(i_logPath))
{
    m_process.setProgram(QStringLiteral(TIDEWICK_CENTRAL_BIN));
    m_process.setArguments({QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--listen"),
        QStringLiteral("127.0.0.1")});
    // A file, not a pipe: a pipe that this busy process does not drain in time would hold
    // the server up at its next log line and count in its times.
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(m_logPath);
    // Should this process die, the server goes too.
    m_process.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

LoadServer::~LoadServer()
{
    if (m_process.state() != QProcess::NotRunning)
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool LoadServer::Start(QString& o_error)
{
    m_process.start();
    if (!m_process.waitForStarted(10000))
    {
        o_error = QStringLiteral("cannot start %1: %2").arg(m_process.program(), m_process.errorString());
        return false;
    }
    static QRegularExpression const s_listening(QStringLiteral("^listening on \\S+ port (\\d+)$"),
        QRegularExpression::MultilineOption);
    QDeadlineTimer const l_deadline(10000);
    while (!l_deadline.hasExpired() && m_process.state() == QProcess::Running)
    {
        QRegularExpressionMatch const l_match = s_listening.match(ReadLog());
        if (l_match.hasMatch())
        {
            m_port = static_cast<quint16>(l_match.captured(1).toUInt());
            return true;
        }
        QThread::msleep(20);
    }
    o_error = QStringLiteral("the server logged no port:\n%1").arg(LogTail(20));
    return false;
}

bool LoadServer::StartWatched(char const* ip_bench, int i_descriptors)
{
    if (!RaiseDescriptorLimit(static_cast<rlim_t>(i_descriptors)))
    {
        std::fprintf(stderr, "%s: cannot allow %d open files\n", ip_bench, i_descriptors);
        return false;
    }
    QString l_error;
    if (!Start(l_error))
    {
        std::fprintf(stderr, "%s: %s\n", ip_bench, qPrintable(l_error));
        return false;
    }
    BenchDeadline::Watch(0, Pid());
    return true;
}

qint64 LoadServer::PeakMemoryKiB() const
{
    return StatusKiB("VmHWM:");
}

qint64 LoadServer::MemoryKiB() const
{
    return StatusKiB("VmRSS:");
}

bool LoadServer::ResetPeakMemory() const
{
    QFile l_clear(QStringLiteral("/proc/%1/clear_refs").arg(Pid()));
    return l_clear.open(QIODevice::WriteOnly) && l_clear.write("5") == 1;
}

qsizetype LoadServer::LogCount(QString const& i_text) const
{
    return ReadLog().count(i_text);
}

qint64 LoadServer::StatusKiB(QByteArray const& i_field) const
{
    QFile l_status(QStringLiteral("/proc/%1/status").arg(Pid()));
    if (!l_status.open(QIODevice::ReadOnly))
        return 0;
    for (QByteArray const& l_line : l_status.readAll().split('\n'))
    {
        if (l_line.startsWith(i_field))
            return l_line.mid(i_field.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

bool LoadServer::Stop(int i_graceMs)
{
    if (m_process.state() == QProcess::NotRunning)
        return false;
    m_process.terminate();
    if (!m_process.waitForFinished(i_graceMs))
    {
        m_process.kill();
        m_process.waitForFinished(5000);
        return false;
    }
    return m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
}

int LoadServer::Finish(int i_code)
{
    if (!Stop(5000))
    {
        std::printf("the server did not stop cleanly; its last lines:\n%s\n", qPrintable(LogTail(20)));
        i_code = 2;
    }
    else if (i_code == 2)
        std::printf("the server's last lines:\n%s\n", qPrintable(LogTail(20)));
    std::fflush(stdout);
    return i_code;
}

QString LoadServer::LogTail(int i_lines) const
{
    QStringList const l_lines = ReadLog().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    return l_lines.mid(qMax<qsizetype>(0, l_lines.size() - i_lines)).join(QLatin1Char('\n'));
}

QString LoadServer::ReadLog() const
{
    QFile l_log(m_logPath);
    return l_log.open(QIODevice::ReadOnly) ? QString::fromUtf8(l_log.readAll()) : QString();
}
