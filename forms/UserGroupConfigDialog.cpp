#include "forms/UserGroupConfigDialog.h"

#include <QListWidgetItem>

#include "store/Data.h"
#include "ui_UserGroupConfigDialog.h"

UserGroupConfigDialog* userGroupConfigDialog = nullptr;

UserGroupConfigDialog::UserGroupConfigDialog(QWidget* ip_parent)
    : QDialog(ip_parent), mp_ui(std::make_unique<Ui::UserGroupConfigDialog>())
{
    mp_ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    userGroupConfigDialog = this;

    ListenItemAdded("user_list_group", &UserGroupConfigDialog::OnUserGroupAdded);
    ListenItemRemoved("user_list_group", &UserGroupConfigDialog::OnUserGroupRemoved);
    for (Item* lp_group : g("user_list_group"))
        OnUserGroupAdded(lp_group);
    mp_ui->prioritySpinBox->setEnabled(false);

    connect(mp_ui->groupList, &QListWidget::currentItemChanged, this,
            &UserGroupConfigDialog::OnCurrentGroupItemChanged);
    connect(mp_ui->prioritySpinBox, &QSpinBox::valueChanged, this,
            &UserGroupConfigDialog::OnPrioritySpinValueChanged);
}

UserGroupConfigDialog::~UserGroupConfigDialog()
{
    userGroupConfigDialog = nullptr;
}

void UserGroupConfigDialog::OnUserGroupAdded(Item* ip_group)
{
    new QListWidgetItem(QString::fromStdString(ItemPtr(ip_group).AsString()), mp_ui->groupList);
}

void UserGroupConfigDialog::OnUserGroupRemoved(Item* ip_group)
{
    QString const l_name = QString::fromStdString(ItemPtr(ip_group).AsString());
    for (QListWidgetItem* lp_row : mp_ui->groupList->findItems(l_name, Qt::MatchExactly | Qt::MatchCaseSensitive))
        delete lp_row;
}

void UserGroupConfigDialog::OnCurrentGroupItemChanged(QListWidgetItem* ip_current, QListWidgetItem*)
{
    if (!ip_current)
    {
        mp_ui->prioritySpinBox->setEnabled(false);
        mp_ui->groupBox->setTitle(QString());
        return;
    }
    mp_ui->prioritySpinBox->setEnabled(true);
    mp_ui->groupBox->setTitle(ip_current->text());
    ItemPtr const l_group = d.GetType("user_list_group")->HasItem(ip_current->text().toStdString());
    mp_ui->prioritySpinBox->setValue(l_group["group_download_priority"].AsInt());
}

void UserGroupConfigDialog::OnPrioritySpinValueChanged(int i_value)
{
    QListWidgetItem* lp_current = mp_ui->groupList->currentItem();
    if (!lp_current)
        return;
    ItemPtr const l_group = d.GetType("user_list_group")->HasItem(lp_current->text().toStdString());
    if (!l_group)
        return;
    // No priority is stored as the absence of one; the group holds one, so a new one replaces it.
    if (i_value < 1)
        l_group.Disconnect("group_download_priority");
    else
        l_group.Connect(d.GetType("group_download_priority")->GetItem(std::to_string(i_value)));
}
