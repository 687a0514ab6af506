#include "shell/TrayIcon.h"

#include <QAction>
#include <QSystemTrayIcon>

TrayIcon::TrayIcon(QObject* ip_parent) : QObject(ip_parent), mp_icon(new QSystemTrayIcon(this))
{
    mp_showHide = m_menu.addAction(QStringLiteral("Hide"));
    m_menu.addSeparator();
    mp_connect = m_menu.addAction(QStringLiteral("Connect"));
    mp_disconnect = m_menu.addAction(QStringLiteral("Disconnect"));
    m_menu.addSeparator();
    QAction* lp_quit = m_menu.addAction(QStringLiteral("Quit"));
    connect(mp_showHide, &QAction::triggered, this, &TrayIcon::ShowHideRequested);
    connect(mp_connect, &QAction::triggered, this, &TrayIcon::ConnectRequested);
    connect(mp_disconnect, &QAction::triggered, this, &TrayIcon::DisconnectRequested);
    connect(lp_quit, &QAction::triggered, this, &TrayIcon::QuitRequested);
    mp_icon->setContextMenu(&m_menu);
    connect(mp_icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason i_reason)
            {
                if (i_reason == QSystemTrayIcon::Trigger || i_reason == QSystemTrayIcon::DoubleClick)
                    emit ShowHideRequested();
            });
    SetOnline(false, false);
}

TrayIcon::~TrayIcon()
{
    mp_icon->hide();
}

bool TrayIcon::ShowIfTrayAvailable()
{
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return false;
    mp_icon->show();
    return true;
}

bool TrayIcon::IsShown() const
{
    return mp_icon->isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::SetOnline(bool i_online, bool i_busy)
{
    m_online = i_online;
    mp_connect->setEnabled(!i_online && !i_busy);
    mp_disconnect->setEnabled(i_online);
    Refresh();
}

void TrayIcon::SetUnseenCount(int i_count)
{
    m_unseen = i_count;
    Refresh();
}

void TrayIcon::SetWindowShown(bool i_shown)
{
    mp_showHide->setText(i_shown ? QStringLiteral("Hide") : QStringLiteral("Show"));
}

void TrayIcon::ShowHint(QString const& i_title, QString const& i_text)
{
    mp_icon->showMessage(i_title, i_text, QSystemTrayIcon::Information, 8000);
}

QString TrayIcon::ToolTip() const
{
    QString l_tip = m_online ? QStringLiteral("Tidewick: online") : QStringLiteral("Tidewick: offline");
    if (m_unseen > 0)
        l_tip += m_unseen == 1 ? QStringLiteral(", 1 conversation unseen") : QStringLiteral(", %1 conversations unseen").arg(m_unseen);
    return l_tip;
}

void TrayIcon::Refresh()
{
    // Unseen conversations outrank the connection: they are what the user has to act on.
    QString const l_icon = m_unseen > 0 ? QStringLiteral(":/icons/chat_icon")
                                        : m_online ? QStringLiteral(":/icons/online_icon") : QStringLiteral(":/icons/offline_icon");
    mp_icon->setIcon(QIcon(l_icon));
    mp_icon->setToolTip(ToolTip());
}
