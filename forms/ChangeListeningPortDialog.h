#pragma once

#include <QDialog>
#include <memory>

namespace Ui
{
class ChangeListeningPortDialog;
}

// Asks for a new peer listening port, which takes effect at the next start.
class ChangeListeningPortDialog : public QDialog
{
    Q_OBJECT
public:
    explicit ChangeListeningPortDialog(QWidget* ip_parent = nullptr);
    ~ChangeListeningPortDialog() override;

public slots:
    void accept() override;
    void reject() override;

private:
    std::unique_ptr<Ui::ChangeListeningPortDialog> mp_ui;
};
