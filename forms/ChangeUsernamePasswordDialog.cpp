#include "forms/ChangeUsernamePasswordDialog.h"

#include "store/Settings.h"
#include "ui_ChangeUsernamePasswordDialog.h"

ChangeUsernamePasswordDialog::ChangeUsernamePasswordDialog(QWidget* ip_parent)
    : QDialog(ip_parent), mp_ui(std::make_unique<Ui::ChangeUsernamePasswordDialog>())
{
    mp_ui->setupUi(this);
    mp_ui->usernameEdit->setText(QString::fromStdString(GetGlobal("username")));
    mp_ui->passwordEdit->setText(QString::fromStdString(GetGlobal("password")));
}

ChangeUsernamePasswordDialog::~ChangeUsernamePasswordDialog() = default;

void ChangeUsernamePasswordDialog::accept()
{
    QDialog::accept();
    // UTF-8, so that a name in any script reaches the server as the user typed it.
    SetGlobal("username", mp_ui->usernameEdit->text().toStdString());
    SetGlobal("password", mp_ui->passwordEdit->text().toStdString());
    deleteLater();
}

void ChangeUsernamePasswordDialog::reject()
{
    QDialog::reject();
    deleteLater();
}
