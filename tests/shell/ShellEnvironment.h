#pragma once

#include <gtest/gtest.h>

#include <QtTest>
#include <QtWidgets>

#include "shell/ActionSetToolBar.h"
#include "shell/DiagnosticsForm.h"
#include "shell/EventToolBar.h"
#include "store/Data.h"

inline QString S(char const* i_text) { return QString::fromUtf8(i_text); }
inline void PrintTo(QString const& i_text, std::ostream* op_stream) { *op_stream << i_text.toStdString(); }

// The bars and the diagnostics page exist once per test process, on the global graph, because
// their types can be declared only once. The environment also declares the user types that the
// server link declares in the program, and tracks one user before Init.
class ShellEnvironment : public ::testing::Environment
{
    void SetUp() override
    {
        Type* lp_user = d.NewType("user", true, false, true);
        lp_user->RelateToType(d.NewType("is_online", false, true, true), Many, One, false);
        lp_user->RelateToType(d.NewType("is_tracked", false, true, true), Many, One, false);
        auto* lp_window = new QMainWindow;
        lp_window->addToolBar(new ActionSetToolBar(lp_window));
        lp_window->addToolBar(new EventToolBar(lp_window));
        lp_window->setCentralWidget(new DiagnosticsForm(lp_window));
        ItemPtr(lp_user->GetItem("early_user")).NewItem("is_tracked");
        diagnosticsForm->Init();
        QObject::connect(qApp, &QApplication::focusChanged, actionBar, &ActionSetToolBar::OnApplicationFocusChanged);
    }
    void TearDown() override { delete actionBar->window(); }
};

inline ::testing::Environment* const g_shellEnvironment = ::testing::AddGlobalTestEnvironment(new ShellEnvironment);

// Shows a top-level widget as the active window, so that focus changes are real.
inline void ShowActive(QWidget* ip_window)
{
    ip_window->show();
    QApplication::setActiveWindow(ip_window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(ip_window));
}

// A bar's button texts joined by '|'; the placeholder, which has no text, shows as "_".
inline std::string BarTexts(QToolBar const* ip_bar)
{
    QStringList l_texts;
    for (QAction* lp_action : ip_bar->actions())
        l_texts << (lp_action->text().isEmpty() ? S("_") : lp_action->text());
    return l_texts.join(QLatin1Char('|')).toStdString();
}

// Focuses the widget; the action bar's texts then.
inline std::string FocusOn(QWidget* ip_widget)
{
    ip_widget->setFocus(Qt::OtherFocusReason);
    QApplication::processEvents();
    return BarTexts(actionBar);
}
