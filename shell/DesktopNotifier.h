#pragma once

#include <QHash>
#include <QObject>
#include <QString>

// Desktop notifications through the session's notification service. Calls never wait: a
// desktop without the service, or one that answers late, costs the window nothing. A click on a
// notification comes back as Activated with the target it was sent with.
class DesktopNotifier : public QObject
{
    Q_OBJECT
public:
    explicit DesktopNotifier(QObject* ip_parent = nullptr);

    static constexpr char s_service[] = "org.freedesktop.Notifications";
    static constexpr char s_path[] = "/org/freedesktop/Notifications";
    // Notifications whose click is still awaited; the oldest are forgotten beyond this.
    static constexpr int s_maxTracked = 64;

    void Notify(QString const& i_summary, QString const& i_body, QString const& i_target);

signals:
    void Activated(QString const& i_target);

private slots:
    void OnActionInvoked(uint i_id, QString const& i_action);
    void OnNotificationClosed(uint i_id, uint i_reason);

private:
    void Track(uint i_id, QString const& i_target);

    QHash<uint, QString> m_targets;
    QList<uint> m_order;
};
