// The client under test is the window of this process, logged in to the real central server
// beside a real second client (bob) and a raw frame client (carol) that types where a third
// party must.
#include <gtest/gtest.h>

#include <QApplication>
#include <QFile>
#include <QLineEdit>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QToolBar>
#include <QToolButton>
#include <QTreeWidget>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "support/SavedGraph.h"
#include "shell/ActionSetToolBar.h"
#include "shell/MainWindow.h"
#include "shell/TimerManager.h"
#include "store/Data.h"
#include "ui_MainWindow.h"
#include "support/AppEnvironment.h"
#include "support/RawClient.h"
#include "support/WaitFor.h"

namespace
{
void Seed(QString const& i_file, std::string const& i_name, bool i_autojoin)
{
    SavedGraph l_seed;
    l_seed.Set("global", "username", i_name);
    l_seed.Set("global", "password", i_name + "-pw");
    l_seed.Set("global", "use_upnp", "no");
    l_seed.SetFreeListeningPort();
    if (i_autojoin)
        l_seed.AddAutojoinRoom("e2e-lobby");
    ASSERT_TRUE(l_seed.Save(i_file));
}

QTreeWidgetItem* Row(QTreeWidget* ip_tree, int i_column, QString const& i_text)
{
    QList<QTreeWidgetItem*> const l_rows = ip_tree->findItems(i_text, Qt::MatchExactly, i_column);
    return l_rows.isEmpty() ? nullptr : l_rows.front();
}

int EventButtons(MainWindow* ip_window)
{
    int l_buttons = 0;
    for (QToolBar* lp_bar : ip_window->findChildren<QToolBar*>())
        for (QToolButton* lp_button : lp_bar->findChildren<QToolButton*>())
            if (lp_button->isVisible() && lp_button->text() == QStringLiteral("carol"))
                ++l_buttons;
    return l_buttons;
}
} // namespace

TEST(RoomsAndChatEndToEnd, RoomListRoomChatAndPrivateMessages)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + QStringLiteral("/accounts"),
                                  {QStringLiteral("--country"), QStringLiteral("bob=US"), QStringLiteral("--shared-files"),
                                   QStringLiteral("bob=1234")});
    ASSERT_TRUE(l_server.Start());
    ClientProcess l_bob;
    Seed(l_bob.DataFile(), "bob", true);
    ASSERT_TRUE(l_bob.Start());
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("enter room bob e2e-lobby"), 20000)) << l_server.Log().toStdString();

    Seed(AppEnvironment::PrepareHome() + QStringLiteral("/.Tidewick"), "alice", false);
    MainWindow* lp_window = AppEnvironment::Window();
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("login alice from 127.0.0.1"), 20000));

    // The room list comes with the login; a double click on the name enters the room.
    auto* lp_rooms = lp_window->findChild<QTreeWidget*>(QStringLiteral("roomList"));
    ASSERT_NE(lp_rooms, nullptr);
    ASSERT_TRUE(WaitFor([&] { return Row(lp_rooms, 0, QStringLiteral("e2e-lobby")) != nullptr; }));
    QTreeWidgetItem* lp_lobby = Row(lp_rooms, 0, QStringLiteral("e2e-lobby"));
    EXPECT_EQ(lp_lobby->text(1), QStringLiteral("1"));
    emit lp_rooms->itemDoubleClicked(lp_lobby, 0);
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("enter room alice e2e-lobby")));

    // Bob shows with his flag and file count.
    auto* lp_roomTabs = lp_window->findChild<QTabWidget*>(QStringLiteral("roomTabWidget"));
    ASSERT_TRUE(WaitFor([&] { return lp_roomTabs->count() == 1; }));
    QWidget* lp_room = lp_roomTabs->widget(0);
    auto* lp_users = lp_room->findChild<QTreeWidget*>(QStringLiteral("userList"));
    ASSERT_TRUE(WaitFor([&] { return Row(lp_users, 2, QStringLiteral("bob")) != nullptr; }));
    QTreeWidgetItem* lp_bobRow = Row(lp_users, 2, QStringLiteral("bob"));
    EXPECT_FALSE(lp_bobRow->icon(1).isNull());
    EXPECT_EQ(lp_bobRow->text(3), QStringLiteral("1,234"));

    // A line with markup and a link reaches the room and comes back as text with a link.
    auto* lp_line = lp_room->findChild<QLineEdit*>(QStringLiteral("chatEdit"));
    lp_line->setText(QStringLiteral("<b>hi</b> http://example.com/x"));
    QTest::keyClick(lp_line, Qt::Key_Return);
    EXPECT_TRUE(l_server.WaitForLine(QStringLiteral("room chat alice e2e-lobby to alice, bob")));
    auto* lp_view = lp_room->findChild<QTextBrowser*>(QStringLiteral("chatView"));
    ASSERT_TRUE(WaitFor([&] { return lp_view->toPlainText().contains(QStringLiteral("[alice] <b>hi</b>")); }))
        << lp_view->toPlainText().toStdString();
    EXPECT_TRUE(lp_view->toHtml().contains(QStringLiteral("href=\"http://example.com/x\"")));

    // Carol writes privately: one tab and one event button for her two lines; alice's client
    // acknowledges both.
    auto* lp_chats = lp_window->findChild<QTabWidget*>(QStringLiteral("chatTabControl"));
    ASSERT_NE(lp_chats, nullptr);
    RawClient l_carol(2242);
    ASSERT_EQ(l_carol.Login("carol", "carol-pw"), std::optional<bool>(true));
    l_carol.Send(Body(22).Str("alice").Str("hello alice"));
    l_carol.Send(Body(22).Str("alice").Str("are you there?"));
    ASSERT_TRUE(WaitFor([&] { return l_server.CountLines(QStringLiteral("private message acknowledged alice")) == 2; }))
        << l_server.Log().toStdString();
    ASSERT_TRUE(WaitFor([&] { return lp_chats->count() == 1; }));
    EXPECT_EQ(EventButtons(lp_window), 1);

    // A double click on bob in the room opens a chat with him; bob's client acknowledges
    // the line alice writes there.
    emit lp_users->itemActivated(lp_bobRow, 2);
    ASSERT_TRUE(WaitFor([&] { return lp_chats->count() == 2; }));
    auto* lp_bobLine = lp_chats->currentWidget()->findChild<QLineEdit*>(QStringLiteral("chatEdit"));
    lp_bobLine->setText(QStringLiteral("hello bob"));
    QTest::keyClick(lp_bobLine, Qt::Key_Return);
    EXPECT_TRUE(l_server.WaitForLine(QStringLiteral("private message acknowledged bob"))) << l_server.Log().toStdString();

    // Carol's event button brings her form up, and seeing it takes the button away.
    QToolButton* lp_carolButton = nullptr;
    for (QToolButton* lp_button : lp_window->findChildren<QToolButton*>())
        if (lp_button->isVisible() && lp_button->text() == QStringLiteral("carol"))
            lp_carolButton = lp_button;
    ASSERT_NE(lp_carolButton, nullptr);
    lp_carolButton->click();
    ASSERT_TRUE(WaitFor([&] { return EventButtons(lp_window) == 0; }));
    EXPECT_EQ(lp_chats->tabText(lp_chats->currentIndex()), QStringLiteral("carol"));

    // A line to carol while she is away is kept, and her own client acknowledges it when it
    // starts.
    l_carol.Close();
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("logout carol")));
    auto* lp_carolLine = lp_chats->currentWidget()->findChild<QLineEdit*>(QStringLiteral("chatEdit"));
    lp_carolLine->setText(QStringLiteral("see you later"));
    QTest::keyClick(lp_carolLine, Qt::Key_Return);
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("private message alice -> carol kept")));
    ClientProcess l_carolClient;
    Seed(l_carolClient.DataFile(), "carol", false);
    ASSERT_TRUE(l_carolClient.Start());
    EXPECT_TRUE(l_server.WaitForLine(QStringLiteral("private message acknowledged carol"), 20000)) << l_server.Log().toStdString();

    // Bob's leaving takes his row away, and his coming back brings it again.
    ASSERT_TRUE(l_bob.Terminate()) << l_bob.Output().toStdString();
    EXPECT_EQ(l_bob.ExitCode(), 0);
    EXPECT_TRUE(WaitFor([&] { return Row(lp_users, 2, QStringLiteral("bob")) == nullptr; }));
    ASSERT_TRUE(l_bob.Start());
    EXPECT_TRUE(WaitFor([&] { return Row(lp_users, 2, QStringLiteral("bob")) != nullptr; }, 20000));

    // The server goes away and comes back: the room says so, keeps its one tab and is entered
    // again; the real clients come back by their own timers.
    ASSERT_TRUE(l_server.Stop());
    ASSERT_TRUE(WaitFor([&] { return lp_view->toPlainText().endsWith(QStringLiteral("* Disconnected.")); }))
        << lp_view->toPlainText().toStdString();
    ASSERT_TRUE(l_server.Start());
    QMetaObject::invokeMethod(timerManager->HalfMinuteTimer(), "timeout");
    EXPECT_TRUE(WaitFor([&] { return lp_view->toPlainText().endsWith(QStringLiteral("* Reconnected.")); }, 10000));
    EXPECT_TRUE(l_server.WaitForLine(QStringLiteral("enter room alice e2e-lobby")));
    EXPECT_EQ(lp_roomTabs->count(), 1);
    EXPECT_TRUE(l_server.WaitForLine(QStringLiteral("enter room bob e2e-lobby"), 40000)) << l_server.Log().toStdString();
    EXPECT_TRUE(WaitFor([&] { return Row(lp_users, 2, QStringLiteral("bob")) != nullptr; }, 10000));

    // Auto-join marked in the window is saved, and a client started with that file enters the
    // room at its login; unmarked, the room is gone from the file.
    QString const l_saved = AppEnvironment::Home() + QStringLiteral("/autojoin-saved");
    auto l_saveAndRead = [&] {
        dataSaver->Save(&d, l_saved.toLocal8Bit().constData());
        SavedGraph l_graph;
        l_graph.Load(l_saved);
        return l_graph.IsAutojoinRoom("e2e-lobby");
    };
    lp_window->show();
    QApplication::setActiveWindow(lp_window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(lp_window));
    lp_window->Widgets()->mainTabWidget->setCurrentWidget(lp_window->Widgets()->roomsTab);
    lp_room->setFocus();
    QApplication::processEvents();
    ASSERT_EQ(actionBar->actions().value(1)->text(), QStringLiteral("Auto-Join Room [off]"));
    actionBar->actions().value(1)->trigger();
    EXPECT_TRUE(l_saveAndRead());
    ClientProcess l_second;
    SavedGraph l_copy; // alice's file, with a port of its own, as this process listens on hers
    l_copy.Load(l_saved);
    l_copy.SetFreeListeningPort();
    ASSERT_TRUE(l_copy.Save(l_second.DataFile()));
    ASSERT_TRUE(l_second.Start());
    EXPECT_TRUE(WaitFor([&] { return l_server.CountLines(QStringLiteral("enter room alice e2e-lobby")) == 2; }, 20000))
        << l_server.Log().toStdString();
    ASSERT_TRUE(l_second.Terminate());
    actionBar->actions().value(1)->trigger();
    EXPECT_FALSE(l_saveAndRead());

    for (ClientProcess* lp_client : {&l_bob, &l_carolClient})
    {
        ASSERT_TRUE(lp_client->Terminate()) << lp_client->Output().toStdString();
        EXPECT_EQ(lp_client->ExitCode(), 0);
    }
}
