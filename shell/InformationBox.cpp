#include "shell/InformationBox.h"

#include <QMessageBox>

void ShowInformationBox(QWidget* ip_parent, QString const& i_title, QString const& i_text)
{
    auto* lp_box = new QMessageBox(QMessageBox::Information, i_title, i_text, QMessageBox::Ok, ip_parent);
    lp_box->setAttribute(Qt::WA_DeleteOnClose);
    lp_box->setObjectName(QStringLiteral("informationBox"));
    lp_box->show();
}
