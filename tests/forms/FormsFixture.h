#pragma once

#include <gtest/gtest.h>

#include <QtTest>
#include <QtWidgets>
#include <functional>
#include <memory>

#include "forms/UserListForm.h"
#include "server/Server.h"
#include "shell/ActionSetToolBar.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "support/AppEnvironment.h"
#include "support/LoopbackCentral.h"
#include "support/WaitFor.h"
#include "ui_MainWindow.h"

template <class Widget>
Widget* Child(QWidget* ip_parent, char const* i_name) { return ip_parent->findChild<Widget*>(QString::fromLatin1(i_name)); }

// The dialogs of a class that are on show.
template <class Dialog>
QList<Dialog*> OpenDialogs()
{
    QList<Dialog*> l_dialogs;
    for (QWidget* lp_widget : QApplication::topLevelWidgets())
        if (auto* lp_dialog = qobject_cast<Dialog*>(lp_widget); lp_dialog && lp_dialog->isVisible())
            l_dialogs << lp_dialog;
    return l_dialogs;
}

// Runs the request while a timer notes the texts of the menu that it opens, then closes it;
// "<no menu>" when none opened.
QStringList MenuShownBy(std::function<void()> const& i_request);

// The texts of the tool bar's actions on show, and a press on the one with the text; false when
// none has it.
QStringList ActionTexts();
bool Trigger(QString const& i_text);

inline void PrintTo(QString const& i_text, std::ostream* op_stream) { *op_stream << i_text.toStdString(); }

// The download queue in its order, each entry as "user|folder|name|size".
QStringList QueuedDownloads();

// The texts in the tree's columns given that their cells cut short, each as "column: text".
QStringList CutTexts(QTreeWidget* ip_tree, QList<int> const& i_columns);

// The chat view and line of a room's or a user's chat form, and a line typed into it and entered.
inline QTextBrowser* View(QWidget* ip_form) { return Child<QTextBrowser>(ip_form, "chatView"); }
inline QLineEdit* Edit(QWidget* ip_form) { return Child<QLineEdit>(ip_form, "chatEdit"); }
inline void Say(QWidget* ip_form, QString const& i_text)
{
    Edit(ip_form)->setText(i_text);
    QTest::keyClick(Edit(ip_form), Qt::Key_Return);
}

// The forms on the process's one main window, and a loopback listener that stands in for the
// central server when a test needs the client logged in.
class FormsTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // Logs the window's server link in at the listener; what the link sends on login is read
    // and dropped, so mp_central then holds only what follows.
    void LogIn();
    bool NothingSent() { return mp_central->Next(200).isEmpty(); }

    static ItemPtr User(char const* i_name) { return d.GetType("user")->GetItem(i_name); }
    static bool Has(ItemPtr i_item, char const* i_type) { return i_item && i_item.HasItem(i_type); }
    // The one row whose column shows the name; null when none or several do.
    static QTreeWidgetItem* Row(QTreeWidget* ip_tree, char const* i_name, int i_column = 0);
    // Closes and deletes the dialogs that tests opened.
    static void CloseDialogs();

    MainWindow* mp_window = nullptr;
    UserListForm* mp_form = nullptr;
    LoopbackCentral m_central;
    std::unique_ptr<RawClient> mp_central;
};
