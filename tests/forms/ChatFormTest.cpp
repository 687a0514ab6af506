#include "FormsFixture.h"
#include "forms/ChatForm.h"
#include "forms/ChatLine.h"
#include "forms/UserMenuOptions.h"
#include "shell/DiagnosticsForm.h"
#include "shell/EventToolBar.h"

namespace
{
Body PrivateChat(quint32 i_id, QByteArray const& i_user, QByteArray const& i_text)
{
    return Body(22).U32(i_id).U32(1000).Str(i_user).Str(i_text).U8(0);
}

QStringList Lines(QWidget* ip_form) { return View(ip_form)->toPlainText().split(QLatin1Char('\n')); }

// The texts that the event bar's buttons show, placeholder left out.
QStringList Buttons()
{
    QStringList l_texts;
    for (QAction* lp_action : eventToolBar->actions())
        if (auto* lp_button = qobject_cast<QToolButton*>(eventToolBar->widgetForAction(lp_action));
            lp_button && !lp_action->text().isEmpty())
            l_texts << lp_button->text();
    return l_texts;
}
} // namespace

class ChatFormTest : public FormsTest
{
protected:
    void SetUp() override
    {
        FormsTest::SetUp();
        mp_tabs = mp_window->Widgets()->chatTabControl;
        mp_main = mp_window->Widgets()->mainTabWidget;
    }
    void TearDown() override
    {
        while (mp_tabs->count() > 0)
            emit mp_tabs->tabCloseRequested(0);
        QApplication::processEvents();
        FormsTest::TearDown();
    }
    ChatForm* Form(int i_index) { return qobject_cast<ChatForm*>(mp_tabs->widget(i_index)); }
    static size_t ChatWidgetItems() { return d.GetType("user_chat_widget")->ItemCount(); }

    QTabWidget* mp_tabs = nullptr;
    QTabWidget* mp_main = nullptr;
};

TEST_F(ChatFormTest, MessagesOpenTabsQuietlyAndButtonsLastUntilTheFormIsSeen)
{
    LogIn();
    mp_main->setCurrentWidget(mp_window->Widgets()->usersTab);
    mp_form->UserList()->setFocus();
    QApplication::processEvents();
    QWidget* const lp_focus = QApplication::focusWidget();

    // Markup and entities show as typed; only the web address becomes a link.
    mp_central->Send(PrivateChat(7, "ann", "<b>hi</b> &amp; javascript:x file:///etc http://a.org/?b=1&c=2."));
    ASSERT_TRUE(WaitFor([&] { return mp_tabs->count() == 1; }));
    ChatForm* const lp_ann = Form(0);
    EXPECT_EQ(Lines(lp_ann), QStringList{QStringLiteral("[ann] <b>hi</b> &amp; javascript:x file:///etc http://a.org/?b=1&c=2.")});
    EXPECT_EQ(View(lp_ann)->toHtml().count(QStringLiteral("href=")), 1);
    EXPECT_TRUE(View(lp_ann)->toHtml().contains(QStringLiteral("href=\"http://a.org/?b=1&amp;c=2\"")));
    EXPECT_EQ(QApplication::focusWidget(), lp_focus);
    EXPECT_EQ(mp_main->currentWidget(), mp_window->Widgets()->usersTab);
    // Neither a NUL nor a byte that is not UTF-8 ends the line.
    lp_ann->AddChat(std::string("x\0y\xffz", 5));
    EXPECT_EQ(Lines(lp_ann).last(), QString::fromUtf8("[ann] x\uFFFDy\uFFFDz"));

    // One button per user however many messages; a name with "&" shows as typed.
    mp_central->Send(PrivateChat(8, "ann", "again"));
    mp_central->Send(PrivateChat(9, "b&o", "hello"));
    ASSERT_TRUE(WaitFor([&] { return mp_tabs->count() == 2; }));
    EXPECT_EQ(mp_tabs->currentIndex(), 0);
    EXPECT_EQ(mp_tabs->tabText(1), QStringLiteral("b&&o"));
    EXPECT_EQ(Buttons(), (QStringList{QStringLiteral("ann"), QStringLiteral("b&&o")}));

    // The button brings the form up with the cursor in its line; a tab change shows the other.
    eventToolBar->actions().first()->trigger();
    QApplication::processEvents();
    EXPECT_EQ(mp_main->currentWidget(), mp_window->Widgets()->chatTab);
    EXPECT_EQ(QApplication::focusWidget(), Edit(lp_ann));
    EXPECT_EQ(Buttons(), QStringList{QStringLiteral("b&&o")});
    mp_tabs->setCurrentIndex(1);
    QApplication::processEvents();
    EXPECT_EQ(Buttons(), QStringList());
    EXPECT_EQ(QApplication::focusWidget(), Edit(Form(1)));
    mp_main->setCurrentWidget(mp_window->Widgets()->usersTab);
    mp_main->setCurrentWidget(mp_window->Widgets()->chatTab);
    EXPECT_EQ(QApplication::focusWidget(), Edit(Form(1)));

    // The own line shows at once with the own name and goes out as typed, in UTF-8.
    mp_tabs->setCurrentIndex(0);
    Say(lp_ann, QString::fromUtf8("ça <va> http://x.org"));
    EXPECT_EQ(Lines(lp_ann).last(), QString::fromUtf8("[me] ça <va> http://x.org"));
    EXPECT_TRUE(Edit(lp_ann)->text().isEmpty());
    EXPECT_EQ(mp_central->TakeBody(22), Body(22).Str("ann").Str("ça <va> http://x.org").Bytes());

    // Closed, the form and its item go; the next message opens a fresh form.
    emit mp_tabs->tabCloseRequested(0);
    EXPECT_EQ(ChatWidgetItems(), 1u);
    mp_central->Send(PrivateChat(10, "ann", "later"));
    ASSERT_TRUE(WaitFor([&] { return mp_tabs->count() == 2; }));
    EXPECT_EQ(Lines(Form(1)), QStringList{QStringLiteral("[ann] later")});
    EXPECT_EQ(ChatWidgetItems(), 2u);
}

TEST_F(ChatFormTest, MenuOpensTheChatAndLinesTypedOfflineAreNotSent)
{
    QMenu l_menu;
    UserMenuOptions l_options(&l_menu, "cal");
    ASSERT_EQ(l_menu.actions().value(0)->text(), QStringLiteral("Message user"));
    l_menu.actions().value(0)->trigger();
    QApplication::processEvents();
    ASSERT_EQ(mp_tabs->count(), 1);
    EXPECT_EQ(mp_main->currentWidget(), mp_window->Widgets()->chatTab);
    EXPECT_EQ(QApplication::focusWidget(), Edit(Form(0)));

    SetGlobal("username", "me");
    Say(Form(0), QStringLiteral("anyone?"));
    EXPECT_EQ(Lines(Form(0)), (QStringList{QStringLiteral("[me] anyone?"), QStringLiteral("* Not connected: message not sent.")}));

    // A message without a sender reaches no form and is told in the log.
    LogIn();
    mp_central->Send(PrivateChat(11, "", "who?"));
    mp_central->Send(PrivateChat(12, "cal", "here"));
    ASSERT_TRUE(WaitFor([&] { return Lines(Form(0)).size() == 3; }));
    EXPECT_EQ(mp_tabs->count(), 1);
    diagnosticsForm->FlushPendingLines();
    auto* lp_log = qobject_cast<QPlainTextEdit*>(d.GetType("log")->HasItem("server")["log_widget"].AsPointer<QObject>());
    ASSERT_TRUE(lp_log);
    EXPECT_TRUE(lp_log->toPlainText().contains(QStringLiteral("Dropped a private message without a sender name")));
}

TEST_F(ChatFormTest, AConversationKeepsItsNewestLinesWithinTheBound)
{
    ChatForm* lp_form = mp_window->GetChatForm("dee");
    QTextBrowser* lp_view = View(lp_form);
    qsizetype l_largest = 0;
    int l_cuts = 0;
    // Lines of 2,000 characters: the bound is met after about 120 of them, and again and again.
    for (int l_line = 0; l_line < 200; ++l_line)
    {
        qsizetype const l_before = lp_view->toHtml().size();
        lp_form->AddChat(std::to_string(l_line) + ' ' + std::string(2000, static_cast<char>('a' + l_line % 26)));
        l_largest = std::max(l_largest, l_before);
        l_cuts += lp_view->toHtml().size() < l_before;
    }
    EXPECT_GE(l_cuts, 2);
    EXPECT_LE(l_largest, c_maxChatHtml + 2500);
    QStringList const l_lines = Lines(lp_form);
    EXPECT_TRUE(l_lines.back().startsWith(QStringLiteral("[dee] 199 "))) << l_lines.back().left(20).toStdString();
    EXPECT_TRUE(l_lines.front().startsWith(QStringLiteral("[dee] "))) << l_lines.front().left(20).toStdString();
}
