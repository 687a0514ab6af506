#pragma once

#include <QIcon>
#include <QMenu>
#include <QObject>
#include <QString>

class QAction;
class QSystemTrayIcon;

// The client in the desktop's tray, where there is one: its icon tells whether the client is
// online and whether conversations wait unseen; its menu shows or hides the window, connects,
// disconnects and quits. Without a tray nothing is shown and IsShown says so.
class TrayIcon : public QObject
{
    Q_OBJECT
public:
    explicit TrayIcon(QObject* ip_parent = nullptr);
    ~TrayIcon() override;

    // Shows the icon when a tray is there now; false when there is none.
    bool ShowIfTrayAvailable();
    bool IsShown() const;

    void SetOnline(bool i_online, bool i_busy);
    void SetUnseenCount(int i_count);
    void SetWindowShown(bool i_shown);
    // A balloon from the icon itself, for the hint that closing the window keeps the client on.
    void ShowHint(QString const& i_title, QString const& i_text);

    QMenu* Menu() { return &m_menu; }
    QString ToolTip() const;

signals:
    void ShowHideRequested();
    void ConnectRequested();
    void DisconnectRequested();
    void QuitRequested();

private:
    void Refresh();

    QMenu m_menu;
    QSystemTrayIcon* mp_icon;
    QAction* mp_showHide;
    QAction* mp_connect;
    QAction* mp_disconnect;
    bool m_online = false;
    int m_unseen = 0;
};
