#include <gtest/gtest.h>

#include <QAction>
#include <QFile>
#include <QTabWidget>
#include <QTimer>

#include "support/AppEnvironment.h"
#include "server/Server.h"
#include "shell/MainWindow.h"
#include "shell/TimerManager.h"
#include "store/Settings.h"
#include "ui_MainWindow.h"

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

TEST(MainWindow, FirstStartShowsTheShellAndTheNoUsernameHint)
{
    MainWindow* lp_window = AppEnvironment::Window();
    Ui::MainWindow* lp_ui = lp_window->Widgets();
    EXPECT_EQ(lp_window->windowTitle(), QStringLiteral("TidewickQt nightly build 9/3/2011"));
    EXPECT_EQ(lp_window->size(), QSize(1000, 600));
    EXPECT_EQ(TabTexts(lp_ui->mainTabWidget),
              (QStringList{u"Transfers"_s, u"Rooms"_s, u"Chat"_s, u"Search"_s, u"Users"_s, u"Shares"_s, u"Options"_s, u"Diagnostics"_s}));
    EXPECT_EQ(lp_ui->mainTabWidget->tabText(lp_ui->mainTabWidget->currentIndex()), QStringLiteral("Rooms"));
    EXPECT_EQ(TabTexts(lp_ui->optionsTabWidget), (QStringList{u"Login"_s, u"File Sharing"_s}));
    EXPECT_EQ(lp_ui->menuConnection->title(), QStringLiteral("Connection"));
    EXPECT_TRUE(lp_ui->actionConnect->isEnabled());
    EXPECT_FALSE(lp_ui->actionDisconnect->isEnabled());
    EXPECT_EQ(lp_ui->actionData->text(), QStringLiteral("&Data"));

    // No user name in a new home: the hint is shown, and nothing connects by itself.
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("No Username")), 1);
}

TEST(MainWindow, TimersRunAtTheirIntervals)
{
    AppEnvironment::Window();
    ASSERT_NE(timerManager, nullptr);
    EXPECT_EQ(timerManager->HalfMinuteTimer()->interval(), 30000);
    EXPECT_EQ(timerManager->FiveMinuteTimer()->interval(), 300000);
    EXPECT_EQ(timerManager->HourTimer()->interval(), 3600000);
    EXPECT_TRUE(timerManager->HalfMinuteTimer()->isActive());
    EXPECT_TRUE(timerManager->FiveMinuteTimer()->isActive());
    EXPECT_TRUE(timerManager->HourTimer()->isActive());
}

TEST(MainWindow, FiveMinuteSaveWritesTheDataFile)
{
    MainWindow* lp_window = AppEnvironment::Window();
    QString const l_file = AppEnvironment::Home() + QStringLiteral("/.Tidewick");
    QFile::remove(l_file);
    SetGlobal("download_folder", "/tmp/somewhere");
    lp_window->EveryFiveMinutes();
    QFile l_saved(l_file);
    ASSERT_TRUE(l_saved.open(QIODevice::ReadOnly));
    EXPECT_TRUE(l_saved.readAll().contains("/tmp/somewhere"));
}

TEST(MainWindow, ConnectionMenuFollowsTheServerAndOnlyAWrongPasswordIsShown)
{
    Ui::MainWindow* lp_ui = AppEnvironment::Window()->Widgets();
    CloseInformationBoxes(QString());
    emit gp_server->Connecting();
    EXPECT_FALSE(lp_ui->actionConnect->isEnabled());
    EXPECT_FALSE(lp_ui->actionDisconnect->isEnabled());
    emit gp_server->Connected();
    EXPECT_FALSE(lp_ui->actionConnect->isEnabled());
    EXPECT_TRUE(lp_ui->actionDisconnect->isEnabled());
    emit gp_server->Disconnected();
    EXPECT_TRUE(lp_ui->actionConnect->isEnabled());
    EXPECT_FALSE(lp_ui->actionDisconnect->isEnabled());

    emit gp_server->ConnectionFailed("socket error");
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Login Failure: Wrong Password")), 0);
    emit gp_server->ConnectionFailed("INVALIDPASS");
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Login Failure: Wrong Password")), 1);
}
