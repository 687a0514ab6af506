// A tour of every page with real data in it, taken only when TIDEWICK_SCREENSHOT_DIR names a
// folder (run it under a real X server with QT_QPA_PLATFORM=xcb; scripts/screenshots does).
// The window, una, sits in a room with two real clients (bob and dave, with shares of their
// own) and two users typed by hand (carol and ann); it chats with carol in private, searches,
// browses bob's share, downloads from bob and uploads to dave. A peer played by hand gives what
// real clients do not send: a place in line and a refusal. One user is never online.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

#include <memory>

#include "CentralServerProcess.h"
#include "SeededClient.h"
#include "forms/SearchResultListItem.h"
#include "forms/ShareForm.h"
#include "forms/SharesForm.h"
#include "forms/UserMenuOptions.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "support/AppEnvironment.h"
#include "support/MP3Frames.h"
#include "support/RawClient.h"
#include "support/ScriptedPeer.h"
#include "support/WaitFor.h"
#include "transfers/TransferQueueManager.h"
#include "ui_MainWindow.h"

using namespace Qt::StringLiterals;

namespace
{
constexpr int c_wait = 30000;
constexpr char c_room[] = "harbour";

// A silent MP3 of about a quarter of a minute at the bit rate given.
QByteArray Song(int i_kbps, int i_channelMode = 1)
{
    MP3Frames::Frame l_frame;
    l_frame.m_bitrate = i_kbps;
    l_frame.m_channelMode = i_channelMode;
    std::string l_bytes;
    MP3Frames::Append(l_bytes, l_frame, 600);
    return QByteArray::fromStdString(l_bytes);
}

std::vector<std::pair<QString, QByteArray>> Album(QString const& i_folder, QStringList const& i_titles, int i_kbps)
{
    std::vector<std::pair<QString, QByteArray>> l_files;
    int l_track = 0;
    for (QString const& l_title : i_titles)
        l_files.emplace_back(u"%1/%2 %3.mp3"_s.arg(i_folder).arg(++l_track, 2, 10, QChar(u'0')).arg(l_title), Song(i_kbps));
    return l_files;
}

std::string EntryStatus(char const* i_type, std::string const& i_user, std::string const& i_file)
{
    bool const l_download = std::string(i_type) == "download_entry";
    for (Item* lp_entry : d.GetType(i_type)->Items())
    {
        ItemPtr const l_entry(lp_entry);
        std::string const l_name = l_download ? l_entry.HasItem("file_name").AsString()
                                              : l_entry.HasItem("shared_file").HasItem("shared_file_name").AsString();
        if (l_entry.HasItem("user").AsString() == i_user && l_name == i_file)
            return l_download ? TransferQueueManager::StatusOf(lp_entry) : TransferQueueManager::UploadStatusOf(lp_entry);
    }
    return {};
}

QTreeWidgetItem* Row(QTreeWidget* ip_tree, int i_column, QString const& i_text)
{
    QList<QTreeWidgetItem*> const l_rows = ip_tree->findItems(i_text, Qt::MatchExactly | Qt::MatchRecursive, i_column);
    return l_rows.isEmpty() ? nullptr : l_rows.front();
}

// The users with rows in the first search tab.
QStringList SearchUsers()
{
    QStringList l_users;
    auto* lp_tabs = mainWindow->findChild<QTabWidget*>(u"searchTabControl"_s);
    if (!lp_tabs || lp_tabs->count() == 0)
        return l_users;
    auto* lp_tree = lp_tabs->widget(0)->findChild<QTreeWidget*>(u"searchResultsTreeWidget"_s);
    for (int l_row = 0; l_row < lp_tree->topLevelItemCount(); ++l_row)
        l_users << lp_tree->topLevelItem(l_row)->text(SearchResultListItem::UserColumn);
    l_users.sort();
    return l_users;
}

// Types the search as the user does, in a fresh tab, until both helpers have answered in it.
bool SearchUntilBothAnswer(QString const& i_text)
{
    auto* lp_tabs = mainWindow->findChild<QTabWidget*>(u"searchTabControl"_s);
    return WaitFor(
        [&]
        {
            while (lp_tabs->count())
                emit lp_tabs->tabCloseRequested(0);
            auto* lp_edit = mainWindow->findChild<QLineEdit*>(u"searchEdit"_s);
            lp_edit->setText(i_text);
            QTest::keyClick(lp_edit, Qt::Key_Return);
            return WaitFor([] { return SearchUsers() == QStringList{u"bob"_s, u"dave"_s}; }, 4000);
        },
        c_wait);
}

class Camera
{
public:
    explicit Camera(QString i_folder) : m_folder(std::move(i_folder)) {}

    // Lets the page lay out and paint, then saves the window as the next picture.
    void Take(QWidget* ip_window, QString const& i_page)
    {
        WaitFor([] { return false; }, 700);
        QString const l_file = u"%1/%2-%3.png"_s.arg(m_folder).arg(++m_count, 2, 10, QChar(u'0')).arg(i_page);
        EXPECT_TRUE(ip_window->grab().save(l_file)) << l_file.toStdString();
    }

private:
    QString m_folder;
    int m_count = 0;
};
} // namespace

TEST(ScreenshotTour, EveryPageWithRealData)
{
    QString const l_shots = qEnvironmentVariable("TIDEWICK_SCREENSHOT_DIR");
    if (l_shots.isEmpty())
        GTEST_SKIP() << "set TIDEWICK_SCREENSHOT_DIR to take the pictures";
    QDir().mkpath(l_shots);
    for (QString const& l_old : QDir(l_shots).entryList({u"[0-9][0-9]-*.png"_s}))
        QFile::remove(l_shots + u'/' + l_old);

    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s,
                                  {u"--country"_s, u"bob=NL"_s, u"--country"_s, u"dave=CA"_s, u"--country"_s, u"carol=IE"_s,
                                   u"--country"_s, u"ann=PT"_s, u"--shared-files"_s, u"carol=412"_s, u"--shared-files"_s,
                                   u"ann=2318"_s, u"--shared-files"_s, u"bob=15"_s, u"--shared-files"_s, u"dave=4"_s,
                                   u"--shared-files"_s, u"una=3"_s,
                                   u"--upload-speed"_s, u"carol=48000"_s, u"--upload-speed"_s, u"ann=210000"_s,
                                   u"--upload-speed"_s, u"bob=164000"_s, u"--upload-speed"_s, u"dave=530000"_s});
    ASSERT_TRUE(l_server.Start());

    SeededClient l_bob("bob");
    l_bob.Share(u"Music"_s, Album(u"Salt Marsh - Low Tide"_s, {u"Harbour Lights"_s, u"Rope and Canvas"_s, u"The Long Pier"_s,
                                                             u"Ebb"_s, u"Gulls at Dawn"_s},
                                  192));
    QString const l_bobShare = l_bob.Share(
        u"Recordings"_s, {{u"harbour evening.mp3"_s, Song(128)},
                          {u"done.ogg"_s, RandomBytes(40 << 10, 1)},
                          {u"long song.ogg"_s, RandomBytes(8 << 20, 2)},
                          {u"next song.ogg"_s, RandomBytes(3 << 20, 3)},
                          {u"Field Notes/foghorn.mp3"_s, Song(64, 3)},
                          {u"Field Notes/rain on the quay.mp3"_s, Song(96, 3)}});
    for (auto const& l_file : Album(u"Music/Wick and Candle - Night Ferry"_s,
                                    {u"Departure"_s, u"Harbour Wall"_s, u"Night Ferry"_s, u"Arrival"_s}, 256))
        ASSERT_TRUE(WriteFile(l_bob.Home() + u'/' + l_file.first, l_file.second));
    l_bob.Seed().SetUploadLimit(160, true);
    l_bob.Seed().AddAutojoinRoom(c_room);
    ASSERT_TRUE(l_bob.Start(l_server)) << l_bob.Output().toStdString();

    QString const l_home = AppEnvironment::PrepareHome();
    QString const l_pool = l_home + u"/Public"_s;
    for (auto const& [l_name, l_size] : {std::pair{"packing list.txt", 20 << 10}, {"sea trip.mkv", 12 << 20}, {"tide tables.pdf", 2 << 20}})
        ASSERT_TRUE(WriteFile(l_pool + u'/' + QLatin1String(l_name), RandomBytes(l_size, qHash(QLatin1String(l_name)))));
    {
        SavedGraph l_seed;
        l_seed.SetIdentity("una", (l_home + u"/Downloads"_s).toStdString());
        l_seed.ShareFolder(l_pool.toStdString(), SavedGraph::Access::Everyone);
        l_seed.ShareFolder((l_home + u"/Friends only"_s).toStdString(), SavedGraph::Access::UserList);
        QDir().mkpath(l_home + u"/Friends only"_s);
        l_seed.SetUploadLimit(96, true);
        l_seed.ListUser("bob", {"friends"});
        l_seed.ListUser("dave", {"friends", "sailing club"});
        l_seed.ListUser("carol", {});
        l_seed.ListUser("frank", {"sailing club"});
        std::string const l_recordings = RemotePath(l_bobShare);
        l_seed.AddDownload(QueuedDownload("bob", l_recordings, "done.ogg", 40 << 10, 1));
        l_seed.AddDownload(QueuedDownload("bob", l_recordings, "long song.ogg", 8 << 20, 2));
        l_seed.AddDownload(QueuedDownload("bob", l_recordings, "next song.ogg", 3 << 20, 3));
        l_seed.AddDownload(QueuedDownload("eve", "music\\eve", "refused.flac", 30 << 20, 4));
        l_seed.AddDownload(QueuedDownload("eve", "music\\eve", "waiting.flac", 25 << 20, 5));
        l_seed.AddDownload(QueuedDownload("frank", "docs\\frank", "paper.pdf", 1 << 20, 6));
        ASSERT_TRUE(l_seed.Save(l_home + u"/.Tidewick"_s));
    }
    MainWindow* lp_window = AppEnvironment::Window();
    lp_window->resize(1000, 600);
    ASSERT_TRUE(l_server.WaitForLine(u"login una from"_s, c_wait));
    Ui::MainWindow* lp_ui = lp_window->Widgets();
    Camera l_camera(l_shots);

    SeededClient l_dave("dave");
    l_dave.Share(u"Shared"_s, {{u"Charts/harbour approach.pdf"_s, RandomBytes(300 << 10, 4)},
                               {u"Charts/outer banks.pdf"_s, RandomBytes(200 << 10, 5)},
                               {u"Photos/harbour at dusk.jpg"_s, RandomBytes(120 << 10, 6)},
                               {u"Photos/lighthouse.jpg"_s, RandomBytes(90 << 10, 7)}});
    l_dave.Seed().AddAutojoinRoom(c_room);
    l_dave.QueueDownload("una", l_pool + u"/packing list.txt"_s, 20 << 10);
    l_dave.QueueDownload("una", l_pool + u"/sea trip.mkv"_s, 12 << 20);
    l_dave.QueueDownload("una", l_pool + u"/tide tables.pdf"_s, 2 << 20);
    ASSERT_TRUE(l_dave.Start(l_server)) << l_dave.Output().toStdString();

    // Eve tells the window, over a connection of her own, that one file is refused and the
    // other waits fourth in her line. The central server listens on the port every client is
    // built to reach.
    ScriptedPeer l_eve;
    ASSERT_TRUE(l_eve.LogIn(2242, "eve", "eve-pw", l_eve.ListenPort()));
    std::unique_ptr<PeerLink> lp_eve = l_eve.Dial(static_cast<quint16>(std::stoi(GetGlobal("listening_port"))));
    ASSERT_TRUE(lp_eve);
    lp_eve->SendGreeting("eve", "P");
    lp_eve->Send(Body(50).Str("music\\eve\\refused.flac").Str("Too many files queued"));
    lp_eve->Send(Body(44).Str("music\\eve\\waiting.flac").U32(4));

    // Rooms: the room entered from the list as a user does, with the helpers and two users
    // typed by hand, and a few lines of chat.
    RawClient l_carol(2242), l_ann(2242);
    ASSERT_EQ(l_carol.Login("carol", "carol-pw"), std::optional<bool>(true));
    ASSERT_EQ(l_ann.Login("ann", "ann-pw"), std::optional<bool>(true));
    for (RawClient* lp_raw : {&l_carol, &l_ann})
        lp_raw->Send(Body(14).Str(c_room));
    ASSERT_TRUE(l_server.WaitForLine(u"enter room dave harbour"_s, c_wait));
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->roomsTab);
    ASSERT_TRUE(WaitFor([&] { return Row(lp_ui->roomList, 0, u"harbour"_s) != nullptr; }, c_wait));
    emit lp_ui->roomList->itemDoubleClicked(Row(lp_ui->roomList, 0, u"harbour"_s), 0);
    ASSERT_TRUE(l_server.WaitForLine(u"enter room una harbour"_s));
    ASSERT_TRUE(WaitFor([&] { return lp_ui->roomTabWidget->count() == 1; }));
    QWidget* lp_room = lp_ui->roomTabWidget->widget(0);
    auto* lp_roomView = lp_room->findChild<QTextBrowser*>(u"chatView"_s);
    auto l_shown = [&](QString const& i_line) {
        return WaitFor([&] { return lp_roomView->toPlainText().contains(i_line); }, c_wait);
    };
    l_carol.Send(Body(13).Str(c_room).Str("morning all, the ferry is running again"));
    ASSERT_TRUE(l_shown(u"ferry is running"_s));
    l_ann.Send(Body(13).Str(c_room).Str("finally! anyone have the new tide tables?"));
    ASSERT_TRUE(l_shown(u"new tide tables"_s));
    auto* lp_roomLine = lp_room->findChild<QLineEdit*>(u"chatEdit"_s);
    lp_roomLine->setText(u"I share them, look under Public"_s);
    QTest::keyClick(lp_roomLine, Qt::Key_Return);
    ASSERT_TRUE(l_shown(u"look under Public"_s));
    l_carol.Send(Body(13).Str(c_room).Str("thanks una, and bob's new recordings are lovely"));
    ASSERT_TRUE(l_shown(u"recordings are lovely"_s));
    auto* lp_roomUsers = lp_room->findChild<QTreeWidget*>(u"userList"_s);
    ASSERT_TRUE(WaitFor([&] { return lp_roomUsers->topLevelItemCount() == 5; }, c_wait));
    l_camera.Take(lp_window, u"rooms"_s);

    // Chat: carol writes privately and the window answers in the chat her line opened.
    l_carol.Send(Body(22).Str("una").Str("hi una, could you send me the packing list?"));
    auto* lp_chats = lp_window->findChild<QTabWidget*>(u"chatTabControl"_s);
    ASSERT_TRUE(WaitFor([&] { return lp_chats->count() == 1; }, c_wait));
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->chatTab);
    auto* lp_chatLine = lp_chats->widget(0)->findChild<QLineEdit*>(u"chatEdit"_s);
    lp_chatLine->setText(u"of course, it's in my Public folder: help yourself"_s);
    QTest::keyClick(lp_chatLine, Qt::Key_Return);
    ASSERT_TRUE(l_server.WaitForLine(u"private message una -> carol"_s)) << l_server.Log().toStdString();
    l_camera.Take(lp_window, u"chat"_s);

    // Search: both helpers answer.
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->searchTab);
    ASSERT_TRUE(SearchUntilBothAnswer(u"harbour"_s)) << SearchUsers().join(u',').toStdString();
    auto* lp_searchTabs = lp_window->findChild<QTabWidget*>(u"searchTabControl"_s);
    lp_searchTabs->widget(0)->findChild<QTreeWidget*>(u"searchResultsTreeWidget"_s)->expandAll();
    l_camera.Take(lp_window, u"search"_s);

    // Users: the list with its groups, both helpers online and frank away.
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->usersTab);
    l_camera.Take(lp_window, u"users"_s);

    // Shares: bob's share browsed from his user menu, an album open.
    {
        QMenu l_menu;
        UserMenuOptions l_options(&l_menu, "bob");
        for (QAction* lp_action : l_menu.actions())
            if (lp_action->text() == u"Browse user's files"_s)
                lp_action->trigger();
    }
    ShareForm* lp_share = nullptr;
    ASSERT_TRUE(WaitFor(
        [&]
        {
            QTabWidget* lp_tabs = lp_window->findChild<SharesForm*>()->TabControl();
            lp_share = lp_tabs->count() ? qobject_cast<ShareForm*>(lp_tabs->widget(0)) : nullptr;
            return lp_share && lp_share->Share();
        },
        c_wait));
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->sharesTab);
    auto* lp_folders = lp_share->findChild<QTreeWidget*>(u"folderTree"_s);
    lp_folders->expandAll();
    QTreeWidgetItem* lp_album = Row(lp_folders, 0, u"Salt Marsh - Low Tide"_s);
    ASSERT_TRUE(lp_album);
    lp_folders->setCurrentItem(lp_album);
    l_camera.Take(lp_window, u"shares"_s);

    // Transfers: a finished download, one running under bob's limit, one refused, one in line,
    // one from a user who is away; uploads finished, running and queued.
    ASSERT_TRUE(WaitFor([] { return EntryStatus("download_entry", "bob", "done.ogg") == "complete"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return EntryStatus("download_entry", "bob", "long song.ogg") == "downloading"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return EntryStatus("download_entry", "eve", "refused.flac") == "denied"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return EntryStatus("upload_entry", "dave", "packing list.txt") == "complete"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return EntryStatus("upload_entry", "dave", "sea trip.mkv") == "uploading"; }, c_wait));
    // Long enough for speeds, bars and times to settle.
    WaitFor([] { return false; }, 5000);
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->transfersTab);
    auto* lp_transferTabs = lp_window->findChild<QTabWidget*>(u"transfersTabControl"_s);
    ASSERT_TRUE(lp_transferTabs);
    lp_transferTabs->setCurrentIndex(0);
    l_camera.Take(lp_window, u"transfers-downloads"_s);
    lp_transferTabs->setCurrentIndex(1);
    l_camera.Take(lp_window, u"transfers-uploads"_s);

    // Options, page by page.
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->optionsTab);
    for (auto const& [lp_page, l_name] : {std::pair{lp_ui->loginOptionsTab, u"options-login"_s},
                                          {lp_ui->fileSharingOptionsTab, u"options-file-sharing"_s},
                                          {lp_ui->notificationOptionsTab, u"options-notifications"_s}})
    {
        lp_ui->optionsTabWidget->setCurrentWidget(lp_page);
        l_camera.Take(lp_window, l_name);
    }

    // Diagnostics at the transfer queue's log, the busiest of the tour.
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->diagnosticsTab);
    auto* lp_areas = lp_ui->diagnosticsTab->findChild<QTabWidget*>();
    ASSERT_TRUE(lp_areas);
    for (int l_tab = 0; l_tab < lp_areas->count(); ++l_tab)
        if (lp_areas->tabText(l_tab) == u"Transfer Queue"_s)
            lp_areas->setCurrentIndex(l_tab);
    l_camera.Take(lp_window, u"diagnostics"_s);

    // The live view of the client's own state behind "&Data", at the users the window knows.
    lp_ui->actionData->trigger();
    QDialog* lp_data = nullptr;
    ASSERT_TRUE(WaitFor(
        [&]
        {
            for (QWidget* lp_top : QApplication::topLevelWidgets())
                if (lp_top->isVisible() && lp_top->objectName() == u"DataDialog"_s)
                    lp_data = qobject_cast<QDialog*>(lp_top);
            return lp_data != nullptr;
        }));
    lp_data->resize(1000, 600);
    auto* lp_types = lp_data->findChild<QTreeWidget*>(u"typeList"_s);
    lp_types->setCurrentItem(Row(lp_types, 0, u"user"_s));
    auto* lp_items = lp_data->findChild<QListView*>(u"itemList"_s);
    QModelIndexList const l_bobRows = lp_items->model()->match(lp_items->model()->index(0, 0), Qt::DisplayRole, u"bob"_s, 1, Qt::MatchExactly);
    ASSERT_EQ(l_bobRows.size(), 1);
    QApplication::processEvents();
    QTest::mouseClick(lp_items->viewport(), Qt::LeftButton, {}, lp_items->visualRect(l_bobRows.front()).center());
    auto* lp_tree = lp_data->findChild<QTreeView*>(u"itemDataTree"_s);
    lp_tree->expand(lp_tree->model()->index(0, 0));
    l_camera.Take(lp_data, u"data"_s);
    lp_data->close();

    // The transfers end with the helpers, before the window's threads are left to the exit.
    for (SeededClient* lp_client : {&l_bob, &l_dave})
        lp_client->Stop();
    EXPECT_TRUE(WaitFor(
        []
        {
            return EntryStatus("download_entry", "bob", "long song.ogg") != "downloading"
                && EntryStatus("upload_entry", "dave", "sea trip.mkv") != "uploading";
        },
        c_wait));
}
