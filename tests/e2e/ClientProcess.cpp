#include "ClientProcess.h"

#include <QFile>
#include <QProcessEnvironment>

#include "support/SavedGraph.h"

ClientProcess::ClientProcess()
{
    QProcessEnvironment l_env = QProcessEnvironment::systemEnvironment();
    l_env.insert(QStringLiteral("HOME"), m_home.path());
    l_env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    l_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_home.path());
    l_env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("unix:path=") + m_home.path() + QStringLiteral("/no-bus"));
    m_process.setProcessEnvironment(l_env);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setProgram(QStringLiteral(TIDEWICK_CLIENT_BIN));
}

ClientProcess::~ClientProcess()
{
    if (m_process.state() != QProcess::NotRunning)
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool ClientProcess::Start()
{
    if (!QFile::exists(DataFile()))
    {
        SavedGraph l_seed;
        l_seed.SetFreeListeningPort();
        l_seed.Set("global", "use_upnp", "no");
        l_seed.Save(DataFile());
    }
    m_process.start();
    return m_process.waitForStarted(10000);
}

void ClientProcess::SetEnvironment(QString const& i_name, QString const& i_value)
{
    QProcessEnvironment l_env = m_process.processEnvironment();
    l_env.insert(i_name, i_value);
    m_process.setProcessEnvironment(l_env);
}

void ClientProcess::IsolateNetwork()
{
    m_process.setProgram(QStringLiteral("unshare"));
    m_process.setArguments({QStringLiteral("--net"), QStringLiteral("--"), QStringLiteral(TIDEWICK_CLIENT_BIN)});
}

bool ClientProcess::Terminate(int i_timeoutMs)
{
    m_process.terminate(); // SIGTERM, and nothing when the process is gone
    return m_process.waitForFinished(i_timeoutMs) && m_process.exitStatus() == QProcess::NormalExit;
}

QByteArray ClientProcess::Output()
{
    m_output += m_process.readAll();
    return m_output;
}
