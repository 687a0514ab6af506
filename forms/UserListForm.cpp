#include "forms/UserListForm.h"

#include <QMenu>
#include <QTreeWidget>

#include "forms/AddUserDialog.h"
#include "forms/UserGroupConfigDialog.h"
#include "forms/UserMenuOptions.h"
#include "server/Server.h"
#include "server/ServerSchema.h"
#include "shell/ActionSetToolBar.h"
#include "shell/ItemRow.h"
#include "shell/SizeManager.h"
#include "store/Data.h"
#include "store/PathNode.h"
#include "ui_UserListForm.h"

UserListForm::UserListForm(QWidget* ip_parent) : QWidget(ip_parent), mp_ui(std::make_unique<Ui::UserListForm>())
{
    mp_ui->setupUi(this);
    mp_ui->userList->setColumnWidth(0, 200);
    mp_ui->userList->setColumnWidth(1, 100);
    mp_ui->unsharedList->setColumnWidth(0, 200);
    connect(mp_ui->userList, &QWidget::customContextMenuRequested, this,
            &UserListForm::OnUserListContextMenuRequested);
    connect(mp_ui->unsharedList, &QWidget::customContextMenuRequested, this,
            &UserListForm::OnUnsharedListContextMenuRequested);
}

UserListForm::~UserListForm() = default;

QTreeWidget* UserListForm::UserList() const
{
    return mp_ui->userList;
}

QTreeWidget* UserListForm::UnsharedList() const
{
    return mp_ui->unsharedList;
}

void UserListForm::FocusCurrentPage()
{
    if (QWidget* lp_page = mp_ui->tabWidget->currentWidget())
        lp_page->setFocus(Qt::OtherFocusReason);
}

void UserListForm::Init()
{
    Type* lp_user = d.GetType("user");
    d.NewType("user_list_node", true, false, true)->RelateToType(lp_user, One, One, false);
    d.NewType("unshared_list_node", true, false, true)->RelateToType(lp_user, One, One, false);
    // The mark belongs to the share's access rule; whichever side starts first declares it.
    RelateOnce(lp_user, DeclareTypeOnce("unshared", false, true, true), Many, One, false);

    if (sizeManager)
        sizeManager->RegisterTreeWidget(QStringLiteral("user_list"), mp_ui->userList);
    mp_ui->userList->setSortingEnabled(false);
    for (Item* lp_listed : g("in_user_list").GetItems("user"))
    {
        std::string const l_name = ItemPtr(lp_listed).AsString();
        AddItemRow(mp_ui->userList, lp_listed, "user_list_node");
        gp_server->TrackUser(l_name);
        UpdateUserGroupsDisplay(l_name);
    }
    mp_ui->userList->setSortingEnabled(true);
    mp_ui->userList->sortByColumn(0, Qt::AscendingOrder);

    mp_ui->unsharedList->setSortingEnabled(false);
    for (Item* lp_unshared : g("unshared").GetItems("user"))
        AddItemRow(mp_ui->unsharedList, lp_unshared, "unshared_list_node");
    mp_ui->unsharedList->setSortingEnabled(true);
    mp_ui->unsharedList->sortByColumn(0, Qt::AscendingOrder);

    struct PathSpec
    {
        char const* m_child;
        PathNodeRelation m_childRelation;
        bool m_onListOnly; // the user must stay on the list for the handler to run
        void (UserListForm::*m_method)(Item*);
    };
    PathSpec const l_paths[] = {
        {"is_online", NewlyConnected, true, &UserListForm::OnUserOnline},
        {"is_online", NewlyDisconnected, true, &UserListForm::OnUserOffline},
        {"in_user_list", NewlyConnected, false, &UserListForm::OnUserAddedToList},
        {"in_user_list", NewlyDisconnected, false, &UserListForm::OnUserRemovedFromList},
        {"unshared", NewlyConnected, false, &UserListForm::OnUserUnshared},
        {"unshared", NewlyDisconnected, false, &UserListForm::OnUserReshared},
    };
    for (PathSpec const& l_path : l_paths)
    {
        auto* lp_root = new PathNode(&d, "user");
        new PathNode(lp_root, l_path.m_child, l_path.m_childRelation);
        if (l_path.m_onListOnly)
            new PathNode(lp_root, "in_user_list", StillConnected);
        ListenPath(lp_root, l_path.m_method);
    }
    for (auto [l_relation, lp_method] : {std::pair{NewlyConnected, &UserListForm::OnUserGroupAdded},
                                          std::pair{NewlyDisconnected, &UserListForm::OnUserGroupRemoved}})
    {
        auto* lp_root = new PathNode(&d, "user");
        new PathNode(new PathNode(lp_root, "in_user_list", StillConnected), "user_list_group", l_relation);
        ListenPath(lp_root, lp_method);
    }

    actionBar->AddSetAction("user_list", "manual_add_user", "Add User", ":/icons/add_user_icon", false);
    actionBar->AddSetAction("user_list", "configure_user_groups", "Configure User Groups", ":/icons/users_icon",
                            false);
    actionBar->RegisterWidget(mp_ui->userListTab, QStringLiteral("user_list"));
    actionBar->AutoFocusTabWidget(mp_ui->tabWidget);
    connect(actionBar, &ActionSetToolBar::ActionTriggered, this, &UserListForm::OnActionBarTriggered);
}

void UserListForm::OnUserOnline(Item* ip_user)
{
    if (QTreeWidgetItem* lp_row = ItemRow(ip_user, "user_list_node"))
        lp_row->setText(1, QStringLiteral("Online"));
}

void UserListForm::OnUserOffline(Item* ip_user)
{
    if (QTreeWidgetItem* lp_row = ItemRow(ip_user, "user_list_node"))
        lp_row->setText(1, QString());
}

void UserListForm::OnUserAddedToList(Item* ip_user)
{
    ItemPtr const l_user(ip_user);
    AddItemRow(mp_ui->userList, ip_user, "user_list_node");
    if (l_user.IsConnected("is_online"))
        OnUserOnline(ip_user);
    gp_server->TrackUser(l_user.AsString());
    UpdateUserGroupsDisplay(l_user.AsString());
}

void UserListForm::OnUserRemovedFromList(Item* ip_user)
{
    // Tracking goes on: the server keeps reporting the user's status until the next login.
    DropItemRow(ip_user, "user_list_node");
}

void UserListForm::OnUserUnshared(Item* ip_user)
{
    AddItemRow(mp_ui->unsharedList, ip_user, "unshared_list_node");
}

void UserListForm::OnUserReshared(Item* ip_user)
{
    DropItemRow(ip_user, "unshared_list_node");
}

void UserListForm::OnUserGroupAdded(Item* ip_user)
{
    UpdateUserGroupsDisplay(ItemPtr(ip_user).AsString());
}

void UserListForm::OnUserGroupRemoved(Item* ip_user)
{
    UpdateUserGroupsDisplay(ItemPtr(ip_user).AsString());
}

void UserListForm::UpdateUserGroupsDisplay(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(i_user);
    QTreeWidgetItem* lp_row = ItemRow(l_user, "user_list_node");
    if (!lp_row)
        return;
    QStringList l_groups;
    for (Item* lp_group : l_user["in_user_list"].GetItems("user_list_group").SortAlphabetic(true))
        l_groups << QString::fromStdString(ItemPtr(lp_group).AsString());
    lp_row->setText(2, l_groups.join(QStringLiteral(", ")));
}

void UserListForm::OnActionBarTriggered(std::string i_id)
{
    if (i_id == "configure_user_groups")
    {
        if (userGroupConfigDialog)
        {
            userGroupConfigDialog->raise();
            userGroupConfigDialog->activateWindow();
            userGroupConfigDialog->setFocus(Qt::OtherFocusReason);
            return;
        }
        (new UserGroupConfigDialog(this))->show();
    }
    else if (i_id == "manual_add_user")
        (new AddUserDialog(this))->show();
}

void UserListForm::OnUserListContextMenuRequested(QPoint const& i_point)
{
    ShowUserMenu(mp_ui->userList, i_point);
}

void UserListForm::OnUnsharedListContextMenuRequested(QPoint const& i_point)
{
    ShowUserMenu(mp_ui->unsharedList, i_point);
}

void UserListForm::ShowUserMenu(QTreeWidget* ip_tree, QPoint const& i_point)
{
    QTreeWidgetItem* lp_row = ip_tree->itemAt(i_point);
    if (!lp_row)
        return;
    QMenu l_menu;
    new UserMenuOptions(&l_menu, lp_row->text(0).toStdString(), &l_menu);
    l_menu.exec(ip_tree->viewport()->mapToGlobal(i_point));
}
