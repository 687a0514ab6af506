#include "ShellEnvironment.h"
#include "shell/FocusWidget.h"

// The target sits on a page that is not current, in a window behind the active one.
TEST(FocusWidgetTest, ActivatesTheWindowAndSelectsTheTabsOnTheWay)
{
    auto const lp_back = std::make_unique<QTabWidget>();
    auto* lp_target = new QLineEdit;
    lp_back->addTab(new QLineEdit, S("first"));
    lp_back->addTab(lp_target, S("second"));
    auto const lp_front = std::make_unique<QLineEdit>();
    ShowActive(lp_back.get());
    ShowActive(lp_front.get());

    FocusWidget(lp_target);
    EXPECT_TRUE(QTest::qWaitForWindowActive(lp_back.get()));
    EXPECT_EQ(lp_back->currentWidget(), lp_target);
    EXPECT_EQ(QApplication::focusWidget(), lp_target);
}
