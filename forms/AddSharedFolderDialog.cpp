#include "forms/AddSharedFolderDialog.h"

#include <QFileDialog>
#include <QListWidgetItem>

#include "store/Data.h"
#include "ui_AddSharedFolderDialog.h"

namespace
{
// The group's key, kept in its row so that a name that is not valid UTF-8 is found again.
constexpr int s_groupKeyRole = Qt::UserRole;
} // namespace

AddSharedFolderDialog::FolderChooser AddSharedFolderDialog::s_folderChooser;

AddSharedFolderDialog::AddSharedFolderDialog(QWidget* ip_parent)
    : QDialog(ip_parent), mp_ui(std::make_unique<Ui::AddSharedFolderDialog>())
{
    mp_ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);

    for (Item* lp_group : g("user_list_group"))
    {
        std::string const l_key = ItemPtr(lp_group).AsString();
        auto* lp_row = new QListWidgetItem(QString::fromUtf8(l_key), mp_ui->groupsListWidget);
        lp_row->setData(s_groupKeyRole, QByteArray::fromStdString(l_key));
        lp_row->setFlags(lp_row->flags() | Qt::ItemIsUserCheckable);
        lp_row->setCheckState(Qt::Unchecked);
    }

    connect(mp_ui->pushButton, &QPushButton::clicked, this, &AddSharedFolderDialog::OnSelectFolderClicked);
    connect(mp_ui->everyoneCheckBox, &QCheckBox::stateChanged, this,
            &AddSharedFolderDialog::OnAccessibleToEveryoneCheckStateChanged);
    connect(mp_ui->userListCheckBox, &QCheckBox::stateChanged, this,
            &AddSharedFolderDialog::OnAccessibleToUserListCheckStateChanged);
    connect(mp_ui->buttonBox, &QDialogButtonBox::accepted, this, &AddSharedFolderDialog::accept);
    connect(mp_ui->buttonBox, &QDialogButtonBox::rejected, this, &AddSharedFolderDialog::reject);
}

AddSharedFolderDialog::~AddSharedFolderDialog() = default;

void AddSharedFolderDialog::SetFolderChooser(FolderChooser i_chooser)
{
    s_folderChooser = std::move(i_chooser);
}

QString AddSharedFolderDialog::ChooseFolderInFileDialog(QWidget* ip_parent)
{
    QFileDialog l_dialog(ip_parent, QStringLiteral("Select Folder to Share"));
    l_dialog.setFileMode(QFileDialog::Directory);
    if (l_dialog.exec() != QDialog::Accepted)
        return QString();
    return l_dialog.selectedFiles().value(0);
}

void AddSharedFolderDialog::OnSelectFolderClicked()
{
    QString const l_folder = s_folderChooser ? s_folderChooser(this) : ChooseFolderInFileDialog(this);
    if (!l_folder.isEmpty())
        mp_ui->selectedFolderEdit->setText(l_folder);
}

void AddSharedFolderDialog::OnAccessibleToEveryoneCheckStateChanged(int i_state)
{
    // Access for everyone takes in the user list, and the user list takes in every group.
    if (i_state == Qt::Checked)
    {
        mp_ui->userListCheckBox->setEnabled(false);
        mp_ui->userListCheckBox->setChecked(true);
        mp_ui->groupsListWidget->setEnabled(false);
    }
    else if (i_state == Qt::Unchecked)
    {
        mp_ui->userListCheckBox->setEnabled(true);
        mp_ui->groupsListWidget->setEnabled(!mp_ui->userListCheckBox->isChecked());
    }
}

void AddSharedFolderDialog::OnAccessibleToUserListCheckStateChanged(int i_state)
{
    if (i_state == Qt::Checked)
        mp_ui->groupsListWidget->setEnabled(false);
    else if (i_state == Qt::Unchecked)
        mp_ui->groupsListWidget->setEnabled(true);
}

void AddSharedFolderDialog::accept()
{
    QString const l_folderText = mp_ui->selectedFolderEdit->text();
    if (l_folderText.isEmpty())
        return;
    // Getting the folder makes it when it is new, which starts its walk; a folder already
    // shared is only found, and the access below adds to what it has.
    ItemPtr const l_folder = d.GetType("shared_folder")->GetItem(l_folderText.toUtf8().toStdString());
    if (mp_ui->everyoneCheckBox->isChecked())
        l_folder.NewItem("shared_public");
    else if (mp_ui->userListCheckBox->isChecked())
        l_folder.NewItem("shared_userlist");
    else
        for (int l_index = 0; l_index < mp_ui->groupsListWidget->count(); ++l_index)
        {
            QListWidgetItem* lp_row = mp_ui->groupsListWidget->item(l_index);
            if (lp_row->checkState() != Qt::Checked)
                continue;
            // A group removed while the dialog stood open is not made again.
            if (ItemPtr const l_group =
                    d.GetType("user_list_group")->HasItem(lp_row->data(s_groupKeyRole).toByteArray().toStdString()))
                l_folder.Connect(l_group);
        }
    QDialog::accept();
}
