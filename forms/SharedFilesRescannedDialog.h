#pragma once

#include <QDialog>
#include <QString>
#include <memory>

namespace Ui
{
class SharedFilesRescannedDialog;
}

// Tells what a rescan of the shared folders found: one line for each count.
class SharedFilesRescannedDialog : public QDialog
{
    Q_OBJECT
public:
    explicit SharedFilesRescannedDialog(QWidget* ip_parent = nullptr);
    ~SharedFilesRescannedDialog() override;

    void Append(QString const& i_line);

private:
    std::unique_ptr<Ui::SharedFilesRescannedDialog> mp_ui;
};
