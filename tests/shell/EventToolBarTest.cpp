#include "ShellEnvironment.h"
#include "shell/ShowState.h"

// A shown window with two levels of tabs; the chat edits sit on pages that are not current.
TEST(EventToolBarTest, OneButtonPerHiddenWidgetUntilPressedOrDeleted)
{
    auto const lp_outer = std::make_unique<QTabWidget>();
    auto* lp_inner = new QTabWidget;
    auto *lp_shown = new QLineEdit, *lp_chat = new QLineEdit, *lp_other = new QLineEdit;
    lp_outer->addTab(lp_shown, S("shown"));
    lp_outer->addTab(lp_inner, S("chats"));
    lp_inner->addTab(lp_other, S("other"));
    lp_inner->addTab(lp_chat, S("chat"));
    ShowActive(lp_outer.get());

    eventToolBar->AddEvent(S("Message from ann"), QString(), lp_chat);
    eventToolBar->AddEvent(S("Another from ann"), QString(), lp_chat);
    eventToolBar->AddEvent(S("Seen already"), QString(), lp_shown);
    g_showIsOver = true;
    eventToolBar->AddEvent(S("Too late"), QString(), lp_other);
    g_showIsOver = false;
    eventToolBar->AddEvent(S("Message from bo"), QString(), lp_other);
    EXPECT_EQ(BarTexts(eventToolBar), "Message from ann|Message from bo");

    eventToolBar->actions().first()->trigger();
    QApplication::processEvents();
    EXPECT_EQ(lp_outer->currentWidget(), lp_inner);
    EXPECT_EQ(lp_inner->currentWidget(), lp_chat);
    EXPECT_EQ(QApplication::focusWidget(), lp_chat);
    EXPECT_EQ(BarTexts(eventToolBar), "Message from bo");

    delete lp_other;
    EXPECT_EQ(BarTexts(eventToolBar), "_");
    EXPECT_EQ(d.GetType("event_toolbar_widget")->ItemCount(), 0u);
    EXPECT_EQ(d.GetType("event_toolbar_action")->ItemCount(), 0u);
}
