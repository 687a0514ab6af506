#include "FormsFixture.h"
#include "forms/AddUserDialog.h"
#include "forms/UserGroupConfigDialog.h"
#include "forms/UserGroupsDialog.h"

namespace
{
// The rows of a list as "name" or "name*" when checked.
QStringList Rows(QListWidget* ip_list)
{
    QStringList l_rows;
    for (int l_index = 0; l_index < ip_list->count(); ++l_index)
    {
        QListWidgetItem* lp_row = ip_list->item(l_index);
        l_rows << lp_row->text() + (lp_row->checkState() == Qt::Checked ? QStringLiteral("*") : QString());
    }
    return l_rows;
}

ItemPtr Group(char const* i_name) { return d.GetType("user_list_group")->GetItem(i_name); }
QListWidgetItem* Entry(QListWidget* ip_list, char const* i_name) { return ip_list->findItems(QString::fromLatin1(i_name), Qt::MatchExactly).value(0); }

// An add-user dialog on show, asked for names as a user would.
struct AddUser
{
    explicit AddUser(QWidget* ip_parent) : mp_dialog(new AddUserDialog(ip_parent)) { mp_dialog->show(); }
    QString Ask(char const* i_name)
    {
        Child<QLineEdit>(mp_dialog, "userNameEdit")->setText(QString::fromUtf8(i_name));
        Child<QPushButton>(mp_dialog, "addFriendButton")->click();
        return Status();
    }
    QString Status() const { return Child<QLineEdit>(mp_dialog, "statusEdit")->text(); }
    bool Waiting() const { return !Child<QPushButton>(mp_dialog, "addFriendButton")->isEnabled(); }
    AddUserDialog* mp_dialog;
};
} // namespace

// The groups dialogs set a user's groups at once and share new groups; the configuration
// dialog is one and stores a priority of zero as none.
TEST_F(FormsTest, GroupDialogsSetGroupsAtOnceShareNewGroupsAndStorePriorityZeroAsNone)
{
    ItemPtr const l_listed = User("gus").NewItem("in_user_list");
    l_listed.Connect(Group("g1"));
    Group("g2").Connect(d.GetType("group_download_priority")->GetItem("3"));
    auto* lp_dialog = new UserGroupsDialog("gus", mp_window);
    auto* lp_other = new UserGroupsDialog("ann", mp_window);
    mp_form->OnActionBarTriggered("configure_user_groups");
    UserGroupConfigDialog* lp_config = userGroupConfigDialog;
    ASSERT_TRUE(lp_config);
    auto* lp_list = Child<QListWidget>(lp_dialog, "groupListWidget");
    EXPECT_EQ(lp_dialog->windowTitle(), QStringLiteral("User Groups for [gus]"));
    EXPECT_TRUE(Rows(lp_list).contains(QStringLiteral("g1*")));
    EXPECT_TRUE(Rows(lp_list).contains(QStringLiteral("g2")));
    EXPECT_EQ(l_listed.GetItems("user_list_group").size(), 1u);

    Entry(lp_list, "g2")->setCheckState(Qt::Checked);
    Entry(lp_list, "g1")->setCheckState(Qt::Unchecked);
    EXPECT_TRUE(l_listed.IsConnected(Group("g2")));
    EXPECT_FALSE(l_listed.IsConnected(Group("g1")));
    Entry(lp_list, "g2")->setCheckState(Qt::PartiallyChecked);
    EXPECT_TRUE(l_listed.IsConnected(Group("g2")));

    // A new group appears unchecked in every open dialog; a known or empty name adds nothing.
    for (char const* lp_name : {"  g3 ", "g1", "   "})
    {
        Child<QLineEdit>(lp_dialog, "newGroupEdit")->setText(QString::fromLatin1(lp_name));
        Child<QPushButton>(lp_dialog, "newGroupButton")->click();
        EXPECT_TRUE(Child<QLineEdit>(lp_dialog, "newGroupEdit")->text().isEmpty());
    }
    for (QListWidget* lp_view : std::initializer_list<QListWidget*>{lp_list, Child<QListWidget>(lp_other, "groupListWidget"),
                                 Child<QListWidget>(lp_config, "groupList")})
    {
        EXPECT_EQ(Rows(lp_view).filter(QStringLiteral("g3")), QStringList{QStringLiteral("g3")});
        EXPECT_EQ(Rows(lp_view).filter(QStringLiteral("g1")).size(), 1);
        EXPECT_EQ(lp_view->count(), static_cast<int>(d.GetType("user_list_group")->GetItems().size()));
    }
    EXPECT_FALSE(l_listed.IsConnected(Group("g3")));

    mp_form->OnActionBarTriggered("configure_user_groups");
    EXPECT_EQ(OpenDialogs<UserGroupConfigDialog>().size(), 1);
    EXPECT_EQ(lp_config->windowTitle(), QStringLiteral("Configure User Groups"));
    lp_list = Child<QListWidget>(lp_config, "groupList");
    auto* lp_spin = Child<QSpinBox>(lp_config, "prioritySpinBox");
    EXPECT_FALSE(lp_spin->isEnabled());
    lp_list->setCurrentItem(Entry(lp_list, "g2"));
    EXPECT_TRUE(lp_spin->isEnabled());
    EXPECT_EQ(Child<QGroupBox>(lp_config, "groupBox")->title(), QStringLiteral("g2"));
    EXPECT_EQ(lp_spin->value(), 3);
    lp_list->setCurrentItem(Entry(lp_list, "g1"));
    EXPECT_EQ(lp_spin->value(), 0);
    EXPECT_FALSE(Has(Group("g1"), "group_download_priority"));

    lp_spin->setValue(5);
    lp_spin->setValue(7);
    EXPECT_EQ(Group("g1")["group_download_priority"].AsString(), "7");
    EXPECT_EQ(Group("g1").GetItems("group_download_priority").size(), 1u);
    lp_spin->setValue(0);
    EXPECT_FALSE(Has(Group("g1"), "group_download_priority"));

    // A group that goes loses its row; closing clears the global, and a new dialog shows 0.
    d.GetType("user_list_group")->HasItem("g2").Remove();
    EXPECT_FALSE(Entry(lp_list, "g2"));
    lp_config->close();
    QApplication::processEvents();
    EXPECT_FALSE(userGroupConfigDialog);
    mp_form->OnActionBarTriggered("configure_user_groups");
    lp_list = Child<QListWidget>(userGroupConfigDialog, "groupList");
    lp_list->setCurrentItem(Entry(lp_list, "g1"));
    EXPECT_EQ(Child<QSpinBox>(userGroupConfigDialog, "prioritySpinBox")->value(), 0);
}

// Offline nothing can be asked; online the server is asked and the dialog waits for its own answer.
TEST_F(FormsTest, AddUserRefusesWhileOfflineAndOnlineWaitsForItsOwnAnswer)
{
    User("jon").NewItem("in_user_list");
    AddUser l_dialog(mp_window);
    EXPECT_EQ(l_dialog.Ask("   "), QStringLiteral("User name must not be empty."));
    EXPECT_EQ(l_dialog.Ask("newcomer"), QStringLiteral("Must be online to add a user to your list."));
    EXPECT_EQ(l_dialog.Ask("jon"), QStringLiteral("Must be online to add a user to your list."));
    EXPECT_FALSE(l_dialog.Waiting());

    LogIn();
    EXPECT_EQ(l_dialog.Ask("jon"), QStringLiteral("User already in list."));
    EXPECT_TRUE(NothingSent());

    EXPECT_EQ(l_dialog.Ask(" kim "), QStringLiteral("Adding user..."));
    EXPECT_TRUE(l_dialog.Waiting());
    EXPECT_EQ(mp_central->Next(), Body(5).Str("kim").Bytes());
    mp_central->Send(Body(5).Str("someone-else").U8(1).U32(0).Stats(0));
    WaitFor([] { return false; }, 300);
    EXPECT_TRUE(l_dialog.Waiting());

    mp_central->Send(Body(5).Str("kim").U8(1).U32(2).Stats(0).Str("de"));
    ASSERT_TRUE(WaitFor([&] { return !l_dialog.Waiting(); }));
    EXPECT_EQ(l_dialog.Status(), QStringLiteral("User added to list."));
    EXPECT_TRUE(Has(User("kim"), "in_user_list"));
    ASSERT_TRUE(Row(mp_form->UserList(), "kim"));
    EXPECT_EQ(Row(mp_form->UserList(), "kim")->text(1), QStringLiteral("Online"));

    EXPECT_EQ(l_dialog.Ask("nobody"), QStringLiteral("Adding user..."));
    mp_central->Send(Body(5).Str("nobody").U8(0));
    ASSERT_TRUE(WaitFor([&] { return !l_dialog.Waiting(); }));
    EXPECT_EQ(l_dialog.Status(), QStringLiteral("User name does not exist."));
    EXPECT_FALSE(Has(User("nobody"), "in_user_list"));

    // A lost link ends the wait, since no answer can come.
    EXPECT_EQ(l_dialog.Ask("lea"), QStringLiteral("Adding user..."));
    mp_central->Close();
    ASSERT_TRUE(WaitFor([&] { return !l_dialog.Waiting(); }));
    EXPECT_EQ(l_dialog.Status(), QStringLiteral("Must be online to add a user to your list."));
}

TEST_F(FormsTest, UsersPageShowsItsToolBarActions)
{
    mp_window->Widgets()->mainTabWidget->setCurrentWidget(mp_window->Widgets()->usersTab);
    QApplication::processEvents();
    QStringList l_texts;
    for (QAction* lp_action : actionBar->actions())
        l_texts << lp_action->text();
    QAction* lp_add = actionBar->actions().value(l_texts.indexOf(QStringLiteral("Add User")));
    EXPECT_TRUE(l_texts.contains(QStringLiteral("Configure User Groups"))) << l_texts.join(u'|').toStdString();
    // Several add-user dialogs may stand open.
    ASSERT_TRUE(lp_add);
    lp_add->trigger();
    lp_add->trigger();
    EXPECT_EQ(OpenDialogs<AddUserDialog>().size(), 2);
}
