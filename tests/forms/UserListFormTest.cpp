#include "FormsFixture.h"
#include "forms/UserGroupsDialog.h"
#include "forms/UserMenuOptions.h"

namespace
{
QString Column(QTreeWidgetItem* ip_row, int i_column) { return ip_row ? ip_row->text(i_column) : QStringLiteral("<no row>"); }

// The texts of the user's menu; the entry of text i_choice, if any, is then triggered.
QStringList MenuFor(char const* i_user, QString const& i_choice = QString())
{
    QMenu l_menu;
    UserMenuOptions l_options(&l_menu, i_user);
    QStringList l_texts;
    for (QAction* lp_action : l_menu.actions())
        l_texts << lp_action->text();
    if (QAction* lp_chosen = l_menu.actions().value(l_texts.indexOf(i_choice)))
        lp_chosen->trigger();
    return l_texts;
}
} // namespace

TEST_F(FormsTest, RowsFollowListGroupsStatusAndUnsharingAndListedUsersAreTrackedOnceOnTheWire)
{
    QTreeWidget *lp_list = mp_form->UserList(), *lp_unshared = mp_form->UnsharedList();
    ItemPtr const l_ann = User("ann"), l_listed = l_ann.NewItem("in_user_list");
    ASSERT_TRUE(Row(lp_list, "ann"));
    EXPECT_TRUE(Has(l_ann, "is_tracked"));
    EXPECT_EQ(Column(Row(lp_list, "ann"), 1), QString());

    // Groups show in alphabetical order whatever the order of joining.
    l_listed.Connect(d.GetType("user_list_group")->GetItem("zeta"));
    l_listed.Connect(d.GetType("user_list_group")->GetItem("alpha"));
    EXPECT_EQ(Column(Row(lp_list, "ann"), 2), QStringLiteral("alpha, zeta"));
    l_listed.Disconnect(d.GetType("user_list_group")->GetItem("zeta"));
    EXPECT_EQ(Column(Row(lp_list, "ann"), 2), QStringLiteral("alpha"));

    // Off the list the row goes, tracking stays; the unshared list is independent of it.
    l_ann.NewItem("unshared");
    l_ann.Disconnect("in_user_list");
    EXPECT_FALSE(Row(lp_list, "ann"));
    EXPECT_TRUE(Has(l_ann, "is_tracked"));
    EXPECT_TRUE(Row(lp_unshared, "ann"));
    l_ann.Disconnect("unshared");
    EXPECT_FALSE(Row(lp_unshared, "ann"));

    // A user who is online when added shows so at once; a status of someone off the list
    // shows nowhere.
    ItemPtr const l_bea = User("bea");
    l_bea.NewItem("is_online");
    l_bea.NewItem("in_user_list");
    EXPECT_EQ(Column(Row(lp_list, "bea"), 1), QStringLiteral("Online"));
    User("cal").NewItem("is_online");
    EXPECT_FALSE(Row(lp_list, "cal"));

    // Online, a user is tracked once on the wire when listed, and the status the server tells shows.
    LogIn();
    User("dora").NewItem("in_user_list");
    EXPECT_EQ(mp_central->Next(), Body(5).Str("dora").Bytes());

    mp_central->Send(Body(7).Str("dora").U32(2).U8(0));
    ASSERT_TRUE(WaitFor([&] { return Column(Row(lp_list, "dora"), 1) == QStringLiteral("Online"); }));
    mp_central->Send(Body(7).Str("dora").U32(0).U8(0));
    ASSERT_TRUE(WaitFor([&] { return Column(Row(lp_list, "dora"), 1).isEmpty(); }));

    // Leaving and rejoining the list neither untracks nor tracks again.
    User("dora").Disconnect("in_user_list");
    User("dora").NewItem("in_user_list");
    EXPECT_TRUE(NothingSent());
}

TEST_F(FormsTest, UserMenuFollowsTheMarksAndActsOnTheList)
{
    User("eve");
    EXPECT_EQ(MenuFor("eve", QStringLiteral("Add user to list")),
              (QStringList{QStringLiteral("Message user"), QStringLiteral("Add user to list"), QStringLiteral("Browse user's files"),
                           QString(), QStringLiteral("Unshare files from user")}));
    EXPECT_TRUE(Row(mp_form->UserList(), "eve"));
    QList<UserGroupsDialog*> const l_groups = OpenDialogs<UserGroupsDialog>();
    ASSERT_EQ(l_groups.size(), 1);
    EXPECT_EQ(l_groups.front()->windowTitle(), QStringLiteral("User Groups for [eve]"));
    EXPECT_EQ(l_groups.front()->parentWidget(), mp_window);

    EXPECT_EQ(MenuFor("eve", QStringLiteral("Remove user from list")),
              (QStringList{QStringLiteral("Message user"), QStringLiteral("Set user's groups"),
                           QStringLiteral("Remove user from list"), QStringLiteral("Browse user's files"), QString(),
                           QStringLiteral("Unshare files from user")}));
    EXPECT_FALSE(Row(mp_form->UserList(), "eve"));
    EXPECT_FALSE(Has(User("eve"), "in_user_list"));

    // The last entry follows the unshared mark and sets or clears it.
    EXPECT_EQ(MenuFor("eve", QStringLiteral("Unshare files from user")).value(4), QStringLiteral("Unshare files from user"));
    EXPECT_TRUE(Has(User("eve"), "unshared"));
    EXPECT_EQ(MenuFor("eve", QStringLiteral("Re-share files with user")).value(4), QStringLiteral("Re-share files with user"));
    EXPECT_FALSE(Has(User("eve"), "unshared"));

    // A right click on a row opens the menu for its user, beside the rows nothing.
    User("fay").NewItem("in_user_list");
    QTreeWidget* lp_list = mp_form->UserList();
    QApplication::processEvents();
    QRect const l_rowRect = lp_list->visualItemRect(Row(lp_list, "fay"));
    EXPECT_EQ(MenuShownBy([&] { mp_form->OnUserListContextMenuRequested(l_rowRect.center()); }).value(2),
              QStringLiteral("Remove user from list"));
    QPoint const l_beside(5, lp_list->viewport()->height() - 2);
    ASSERT_FALSE(lp_list->itemAt(l_beside));
    EXPECT_EQ(MenuShownBy([&] { mp_form->OnUserListContextMenuRequested(l_beside); }),
              QStringList{QStringLiteral("<no menu>")});
}
