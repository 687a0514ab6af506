#pragma once

#include <QObject>
#include <QString>
#include <ctime>
#include <string>

#include "store/ItemPtr.h"

class DesktopNotifier;
class MainWindow;
class Server;
class TrayIcon;

// The window as a desktop application: the tray icon and its menu, closing to the tray, desktop
// notifications for private messages and finished transfers with their switches on the Options
// page, and the keyboard shortcuts that reach every page.
class DesktopIntegration : public QObject
{
    Q_OBJECT
public:
    // Made once the data file is loaded, so that the saved switches are there to read.
    DesktopIntegration(MainWindow* ip_window, Server* ip_server);
    ~DesktopIntegration() override;

    // Asked when the window is closed: true when the client goes on in the tray instead. The
    // first time, a hint says so.
    bool HideToTray();

    TrayIcon* Tray() { return mp_tray; }
    DesktopNotifier* Notifier() { return mp_notifier; }

    static constexpr char s_notifyPrivateMessages[] = "notify_private_messages";
    static constexpr char s_notifyDownloads[] = "notify_finished_downloads";
    static constexpr char s_notifyUploads[] = "notify_finished_uploads";
    static constexpr char s_trayHintShown[] = "tray_hint_shown";

private slots:
    void OnPrivateChat(std::string const& i_user, std::string const& i_chat, time_t i_time, bool i_spontaneous);
    void OnDownloadFinished(ItemPtr i_download);
    void OnUploadFinished(ItemPtr i_upload);
    void OnNotificationActivated(QString const& i_target);
    void OnShowHideRequested();

private:
    void SetUpTray();
    void SetUpNotificationOptions();
    void SetUpShortcuts();
    // Whether the user is looking at i_widget now: the window active and the widget shown.
    bool InView(QWidget* ip_widget) const;
    // A finished transfer of i_kind ("Download", "Upload"), told unless switched off or in view.
    void TellOfTransfer(char const* i_switch, QString const& i_kind, QString const& i_file, QString const& i_direction,
                        std::string const& i_user, QString const& i_target);
    void BringUp();

    MainWindow* mp_window;
    Server* mp_server;
    TrayIcon* mp_tray;
    DesktopNotifier* mp_notifier;
};
