#include "FormsFixture.h"
#include "forms/QRoomUserListItemWidget.h"
#include "forms/ChatLine.h"
#include "forms/RoomForm.h"
#include "store/DataSaver.h"

namespace
{
struct Member
{
    QByteArray m_name;
    quint32 m_speed = 0;
    quint32 m_files = 0;
    QByteArray m_country;
};

// Message 14 as the central server sends it, without owner.
Body Entered(QByteArray const& i_room, QList<Member> const& i_members)
{
    Body l_body(14);
    l_body.Str(i_room);
    QList<QByteArray> l_names, l_countries;
    for (Member const& l_member : i_members)
        l_names << l_member.m_name, l_countries << l_member.m_country;
    l_body.Strs(l_names).U32(0).U32(static_cast<quint32>(i_members.size()));
    for (Member const& l_member : i_members)
        l_body.Stats(l_member.m_speed, l_member.m_files);
    return l_body.U32(0).Strs(l_countries);
}

// The first of the three groups of a room list; the other two empty.
Body RoomList(QList<QByteArray> const& i_names, QList<quint32> const& i_counts)
{
    Body l_body(64);
    l_body.Strs(i_names).U32(static_cast<quint32>(i_counts.size()));
    for (quint32 l_count : i_counts)
        l_body.U32(l_count);
    return l_body.U32(0).U32(0).U32(0).U32(0).U32(0).U32(0);
}

// The column's texts from top to bottom, joined by "|".
std::string Column(QTreeWidget* ip_tree, int i_column)
{
    QStringList l_texts;
    for (int l_row = 0; l_row < ip_tree->topLevelItemCount(); ++l_row)
        l_texts << ip_tree->topLevelItem(l_row)->text(i_column);
    return l_texts.join(QLatin1Char('|')).toStdString();
}

QTreeWidget* Users(RoomForm* ip_form) { return Child<QTreeWidget>(ip_form, "userList"); }

class RoomsTest : public FormsTest
{
protected:
    QTabWidget* Tabs() { return mp_window->Widgets()->roomTabWidget; }
    QTreeWidget* Rooms() { return mp_window->Widgets()->roomList; }
    RoomForm* Form(char const* i_room)
    {
        for (int l_tab = 0; l_tab < Tabs()->count(); ++l_tab)
            if (auto* lp_form = qobject_cast<RoomForm*>(Tabs()->widget(l_tab)); lp_form && lp_form->Room() == i_room)
                return lp_form;
        return nullptr;
    }
    RoomForm* Enter(char const* i_room, QList<Member> const& i_members = {})
    {
        mp_central->Send(Entered(i_room, i_members));
        WaitFor([&] { return Form(i_room) && Users(Form(i_room))->topLevelItemCount() == i_members.size(); });
        return Form(i_room);
    }
    // The room's form as the graph alone makes it, without a server.
    RoomForm* EnterByGraph(char const* i_room)
    {
        d.GetType("room")->GetItem(i_room)->NewItem("in_room");
        return Form(i_room);
    }
    static QString ToolBarText(int i_button) { return actionBar->actions().value(i_button)->text(); }
    // Brings the room's tab to the front; the text its auto-join button then shows.
    QString Front(RoomForm* ip_form)
    {
        Tabs()->setCurrentWidget(ip_form);
        QApplication::processEvents();
        return ToolBarText(1);
    }
};
} // namespace

TEST_F(RoomsTest, RoomListKeepsFirstCountsSortsAndEntersByColumn)
{
    LogIn();
    mp_central->Send(RoomList({"beta", "Alpha", "gamma"}, {9, 10, 3}));
    ASSERT_TRUE(WaitFor([&] { return Rooms()->topLevelItemCount() == 3; }));
    mp_central->Send(RoomList({"beta", "delta", "delta"}, {50, 1, 2}));
    ASSERT_TRUE(WaitFor([&] { return Rooms()->topLevelItemCount() == 4; }));
    EXPECT_EQ(Column(Rooms(), 0), "Alpha|beta|delta|gamma");
    EXPECT_EQ(Column(Rooms(), 1), "10|9|1|3");
    Rooms()->sortByColumn(1, Qt::AscendingOrder);
    EXPECT_EQ(Column(Rooms(), 0), "delta|gamma|beta|Alpha");

    QTreeWidgetItem* lp_beta = Row(Rooms(), "beta");
    emit Rooms()->itemDoubleClicked(lp_beta, 1);
    EXPECT_TRUE(NothingSent());
    emit Rooms()->itemDoubleClicked(lp_beta, 0);
    EXPECT_EQ(mp_central->Next(), Body(14).Str("beta").Bytes());
    ASSERT_TRUE(Enter("beta"));
    Enter("gamma");
    ASSERT_EQ(Tabs()->currentWidget(), Form("gamma"));

    // An open room entered again is asked for again, and its one tab comes to the front.
    emit Rooms()->itemDoubleClicked(lp_beta, 0);
    EXPECT_EQ(mp_central->Next(), Body(14).Str("beta").Bytes());
    Enter("beta");
    EXPECT_EQ(Tabs()->count(), 2);
    EXPECT_EQ(Tabs()->currentWidget(), Form("beta"));
}

// Chat shows as text in its own room only; the own line goes out and is not shown until the
// server sends it back; a reconnect enters each open room once again and takes the new users.
TEST_F(RoomsTest, ChatIsTextPerRoomEnterSendsTheLineAndAReconnectEntersAgainWithNewUsers)
{
    EXPECT_EQ(RoomForm::ChatLineHtml("<i>x</i> http://a.example/u", "1<2 & see https://b.example/p?q=1, ok"),
              QStringLiteral("[<font color=\"blue\">&lt;i&gt;x&lt;/i&gt; <a href=\"http://a.example/u\">"
                             "http://a.example/u</a></font>] 1&lt;2 &amp; see <a href=\"https://b.example/p?q=1\">"
                             "https://b.example/p?q=1</a>, ok"));

    LogIn();
    RoomForm* lp_form = Enter("lobby", {{"ann", 1, 1, "us"}, {"bob", 1, 1, ""}});
    RoomForm* lp_two = Enter("two");
    ASSERT_TRUE(lp_form && lp_two);
    mp_central->Send(Body(13).Str("lobby").Str("ann").Str("<img src=\"file:///etc/passwd\"> javascript:x() \xff end"));
    ASSERT_TRUE(WaitFor([&] { return !View(lp_form)->toPlainText().isEmpty(); }));
    QString const l_line = QStringLiteral("[ann] <img src=\"file:///etc/passwd\"> javascript:x() \uFFFD end");
    EXPECT_EQ(View(lp_form)->toPlainText(), l_line);
    EXPECT_TRUE(View(lp_two)->toPlainText().isEmpty());

    Say(lp_form, QString());
    EXPECT_TRUE(NothingSent());
    Say(lp_form, QStringLiteral("hi \u00fc"));
    EXPECT_EQ(mp_central->Next(), Body(13).Str("lobby").Str("hi \xc3\xbc").Bytes());
    EXPECT_TRUE(Edit(lp_form)->text().isEmpty());
    EXPECT_EQ(View(lp_form)->toPlainText(), l_line);

    gp_server->Disconnect();
    EXPECT_EQ(View(lp_form)->toPlainText(), l_line + QStringLiteral("\n* Disconnected."));
    gp_server->Connect();
    mp_central = m_central.AnswerLogin();
    ASSERT_TRUE(mp_central);
    int l_entries = 0;
    for (QByteArray l_body = mp_central->Next(); !l_body.isEmpty(); l_body = mp_central->Next(300))
        l_entries += l_body == Body(14).Str("lobby").Bytes();
    EXPECT_EQ(l_entries, 1);
    EXPECT_EQ(View(lp_form)->toPlainText(), l_line + QStringLiteral("\n* Disconnected.\n* Reconnected."));

    mp_central->Send(Entered("lobby", {{"bob", 1, 1, ""}, {"cal", 1, 1, ""}}));
    EXPECT_TRUE(WaitFor([&] { return Column(Users(lp_form), QRoomUserListItemWidget::UserColumn) == "bob|cal"; }));
    EXPECT_EQ(Tabs()->count(), 2);
}

TEST_F(RoomsTest, TheChatViewIsCutAtALineEndPastItsBound)
{
    RoomForm* lp_form = EnterByGraph("busy");
    ASSERT_TRUE(lp_form);
    QTextBrowser* lp_view = View(lp_form);
    lp_form->OnRoomChat("busy", "first", std::string(131072, 'x'));
    qsizetype l_largest = 0;
    bool l_cut = false;
    std::string l_last;
    for (int l_line = 0; l_line < 300 && !l_cut; ++l_line)
    {
        qsizetype const l_before = lp_view->toHtml().size();
        l_last = std::string(1000, static_cast<char>('a' + l_line % 26));
        lp_form->OnRoomChat("busy", "u" + std::to_string(l_line), l_last);
        l_cut = lp_view->toHtml().size() < l_before;
        l_largest = std::max(l_largest, l_before);
    }
    ASSERT_TRUE(l_cut);
    EXPECT_LE(l_largest, c_maxChatHtml + 1200);
    QStringList const l_lines = lp_view->toPlainText().split(QLatin1Char('\n'));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\[u\\d+\\] (.)\\1{999}$")).match(l_lines.front()).hasMatch())
        << l_lines.front().left(20).toStdString();
    EXPECT_TRUE(l_lines.back().endsWith(QStringLiteral("] ") + QString::fromStdString(l_last)));
}

TEST_F(RoomsTest, UserRowsComeOnceWithTheLastNumberAndSortByValue)
{
    RoomForm* lp_form = EnterByGraph("graph");
    ASSERT_TRUE(lp_form);
    QTreeWidget* lp_list = Users(lp_form);
    ItemPtr const l_room = d.GetType("room")->GetItem("graph");
    auto l_set = [](ItemPtr i_user, char const* i_type, char const* i_value) {
        i_user.Disconnect(i_type);
        i_user += d.GetType(i_type)->GetItem(i_value);
    };
    auto l_row = [&](char const* i_name) { return Row(lp_list, i_name, QRoomUserListItemWidget::UserColumn); };

    ItemPtr const l_dan = User("Dan");
    l_room += l_dan;
    l_set(l_dan, "average_download_speed", "1536");
    l_set(l_dan, "shared_files_count", "1234");
    EXPECT_EQ(lp_list->topLevelItemCount(), 0);
    l_set(l_dan, "country_code", "US");
    ASSERT_EQ(lp_list->topLevelItemCount(), 1);
    QTreeWidgetItem* lp_dan = l_row("Dan");
    EXPECT_EQ(lp_dan->text(4), QStringLiteral("1.5"));
    EXPECT_EQ(lp_dan->text(3), QStringLiteral("1,234"));
    EXPECT_FALSE(lp_dan->icon(1).isNull());
    // Later changes leave the row as it was made.
    l_set(l_dan, "average_download_speed", "0");
    l_room += l_dan;
    EXPECT_EQ(lp_list->topLevelItemCount(), 1);
    EXPECT_EQ(l_row("Dan")->text(4), QStringLiteral("1.5"));

    for (auto [lp_name, lp_country] : {std::pair{"eve", ""}, {"fay", "zz"}, {"gus", "../x"}, {"hal", "ab/../../us"}})
    {
        ItemPtr const l_user = User(lp_name);
        l_room += l_user;
        l_set(l_user, "average_download_speed", "0");
        l_set(l_user, "shared_files_count", lp_name[0] == 'e' ? "0" : "20");
        l_set(l_user, "country_code", lp_country);
        ASSERT_TRUE(l_row(lp_name)) << lp_name;
        EXPECT_TRUE(l_row(lp_name)->icon(1).isNull()) << lp_name;
    }
    EXPECT_EQ(QRoomUserListItemWidget::FlagResource(QStringLiteral("../x")), QString());
    EXPECT_EQ(l_row("eve")->text(4), QString());
    EXPECT_EQ(l_row("eve")->text(3), QString());

    EXPECT_EQ(Column(lp_list, 2), "Dan|eve|fay|gus|hal");
    lp_list->sortByColumn(3, Qt::AscendingOrder);
    EXPECT_EQ(Column(lp_list, 2), "eve|fay|gus|hal|Dan");
    lp_list->sortByColumn(4, Qt::DescendingOrder);
    EXPECT_EQ(Column(lp_list, 2).substr(0, 4), "Dan|");
    lp_list->sortByColumn(1, Qt::AscendingOrder);
    EXPECT_EQ(Column(lp_list, 2), "eve|gus|hal|Dan|fay");

    l_room -= User("fay");
    EXPECT_FALSE(l_row("fay"));
    EXPECT_EQ(lp_list->topLevelItemCount(), 4);

    Front(lp_form);
    QRect const l_rowRect = lp_list->visualItemRect(l_row("eve"));
    EXPECT_EQ(MenuShownBy([&] { lp_form->OnUserListContextMenuRequested(l_rowRect.center()); }),
              (QStringList{QStringLiteral("Message user"), QStringLiteral("Add user to list"), QStringLiteral("Browse user's files"),
                           QString(), QStringLiteral("Unshare files from user")}));
    QPoint const l_beside(5, lp_list->viewport()->height() - 2);
    ASSERT_FALSE(lp_list->itemAt(l_beside));
    EXPECT_EQ(MenuShownBy([&] { lp_form->OnUserListContextMenuRequested(l_beside); }),
              QStringList{QStringLiteral("<no menu>")});
}

TEST_F(RoomsTest, AutojoinMarkIsPerRoomAndSavedAndLeavingEndsTheTab)
{
    LogIn();
    RoomForm* lp_rnb = Enter("R&B");
    RoomForm* lp_plain = Enter("plain");
    ASSERT_TRUE(lp_rnb && lp_plain);
    EXPECT_EQ(Tabs()->tabText(0), QStringLiteral("R&&B"));
    QString const l_file = AppEnvironment::Home() + QStringLiteral("/rooms-saved");
    // A room is saved only for its mark, so its name is in the file exactly while marked.
    auto l_savedAutojoin = [&] {
        dataSaver->Save(&d, l_file.toLocal8Bit().constData());
        QFile l_saved(l_file);
        EXPECT_TRUE(l_saved.open(QIODevice::ReadOnly));
        QByteArray const l_bytes = l_saved.readAll();
        EXPECT_FALSE(l_bytes.contains("plain"));
        return l_bytes.contains("R&B");
    };

    EXPECT_EQ(Front(lp_rnb), QStringLiteral("Auto-Join Room [off]"));
    EXPECT_EQ(actionBar->GetKey(QStringLiteral("room")), QStringLiteral("R&B"));
    actionBar->actions().value(1)->trigger();
    EXPECT_EQ(ToolBarText(1), QStringLiteral("Auto-Join Room [on]"));
    EXPECT_TRUE(l_savedAutojoin());
    EXPECT_EQ(Front(lp_plain), QStringLiteral("Auto-Join Room [off]"));
    EXPECT_EQ(Front(lp_rnb), QStringLiteral("Auto-Join Room [on]"));
    actionBar->actions().value(1)->trigger();
    EXPECT_EQ(ToolBarText(1), QStringLiteral("Auto-Join Room [off]"));
    EXPECT_FALSE(l_savedAutojoin());

    // Leaving asks the server; the tab goes with its answer, not before.
    actionBar->actions().value(0)->trigger();
    EXPECT_EQ(mp_central->Next(), Body(15).Str("R&B").Bytes());
    EXPECT_EQ(Tabs()->count(), 2);
    mp_central->Send(Body(15).Str("R&B"));
    ASSERT_TRUE(WaitFor([&] { return Tabs()->count() == 1; }));
    EXPECT_EQ(Tabs()->currentWidget(), lp_plain);
    gp_server->LeaveRoom("R&B");
    EXPECT_TRUE(NothingSent());
}
