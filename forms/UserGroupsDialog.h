#pragma once

#include <QDialog>
#include <memory>
#include <string>

#include "store/DataHandler.h"

namespace Ui
{
class UserGroupsDialog;
}
class Item;
class QListWidgetItem;

// Sets the groups of one user on the list. Each click is in force at once: there is no OK.
class UserGroupsDialog : public QDialog, public DataHandler
{
    Q_OBJECT
public:
    UserGroupsDialog(std::string const& i_user, QWidget* ip_parent = nullptr);
    ~UserGroupsDialog() override;

    void OnUserGroupAdded(Item* ip_group);

private slots:
    void OnGroupItemChanged(QListWidgetItem* ip_item);
    void OnNewGroupButtonClicked();

private:
    std::string m_user;
    std::unique_ptr<Ui::UserGroupsDialog> mp_ui;
};
