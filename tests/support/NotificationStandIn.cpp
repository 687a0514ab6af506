#include "support/NotificationStandIn.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <cstdio>

namespace
{
QString const g_service = QStringLiteral("org.freedesktop.Notifications");
QString const g_path = QStringLiteral("/org/freedesktop/Notifications");
} // namespace

NotificationStandIn::NotificationStandIn() : m_connectionName(QStringLiteral("notification-stand-in"))
{
}

NotificationStandIn::~NotificationStandIn()
{
    QDBusConnection::disconnectFromBus(m_connectionName);
    if (m_daemon.state() != QProcess::NotRunning)
    {
        m_daemon.kill();
        m_daemon.waitForFinished(5000);
    }
}

bool NotificationStandIn::Start()
{
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1"),
                    QStringLiteral("--address=unix:dir=") + m_dir.path()});
    if (!m_daemon.waitForStarted(10000) || !m_daemon.waitForReadyRead(10000))
    {
        std::fprintf(stderr, "dbus-daemon did not start: %s\n", qPrintable(m_daemon.errorString()));
        return false;
    }
    m_address = QString::fromUtf8(m_daemon.readLine().trimmed());
    QDBusConnection l_bus = QDBusConnection::connectToBus(m_address, m_connectionName);
    if (!l_bus.isConnected() || !l_bus.registerService(g_service) ||
        !l_bus.registerObject(g_path, this, QDBusConnection::ExportAllSlots))
    {
        std::fprintf(stderr, "cannot serve notifications on %s: %s\n", qPrintable(m_address), qPrintable(l_bus.lastError().message()));
        return false;
    }
    return true;
}

uint NotificationStandIn::Notify(QString const& i_app, uint, QString const&, QString const& i_summary, QString const& i_body,
                                 QStringList const& i_actions, QVariantMap const&, int)
{
    m_calls.push_back({i_app, i_summary, i_body, i_actions});
    return static_cast<uint>(m_calls.size());
}

QStringList NotificationStandIn::GetCapabilities()
{
    return {QStringLiteral("actions"), QStringLiteral("body")};
}

void NotificationStandIn::CloseNotification(uint)
{
}

void NotificationStandIn::Click(uint i_id)
{
    QDBusMessage l_signal = QDBusMessage::createSignal(g_path, g_service, QStringLiteral("ActionInvoked"));
    l_signal << i_id << QStringLiteral("default");
    QDBusConnection(m_connectionName).send(l_signal);
}
