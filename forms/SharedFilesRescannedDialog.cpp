#include "forms/SharedFilesRescannedDialog.h"

#include "ui_SharedFilesRescannedDialog.h"

SharedFilesRescannedDialog::SharedFilesRescannedDialog(QWidget* ip_parent)
    : QDialog(ip_parent), mp_ui(std::make_unique<Ui::SharedFilesRescannedDialog>())
{
    mp_ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    connect(mp_ui->buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
}

SharedFilesRescannedDialog::~SharedFilesRescannedDialog() = default;

void SharedFilesRescannedDialog::Append(QString const& i_line)
{
    mp_ui->plainTextEdit->appendPlainText(i_line);
}
