#include <QTabBar>
#include <QTreeWidget>

#include "ShellEnvironment.h"
#include "shell/ActionSetToolBar.h"
#include "shell/ShowState.h"

namespace
{
QStringList const c_formTexts{S("Form A"), S("Form B")};
QStringList const c_treeTexts{S("Open"), S("Refresh")};
QStringList const c_placeholder{QString()};

// A shown window with two forms of one set, a form holding a tree of three users, and an
// unregistered line edit.
class ActionSetToolBarTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        actionBar->AddSetAction("test_form", "form_a", "Form A", ":/icons/room_icon", false);
        actionBar->AddSetAction("test_form", "form_b", "Form B", ":/icons/room_icon", false);
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
        QObject::connect(actionBar, &ActionSetToolBar::ActionTriggered, mp_window.get(),
                         [this](std::string i_id) { m_emitted.push_back(i_id); });
    }

    QWidget* AddForm(char const* i_set, QWidget* ip_inner = new QLineEdit)
    {
        auto* lp_form = new QWidget;
        (new QVBoxLayout(lp_form))->addWidget(ip_inner);
        mp_layout->addWidget(lp_form);
        actionBar->RegisterWidget(lp_form, S(i_set));
        return lp_form;
    }

    static void Press(QString const& i_text)
    {
        for (QAction* lp_action : actionBar->actions())
            if (lp_action->text() == i_text)
                return lp_action->trigger();
        FAIL() << "no button " << i_text.toStdString();
    }

    std::unique_ptr<QWidget> mp_window = std::make_unique<QWidget>();
    QVBoxLayout* mp_layout = new QVBoxLayout(mp_window.get());
    QWidget* mp_formA = AddForm("test_form");
    QWidget* mp_formB = AddForm("test_form");
    QTreeWidget* mp_tree = new QTreeWidget;
    QWidget* mp_treeForm = AddForm("test_tree", mp_tree);
    QLineEdit* mp_loose = new QLineEdit;
    std::vector<std::string> m_emitted;
};

QWidget* Inner(QWidget* ip_form) { return ip_form->findChild<QLineEdit*>(); }

TEST_F(ActionSetToolBarTest, FollowsFocusInOrderAndIgnoresItDuringShutDown)
{
    FocusOn(Inner(mp_formA));
    EXPECT_EQ(BarTexts(actionBar), c_formTexts);
    FocusOn(mp_tree);
    EXPECT_EQ(BarTexts(actionBar), c_treeTexts);
    FocusOn(mp_loose);
    EXPECT_EQ(BarTexts(actionBar), c_placeholder);
    EXPECT_EQ(d.GetType("toolbar_action_object")->ItemCount(), 0u);

    FocusOn(Inner(AddForm("test_long")));
    QStringList l_numbers;
    for (int l_n = 0; l_n < 12; ++l_n)
        l_numbers << QString::number(l_n);
    EXPECT_EQ(BarTexts(actionBar), l_numbers);

    g_showIsOver = true;
    FocusOn(mp_loose);
    g_showIsOver = false;
    EXPECT_EQ(BarTexts(actionBar), l_numbers);
}

TEST_F(ActionSetToolBarTest, TabBarsAndNestedTabWidgetsStandForTheirCurrentPage)
{
    auto* lp_outer = new QTabWidget;
    auto* lp_inner = new QTabWidget;
    auto* lp_empty = new QTabWidget;
    lp_outer->addTab(AddForm("test_form"), S("form"));
    lp_outer->addTab(lp_inner, S("inner"));
    lp_inner->addTab(AddForm("test_tree", new QWidget), S("tree"));
    lp_inner->addTab(new QLineEdit, S("loose"));
    mp_layout->addWidget(lp_outer);
    mp_layout->addWidget(lp_empty);
    QApplication::processEvents();

    FocusOn(lp_outer->tabBar());
    EXPECT_EQ(BarTexts(actionBar), c_formTexts);
    lp_outer->setCurrentIndex(1);
    actionBar->OnApplicationFocusChanged(nullptr, lp_outer);
    EXPECT_EQ(BarTexts(actionBar), c_treeTexts);
    lp_inner->setCurrentIndex(1);
    FocusOn(lp_inner->tabBar());
    EXPECT_EQ(BarTexts(actionBar), c_placeholder);
    FocusOn(Inner(mp_formA));
    FocusOn(lp_empty);
    EXPECT_EQ(BarTexts(actionBar), c_placeholder);

    // With auto focus, switching the tab alone makes the bar follow the new page.
    actionBar->AutoFocusTabWidget(lp_inner);
    FocusOn(Inner(mp_formA));
    lp_inner->setCurrentIndex(0);
    EXPECT_EQ(BarTexts(actionBar), c_treeTexts);
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
    Press(S("Open"));
    EXPECT_EQ(actionBar->GetKey(S("user")), S("bob"));

    // Without a selection an action that needs one emits nothing; another emits with the old key.
    mp_tree->clearSelection();
    Press(S("Open"));
    Press(S("Refresh"));
    EXPECT_EQ(m_emitted, (std::vector<std::string>{"open_row", "refresh_all"}));
    EXPECT_EQ(actionBar->GetKey(S("user")), S("bob"));

    actionBar->AddWidgetKey(mp_treeForm, S("room"), S("attic"));
    FocusOn(mp_loose);
    FocusOn(mp_tree);
    EXPECT_EQ(actionBar->GetKey(S("room")), S("attic"));
}

TEST_F(ActionSetToolBarTest, ActionTextsAreKeptPerWidget)
{
    QStringList const l_on{S("A [on]"), S("Form B")};
    QStringList const l_off{S("A [off]"), S("Form B")};
    FocusOn(Inner(mp_formB));
    actionBar->SetWidgetActionText(mp_formA, S("form_a"), S("A [on]"));
    EXPECT_EQ(BarTexts(actionBar), c_formTexts);
    FocusOn(Inner(mp_formA));
    EXPECT_EQ(BarTexts(actionBar), l_on);
    actionBar->SetWidgetActionText(mp_formA, S("form_a"), S("A [off]"));
    EXPECT_EQ(BarTexts(actionBar), l_off);

    // Two widgets that shared a text keep their own after one of them changes.
    actionBar->SetWidgetActionText(mp_formB, S("form_a"), S("A [off]"));
    actionBar->SetWidgetActionText(mp_formA, S("form_a"), S("A [on]"));
    FocusOn(Inner(mp_formB));
    EXPECT_EQ(BarTexts(actionBar), l_off);
    FocusOn(Inner(mp_formA));
    EXPECT_EQ(BarTexts(actionBar), l_on);
}

TEST_F(ActionSetToolBarTest, ADestroyedWidgetTakesItsRegistrationAndKeysAlong)
{
    std::size_t const l_widgets = d.GetType("toolbar_action_widget")->ItemCount();
    std::size_t const l_pairs = d.GetType("action_key_value_pair")->ItemCount();
    actionBar->AddWidgetKey(mp_formA, S("room"), S("lobby"));
    FocusOn(Inner(mp_formA));
    delete mp_formA;
    EXPECT_EQ(BarTexts(actionBar), c_placeholder);
    EXPECT_EQ(d.GetType("toolbar_action_widget")->ItemCount(), l_widgets - 1);
    EXPECT_EQ(d.GetType("action_key_value_pair")->ItemCount(), l_pairs);
}
} // namespace
