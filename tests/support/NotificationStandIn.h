#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariantMap>
#include <vector>

// A session bus of the test's own, a dbus-daemon in a temporary folder, with a stand-in for the
// desktop's notification service on it that records every notification asked for. Clients get
// the bus by its address; the test's own desktop, if any, never hears of them.
class NotificationStandIn : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Call
    {
        QString m_app;
        QString m_summary;
        QString m_body;
        QStringList m_actions;
    };

    NotificationStandIn();
    ~NotificationStandIn() override;

    // Starts the bus and takes the service's name on it; false with the reason on stderr.
    bool Start();
    QString Address() const { return m_address; }
    std::vector<Call> const& Calls() const { return m_calls; }
    // Tells the clients that the user clicked notification i_id, as a desktop does.
    void Click(uint i_id);

public slots:
    uint Notify(QString const& i_app, uint i_replacesId, QString const& i_icon, QString const& i_summary, QString const& i_body,
                QStringList const& i_actions, QVariantMap const& i_hints, int i_timeout);
    QStringList GetCapabilities();
    void CloseNotification(uint i_id);

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
    QString m_connectionName;
    std::vector<Call> m_calls;
};
