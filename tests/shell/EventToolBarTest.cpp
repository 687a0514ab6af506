#include "ShellEnvironment.h"
#include "shell/EventToolBar.h"
#include "shell/ShowState.h"

namespace
{
// A shown window with two levels of tabs; the chat edits sit on pages that are not current.
class EventToolBarTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        (new QVBoxLayout(mp_window.get()))->addWidget(mp_outer);
        mp_outer->addTab(mp_shown, S("shown"));
        mp_outer->addTab(mp_inner, S("chats"));
        mp_inner->addTab(mp_other, S("other"));
        mp_inner->addTab(mp_chat, S("chat"));
        ShowActive(mp_window.get());
    }

    std::unique_ptr<QWidget> mp_window = std::make_unique<QWidget>();
    QTabWidget* mp_outer = new QTabWidget;
    QTabWidget* mp_inner = new QTabWidget;
    QLineEdit* mp_shown = new QLineEdit;
    QLineEdit* mp_chat = new QLineEdit;
    QLineEdit* mp_other = new QLineEdit;
};

TEST_F(EventToolBarTest, OneButtonPerHiddenWidgetUntilRemovedOrDeleted)
{
    eventToolBar->AddEvent(S("Message from ann"), QString(), mp_chat);
    eventToolBar->AddEvent(S("Another from ann"), QString(), mp_chat);
    eventToolBar->AddEvent(S("Seen already"), QString(), mp_shown);
    g_showIsOver = true;
    eventToolBar->AddEvent(S("Too late"), QString(), mp_other);
    g_showIsOver = false;
    eventToolBar->AddEvent(S("Message from bo"), QString(), mp_other);
    EXPECT_EQ(BarTexts(eventToolBar), (QStringList{S("Message from ann"), S("Message from bo")}));

    eventToolBar->RemoveEvent(mp_chat);
    EXPECT_EQ(BarTexts(eventToolBar), QStringList{S("Message from bo")});
    delete mp_other;
    EXPECT_EQ(BarTexts(eventToolBar), QStringList{QString()});
    EXPECT_EQ(d.GetType("event_toolbar_widget")->ItemCount(), 0u);
    EXPECT_EQ(d.GetType("event_toolbar_action")->ItemCount(), 0u);
}

TEST_F(EventToolBarTest, PressingTheButtonBringsTheWidgetIntoViewWithFocus)
{
    eventToolBar->AddEvent(S("Message from ann"), QString(), mp_chat);
    eventToolBar->actions().first()->trigger();
    QApplication::processEvents();
    EXPECT_EQ(mp_outer->currentWidget(), mp_inner);
    EXPECT_EQ(mp_inner->currentWidget(), mp_chat);
    EXPECT_EQ(QApplication::focusWidget(), mp_chat);
    EXPECT_EQ(BarTexts(eventToolBar), QStringList{QString()});
}
} // namespace
