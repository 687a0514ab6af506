#include <gtest/gtest.h>

#include <QDialogButtonBox>
#include <QLineEdit>
#include <QPointer>

#include "support/AppEnvironment.h"
#include "forms/ChangeListeningPortDialog.h"
#include "forms/ChangeUsernamePasswordDialog.h"
#include "shell/MainWindow.h"
#include "store/Settings.h"
#include "ui_MainWindow.h"

namespace
{
QLineEdit* Edit(QWidget* ip_dialog, char const* i_name)
{
    return ip_dialog->findChild<QLineEdit*>(QString::fromLatin1(i_name));
}
} // namespace

TEST(LoginOptions, UsernameDialogStoresBothTextsAndTheTabFollows)
{
    MainWindow* lp_window = AppEnvironment::Window();
    CloseInformationBoxes(QString());
    SetGlobal("username", "old");
    SetGlobal("password", "pw");

    QPointer<ChangeUsernamePasswordDialog> lp_dialog = new ChangeUsernamePasswordDialog(lp_window);
    EXPECT_EQ(Edit(lp_dialog, "usernameEdit")->text(), QStringLiteral("old"));
    EXPECT_EQ(Edit(lp_dialog, "passwordEdit")->text(), QStringLiteral("pw"));
    Edit(lp_dialog, "usernameEdit")->setText(QStringLiteral("J\u00f6rg"));
    Edit(lp_dialog, "passwordEdit")->setText(QString());
    lp_dialog->accept();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    EXPECT_TRUE(lp_dialog.isNull());
    EXPECT_EQ(GetGlobal("username"), "J\xc3\xb6rg");
    EXPECT_TRUE(GetGlobalValue("password"));
    EXPECT_EQ(GetGlobal("password"), "");
    EXPECT_EQ(lp_window->Widgets()->usernameEdit->text(), QStringLiteral("J\u00f6rg"));
}

TEST(LoginOptions, CancellingChangesNothing)
{
    MainWindow* lp_window = AppEnvironment::Window();
    SetGlobal("username", "kept");
    QPointer<ChangeUsernamePasswordDialog> lp_dialog = new ChangeUsernamePasswordDialog(lp_window);
    Edit(lp_dialog, "usernameEdit")->setText(QStringLiteral("other"));
    lp_dialog->reject();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(lp_dialog.isNull());
    EXPECT_EQ(GetGlobal("username"), "kept");
}

TEST(LoginOptions, PortDialogValidatesAndLeavesTheChangePending)
{
    MainWindow* lp_window = AppEnvironment::Window();
    CloseInformationBoxes(QString());
    SetGlobal("listening_port", 2235);

    QPointer<ChangeListeningPortDialog> lp_dialog = new ChangeListeningPortDialog(lp_window);
    lp_dialog->show();
    EXPECT_EQ(Edit(lp_dialog, "portEdit")->text(), QStringLiteral("2235"));
    EXPECT_EQ(Edit(lp_dialog, "portEdit")->maxLength(), 5);

    for (char const* lp_bad : {"0", "70000", ""})
    {
        Edit(lp_dialog, "portEdit")->setText(QString::fromLatin1(lp_bad));
        lp_dialog->accept();
        EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Invalid Port Number")), 1) << lp_bad;
        EXPECT_FALSE(lp_dialog.isNull());
    }
    Edit(lp_dialog, "portEdit")->setText(QStringLiteral("2235"));
    lp_dialog->accept();
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Port Number Not Changed")), 1);
    EXPECT_FALSE(GetGlobalValue("new_listening_port"));

    Edit(lp_dialog, "portEdit")->setText(QStringLiteral("2240"));
    lp_dialog->accept();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(lp_dialog.isNull());
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Change to Listening Port Pending")), 1);
    EXPECT_EQ(GetGlobal("new_listening_port"), "2240");
    EXPECT_EQ(GetGlobal("listening_port"), "2235");
    EXPECT_EQ(lp_window->Widgets()->listeningPortEdit->text(), QStringLiteral("2240"));

    // Asking again for the port already pending gives the same value and the message again.
    auto* lp_again = new ChangeListeningPortDialog(lp_window);
    Edit(lp_again, "portEdit")->setText(QStringLiteral("2240"));
    lp_again->accept();
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Change to Listening Port Pending")), 1);
    EXPECT_EQ(GetGlobal("new_listening_port"), "2240");
}
