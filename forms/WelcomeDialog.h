#pragma once

#include <QDialog>
#include <memory>

namespace Ui
{
class WelcomeDialog;
}

// The first start without a user name: asks for the name and password, shows the port peers
// reach this client on, and on OK saves both and asks for a connection. OK stays disabled
// while the name is empty. The dialog deletes itself once answered.
class WelcomeDialog : public QDialog
{
    Q_OBJECT
public:
    explicit WelcomeDialog(QWidget* ip_parent = nullptr);
    ~WelcomeDialog() override;

public slots:
    void accept() override;
    void reject() override;

signals:
    void ConnectRequested();
    void Dismissed();

private:
    void OnUsernameEdited(QString const& i_text);

    std::unique_ptr<Ui::WelcomeDialog> mp_ui;
};
