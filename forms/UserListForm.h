#pragma once

#include <QWidget>
#include <memory>
#include <string>

#include "store/DataHandler.h"

namespace Ui
{
class UserListForm;
}
class Item;
class QTreeWidget;

// The "Users" page: everybody on the user list with online status and groups, and on a second
// tab everybody from whom files are withheld. The rows follow the graph's marks on each user.
class UserListForm : public QWidget, public DataHandler
{
    Q_OBJECT
public:
    explicit UserListForm(QWidget* ip_parent = nullptr);
    ~UserListForm() override;

    // Runs once the data file is loaded: fills both lists, tracks the listed users and starts
    // following the marks.
    void Init();

    void OnUserOnline(Item* ip_user);
    void OnUserOffline(Item* ip_user);
    void OnUserAddedToList(Item* ip_user);
    void OnUserRemovedFromList(Item* ip_user);
    void OnUserUnshared(Item* ip_user);
    void OnUserReshared(Item* ip_user);
    void OnUserGroupAdded(Item* ip_user);
    void OnUserGroupRemoved(Item* ip_user);
    void UpdateUserGroupsDisplay(std::string const& i_user);

    // Hands the focus, and with it the tool bar, to the page on show.
    void FocusCurrentPage();

    QTreeWidget* UserList() const;
    QTreeWidget* UnsharedList() const;

public slots:
    void OnActionBarTriggered(std::string i_id);
    void OnUserListContextMenuRequested(QPoint const& i_point);
    void OnUnsharedListContextMenuRequested(QPoint const& i_point);

private:
    void ShowUserMenu(QTreeWidget* ip_tree, QPoint const& i_point);

    std::unique_ptr<Ui::UserListForm> mp_ui;
};
