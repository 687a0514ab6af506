#include "ShellEnvironment.h"
#include "shell/ShowState.h"

namespace
{
// A shown window with two forms of one set, a form holding a tree of three users, and an
// unregistered line edit.
class ActionSetToolBarTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        actionBar->AddSetAction("test_form", "form_a", "Form A", "", false);
        actionBar->AddSetAction("test_form", "form_b", "Form B", "", false);
        actionBar->AddSetAction("test_tree", "open_row", "Open", "", true);
        actionBar->AddSetAction("test_tree", "refresh_all", "Refresh", "", false);
        for (int l_n = 0; l_n < 12; ++l_n)
            actionBar->AddSetAction("test_long", "long_" + std::to_string(l_n), std::to_string(l_n), "", false);
    }

    void SetUp() override
    {
        mp_tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
        for (char const* lp_name : {"alice", "bob", "carol"})
            new QTreeWidgetItem(mp_tree, {S("row"), S(lp_name)});
        mp_layout->addWidget(mp_loose);
        ShowActive(mp_window.get());
    }

    QWidget* AddForm(char const* i_set, QWidget* ip_inner = new QLineEdit)
    {
        auto* lp_form = new QWidget;
        (new QVBoxLayout(lp_form))->addWidget(ip_inner);
        mp_layout->addWidget(lp_form);
        actionBar->RegisterWidget(lp_form, S(i_set));
        return lp_form;
    }

    static void Press(int i_button) { actionBar->actions().value(i_button)->trigger(); }

    std::unique_ptr<QWidget> mp_window = std::make_unique<QWidget>();
    QVBoxLayout* mp_layout = new QVBoxLayout(mp_window.get());
    QWidget* mp_formA = AddForm("test_form");
    QWidget* mp_formB = AddForm("test_form");
    QTreeWidget* mp_tree = new QTreeWidget;
    QWidget* mp_treeForm = AddForm("test_tree", mp_tree);
    QLineEdit* mp_loose = new QLineEdit;
};

TEST_F(ActionSetToolBarTest, FollowsFocusThroughTabsInOrderButNotDuringShutDown)
{
    EXPECT_EQ(FocusOn(mp_tree), "Open|Refresh");
    EXPECT_EQ(FocusOn(mp_loose), "_");
    EXPECT_EQ(d.GetType("toolbar_action_object")->ItemCount(), 0u);

    // A tab widget or its bar stands for its current page, through nested tab widgets.
    auto *lp_outer = new QTabWidget, *lp_inner = new QTabWidget, *lp_empty = new QTabWidget;
    lp_outer->addTab(AddForm("test_form"), S("form"));
    lp_outer->addTab(lp_inner, S("inner"));
    lp_inner->addTab(AddForm("test_tree"), S("tree"));
    lp_inner->addTab(AddForm("test_long"), S("long"));
    mp_layout->addWidget(lp_outer);
    mp_layout->addWidget(lp_empty);
    QApplication::processEvents();
    EXPECT_EQ(FocusOn(lp_outer->tabBar()), "Form A|Form B");
    // The focus stays on the tab bar while the page it stands for goes away.
    delete lp_outer->widget(0);
    EXPECT_EQ(BarTexts(actionBar), "_");
    actionBar->OnApplicationFocusChanged(nullptr, lp_outer);
    EXPECT_EQ(BarTexts(actionBar), "Open|Refresh");
    EXPECT_EQ(FocusOn(lp_empty), "_");

    // With auto focus, switching the tab alone makes the bar follow the new page.
    actionBar->AutoFocusTabWidget(lp_inner);
    lp_inner->setCurrentIndex(1);
    EXPECT_EQ(BarTexts(actionBar), "0|1|2|3|4|5|6|7|8|9|10|11");

    g_showIsOver = true;
    FocusOn(mp_loose);
    g_showIsOver = false;
    EXPECT_EQ(BarTexts(actionBar), "0|1|2|3|4|5|6|7|8|9|10|11");
}

TEST_F(ActionSetToolBarTest, FixedKeysComeAtFocusAndColumnKeysFromTheTopSelectedRowAtThePress)
{
    actionBar->AddWidgetKey(mp_treeForm, S("room"), S("lobby"));
    actionBar->AddWidgetColumnKey(mp_treeForm, S("user"), 1);
    mp_tree->topLevelItem(2)->setSelected(true);
    mp_tree->topLevelItem(1)->setSelected(true);
    FocusOn(mp_tree);
    EXPECT_EQ(actionBar->GetKey(S("room")), S("lobby"));
    EXPECT_EQ(actionBar->GetKey(S("user")), QString());
    Press(0);
    EXPECT_EQ(actionBar->GetKey(S("user")), S("bob"));

    // Without a selection an action that needs one emits nothing; another emits with the old key.
    QSignalSpy l_emitted(actionBar, &ActionSetToolBar::ActionTriggered);
    mp_tree->clearSelection();
    Press(0);
    Press(1);
    ASSERT_EQ(l_emitted.count(), 1);
    EXPECT_EQ(l_emitted[0][0].value<std::string>(), "refresh_all");
    EXPECT_EQ(actionBar->GetKey(S("user")), S("bob"));

    std::size_t const l_pairs = d.GetType("action_key_value_pair")->ItemCount();
    actionBar->AddWidgetKey(mp_treeForm, S("room"), S("attic"));
    EXPECT_EQ(d.GetType("action_key_value_pair")->ItemCount(), l_pairs);
    FocusOn(mp_loose);
    FocusOn(mp_tree);
    EXPECT_EQ(actionBar->GetKey(S("room")), S("attic"));
}

TEST_F(ActionSetToolBarTest, DisabledActionShowsItsReasonAndEmitsNothing)
{
    FocusOn(mp_formA);
    actionBar->DisableAction("form_b", S("Coming later"));
    QSignalSpy l_emitted(actionBar, &ActionSetToolBar::ActionTriggered);
    // First on the bar that stands, then on the bar rebuilt for the next widget of the set.
    for (QWidget* lp_form : {mp_formA, mp_formB})
    {
        FocusOn(lp_form);
        QAction* lp_disabled = actionBar->actions().value(1);
        ASSERT_TRUE(lp_disabled);
        EXPECT_FALSE(lp_disabled->isEnabled());
        EXPECT_EQ(lp_disabled->toolTip(), S("Coming later"));
        EXPECT_TRUE(actionBar->actions().value(0)->isEnabled());
        Press(1);
    }
    EXPECT_EQ(l_emitted.count(), 0);
}

TEST_F(ActionSetToolBarTest, TextsAndKeysArePerWidgetAndGoWithIt)
{
    FocusOn(mp_formB);
    actionBar->SetWidgetActionText(mp_formA, S("form_a"), S("A [on]"));
    EXPECT_EQ(BarTexts(actionBar), "Form A|Form B");
    EXPECT_EQ(FocusOn(mp_formA), "A [on]|Form B");

    // Two widgets that shared a text keep their own after one of them changes.
    actionBar->SetWidgetActionText(mp_formA, S("form_a"), S("A [off]"));
    EXPECT_EQ(BarTexts(actionBar), "A [off]|Form B");
    actionBar->SetWidgetActionText(mp_formB, S("form_a"), S("A [off]"));
    actionBar->SetWidgetActionText(mp_formA, S("form_a"), S("A [new]"));
    EXPECT_EQ(FocusOn(mp_formB), "A [off]|Form B");
    EXPECT_EQ(FocusOn(mp_formA), "A [new]|Form B");

    std::size_t const l_widgets = d.GetType("toolbar_action_widget")->ItemCount();
    std::size_t const l_pairs = d.GetType("action_key_value_pair")->ItemCount();
    actionBar->AddWidgetKey(mp_formA, S("room"), S("lobby"));
    delete mp_formA;
    EXPECT_EQ(BarTexts(actionBar), "_");
    EXPECT_EQ(d.GetType("toolbar_action_widget")->ItemCount(), l_widgets - 1);
    EXPECT_EQ(d.GetType("action_key_value_pair")->ItemCount(), l_pairs);
}
} // namespace
