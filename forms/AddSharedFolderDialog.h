#pragma once

#include <QDialog>
#include <QString>
#include <functional>
#include <memory>

namespace Ui
{
class AddSharedFolderDialog;
}

// Shares a folder with everyone, with the user list, or with chosen groups of it. A folder
// that is already shared keeps its row and its files and gains the access chosen here.
class AddSharedFolderDialog : public QDialog
{
    Q_OBJECT
public:
    // Asks the user for a folder; an empty text when none was chosen.
    using FolderChooser = std::function<QString(QWidget* ip_parent)>;

    explicit AddSharedFolderDialog(QWidget* ip_parent = nullptr);
    ~AddSharedFolderDialog() override;

    // Replaces the file dialog behind "Select Folder" (an empty function restores it), so
    // that the choice can be made without a person at the screen.
    static void SetFolderChooser(FolderChooser i_chooser);

public slots:
    void OnSelectFolderClicked();
    void OnAccessibleToEveryoneCheckStateChanged(int i_state);
    void OnAccessibleToUserListCheckStateChanged(int i_state);
    void accept() override;

private:
    static QString ChooseFolderInFileDialog(QWidget* ip_parent);

    static FolderChooser s_folderChooser;
    std::unique_ptr<Ui::AddSharedFolderDialog> mp_ui;
};
