#pragma once

#include <QDialog>
#include <memory>

namespace Ui
{
class ChangeUsernamePasswordDialog;
}

// Sets the login name and password; the new values go out at the next login.
class ChangeUsernamePasswordDialog : public QDialog
{
    Q_OBJECT
public:
    explicit ChangeUsernamePasswordDialog(QWidget* ip_parent = nullptr);
    ~ChangeUsernamePasswordDialog() override;

public slots:
    void accept() override;
    void reject() override;

private:
    std::unique_ptr<Ui::ChangeUsernamePasswordDialog> mp_ui;
};
