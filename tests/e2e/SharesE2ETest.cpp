// The client under test is the window of this process. It browses and searches the shares of
// two real clients, alice and bob, under four names in turn, each of which alice lets see a
// different part of her share; then it shares and rescans a folder of its own.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QTcpSocket>
#include <QtWidgets>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "forms/AddSharedFolderDialog.h"
#include "forms/SearchResultListItem.h"
#include "forms/ShareForm.h"
#include "forms/SharedFilesRescannedDialog.h"
#include "forms/SharesForm.h"
#include "forms/UserMenuOptions.h"
#include "server/Server.h"
#include "shell/ActionSetToolBar.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "support/AppEnvironment.h"
#include "support/FreePort.h"
#include "support/MP3Frames.h"
#include "support/SavedGraph.h"
#include "support/WaitFor.h"
#include "ui_MainWindow.h"

using namespace Qt::StringLiterals;

// Failures show the texts, not their code units.
void PrintTo(QString const& i_text, std::ostream* op_out)
{
    *op_out << '"' << i_text.toStdString() << '"';
}

namespace
{
void Seed(SavedGraph& io_seed, std::string const& i_name)
{
    io_seed.Set("global", "username", i_name);
    io_seed.Set("global", "password", i_name + "-pw");
    io_seed.Set("global", "use_upnp", "no");
    io_seed.Set("global", "listening_port", std::to_string(FreePort()));
}

void Write(QString const& i_path, QByteArray const& i_bytes = "x")
{
    QDir().mkpath(QFileInfo(i_path).path());
    QFile l_file(i_path);
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly)) << i_path.toStdString();
    l_file.write(i_bytes);
}

// The tab of the user's newest share list on the Shares page; null while there is none.
ShareForm* TabOf(std::string const& i_user, int* op_tabs = nullptr)
{
    QTabWidget* lp_tabs = mainWindow->findChild<SharesForm*>()->TabControl();
    ShareForm* lp_found = nullptr;
    int l_count = 0;
    for (int l_index = 0; l_index < lp_tabs->count(); ++l_index)
        if (auto* lp_form = qobject_cast<ShareForm*>(lp_tabs->widget(l_index)); lp_form && lp_form->User() == i_user)
        {
            ++l_count;
            if (lp_form->Share())
                lp_found = lp_form;
        }
    if (op_tabs)
        *op_tabs = l_count;
    return lp_found;
}

// As the user does it: "Browse user's files" in the user's menu; then the tab that replaced
// the one shown before, its folders and files as "folder/…/name size", with " attributes"
// where a file has any, sorted.
QStringList Browse(std::string const& i_user)
{
    QPointer<ShareForm> const lp_old = TabOf(i_user);
    QMenu l_menu;
    UserMenuOptions l_options(&l_menu, i_user);
    for (QAction* lp_action : l_menu.actions())
        if (lp_action->text() == u"Browse user's files"_s)
            lp_action->trigger();
    if (!WaitFor([&] { return TabOf(i_user) && TabOf(i_user) != lp_old; }, 20000))
        return {u"no new tab"_s};
    ShareForm* lp_form = TabOf(i_user);
    auto* lp_tree = lp_form->findChild<QTreeWidget*>(u"folderTree"_s);
    auto* lp_files = lp_form->findChild<QTreeWidget*>(u"fileList"_s);
    QStringList l_shown;
    for (QTreeWidgetItemIterator l_it(lp_tree); *l_it; ++l_it)
    {
        QString l_path = (*l_it)->text(0);
        for (QTreeWidgetItem* lp_up = (*l_it)->parent(); lp_up; lp_up = lp_up->parent())
            l_path = lp_up->text(0) + u'/' + l_path;
        lp_tree->setCurrentItem(*l_it);
        for (int l_row = 0; l_row < lp_files->topLevelItemCount(); ++l_row)
        {
            QTreeWidgetItem* lp_file = lp_files->topLevelItem(l_row);
            QString const l_attributes = lp_file->text(2);
            l_shown << l_path + u'/' + lp_file->text(0) + u' ' + lp_file->text(1) +
                           (l_attributes.isEmpty() ? QString() : u' ' + l_attributes);
        }
    }
    l_shown.sort();
    return l_shown;
}

void LoginAs(CentralServerProcess& io_server, std::string const& i_name)
{
    QString const l_line = u"login %1 from 127.0.0.1"_s.arg(QString::fromStdString(i_name));
    int const l_before = io_server.CountLines(l_line);
    Ui::MainWindow* lp_ui = mainWindow->Widgets();
    lp_ui->actionDisconnect->trigger();
    SetGlobal("username", Value(i_name));
    SetGlobal("password", Value(i_name + "-pw"));
    lp_ui->actionConnect->trigger();
    ASSERT_TRUE(WaitFor([&] { return io_server.CountLines(l_line) > l_before; }, 20000)) << i_name;
    // The messaging connections made under the former name are ended, so that each name
    // reaches its peers afresh.
    ASSERT_TRUE(WaitFor([] { return d.GetType("peer_socket")->ItemCount() == 0; }));
}

// What each user answered to the search, as "user: folder|name".
QStringList Results(unsigned int i_token)
{
    QStringList l_results;
    ItemPtr const l_request = d.GetType("search_request")->HasItem(std::to_string(i_token));
    for (Item* lp_results : l_request.GetItems("search_results"))
        for (Item* lp_result : ItemPtr(lp_results).GetItems("search_result"))
            l_results << QString::fromStdString(ItemPtr(lp_results)["user"].AsString() + ": " +
                                                ItemPtr(lp_result)["search_result_file_folder"].AsString() + "|") +
                             QString::fromUtf8(ItemPtr(lp_result)["search_result_file_name"].AsCStr());
    l_results.sort();
    return l_results;
}

// The attributes each answered file carried, as "name bit rate mode".
QStringList CarriedAttributes(unsigned int i_token)
{
    QStringList l_carried;
    ItemPtr const l_request = d.GetType("search_request")->HasItem(std::to_string(i_token));
    for (Item* lp_result : l_request.GetItems("search_results").GetItems("search_result"))
    {
        ItemPtr const l_result(lp_result);
        l_carried << QString::fromStdString(l_result["search_result_file_name"].AsString() + ' ' + l_result["bitrate"].AsString() +
                                            ' ' + l_result["bitrate_mode"].AsString());
    }
    l_carried.sort();
    return l_carried;
}

// What the search tabs show under "Attributes" beside each file whose name starts so, as
// "name: attributes".
QStringList ShownAttributes(QString const& i_prefix)
{
    QStringList l_shown;
    auto* lp_tabs = mainWindow->findChild<QTabWidget*>(u"searchTabControl"_s);
    for (int l_tab = 0; l_tab < lp_tabs->count(); ++l_tab)
        for (QTreeWidgetItemIterator l_it(lp_tabs->widget(l_tab)->findChild<QTreeWidget*>(u"searchResultsTreeWidget"_s)); *l_it; ++l_it)
            if (QString const l_name = (*l_it)->text(SearchResultListItem::FileColumn); l_name.startsWith(i_prefix))
                l_shown << l_name + u": "_s + (*l_it)->text(SearchResultListItem::AttributesColumn);
    l_shown.sort();
    return l_shown;
}

// The MP3 files a client scanned, as its data file keeps them.
std::vector<std::string> ScannedFiles(ClientProcess& io_client)
{
    SavedGraph l_saved;
    l_saved.Load(io_client.DataFile());
    return l_saved.SavedSharedFiles();
}

QStringList Sorted(QStringList i_list)
{
    i_list.sort();
    return i_list;
}

template <class Dialog>
Dialog* OpenDialog()
{
    QApplication::processEvents();
    for (QWidget* lp_widget : QApplication::topLevelWidgets())
        if (auto* lp_dialog = qobject_cast<Dialog*>(lp_widget); lp_dialog && lp_dialog->isVisible())
            return lp_dialog;
    return nullptr;
}
} // namespace

TEST(SharesEndToEnd, BrowsingAndSearchingFollowTheOwnersAccessRules)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s);
    ASSERT_TRUE(l_server.Start());

    // Alice's tree: a public folder with a hidden file, a 3 GiB sparse file, a non-ASCII name
    // and a link to a folder outside; a folder for her user list; one for her group "band".
    QString const l_root = l_dir.path() + u"/alice"_s;
    QString const l_pub = l_root + u"/pub"_s, l_list = l_root + u"/list"_s, l_band = l_root + u"/band"_s;
    Write(l_pub + u"/café ☕ tidewave.txt"_s, "12345");
    Write(l_pub + u"/.hidden tidewave.txt"_s);
    Write(l_root + u"/outside/deep tidewave.txt"_s, "123");
    ASSERT_TRUE(QFile::link(l_root + u"/outside"_s, l_pub + u"/linked"_s));
    {
        QFile l_big(l_pub + u"/big.bin"_s);
        ASSERT_TRUE(l_big.open(QIODevice::WriteOnly) && l_big.resize(3221225472LL));
    }
    Write(l_list + u"/list tidewave.txt"_s);
    Write(l_band + u"/band tidewave.txt"_s);
    // Two MP3 files built frame by frame for her client to scan: 300 frames at 128 kbit/s, and
    // 100 at 128 with 100 at 192, which is 160 on average.
    std::string l_constant, l_variable;
    MP3Frames::Append(l_constant, MP3Frames::Frame{.m_bitrate = 128}, 300);
    MP3Frames::Append(l_variable, MP3Frames::Frame{.m_bitrate = 128}, 100);
    MP3Frames::Append(l_variable, MP3Frames::Frame{.m_bitrate = 192}, 100);
    Write(l_pub + u"/tidesong cbr.mp3"_s, QByteArray::fromStdString(l_constant));
    Write(l_pub + u"/tidesong vbr.mp3"_s, QByteArray::fromStdString(l_variable));
    ClientProcess l_alice, l_bob;
    SavedGraph l_aliceSeed;
    Seed(l_aliceSeed, "alice");
    l_aliceSeed.ShareFolder(l_pub.toStdString(), SavedGraph::Access::Everyone);
    l_aliceSeed.ShareFolder(l_list.toStdString(), SavedGraph::Access::UserList);
    l_aliceSeed.ShareFolder(l_band.toStdString(), SavedGraph::Access::Groups, {"band"});
    l_aliceSeed.ListUser("dave", {});
    l_aliceSeed.ListUser("erin", {"band"});
    l_aliceSeed.Unshare("mallory");
    ASSERT_TRUE(l_aliceSeed.Save(l_alice.DataFile()));

    // Bob shares 201 files that match one word with everybody; one of them also holds "odd".
    QString const l_bobShare = l_dir.path() + u"/bob"_s;
    for (int l_index = 0; l_index < 200; ++l_index)
        Write(l_bobShare + u"/zephyr %1.txt"_s.arg(l_index));
    Write(l_bobShare + u"/zephyr odd.txt"_s);
    SavedGraph l_bobSeed;
    Seed(l_bobSeed, "bob");
    l_bobSeed.ShareFolder(l_bobShare.toStdString(), SavedGraph::Access::Everyone);
    ASSERT_TRUE(l_bobSeed.Save(l_bob.DataFile()));
    ASSERT_TRUE(l_alice.Start() && l_bob.Start());

    SavedGraph l_askerSeed;
    Seed(l_askerSeed, "carol");
    l_askerSeed.ListUser("alice", {});
    ASSERT_TRUE(l_askerSeed.Save(AppEnvironment::PrepareHome() + u"/.Tidewick"_s));
    AppEnvironment::Window();
    for (char const* lp_user : {"alice", "bob", "carol"})
        ASSERT_TRUE(l_server.WaitForLine(u"login %1 from 127.0.0.1"_s.arg(QLatin1String(lp_user)), 20000)) << lp_user;

    QStringList const l_public{u"pub/big.bin 3,221,225,472"_s, u"pub/café ☕ tidewave.txt 5"_s,
                               u"pub/linked/deep tidewave.txt 3"_s, u"pub/tidesong cbr.mp3 125,100 128 CBR"_s,
                               u"pub/tidesong vbr.mp3 104,300 160 VBR"_s};
    QStringList const l_listed = QStringList(l_public) << u"list/list tidewave.txt 1"_s;
    QStringList const l_grouped = Sorted(QStringList(l_listed) << u"band/band tidewave.txt 1"_s);
    // Carol is a stranger to alice, dave is on her list, erin in her group, mallory unshared.
    // Alice's scans run beside her log-in: her share may show before their results.
    QStringList l_shown = Browse("alice");
    for (int l_again = 0; l_again < 10 && l_shown != l_public; ++l_again)
        l_shown = Browse("alice");
    EXPECT_EQ(l_shown, l_public);
    LoginAs(l_server, "dave");
    EXPECT_EQ(Browse("alice"), Sorted(l_listed)) << "dave";
    int l_tabs = 0;
    TabOf("alice", &l_tabs);
    EXPECT_EQ(l_tabs, 1) << "browsing again replaces the tab";

    // Dave searches: alice answers with what he may see, with paths as they travel; bob's
    // 201 matches are too many to answer, and one excluded word brings his 200.
    unsigned int const l_wide = gp_server->FileSearch("tidewave", false);
    unsigned int const l_zephyr = gp_server->FileSearch("zephyr", false);
    unsigned int const l_narrow = gp_server->FileSearch("zephyr -odd", false);
    EXPECT_TRUE(l_server.WaitForLine(u"search dave token %1 to 2 clients"_s.arg(l_wide)));
    EXPECT_TRUE(l_server.WaitForLine(u"search dave token %1 to 2 clients"_s.arg(l_narrow)));
    QString const l_wire = QString(l_root).replace(u'/', u'\\');
    QStringList const l_aliceAnswer{u"alice: %1\\list|list tidewave.txt"_s.arg(l_wire),
                                    u"alice: %1\\pub\\linked|deep tidewave.txt"_s.arg(l_wire),
                                    u"alice: %1\\pub|café ☕ tidewave.txt"_s.arg(l_wire)};
    EXPECT_TRUE(WaitFor([&] { return Results(l_wide).size() >= 3; }, 15000));
    EXPECT_TRUE(WaitFor([&] { return Results(l_narrow).size() >= 200; }, 15000));
    EXPECT_EQ(Results(l_wide), l_aliceAnswer);
    EXPECT_EQ(Results(l_narrow).size(), 200);
    EXPECT_FALSE(Results(l_narrow).join(u'\n').contains(u"odd"_s));
    EXPECT_EQ(Results(l_zephyr), QStringList()) << "answered before the narrower search, so not at all";

    LoginAs(l_server, "erin");
    EXPECT_EQ(Browse("alice"), l_grouped) << "erin";
    LoginAs(l_server, "mallory");
    EXPECT_EQ(Browse("alice"), QStringList()) << "mallory";

    // Alice's share is rebuilt from the disk at her start: a file gone and a file new show.
    // Her scan results are kept, so a file she scanned is not read again: were it, the one
    // now at 320 kbit/s would show so.
    ASSERT_TRUE(l_alice.Terminate());
    std::string const l_songPath = l_pub.toStdString() + "/tidesong ";
    std::vector<std::string> const l_scanned{l_songPath + "cbr.mp3 128 cbr is_scanned", l_songPath + "vbr.mp3 160 vbr is_scanned"};
    EXPECT_EQ(ScannedFiles(l_alice), l_scanned);
    std::string l_faster;
    MP3Frames::Append(l_faster, MP3Frames::Frame{.m_bitrate = 320}, 300);
    Write(l_pub + u"/tidesong cbr.mp3"_s, QByteArray::fromStdString(l_faster));
    ASSERT_TRUE(QFile::remove(l_list + u"/list tidewave.txt"_s));
    Write(l_list + u"/later.txt"_s, "1234567");
    ASSERT_TRUE(l_alice.Start());
    ASSERT_TRUE(WaitFor([&] { return l_server.CountLines(u"login alice from 127.0.0.1"_s) == 2; }, 20000));
    LoginAs(l_server, "dave");
    EXPECT_EQ(Browse("alice"), Sorted(QStringList(l_public) << u"list/later.txt 7"_s));
    // In search answers the scan results travel as the bit rate and the variable rate flag.
    unsigned int const l_songs = gp_server->FileSearch("tidesong", false);
    EXPECT_TRUE(WaitFor([&] { return CarriedAttributes(l_songs).size() >= 2; }, 15000));
    EXPECT_EQ(CarriedAttributes(l_songs), QStringList({u"tidesong cbr.mp3 128 cbr"_s, u"tidesong vbr.mp3 160 vbr"_s}));
    EXPECT_EQ(ShownAttributes(u"tidesong"_s), QStringList({u"tidesong cbr.mp3: 128 CBR"_s, u"tidesong vbr.mp3: 160 VBR"_s}));

    // Her data file keeps her folders with their access, the unshared user and her scan
    // results, not the rest of the share.
    ASSERT_TRUE(l_alice.Terminate());
    QFile l_file(l_alice.DataFile());
    ASSERT_TRUE(l_file.open(QIODevice::ReadOnly));
    QByteArray const l_bytes = l_file.readAll();
    // Of the files, only the scanned ones.
    EXPECT_EQ(ScannedFiles(l_alice), l_scanned);
    EXPECT_FALSE(l_bytes.contains("search_token"));
    SavedGraph l_saved;
    l_saved.Load(l_alice.DataFile());
    EXPECT_EQ(l_saved.SharedFolderAccess(l_pub.toStdString()), "Everyone");
    EXPECT_EQ(l_saved.SharedFolderAccess(l_list.toStdString()), "User List");
    EXPECT_EQ(l_saved.SharedFolderAccess(l_band.toStdString()), "band");
    EXPECT_TRUE(l_saved.IsUnshared("mallory"));
    EXPECT_EQ(l_saved.ListedUserGroups("erin"), std::vector<std::string>{"band"});

    // The asker shares a folder of its own through the dialog, and rescans after a change.
    QString const l_own = l_dir.path() + u"/own"_s;
    for (char const* lp_name : {"a.txt", "b.txt", "sub/c.txt"})
        Write(l_own + u'/' + QLatin1String(lp_name));
    AddSharedFolderDialog::SetFolderChooser([&](QWidget*) { return l_own; });
    emit actionBar->ActionTriggered("share_folder");
    auto* lp_add = OpenDialog<AddSharedFolderDialog>();
    ASSERT_TRUE(lp_add);
    lp_add->findChild<QPushButton*>(u"pushButton"_s)->click();
    lp_add->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    AddSharedFolderDialog::SetFolderChooser({});
    QLabel* lp_progress = mainWindow->Widgets()->shareScanLabel;
    EXPECT_TRUE(WaitFor([&] { return lp_progress->text() == u"Sharing 3 files in 2 folders"_s; })) << lp_progress->text().toStdString();
    EXPECT_EQ(OpenDialog<SharedFilesRescannedDialog>(), nullptr) << "a new folder is no rescan";
    ASSERT_TRUE(QFile::remove(l_own + u"/a.txt"_s));
    for (char const* lp_name : {"d.txt", "sub/e.txt"})
        Write(l_own + u'/' + QLatin1String(lp_name));
    emit actionBar->ActionTriggered("rescan_shares");
    ASSERT_TRUE(WaitFor([] { return OpenDialog<SharedFilesRescannedDialog>() != nullptr; }));
    auto* lp_rescanned = OpenDialog<SharedFilesRescannedDialog>();
    EXPECT_EQ(lp_rescanned->windowTitle(), u"Shared Files Rescanned"_s);
    EXPECT_EQ(lp_rescanned->findChild<QPlainTextEdit*>()->toPlainText(), u"2 files added.\n1 files removed."_s);
    EXPECT_EQ(lp_progress->text(), u"Sharing 4 files in 2 folders"_s);
    lp_rescanned->close();
    ASSERT_TRUE(l_bob.Terminate());
}
