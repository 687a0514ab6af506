#include "shell/DesktopNotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace
{
QString const g_interface = QString::fromLatin1(DesktopNotifier::s_service);
QString const g_appId = QStringLiteral("org.tidewick.Tidewick");
} // namespace

DesktopNotifier::DesktopNotifier(QObject* ip_parent) : QObject(ip_parent)
{
    QDBusConnection l_bus = QDBusConnection::sessionBus();
    if (!l_bus.isConnected())
        return;
    QString const l_service = QString::fromLatin1(s_service);
    QString const l_path = QString::fromLatin1(s_path);
    l_bus.connect(l_service, l_path, g_interface, QStringLiteral("ActionInvoked"), this, SLOT(OnActionInvoked(uint, QString)));
    l_bus.connect(l_service, l_path, g_interface, QStringLiteral("NotificationClosed"), this,
                  SLOT(OnNotificationClosed(uint, uint)));
}

void DesktopNotifier::Notify(QString const& i_summary, QString const& i_body, QString const& i_target)
{
    QDBusConnection l_bus = QDBusConnection::sessionBus();
    if (!l_bus.isConnected())
        return;
    QDBusMessage l_call = QDBusMessage::createMethodCall(QString::fromLatin1(s_service), QString::fromLatin1(s_path),
                                                         g_interface, QStringLiteral("Notify"));
    QVariantMap const l_hints{{QStringLiteral("desktop-entry"), g_appId}};
    l_call << QStringLiteral("Tidewick") << uint(0) << g_appId << i_summary << i_body
           << QStringList{QStringLiteral("default"), QStringLiteral("Show")} << l_hints << int(-1);
    auto* lp_watcher = new QDBusPendingCallWatcher(l_bus.asyncCall(l_call), this);
    connect(lp_watcher, &QDBusPendingCallWatcher::finished, this,
            [this, i_target](QDBusPendingCallWatcher* ip_watcher)
            {
                QDBusPendingReply<uint> const l_reply = *ip_watcher;
                if (l_reply.isValid())
                    Track(l_reply.value(), i_target);
                ip_watcher->deleteLater();
            });
}

void DesktopNotifier::Track(uint i_id, QString const& i_target)
{
    if (!m_targets.contains(i_id))
        m_order.append(i_id);
    m_targets.insert(i_id, i_target);
    while (m_order.size() > s_maxTracked)
        m_targets.remove(m_order.takeFirst());
}

void DesktopNotifier::OnActionInvoked(uint i_id, QString const& i_action)
{
    auto const l_found = m_targets.constFind(i_id);
    if (l_found == m_targets.constEnd())
        return;
    QString const l_target = l_found.value();
    if (i_action == QStringLiteral("default"))
        emit Activated(l_target);
}

void DesktopNotifier::OnNotificationClosed(uint i_id, uint)
{
    if (m_targets.remove(i_id))
        m_order.removeOne(i_id);
}
