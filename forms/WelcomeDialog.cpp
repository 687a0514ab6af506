#include "forms/WelcomeDialog.h"

#include <QPushButton>

#include "store/Settings.h"
#include "ui_WelcomeDialog.h"

WelcomeDialog::WelcomeDialog(QWidget* ip_parent) : QDialog(ip_parent), mp_ui(std::make_unique<Ui::WelcomeDialog>())
{
    mp_ui->setupUi(this);
    mp_ui->listeningPortValue->setText(QString::fromStdString(GetGlobal("listening_port")));
    connect(mp_ui->usernameEdit, &QLineEdit::textChanged, this, &WelcomeDialog::OnUsernameEdited);
    OnUsernameEdited(mp_ui->usernameEdit->text());
}

WelcomeDialog::~WelcomeDialog() = default;

void WelcomeDialog::OnUsernameEdited(QString const& i_text)
{
    mp_ui->buttonBox->button(QDialogButtonBox::Ok)->setEnabled(!i_text.trimmed().isEmpty());
}

void WelcomeDialog::accept()
{
    QString const l_name = mp_ui->usernameEdit->text().trimmed();
    if (l_name.isEmpty())
        return;
    QDialog::accept();
    // UTF-8, so that a name in any script reaches the server as the user typed it.
    SetGlobal("username", l_name.toStdString());
    SetGlobal("password", mp_ui->passwordEdit->text().toStdString());
    emit ConnectRequested();
    deleteLater();
}

void WelcomeDialog::reject()
{
    QDialog::reject();
    emit Dismissed();
    deleteLater();
}
