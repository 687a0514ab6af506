#include "shell/DesktopIntegration.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QShortcut>
#include <QTabWidget>

#include "forms/ChatForm.h"
#include "forms/SearchForm.h"
#include "forms/TransfersForm.h"
#include "server/Server.h"
#include "shell/DesktopNotifier.h"
#include "shell/EventToolBar.h"
#include "shell/MainWindow.h"
#include "shell/TrayIcon.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "transfers/TransferQueueManager.h"
#include "ui_MainWindow.h"

namespace
{
// Notification texts carry a peer's words: the service may read markup, and a screenful of it
// helps nobody.
QString NotificationText(std::string const& i_text)
{
    constexpr int c_maxLength = 300;
    QString l_text = QString::fromStdString(i_text);
    if (l_text.size() > c_maxLength)
        l_text = l_text.left(c_maxLength) + QChar(0x2026);
    return l_text.toHtmlEscaped();
}

// The last part of a path as peers write it, with either separator.
QString FileNameOf(std::string const& i_path)
{
    QString const l_path = QString::fromStdString(i_path);
    return l_path.mid(qMax(l_path.lastIndexOf(u'\\'), l_path.lastIndexOf(u'/')) + 1);
}

// Each decision is logged, so that a missing notification can be told from a lost one.
void LogDecision(QString const& i_what, char const* i_outcome)
{
    Log(QStringLiteral("Notifications"), 1, i_what + QLatin1String(": ") + QLatin1String(i_outcome));
}

QString const g_chatTarget = QStringLiteral("chat:");
QString const g_downloadsTarget = QStringLiteral("downloads");
QString const g_uploadsTarget = QStringLiteral("uploads");
} // namespace

DesktopIntegration::DesktopIntegration(MainWindow* ip_window, Server* ip_server)
    : QObject(ip_window), mp_window(ip_window), mp_server(ip_server), mp_tray(nullptr),
      mp_notifier(new DesktopNotifier(this))
{
    SetUpTray();
    SetUpNotificationOptions();
    SetUpShortcuts();
    connect(mp_notifier, &DesktopNotifier::Activated, this, &DesktopIntegration::OnNotificationActivated);
    connect(mp_server, &Server::PrivateChat, this, &DesktopIntegration::OnPrivateChat);
    connect(transferQueueManager, &TransferQueueManager::DownloadFinished, this, &DesktopIntegration::OnDownloadFinished);
    connect(transferQueueManager, &TransferQueueManager::UploadFinished, this, &DesktopIntegration::OnUploadFinished);
}

DesktopIntegration::~DesktopIntegration() = default;

void DesktopIntegration::SetUpTray()
{
    mp_tray = new TrayIcon(this);
    mp_tray->ShowIfTrayAvailable();
    connect(mp_server, &Server::Connecting, mp_tray, [this] { mp_tray->SetOnline(false, true); });
    connect(mp_server, &Server::Connected, mp_tray, [this] { mp_tray->SetOnline(true, false); });
    connect(mp_server, &Server::Disconnected, mp_tray, [this] { mp_tray->SetOnline(false, false); });
    if (eventToolBar)
        connect(eventToolBar, &EventToolBar::EventCountChanged, mp_tray, &TrayIcon::SetUnseenCount);
    connect(mp_tray, &TrayIcon::ShowHideRequested, this, &DesktopIntegration::OnShowHideRequested);
    connect(mp_tray, &TrayIcon::ConnectRequested, mp_server, &Server::Connect);
    connect(mp_tray, &TrayIcon::DisconnectRequested, mp_server, &Server::Disconnect);
    connect(mp_tray, &TrayIcon::QuitRequested, mp_window, &MainWindow::Quit);
}

void DesktopIntegration::SetUpNotificationOptions()
{
    SetGlobalIfUnset(s_notifyPrivateMessages, Value("yes"));
    SetGlobalIfUnset(s_notifyDownloads, Value("yes"));
    SetGlobalIfUnset(s_notifyUploads, Value("no"));
    Ui::MainWindow* lp_ui = mp_window->Widgets();
    for (auto [lp_box, lp_key] : {std::pair{lp_ui->notifyPrivateMessageCheckBox, s_notifyPrivateMessages},
                                  {lp_ui->notifyDownloadCheckBox, s_notifyDownloads},
                                  {lp_ui->notifyUploadCheckBox, s_notifyUploads}})
    {
        lp_box->setChecked(GetGlobal(lp_key) == "yes");
        connect(lp_box, &QCheckBox::toggled, this, [lp_key](bool i_on) { SetGlobal(lp_key, i_on ? "yes" : "no"); });
    }
}

void DesktopIntegration::SetUpShortcuts()
{
    QTabWidget* lp_tabs = mp_window->Widgets()->mainTabWidget;
    for (int l_index = 0; l_index < qMin(lp_tabs->count(), 9); ++l_index)
    {
        auto* lp_shortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + l_index)), mp_window);
        connect(lp_shortcut, &QShortcut::activated, lp_tabs, [lp_tabs, l_index] { lp_tabs->setCurrentIndex(l_index); });
    }
    // Ctrl+Tab moves through the pages wherever the focus is, inner tab bars included.
    auto l_step = [lp_tabs](int i_step) { lp_tabs->setCurrentIndex((lp_tabs->currentIndex() + i_step + lp_tabs->count()) % lp_tabs->count()); };
    for (auto [l_keys, l_step_by] : {std::pair{QKeySequence(Qt::CTRL | Qt::Key_Tab), 1},
                                     {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Backtab), -1},
                                     {QKeySequence(Qt::CTRL | Qt::Key_Backtab), -1}})
    {
        auto* lp_shortcut = new QShortcut(l_keys, mp_window);
        connect(lp_shortcut, &QShortcut::activated, lp_tabs, [l_step, l_step_by] { l_step(l_step_by); });
    }
    // The Search page has a Ctrl+F of its own, which also finds among results.
    auto* lp_find = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_F), mp_window);
    auto l_enableFind = [this, lp_tabs, lp_find] { lp_find->setEnabled(lp_tabs->currentWidget() != mp_window->Widgets()->searchTab); };
    connect(lp_tabs, &QTabWidget::currentChanged, lp_find, l_enableFind);
    l_enableFind();
    connect(lp_find, &QShortcut::activated, this,
            [this, lp_tabs]
            {
                lp_tabs->setCurrentWidget(mp_window->Widgets()->searchTab);
                if (auto* lp_edit = mp_window->Search()->findChild<QLineEdit*>(QStringLiteral("searchEdit")))
                {
                    lp_edit->setFocus(Qt::ShortcutFocusReason);
                    lp_edit->selectAll();
                }
            });
}

bool DesktopIntegration::HideToTray()
{
    // A tray that came up after the start counts too.
    if (!mp_tray->IsShown() && !mp_tray->ShowIfTrayAvailable())
        return false;
    mp_window->hide();
    mp_tray->SetWindowShown(false);
    if (GetGlobal(s_trayHintShown) != "yes")
    {
        SetGlobal(s_trayHintShown, "yes");
        mp_tray->ShowHint(QStringLiteral("Tidewick is still running"),
                          QStringLiteral("Closing the window keeps Tidewick online in the tray. Choose Quit in the tray "
                                         "icon's menu to end it."));
    }
    return true;
}

bool DesktopIntegration::InView(QWidget* ip_widget) const
{
    return ip_widget && mp_window->isActiveWindow() && ip_widget->isVisible();
}

void DesktopIntegration::OnPrivateChat(std::string const& i_user, std::string const& i_chat, time_t, bool)
{
    if (i_user.empty())
        return;
    QString const l_what = QStringLiteral("Private message from %1").arg(QString::fromStdString(i_user));
    if (GetGlobal(s_notifyPrivateMessages) != "yes")
        return LogDecision(l_what, "not shown, switched off");
    if (InView(mp_window->GetChatForm(i_user)))
        return LogDecision(l_what, "not shown, its chat is in view");
    LogDecision(l_what, "shown");
    mp_notifier->Notify(QStringLiteral("Private message from %1").arg(NotificationText(i_user)), NotificationText(i_chat),
                        g_chatTarget + QString::fromStdString(i_user));
}

void DesktopIntegration::OnDownloadFinished(ItemPtr i_download)
{
    QString const l_file = QString::fromStdString(i_download["file_name"].AsString());
    TellOfTransfer(s_notifyDownloads, QStringLiteral("Download"), l_file, QStringLiteral("from"), i_download["user"].AsString(),
                   g_downloadsTarget);
}

void DesktopIntegration::OnUploadFinished(ItemPtr i_upload)
{
    QString const l_file = FileNameOf(i_upload["filename_as_requested"].AsString());
    TellOfTransfer(s_notifyUploads, QStringLiteral("Upload"), l_file, QStringLiteral("to"), i_upload["user"].AsString(),
                   g_uploadsTarget);
}

void DesktopIntegration::TellOfTransfer(char const* i_switch, QString const& i_kind, QString const& i_file,
                                        QString const& i_direction, std::string const& i_user, QString const& i_target)
{
    QString const l_what = QStringLiteral("%1 of %2 finished").arg(i_kind, i_file);
    if (GetGlobal(i_switch) != "yes")
        return LogDecision(l_what, "not shown, switched off");
    if (InView(mp_window->Transfers()))
        return LogDecision(l_what, "not shown, the transfers are in view");
    LogDecision(l_what, "shown");
    mp_notifier->Notify(QStringLiteral("%1 finished").arg(i_kind),
                        QStringLiteral("%1 %2 %3").arg(NotificationText(i_file.toStdString()), i_direction, NotificationText(i_user)),
                        i_target);
}

void DesktopIntegration::OnNotificationActivated(QString const& i_target)
{
    Log(QStringLiteral("Notifications"), 1, QStringLiteral("Clicked: showing %1").arg(i_target));
    BringUp();
    Ui::MainWindow* lp_ui = mp_window->Widgets();
    if (i_target.startsWith(g_chatTarget))
        mp_window->OpenChatForm(i_target.mid(g_chatTarget.size()).toStdString());
    else if (i_target == g_downloadsTarget || i_target == g_uploadsTarget)
    {
        lp_ui->mainTabWidget->setCurrentWidget(lp_ui->transfersTab);
        if (auto* lp_tabs = mp_window->Transfers()->findChild<QTabWidget*>(QStringLiteral("transfersTabControl")))
            lp_tabs->setCurrentIndex(i_target == g_downloadsTarget ? 0 : 1);
    }
}

void DesktopIntegration::OnShowHideRequested()
{
    if (mp_window->isVisible() && !mp_window->isMinimized())
    {
        mp_window->hide();
        mp_tray->SetWindowShown(false);
    }
    else
        BringUp();
}

void DesktopIntegration::BringUp()
{
    if (mp_window->isMinimized())
        mp_window->showNormal();
    else
        mp_window->show();
    mp_window->raise();
    mp_window->activateWindow();
    mp_tray->SetWindowShown(true);
}
