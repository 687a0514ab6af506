#pragma once

#include <QDialog>
#include <memory>
#include <string>

namespace Ui
{
class AddUserDialog;
}

// Adds a user to the list by name, once the server has said that the name exists. It stays
// open for the next name.
class AddUserDialog : public QDialog
{
    Q_OBJECT
public:
    explicit AddUserDialog(QWidget* ip_parent = nullptr);
    ~AddUserDialog() override;

private slots:
    void OnAddUserClicked();
    void OnAddUserResponse(std::string const& i_user, bool i_added);
    void OnDisconnected();

private:
    void EndWait();

    std::string m_pendingUser; // the name asked for; empty when none
    std::unique_ptr<Ui::AddUserDialog> mp_ui;
};
