#include "forms/UserGroupsDialog.h"

#include <QListWidgetItem>

#include "store/Data.h"
#include "ui_UserGroupsDialog.h"

namespace
{
QListWidgetItem* AddGroupRow(QListWidget* ip_list, Item* ip_group, bool i_checked)
{
    auto* lp_row = new QListWidgetItem(QString::fromStdString(ItemPtr(ip_group).AsString()), ip_list);
    lp_row->setFlags(lp_row->flags() | Qt::ItemIsUserCheckable);
    lp_row->setCheckState(i_checked ? Qt::Checked : Qt::Unchecked);
    return lp_row;
}
} // namespace

UserGroupsDialog::UserGroupsDialog(std::string const& i_user, QWidget* ip_parent)
    : QDialog(ip_parent), m_user(i_user), mp_ui(std::make_unique<Ui::UserGroupsDialog>())
{
    mp_ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("User Groups for [") + QString::fromStdString(i_user) + QLatin1Char(']'));

    ItemPtr const l_listed = d.GetType("user")->GetItem(i_user)->GetItem("in_user_list");
    for (Item* lp_group : g("user_list_group"))
        AddGroupRow(mp_ui->groupListWidget, lp_group, l_listed && l_listed.IsConnected(ItemPtr(lp_group)));
    ListenItemAdded("user_list_group", &UserGroupsDialog::OnUserGroupAdded);

    // Only now, so that filling the list changes nothing in the graph.
    connect(mp_ui->groupListWidget, &QListWidget::itemChanged, this, &UserGroupsDialog::OnGroupItemChanged);
    connect(mp_ui->newGroupButton, &QPushButton::clicked, this, &UserGroupsDialog::OnNewGroupButtonClicked);
    connect(mp_ui->newGroupEdit, &QLineEdit::returnPressed, this, &UserGroupsDialog::OnNewGroupButtonClicked);
}

UserGroupsDialog::~UserGroupsDialog() = default;

void UserGroupsDialog::OnUserGroupAdded(Item* ip_group)
{
    QSignalBlocker const l_quiet(mp_ui->groupListWidget);
    AddGroupRow(mp_ui->groupListWidget, ip_group, false);
}

void UserGroupsDialog::OnGroupItemChanged(QListWidgetItem* ip_item)
{
    Qt::CheckState const l_state = ip_item->checkState();
    if (l_state == Qt::PartiallyChecked || ip_item->text().isEmpty())
        return;
    // The user may have left the list while the dialog stood open; then there is nothing to set.
    ItemPtr const l_listed = d.GetType("user")->GetItem(m_user)->GetItem("in_user_list");
    if (!l_listed)
        return;
    ItemPtr const l_group = d.GetType("user_list_group")->GetItem(ip_item->text().toStdString());
    bool const l_connected = l_listed.IsConnected(l_group);
    if (l_state == Qt::Checked && !l_connected)
        l_listed.Connect(l_group);
    else if (l_state == Qt::Unchecked && l_connected)
        l_listed.Disconnect(l_group);
}

void UserGroupsDialog::OnNewGroupButtonClicked()
{
    QString const l_name = mp_ui->newGroupEdit->text().trimmed();
    mp_ui->newGroupEdit->clear();
    if (l_name.isEmpty())
        return;
    // Getting the group makes it; the type's handlers then add its row to every open dialog.
    d.GetType("user_list_group")->GetItem(l_name.toStdString());
}
