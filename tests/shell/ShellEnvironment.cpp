#include "ShellEnvironment.h"

#include <QMainWindow>
#include <QTest>

#include "shell/ActionSetToolBar.h"
#include "shell/DiagnosticsForm.h"
#include "shell/EventToolBar.h"

namespace
{
class ShellEnvironment : public ::testing::Environment
{
    void SetUp() override
    {
        Type* lp_user = d.NewType("user", true, false, true);
        lp_user->RelateToType(d.NewType("is_online", false, true, true), Many, One, false);
        lp_user->RelateToType(d.NewType("is_tracked", false, true, true), Many, One, false);
        mp_window = new QMainWindow;
        mp_window->addToolBar(new ActionSetToolBar(mp_window));
        mp_window->addToolBar(new EventToolBar(mp_window));
        mp_window->setCentralWidget(new DiagnosticsForm(mp_window));
        ItemPtr(lp_user->GetItem("early_user")).NewItem("is_tracked");
        diagnosticsForm->Init();
        QObject::connect(qApp, &QApplication::focusChanged, actionBar, &ActionSetToolBar::OnApplicationFocusChanged);
    }
    void TearDown() override { delete mp_window; }

    QMainWindow* mp_window = nullptr;
};

::testing::Environment* const g_environment = ::testing::AddGlobalTestEnvironment(new ShellEnvironment);
} // namespace

void ShowActive(QWidget* ip_window)
{
    ip_window->show();
    QApplication::setActiveWindow(ip_window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(ip_window));
}

void FocusOn(QWidget* ip_widget)
{
    ip_widget->setFocus(Qt::OtherFocusReason);
    QApplication::processEvents();
}

QStringList BarTexts(QToolBar const* ip_bar)
{
    QStringList l_texts;
    for (QAction* lp_action : ip_bar->actions())
        l_texts << lp_action->text();
    return l_texts;
}

void PrintTo(QStringList const& i_texts, std::ostream* op_stream)
{
    *op_stream << '(' << i_texts.join(S(", ")).toStdString() << ')';
}
