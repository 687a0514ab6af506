#include "CentralServerProcess.h"


#include "support/WaitFor.h"

CentralServerProcess::CentralServerProcess(QString i_accountsFile, QStringList i_options)
    : m_accountsFile(std::move(i_accountsFile))
{
    m_process.setProgram(QStringLiteral(TIDEWICK_CENTRAL_BIN));
    m_process.setArguments(QStringList{QStringLiteral("--port"), QStringLiteral("2242"), QStringLiteral("--listen"),
                                       QStringLiteral("127.0.0.1"), QStringLiteral("--accounts"), m_accountsFile} +
                           i_options);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
}

CentralServerProcess::~CentralServerProcess()
{
    if (m_process.state() != QProcess::NotRunning)
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool CentralServerProcess::Start()
{
    m_lines.clear();
    m_partial.clear();
    m_process.start();
    return m_process.waitForStarted(10000) && WaitForLine(QStringLiteral("listening on"));
}

bool CentralServerProcess::Stop(int i_timeoutMs)
{
    m_process.terminate(); // SIGTERM, and nothing when the process is gone
    bool const l_ended = m_process.waitForFinished(i_timeoutMs);
    Collect();
    return l_ended && m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
}

void CentralServerProcess::Collect()
{
    m_partial += m_process.readAll();
    qsizetype l_end;
    while ((l_end = m_partial.indexOf('\n')) >= 0)
    {
        m_lines << QString::fromUtf8(m_partial.left(l_end));
        m_partial.remove(0, l_end + 1);
    }
}

int CentralServerProcess::CountLines(QString const& i_text)
{
    Collect();
    int l_count = 0;
    for (QString const& l_line : m_lines)
        if (l_line.contains(i_text))
            ++l_count;
    return l_count;
}

bool CentralServerProcess::WaitForLine(QString const& i_text, int i_timeoutMs)
{
    return WaitFor([&] { return CountLines(i_text) > 0; }, i_timeoutMs);
}

QString CentralServerProcess::Log()
{
    Collect();
    return m_lines.join(QLatin1Char('\n'));
}
