#include <fstream>
#include <iterator>

#include "AppTest.h"
#include "forms/WelcomeDialog.h"
#include "shell/ActionSetToolBar.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "support/WaitFor.h"
#include "transfers/TransferQueueManager.h"

using namespace Qt::StringLiterals;

namespace
{
QStringList TabTexts(QTabWidget* ip_tabs)
{
    QStringList l_texts;
    for (int l_n = 0; l_n < ip_tabs->count(); ++l_n)
        l_texts << ip_tabs->tabText(l_n);
    return l_texts;
}
} // namespace

TEST(MainWindow, FirstStartShowsTheShellAndTheNoUsernameHintAndTheMenuFollowsTheServer)
{
    MainWindow* lp_window = AppEnvironment::Window();
    Ui::MainWindow* lp_ui = lp_window->Widgets();
    EXPECT_EQ(lp_window->windowTitle(), QStringLiteral("TidewickQt nightly build 9/3/2011"));
    EXPECT_EQ(lp_window->size(), QSize(1000, 600));
    EXPECT_EQ(TabTexts(lp_ui->mainTabWidget),
              (QStringList{u"Transfers"_s, u"Rooms"_s, u"Chat"_s, u"Search"_s, u"Users"_s, u"Shares"_s, u"Options"_s, u"Diagnostics"_s}));
    EXPECT_EQ(lp_ui->mainTabWidget->tabText(lp_ui->mainTabWidget->currentIndex()), QStringLiteral("Rooms"));
    EXPECT_EQ(TabTexts(lp_ui->optionsTabWidget), (QStringList{u"Login"_s, u"File Sharing"_s, u"Notifications"_s}));
    EXPECT_EQ(lp_ui->menuConnection->title(), QStringLiteral("Connection"));
    EXPECT_TRUE(lp_ui->actionConnect->isEnabled());
    EXPECT_FALSE(lp_ui->actionDisconnect->isEnabled());
    EXPECT_EQ(lp_ui->actionData->text(), QStringLiteral("&Data"));

    // No user name in a new home: the welcome dialog asks for one, nothing connects by itself,
    // and dismissing the dialog leaves the hint of where to set it later.
    auto* lp_welcome = lp_window->findChild<WelcomeDialog*>();
    ASSERT_NE(lp_welcome, nullptr);
    EXPECT_TRUE(lp_welcome->isVisible());
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("No Username")), 0);
    lp_welcome->reject();
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("No Username")), 1);
    EXPECT_EQ(gp_server->GetState(), Server::StateDisconnected);

    ASSERT_NE(timerManager, nullptr);
    for (auto [lp_timer, l_interval] :
         {std::pair{timerManager->HalfMinuteTimer(), 30000}, {timerManager->FiveMinuteTimer(), 300000}, {timerManager->HourTimer(), 3600000}})
        EXPECT_TRUE(lp_timer->isActive() && lp_timer->interval() == l_interval) << l_interval;
    EXPECT_TRUE(timerManager->SaveTimer()->isActive());

    // The connection menu follows the server's state; of the failures only a wrong password is shown.
    for (auto [lp_signal, l_connect, l_disconnect] :
         {std::tuple{&Server::Connecting, false, false}, {&Server::Connected, false, true}, {&Server::Disconnected, true, false}})
    {
        emit(gp_server->*lp_signal)();
        EXPECT_EQ(std::pair(lp_ui->actionConnect->isEnabled(), lp_ui->actionDisconnect->isEnabled()), std::pair(l_connect, l_disconnect));
    }
    emit gp_server->ConnectionFailed("socket error");
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Login Failure: Wrong Password")), 0);
    emit gp_server->ConnectionFailed("INVALIDPASS");
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Login Failure: Wrong Password")), 1);
}

TEST(MainWindow, PeriodicSaveWritesTheDataFile)
{
    MainWindow* lp_window = AppEnvironment::Window();
    QString const l_file = AppEnvironment::Home() + QStringLiteral("/.Tidewick");
    QFile::remove(l_file);
    SetGlobal("download_folder", "/tmp/somewhere");
    lp_window->OnSaveTimer();
    EXPECT_TRUE(dataSaver->WaitForBackgroundSave());
    QFile l_saved(l_file);
    ASSERT_TRUE(l_saved.open(QIODevice::ReadOnly));
    EXPECT_TRUE(l_saved.readAll().contains("/tmp/somewhere"));
    // Nothing saved has changed since: the next period writes nothing.
    QFile::remove(l_file);
    lp_window->OnSaveTimer();
    dataSaver->WaitForBackgroundSave();
    EXPECT_FALSE(QFile::exists(l_file));
    // The save timer is what calls it.
    SetGlobal("download_folder", "/tmp/elsewhere");
    timerManager->SaveTimer()->start(10);
    EXPECT_TRUE(WaitFor([&] { return QFile::exists(l_file); }));
    EXPECT_TRUE(dataSaver->WaitForBackgroundSave());
    QFile l_timed(l_file);
    ASSERT_TRUE(l_timed.open(QIODevice::ReadOnly));
    EXPECT_TRUE(l_timed.readAll().contains("/tmp/elsewhere"));
}

TEST(MainWindow, ThePeriodicSaveSweepsWhatNothingHoldsAndKeepsTheRest)
{
    MainWindow* lp_window = AppEnvironment::Window();
    SetGlobal("download_folder", "/tmp/kept");
    // Each download takes the next number of the order; a removed one leaves its number behind.
    std::vector<std::string> l_orders;
    for (char const* lp_name : {"one.bin", "two.bin"})
    {
        transferQueueManager->AddDownload("ann", lp_name, "srv\\music", 5);
        ItemPtr const l_entry = transferQueueManager->GetDownloadEntry("ann", lp_name, "srv\\music");
        ASSERT_TRUE(l_entry.HasItem("download_order"));
        l_orders.push_back(l_entry.HasItem("download_order").AsString());
    }
    transferQueueManager->RemoveDownload(transferQueueManager->GetDownloadEntry("ann", "one.bin", "srv\\music"));

    lp_window->OnSaveTimer();
    dataSaver->WaitForBackgroundSave();
    Type* lp_orders = d.GetType("download_order");
    EXPECT_EQ(std::pair(bool(lp_orders->HasItem(l_orders[0])), bool(lp_orders->HasItem(l_orders[1]))), std::pair(false, true));
    EXPECT_EQ(GetGlobal("download_folder"), "/tmp/kept");
    transferQueueManager->RemoveDownload(transferQueueManager->GetDownloadEntry("ann", "two.bin", "srv\\music"));
}

TEST(MainWindow, ADamagedDataFileIsKeptAsItWasAndTheUserIsTold)
{
    // One type record promised, and the file ends inside its name.
    std::string const l_bytes("\x01\0\0\0\x06\0\0\0glo", 11);
    std::string const l_file = AppEnvironment::PrepareHome().toStdString() + "/.Tidewick";
    std::ofstream(l_file, std::ios::binary) << l_bytes;

    AppEnvironment::Window();
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Damaged Data File")), 1);
    std::string const l_copy = dataSaver->DamagedCopy();
    ASSERT_EQ(l_copy.rfind(l_file + ".damaged-", 0), 0u) << l_copy;
    std::ifstream l_in(l_copy, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(l_in), {}), l_bytes);
}

TEST(MainWindow, EveryControlIsEnabledWithoutAReasonToWait)
{
    MainWindow* lp_window = AppEnvironment::Window();
    Ui::MainWindow* lp_ui = lp_window->Widgets();
    CloseInformationBoxes(QString());
    EXPECT_TRUE(lp_ui->actionData->isEnabled());
    EXPECT_EQ(lp_ui->actionData->toolTip(), u"Data"_s);
    EXPECT_TRUE(lp_ui->menuConnection->toolTipsVisible());

    QApplication::setActiveWindow(lp_window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(lp_window));
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->optionsTab);
    lp_ui->optionsTabWidget->setCurrentWidget(lp_ui->fileSharingOptionsTab);
    QApplication::processEvents();
    // Choosing the File Sharing tab puts the focus in the folder list, which brings up its actions.
    EXPECT_EQ(QApplication::focusWidget(), lp_ui->sharedFoldersList);
    QStringList l_enabled, l_disabled;
    for (QAction* lp_action : actionBar->actions())
        (lp_action->isEnabled() ? l_enabled : l_disabled) << lp_action->text();
    EXPECT_EQ(l_enabled, (QStringList{u"Set Download Folder"_s, u"Share Folder"_s, u"Unshare Folder"_s, u"Rescan Shares"_s}));
    EXPECT_TRUE(l_disabled.isEmpty());

    // The UPnP box acts and shows the saved value; the test window keeps it off, so that no
    // gateway is looked for on this machine's network.
    QCheckBox* lp_upnp = lp_ui->uPnPCheckBox;
    EXPECT_TRUE(lp_upnp->isEnabled());
    EXPECT_EQ(GetGlobal("use_upnp"), "no");
    EXPECT_FALSE(lp_upnp->isChecked());
}
