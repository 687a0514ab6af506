// The window as a desktop application: pages reached from the keyboard, the notification
// switches on the Options page, and the tray's state following the connection and unseen chats.
#include "AppTest.h"
#include "forms/SearchForm.h"
#include "shell/DesktopIntegration.h"
#include "shell/DiagnosticsForm.h"
#include "shell/TrayIcon.h"
#include "store/Data.h"
#include "transfers/TransferQueueManager.h"

using namespace Qt::StringLiterals;

namespace
{
MainWindow* ActiveWindow()
{
    MainWindow* lp_window = AppEnvironment::Window();
    lp_window->activateWindow();
    QApplication::setActiveWindow(lp_window);
    EXPECT_TRUE(QTest::qWaitForWindowActive(lp_window));
    return lp_window;
}

TrayIcon* Tray(MainWindow* ip_window)
{
    return ip_window->findChild<DesktopIntegration*>()->Tray();
}
} // namespace

TEST(Desktop, EveryPageIsReachedFromTheKeyboard)
{
    MainWindow* lp_window = ActiveWindow();
    QTabWidget* lp_tabs = lp_window->Widgets()->mainTabWidget;
    ASSERT_EQ(lp_tabs->count(), 8);
    for (int l_page = 8; l_page >= 1; --l_page)
    {
        QTest::keyClick(lp_window, Qt::Key(Qt::Key_0 + l_page), Qt::ControlModifier);
        EXPECT_EQ(lp_tabs->currentIndex(), l_page - 1) << l_page;
    }
    // Ctrl+Tab goes on from any page, around the end, and from within a page's own tabs.
    lp_tabs->setCurrentIndex(7);
    QTest::keyClick(lp_window, Qt::Key_Tab, Qt::ControlModifier);
    EXPECT_EQ(lp_tabs->currentIndex(), 0);
    lp_window->Widgets()->optionsTabWidget->setCurrentIndex(0);
    lp_tabs->setCurrentWidget(lp_window->Widgets()->optionsTab);
    lp_window->Widgets()->uPnPCheckBox->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab, Qt::ControlModifier);
    EXPECT_EQ(lp_tabs->currentWidget(), lp_window->Widgets()->diagnosticsTab);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(lp_tabs->currentWidget(), lp_window->Widgets()->optionsTab);
    EXPECT_EQ(lp_window->Widgets()->optionsTabWidget->currentIndex(), 0);

    // Ctrl+F from any page is a search of the network.
    lp_tabs->setCurrentWidget(lp_window->Widgets()->roomsTab);
    lp_window->Search()->SearchEdit()->setText(u"old words"_s);
    QTest::keyClick(lp_window, Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(lp_tabs->currentWidget(), lp_window->Widgets()->searchTab);
    EXPECT_EQ(QApplication::focusWidget(), lp_window->Search()->SearchEdit());
    EXPECT_EQ(lp_window->Search()->SearchEdit()->selectedText(), u"old words"_s);
}

TEST(Desktop, NotificationSwitchesStartAsUsersWantThemAndAreSaved)
{
    Ui::MainWindow* lp_ui = AppEnvironment::Window()->Widgets();
    EXPECT_TRUE(lp_ui->notifyPrivateMessageCheckBox->isChecked());
    EXPECT_TRUE(lp_ui->notifyDownloadCheckBox->isChecked());
    EXPECT_FALSE(lp_ui->notifyUploadCheckBox->isChecked());
    lp_ui->notifyPrivateMessageCheckBox->click();
    lp_ui->notifyUploadCheckBox->click();
    EXPECT_EQ(GetGlobal(DesktopIntegration::s_notifyPrivateMessages), "no");
    EXPECT_EQ(GetGlobal(DesktopIntegration::s_notifyDownloads), "yes");
    EXPECT_EQ(GetGlobal(DesktopIntegration::s_notifyUploads), "yes");
}

TEST(Desktop, TheTrayFollowsTheConnectionAndUnseenChats)
{
    MainWindow* lp_window = AppEnvironment::Window();
    TrayIcon* lp_tray = Tray(lp_window);
    QMenu* lp_menu = lp_tray->Menu();
    auto l_action = [lp_menu](QString const& i_text) {
        for (QAction* lp_action : lp_menu->actions())
            if (lp_action->text() == i_text)
                return lp_action;
        return static_cast<QAction*>(nullptr);
    };
    ASSERT_TRUE(l_action(u"Connect"_s) && l_action(u"Disconnect"_s) && l_action(u"Quit"_s) && l_action(u"Hide"_s));
    EXPECT_EQ(lp_tray->ToolTip(), u"Tidewick: offline"_s);
    emit gp_server->Connecting();
    EXPECT_FALSE(l_action(u"Connect"_s)->isEnabled());
    emit gp_server->Connected();
    EXPECT_TRUE(l_action(u"Disconnect"_s)->isEnabled());
    EXPECT_EQ(lp_tray->ToolTip(), u"Tidewick: online"_s);

    // A message in a chat that is not in view waits unseen until its chat is shown.
    lp_window->Widgets()->mainTabWidget->setCurrentWidget(lp_window->Widgets()->roomsTab);
    emit gp_server->PrivateChat("ann", "are you there?", 0, true);
    EXPECT_EQ(lp_tray->ToolTip(), u"Tidewick: online, 1 conversation unseen"_s);
    emit gp_server->PrivateChat("bob", "hello", 0, true);
    EXPECT_EQ(lp_tray->ToolTip(), u"Tidewick: online, 2 conversations unseen"_s);
    lp_window->OpenChatForm("ann");
    lp_window->OpenChatForm("bob");
    QApplication::processEvents();
    EXPECT_EQ(lp_tray->ToolTip(), u"Tidewick: online"_s);
    emit gp_server->Disconnected();
    EXPECT_TRUE(l_action(u"Connect"_s)->isEnabled());
    EXPECT_FALSE(l_action(u"Disconnect"_s)->isEnabled());
}

namespace
{
// The newest line of the Diagnostics page "Notifications".
QString LastDecision()
{
    diagnosticsForm->FlushPendingLines();
    auto* lp_view = qobject_cast<QPlainTextEdit*>(d.GetType("log")->HasItem("Notifications")["log_widget"].AsPointer<QObject>());
    return lp_view ? lp_view->toPlainText().split(QLatin1Char('\n')).last().section(QLatin1String("] "), 1) : QString();
}
} // namespace

TEST(Desktop, FinishedTransfersAreToldUnlessSwitchedOffOrInView)
{
    MainWindow* lp_window = ActiveWindow();
    Ui::MainWindow* lp_ui = lp_window->Widgets();
    transferQueueManager->AddDownload("ann", "tide song.mp3", "music", 5);
    ItemPtr const l_download = transferQueueManager->GetDownloadEntry("ann", "tide song.mp3", "music");
    ASSERT_TRUE(l_download);

    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->roomsTab);
    emit transferQueueManager->DownloadFinished(l_download);
    EXPECT_EQ(LastDecision(), u"Download of tide song.mp3 finished: shown"_s);
    lp_ui->notifyDownloadCheckBox->setChecked(false);
    emit transferQueueManager->DownloadFinished(l_download);
    EXPECT_EQ(LastDecision(), u"Download of tide song.mp3 finished: not shown, switched off"_s);
    lp_ui->notifyDownloadCheckBox->setChecked(true);
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->transfersTab);
    emit transferQueueManager->DownloadFinished(l_download);
    EXPECT_EQ(LastDecision(), u"Download of tide song.mp3 finished: not shown, the transfers are in view"_s);
    transferQueueManager->RemoveDownload(l_download);
}
