#include "AppTest.h"
#include "support/WaitFor.h"
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

// The one dialog of the class on show; null when none or several are.
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

void ClickOk(QDialog* ip_dialog)
{
    ip_dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}
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

    Widgets();
    EXPECT_EQ(Rows(), QStringList{u"/srv/saved | Everyone"_s});
    // The start-up rescan ends after start-up, and shows no dialog.
    ASSERT_TRUE(WaitFor([] { return !sharedFoldersManager->IsScanning(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(OnlyOpenDialog<SharedFilesRescannedDialog>(), nullptr);
}

TEST(FileSharing, RowsFollowTheFoldersAndTheirAccess)
{
    Widgets();
    Folder("/srv/public").NewItem("shared_public");
    ItemPtr const l_listed = Folder("/srv/listed"), l_groups = Folder("/srv/groups");
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
    l_listed.Remove();
    EXPECT_EQ(Rows(), (QStringList{u"/srv/public | Everyone"_s, u"/srv/groups | Alpha, zeta"_s, u"/srv/nobody | "_s}));
}

TEST(FileSharing, UnshareFindsEachSelectedFolderByItsKeyBytes)
{
    QTreeWidget* lp_list = Widgets()->sharedFoldersList;
    // Two keys that are not UTF-8 and show the same text: only the selected one may go.
    std::string const l_first("/srv/\xff-x"), l_second("/srv/\xfe-x");
    for (std::string const& l_key : {std::string("/srv/keep"), l_first, l_second, std::string("/srv/plain")})
        Folder(l_key);
    Folder("/srv/plain").Connect(d.GetType("shared_file_folder")->GetItem("/srv/plain/sub"));
    ASSERT_EQ(Rows().at(1), Rows().at(2));

    lp_list->topLevelItem(1)->setSelected(true);
    lp_list->topLevelItem(3)->setSelected(true);
    emit actionBar->ActionTriggered("unshare_folder");
    Type* lp_folders = d.GetType("shared_folder");
    EXPECT_EQ(std::tuple(bool(lp_folders->HasItem(l_first)), bool(lp_folders->HasItem("/srv/plain")), bool(lp_folders->HasItem(l_second))),
              std::tuple(false, false, true));
    EXPECT_FALSE(d.GetType("shared_file_folder")->HasItem("/srv/plain/sub")) << "the sweep takes the folder's files";
    ASSERT_EQ(lp_list->topLevelItemCount(), 2);
    EXPECT_EQ(lp_list->topLevelItem(1)->data(0, Qt::UserRole).toByteArray().toStdString(), l_second);

    // A row whose folder is gone finds nothing and makes nothing, which would start a walk.
    lp_list->topLevelItem(0)->setData(0, Qt::UserRole, QByteArray("/srv/gone"));
    lp_list->topLevelItem(0)->setSelected(true);
    emit actionBar->ActionTriggered("unshare_folder");
    EXPECT_FALSE(lp_folders->HasItem("/srv/gone"));
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
    auto* lp_everyone = lp_dialog->findChild<QCheckBox*>(u"everyoneCheckBox"_s);
    auto* lp_userList = lp_dialog->findChild<QCheckBox*>(u"userListCheckBox"_s);
    auto* lp_groups = lp_dialog->findChild<QListWidget*>(u"groupsListWidget"_s);
    auto* lp_select = lp_dialog->findChild<QPushButton*>(u"pushButton"_s);
    auto const l_state = [&] {
        return std::tuple(lp_everyone->isChecked(), lp_userList->isEnabled(), lp_userList->isChecked(), lp_groups->isEnabled());
    };
    EXPECT_EQ(l_state(), std::tuple(true, false, true, false));
    ASSERT_EQ(lp_groups->count(), 2);
    EXPECT_EQ(lp_groups->item(1)->checkState(), Qt::Unchecked);

    // Everyone implies the user list, which implies every group.
    lp_everyone->setChecked(false);
    EXPECT_EQ(l_state(), std::tuple(false, true, true, false));
    lp_userList->setChecked(false);
    EXPECT_EQ(l_state(), std::tuple(false, true, false, true));
    lp_everyone->setChecked(true);
    EXPECT_EQ(l_state(), std::tuple(true, false, true, false));
    lp_everyone->setChecked(false);
    lp_userList->setChecked(false);

    // Without a folder OK does nothing: a cancelled choice leaves the field empty.
    QTest::mouseClick(lp_select, Qt::LeftButton);
    ClickOk(lp_dialog);
    EXPECT_TRUE(lp_dialog && lp_dialog->isVisible());
    EXPECT_EQ(d.GetType("shared_folder")->ItemCount(), 0u);
    l_chosen = u"/srv/music"_s;
    QTest::mouseClick(lp_select, Qt::LeftButton);
    lp_groups->findItems(u"friends"_s, Qt::MatchExactly).front()->setCheckState(Qt::Checked);
    ClickOk(lp_dialog);
    EXPECT_FALSE(lp_dialog) << "closed and deleted";
    EXPECT_EQ(Rows(), QStringList{u"/srv/music | friends"_s});

    // The same folder again, for everyone: the access is added, with no second row.
    emit actionBar->ActionTriggered("share_folder");
    lp_dialog = OnlyOpenDialog<AddSharedFolderDialog>();
    ASSERT_TRUE(lp_dialog);
    QTest::mouseClick(lp_dialog->findChild<QPushButton*>(u"pushButton"_s), Qt::LeftButton);
    ClickOk(lp_dialog);
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
    EXPECT_EQ(lp_dialog->findChild<QPlainTextEdit*>()->toPlainText(), u"12 files added.\n3 files removed."_s);
    EXPECT_EQ(lp_dialog->findChild<QDialogButtonBox*>()->buttons().size(), 1);
    ClickOk(lp_dialog);
    EXPECT_FALSE(lp_dialog);

    // The line under the list and the one in the status bar count while the walk runs.
    auto* lp_status = AppEnvironment::Window()->statusBar()->findChild<QLabel*>(u"shareStatusLabel"_s);
    ASSERT_TRUE(lp_status);
    for (auto [l_scanning, l_text] :
         {std::pair{true, u"Scanning shared folders: 5 files in 2 folders"_s}, {false, u"Sharing 5 files in 2 folders"_s}})
    {
        emit sharedFoldersManager->ScanProgress(5, 2, l_scanning);
        EXPECT_EQ(QStringList({lp_ui->shareScanLabel->text(), lp_status->text()}), QStringList(2, l_text));
        EXPECT_EQ(lp_ui->shareScanProgressBar->isHidden(), !l_scanning);
    }
}
