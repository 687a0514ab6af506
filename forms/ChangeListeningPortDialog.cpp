#include "forms/ChangeListeningPortDialog.h"

#include "shell/InformationBox.h"
#include "store/Settings.h"
#include "ui_ChangeListeningPortDialog.h"

ChangeListeningPortDialog::ChangeListeningPortDialog(QWidget* ip_parent)
    : QDialog(ip_parent), mp_ui(std::make_unique<Ui::ChangeListeningPortDialog>())
{
    mp_ui->setupUi(this);
    mp_ui->portEdit->setText(QString::fromStdString(GetGlobal("listening_port")));
}

ChangeListeningPortDialog::~ChangeListeningPortDialog() = default;

void ChangeListeningPortDialog::accept()
{
    bool l_ok = false;
    int l_port = mp_ui->portEdit->text().trimmed().toInt(&l_ok, 10);
    if (!l_ok)
        l_port = 0;
    if (l_port < 1 || l_port > 65535)
    {
        ShowInformationBox(this, QStringLiteral("Invalid Port Number"),
                           QStringLiteral("Port number must be in the range of 1 to 65535."));
        return;
    }
    if (QString::number(l_port).toStdString() == GetGlobal("listening_port"))
    {
        ShowInformationBox(this, QStringLiteral("Port Number Not Changed"),
                           QStringLiteral("Port number has not been changed."));
        return;
    }
    QDialog::accept();
    SetGlobal("new_listening_port", l_port);
    ShowInformationBox(parentWidget(), QStringLiteral("Change to Listening Port Pending"),
                       QStringLiteral("Changes to the listening port will take effect after a client restart."));
    deleteLater();
}

void ChangeListeningPortDialog::reject()
{
    QDialog::reject();
    deleteLater();
}
