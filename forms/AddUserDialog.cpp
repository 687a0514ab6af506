#include "forms/AddUserDialog.h"

#include "server/Server.h"
#include "store/Data.h"
#include "ui_AddUserDialog.h"

AddUserDialog::AddUserDialog(QWidget* ip_parent) : QDialog(ip_parent), mp_ui(std::make_unique<Ui::AddUserDialog>())
{
    mp_ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    connect(mp_ui->addFriendButton, &QPushButton::clicked, this, &AddUserDialog::OnAddUserClicked);
    connect(mp_ui->userNameEdit, &QLineEdit::returnPressed, this, &AddUserDialog::OnAddUserClicked);
    connect(gp_server, &Server::AddUserResponse, this, &AddUserDialog::OnAddUserResponse);
    connect(gp_server, &Server::Disconnected, this, &AddUserDialog::OnDisconnected);
}

AddUserDialog::~AddUserDialog() = default;

void AddUserDialog::OnAddUserClicked()
{
    if (!m_pendingUser.empty())
        return;
    std::string const l_name = mp_ui->userNameEdit->text().trimmed().toStdString();
    ItemPtr const l_user = l_name.empty() ? ItemPtr() : d.GetType("user")->HasItem(l_name);
    if (l_name.empty())
        mp_ui->statusEdit->setText(QStringLiteral("User name must not be empty."));
    else if (!gp_server->IsConnected())
        mp_ui->statusEdit->setText(QStringLiteral("Must be online to add a user to your list."));
    else if (l_user["in_user_list"])
        mp_ui->statusEdit->setText(QStringLiteral("User already in list."));
    else
    {
        mp_ui->statusEdit->setText(QStringLiteral("Adding user..."));
        mp_ui->userNameEdit->setReadOnly(true);
        mp_ui->addFriendButton->setEnabled(false);
        m_pendingUser = l_name;
        gp_server->AddUser(l_name);
    }
}

void AddUserDialog::OnAddUserResponse(std::string const& i_user, bool i_added)
{
    if (m_pendingUser.empty() || i_user != m_pendingUser)
        return;
    EndWait();
    if (i_added)
    {
        ItemPtr const l_user = d.GetType("user")->GetItem(i_user);
        if (!l_user["in_user_list"])
            l_user.NewItem("in_user_list");
        mp_ui->statusEdit->setText(QStringLiteral("User added to list."));
    }
    else
        mp_ui->statusEdit->setText(QStringLiteral("User name does not exist."));
}

void AddUserDialog::OnDisconnected()
{
    // A lost link brings no answer, so the dialog stops waiting and the name can be asked again.
    if (m_pendingUser.empty())
        return;
    EndWait();
    mp_ui->statusEdit->setText(QStringLiteral("Must be online to add a user to your list."));
}

void AddUserDialog::EndWait()
{
    m_pendingUser.clear();
    mp_ui->userNameEdit->setReadOnly(false);
    mp_ui->addFriendButton->setEnabled(true);
}
