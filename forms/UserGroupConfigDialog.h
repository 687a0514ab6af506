#pragma once

#include <QDialog>
#include <memory>

#include "store/DataHandler.h"

namespace Ui
{
class UserGroupConfigDialog;
}
class Item;
class QListWidgetItem;

// Sets each group's download priority. One stands open at a time, held in userGroupConfigDialog.
class UserGroupConfigDialog : public QDialog, public DataHandler
{
    Q_OBJECT
public:
    explicit UserGroupConfigDialog(QWidget* ip_parent = nullptr);
    ~UserGroupConfigDialog() override;

    void OnUserGroupAdded(Item* ip_group);
    void OnUserGroupRemoved(Item* ip_group);

private slots:
    void OnCurrentGroupItemChanged(QListWidgetItem* ip_current, QListWidgetItem* ip_previous);
    void OnPrioritySpinValueChanged(int i_value);

private:
    std::unique_ptr<Ui::UserGroupConfigDialog> mp_ui;
};

extern UserGroupConfigDialog* userGroupConfigDialog;
