#include "AppTest.h"
#include "forms/AddSharedFolderDialog.h"
#include "forms/SharedFilesRescannedDialog.h"
#include "shares/SharedFoldersManager.h"
#include "shell/ActionSetToolBar.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "support/FreePort.h"

using namespace Qt::StringLiterals;

namespace
{
Ui::MainWindow* Widgets()
{
    Ui::MainWindow* lp_ui = AppEnvironment::Window()->Widgets();
    CloseInformationBoxes(QString());
    return lp_ui;
}

ItemPtr Folder(std::string const& i_key) { return d.GetType("shared_folder")->GetItem(i_key); }
ItemPtr Group(std::string const& i_name) { return d.GetType("user_list_group")->GetItem(i_name); }

// Each row's folder text and access text, in list order.
QStringList Rows()
{
    QStringList l_rows;
    QTreeWidget* lp_list = AppEnvironment::Window()->Widgets()->sharedFoldersList;
    for (int l_index = 0; l_index < lp_list->topLevelItemCount(); ++l_index)
        l_rows << lp_list->topLevelItem(l_index)->text(0) + u" | "_s + lp_list->topLevelItem(l_index)->text(1);
    return l_rows;
}

template <class Dialog>
Dialog* OnlyOpenDialog()
{
    QApplication::processEvents();
    QList<Dialog*> l_open;
    for (QWidget* lp_widget : QApplication::topLevelWidgets())
        if (auto* lp_dialog = qobject_cast<Dialog*>(lp_widget); lp_dialog && lp_dialog->isVisible())
            l_open << lp_dialog;
    return l_open.size() == 1 ? l_open.front() : nullptr;
}

template <class Widget>
Widget* Child(QWidget* ip_parent, char const* i_name) { return ip_parent->findChild<Widget*>(QString::fromLatin1(i_name)); }
} // namespace

TEST(FileSharing, AFolderSavedWithAccessGetsItsRowAtStartUp)
{
    Data l_data;
    DataSaver l_saver;
    Type* lp_value = l_data.NewType("global_value", false, false, true);
    l_data.NewType("global", true, false, true)->RelateToType(lp_value, Many, One, false);
    Type* lp_folder = l_data.NewType("shared_folder", true, false, true);
    lp_folder->RelateToType(l_data.NewType("shared_public", false, true, true), Many, One, false);
    l_saver.m_savedTypes = {"global", "shared_folder"};
    l_saver.AddSavedByConnectionType("global_value", "global");
    l_saver.AddSavedByConnectionType("shared_public", "shared_folder");
    l_data.GetType("global")->GetItem("listening_port")->Connect(lp_value->GetItem(std::to_string(FreePort())));
    lp_folder->GetItem("/srv/saved")->NewItem("shared_public");
    ASSERT_TRUE(l_saver.Save(&l_data, (AppEnvironment::PrepareHome() + u"/.Tidewick"_s).toLocal8Bit().constData()));

    Ui::MainWindow* lp_ui = Widgets();
    EXPECT_EQ(Rows(), QStringList{u"/srv/saved | Everyone"_s});
    EXPECT_EQ(lp_ui->downloadFolderLabel->text(), u"Download Folder"_s);
    EXPECT_EQ(lp_ui->sharedFoldersLabel->text(), u"Shared Folders"_s);
    EXPECT_EQ(lp_ui->sharedFoldersList->headerItem()->text(1), u"Accessible to"_s);
    EXPECT_EQ(lp_ui->sharedFoldersList->columnWidth(0), 400);
}

TEST(FileSharing, RowsFollowTheFoldersAndTheirAccess)
{
    Widgets();
    ItemPtr const l_public = Folder("/srv/public"), l_listed = Folder("/srv/listed"), l_groups = Folder("/srv/groups");
    l_public.NewItem("shared_public");
    l_listed.NewItem("shared_userlist");
    for (char const* lp_name : {"zeta", "Alpha", "beta"})
        l_groups.Connect(Group(lp_name));
    Folder("/srv/nobody");
    EXPECT_EQ(Rows(), (QStringList{u"/srv/public | Everyone"_s, u"/srv/listed | User List"_s,
                                   u"/srv/groups | Alpha, beta, zeta"_s, u"/srv/nobody | "_s}));

    // A group removed elsewhere leaves the text at once; wider access wins over groups, and
    // taking it back shows the groups again.
    Group("beta").Remove();
    l_groups.NewItem("shared_public");
    EXPECT_EQ(Rows().at(2), u"/srv/groups | Everyone"_s);
    l_groups.Disconnect("shared_public");
    EXPECT_EQ(Rows().at(2), u"/srv/groups | Alpha, zeta"_s);
    l_public.Disconnect("shared_public");
    l_public.NewItem("shared_userlist");
    EXPECT_EQ(Rows().at(0), u"/srv/public | User List"_s);

    l_listed.Remove();
    EXPECT_EQ(Rows(), (QStringList{u"/srv/public | User List"_s, u"/srv/groups | Alpha, zeta"_s, u"/srv/nobody | "_s}));
}

TEST(FileSharing, UnshareFindsEachSelectedFolderByItsKeyBytes)
{
    Ui::MainWindow* lp_ui = Widgets();
    // Two keys that are not UTF-8 and show the same text: only the selected one may go.
    std::string const l_first("/srv/\xff-x"), l_second("/srv/\xfe-x");
    for (std::string const& l_key : {std::string("/srv/keep"), l_first, l_second, std::string("/srv/plain")})
        Folder(l_key);
    ItemPtr const l_files = d.GetType("shared_file_folder")->GetItem("/srv/plain/sub");
    Folder("/srv/plain").Connect(l_files);
    ASSERT_EQ(Rows().at(1), Rows().at(2));

    lp_ui->sharedFoldersList->topLevelItem(1)->setSelected(true);
    lp_ui->sharedFoldersList->topLevelItem(3)->setSelected(true);
    emit actionBar->ActionTriggered("unshare_folder");
    EXPECT_FALSE(d.GetType("shared_folder")->HasItem(l_first));
    EXPECT_FALSE(d.GetType("shared_folder")->HasItem("/srv/plain"));
    EXPECT_TRUE(d.GetType("shared_folder")->HasItem(l_second));
    EXPECT_FALSE(d.GetType("shared_file_folder")->HasItem("/srv/plain/sub")) << "the sweep takes the folder's files";
    ASSERT_EQ(lp_ui->sharedFoldersList->topLevelItemCount(), 2);
    EXPECT_EQ(lp_ui->sharedFoldersList->topLevelItem(1)->data(0, Qt::UserRole).toByteArray().toStdString(), l_second);

    // A row whose folder went without its row being told finds nothing and makes nothing.
    lp_ui->sharedFoldersList->topLevelItem(1)->setData(0, Qt::UserRole, QByteArray("/srv/gone"));
    lp_ui->sharedFoldersList->topLevelItem(1)->setSelected(true);
    emit actionBar->ActionTriggered("unshare_folder");
    EXPECT_FALSE(d.GetType("shared_folder")->HasItem("/srv/gone"));
}

TEST(FileSharing, AddSharedFolderDialogKeepsItsBoxesConsistentAndAddsAccess)
{
    Widgets();
    Group("friends");
    Group("family");
    QString l_chosen;
    AddSharedFolderDialog::SetFolderChooser([&l_chosen](QWidget*) { return l_chosen; });
    emit actionBar->ActionTriggered("share_folder");
    QPointer<AddSharedFolderDialog> lp_dialog = OnlyOpenDialog<AddSharedFolderDialog>();
    ASSERT_TRUE(lp_dialog);
    EXPECT_EQ(lp_dialog->windowTitle(), u"Add Shared Folder"_s);
    auto* lp_everyone = Child<QCheckBox>(lp_dialog, "everyoneCheckBox");
    auto* lp_userList = Child<QCheckBox>(lp_dialog, "userListCheckBox");
    auto* lp_groups = Child<QListWidget>(lp_dialog, "groupsListWidget");
    auto* lp_edit = Child<QLineEdit>(lp_dialog, "selectedFolderEdit");
    auto const l_state = [&] {
        return std::tuple(lp_everyone->isChecked(), lp_userList->isEnabled(), lp_userList->isChecked(), lp_groups->isEnabled());
    };
    EXPECT_EQ(Child<QPushButton>(lp_dialog, "pushButton")->text(), u"Select &Folder"_s);
    EXPECT_TRUE(lp_edit->isReadOnly() && lp_edit->text().isEmpty());
    EXPECT_EQ(l_state(), std::tuple(true, false, true, false));
    ASSERT_EQ(lp_groups->count(), 2);
    for (int l_index = 0; l_index < 2; ++l_index)
        EXPECT_TRUE(lp_groups->item(l_index)->checkState() == Qt::Unchecked &&
                    lp_groups->item(l_index)->flags().testFlag(Qt::ItemIsUserCheckable));

    // Everyone implies the user list, which implies every group.
    lp_everyone->setChecked(false);
    EXPECT_EQ(l_state(), std::tuple(false, true, true, false));
    lp_userList->setChecked(false);
    EXPECT_EQ(l_state(), std::tuple(false, true, false, true));
    lp_everyone->setChecked(true);
    EXPECT_EQ(l_state(), std::tuple(true, false, true, false));
    lp_everyone->setChecked(false);
    lp_userList->setChecked(false);
    EXPECT_EQ(l_state(), std::tuple(false, true, false, true));

    // Without a folder OK does nothing, and a cancelled choice leaves the field as it was.
    std::size_t const l_folders = d.GetType("shared_folder")->ItemCount();
    Child<QDialogButtonBox>(lp_dialog, "buttonBox")->button(QDialogButtonBox::Ok)->click();
    EXPECT_TRUE(lp_dialog && lp_dialog->isVisible());
    EXPECT_EQ(d.GetType("shared_folder")->ItemCount(), l_folders);
    QTest::mouseClick(Child<QPushButton>(lp_dialog, "pushButton"), Qt::LeftButton);
    EXPECT_TRUE(lp_edit->text().isEmpty());
    l_chosen = u"/srv/music"_s;
    QTest::mouseClick(Child<QPushButton>(lp_dialog, "pushButton"), Qt::LeftButton);
    EXPECT_EQ(lp_edit->text(), l_chosen);

    lp_groups->findItems(u"friends"_s, Qt::MatchExactly).front()->setCheckState(Qt::Checked);
    Child<QDialogButtonBox>(lp_dialog, "buttonBox")->button(QDialogButtonBox::Ok)->click();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(lp_dialog) << "closed and deleted";
    EXPECT_EQ(Rows(), QStringList{u"/srv/music | friends"_s});

    // The same folder again, for everyone: the access is added, with no second row.
    emit actionBar->ActionTriggered("share_folder");
    lp_dialog = OnlyOpenDialog<AddSharedFolderDialog>();
    ASSERT_TRUE(lp_dialog);
    QTest::mouseClick(Child<QPushButton>(lp_dialog, "pushButton"), Qt::LeftButton);
    lp_dialog->accept();
    EXPECT_EQ(Rows(), QStringList{u"/srv/music | Everyone"_s});
    EXPECT_TRUE(Folder("/srv/music").IsConnected(Group("friends")));
    AddSharedFolderDialog::SetFolderChooser({});
}

TEST(FileSharing, RescanDialogAndScanProgress)
{
    Ui::MainWindow* lp_ui = Widgets();
    emit sharedFoldersManager->SharedFilesRescanned(12, 3);
    QPointer<SharedFilesRescannedDialog> lp_dialog = OnlyOpenDialog<SharedFilesRescannedDialog>();
    ASSERT_TRUE(lp_dialog);
    EXPECT_EQ(lp_dialog->windowTitle(), u"Shared Files Rescanned"_s);
    EXPECT_EQ(Child<QPlainTextEdit>(lp_dialog, "plainTextEdit")->toPlainText(), u"12 files added.\n3 files removed."_s);
    auto* lp_buttons = Child<QDialogButtonBox>(lp_dialog, "buttonBox");
    ASSERT_EQ(lp_buttons->buttons().size(), 1);
    lp_buttons->button(QDialogButtonBox::Ok)->click();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(lp_dialog);

    // The line under the list and the one in the status bar count while the walk runs.
    QMainWindow* lp_window = AppEnvironment::Window();
    auto const l_shown = [&](QString const& i_text) {
        QList<QLabel*> const l_status = lp_window->statusBar()->findChildren<QLabel*>();
        return lp_ui->shareScanLabel->text() == i_text &&
               std::any_of(l_status.begin(), l_status.end(), [&](QLabel* ip_label) { return ip_label->text() == i_text; });
    };
    emit sharedFoldersManager->ScanProgress(5, 2, true);
    EXPECT_TRUE(l_shown(u"Scanning shared folders: 5 files in 2 folders"_s));
    EXPECT_FALSE(lp_ui->shareScanProgressBar->isHidden());
    emit sharedFoldersManager->ScanProgress(40, 7, false);
    EXPECT_TRUE(l_shown(u"Sharing 40 files in 7 folders"_s));
    EXPECT_TRUE(lp_ui->shareScanProgressBar->isHidden());
}
