#include "AppTest.h"
#include "forms/ChangeListeningPortDialog.h"
#include "forms/ChangeUsernamePasswordDialog.h"

namespace
{
QLineEdit* Edit(QWidget* ip_dialog, char const* i_name) { return ip_dialog->findChild<QLineEdit*>(QString::fromLatin1(i_name)); }

void AcceptPort(QDialog* ip_dialog, char const* i_port)
{
    Edit(ip_dialog, "portEdit")->setText(QString::fromLatin1(i_port));
    ip_dialog->accept();
}
} // namespace

// The name dialog stores both texts on accept only and the tab follows; the port dialog
// validates and leaves the change pending.
TEST(LoginOptions, DialogsStoreOnAcceptOnlyAndAPortChangeStaysPending)
{
    MainWindow* lp_window = AppEnvironment::Window();
    CloseInformationBoxes(QString());
    SetGlobal("username", "old");
    SetGlobal("password", "pw");
    QPointer<ChangeUsernamePasswordDialog> lp_dialog = new ChangeUsernamePasswordDialog(lp_window);
    Edit(lp_dialog, "usernameEdit")->setText(QStringLiteral("other"));
    lp_dialog->reject();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(lp_dialog.isNull());
    EXPECT_EQ(GetGlobal("username"), "old");

    lp_dialog = new ChangeUsernamePasswordDialog(lp_window);
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

    SetGlobal("listening_port", 2235);

    QPointer<ChangeListeningPortDialog> lp_port = new ChangeListeningPortDialog(lp_window);
    lp_port->show();
    EXPECT_EQ(Edit(lp_port, "portEdit")->text(), QStringLiteral("2235"));
    EXPECT_EQ(Edit(lp_port, "portEdit")->maxLength(), 5);

    for (char const* lp_bad : {"0", "70000", ""})
    {
        AcceptPort(lp_port, lp_bad);
        EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Invalid Port Number")), 1) << lp_bad;
        EXPECT_FALSE(lp_port.isNull());
    }
    AcceptPort(lp_port, "2235");
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Port Number Not Changed")), 1);
    EXPECT_FALSE(GetGlobalValue("new_listening_port"));

    AcceptPort(lp_port, "2240");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(lp_port.isNull());
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Change to Listening Port Pending")), 1);
    EXPECT_EQ(GetGlobal("new_listening_port"), "2240");
    EXPECT_EQ(GetGlobal("listening_port"), "2235");
    EXPECT_EQ(lp_window->Widgets()->listeningPortEdit->text(), QStringLiteral("2240"));

    // Asking again for the port already pending gives the same value and the message again.
    AcceptPort(new ChangeListeningPortDialog(lp_window), "2240");
    EXPECT_EQ(CloseInformationBoxes(QStringLiteral("Change to Listening Port Pending")), 1);
    EXPECT_EQ(GetGlobal("new_listening_port"), "2240");
}
