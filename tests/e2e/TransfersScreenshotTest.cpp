// A picture of the Transfers tab at work, taken only when TIDEWICK_SCREENSHOT_DIR names a folder
// (run it under a real X server with QT_QPA_PLATFORM=xcb). The window downloads from a real
// client under a speed limit and uploads to two real ones under its own; a peer played by hand
// gives what real clients do not send: a place in line and a refusal. One user is never online.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtWidgets>

#include <memory>

#include "CentralServerProcess.h"
#include "SeededClient.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "support/AppEnvironment.h"
#include "support/ScriptedPeer.h"
#include "support/WaitFor.h"
#include "transfers/TransferQueueManager.h"
#include "ui_MainWindow.h"

using namespace Qt::StringLiterals;

namespace
{
constexpr int c_wait = 30000;

std::string DownloadStatus(std::string const& i_user, std::string const& i_file)
{
    for (Item* lp_entry : d.GetType("download_entry")->Items())
        if (ItemPtr(lp_entry).HasItem("user").AsString() == i_user && ItemPtr(lp_entry).HasItem("file_name").AsString() == i_file)
            return TransferQueueManager::StatusOf(lp_entry);
    return {};
}

std::string UploadStatus(std::string const& i_user, std::string const& i_file)
{
    for (Item* lp_entry : d.GetType("upload_entry")->Items())
        if (ItemPtr(lp_entry).HasItem("user").AsString() == i_user
            && ItemPtr(lp_entry).HasItem("shared_file").HasItem("shared_file_name").AsString() == i_file)
            return TransferQueueManager::UploadStatusOf(lp_entry);
    return {};
}

SavedGraph::Download Queued(std::string const& i_user, std::string const& i_folder, std::string const& i_file, qint64 i_size,
                            int i_order)
{
    SavedGraph::Download l_entry;
    l_entry.m_user = i_user;
    l_entry.m_remoteFolder = i_folder;
    l_entry.m_fileName = i_file;
    l_entry.m_fileSize = std::to_string(i_size);
    l_entry.m_status = "queued";
    l_entry.m_order = std::to_string(i_order);
    return l_entry;
}
} // namespace

TEST(TransfersScreenshot, EveryKindOfRowFromRealClients)
{
    QString const l_shots = qEnvironmentVariable("TIDEWICK_SCREENSHOT_DIR");
    if (l_shots.isEmpty())
        GTEST_SKIP() << "set TIDEWICK_SCREENSHOT_DIR to take the pictures";

    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s);
    ASSERT_TRUE(l_server.Start());

    SeededClient l_bob("bob");
    QString const l_bobShare = l_bob.Share(u"albums"_s, {{u"done.ogg"_s, RandomBytes(40 << 10, 1)},
                                                        {u"long song.ogg"_s, RandomBytes(8 << 20, 2)},
                                                        {u"next song.ogg"_s, RandomBytes(3 << 20, 3)}});
    l_bob.Seed().SetUploadLimit(160, true);
    ASSERT_TRUE(l_bob.Start(l_server)) << l_bob.Output().toStdString();

    QString const l_home = AppEnvironment::PrepareHome();
    QString const l_pool = l_home + u"/pool"_s;
    for (auto const& [l_name, l_size] : {std::pair{"tiny.txt", 20 << 10}, {"film.mkv", 12 << 20}, {"notes.pdf", 2 << 20}})
        ASSERT_TRUE(WriteFile(l_pool + u'/' + QLatin1String(l_name), RandomBytes(l_size, qHash(QLatin1String(l_name)))));
    {
        SavedGraph l_seed;
        l_seed.SetIdentity("una", (l_home + u"/dl"_s).toStdString());
        l_seed.ShareFolder(l_pool.toStdString(), SavedGraph::Access::Everyone);
        l_seed.SetUploadLimit(96, true);
        std::string const l_albums = RemotePath(l_bobShare);
        l_seed.AddDownload(Queued("bob", l_albums, "done.ogg", 40 << 10, 1));
        l_seed.AddDownload(Queued("bob", l_albums, "long song.ogg", 8 << 20, 2));
        l_seed.AddDownload(Queued("bob", l_albums, "next song.ogg", 3 << 20, 3));
        l_seed.AddDownload(Queued("eve", "music\\eve", "refused.flac", 30 << 20, 4));
        l_seed.AddDownload(Queued("eve", "music\\eve", "waiting.flac", 25 << 20, 5));
        l_seed.AddDownload(Queued("frank", "docs\\frank", "paper.pdf", 1 << 20, 6));
        ASSERT_TRUE(l_seed.Save(l_home + u"/.Tidewick"_s));
    }
    MainWindow* lp_window = AppEnvironment::Window();
    lp_window->resize(1180, 640);
    ASSERT_TRUE(l_server.WaitForLine(u"login una from"_s, c_wait));

    SeededClient l_erin("erin"), l_dave("dave");
    l_erin.QueueDownload("una", l_pool + u"/tiny.txt"_s, 20 << 10);
    ASSERT_TRUE(l_erin.Start(l_server)) << l_erin.Output().toStdString();
    ASSERT_TRUE(WaitFor([] { return UploadStatus("erin", "tiny.txt") == "complete"; }, c_wait));
    l_dave.QueueDownload("una", l_pool + u"/film.mkv"_s, 12 << 20);
    l_dave.QueueDownload("una", l_pool + u"/notes.pdf"_s, 2 << 20);
    ASSERT_TRUE(l_dave.Start(l_server)) << l_dave.Output().toStdString();

    // Eve tells the window, over a connection of her own, that one file is refused and the
    // other waits fourth in her line.
    // The central server listens on the port every client is built to reach.
    ScriptedPeer l_eve;
    ASSERT_TRUE(l_eve.LogIn(2242, "eve", "eve-pw", l_eve.ListenPort()));
    std::unique_ptr<PeerLink> lp_eve = l_eve.Dial(static_cast<quint16>(std::stoi(GetGlobal("listening_port"))));
    ASSERT_TRUE(lp_eve);
    lp_eve->SendGreeting("eve", "P");
    lp_eve->Send(Body(50).Str("music\\eve\\refused.flac").Str("Too many files queued"));
    lp_eve->Send(Body(44).Str("music\\eve\\waiting.flac").U32(4));

    ASSERT_TRUE(WaitFor([] { return DownloadStatus("bob", "done.ogg") == "complete"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return DownloadStatus("bob", "long song.ogg") == "downloading"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return DownloadStatus("eve", "refused.flac") == "denied"; }, c_wait));
    ASSERT_TRUE(WaitFor([] { return UploadStatus("dave", "film.mkv") == "uploading"; }, c_wait));
    // Long enough for speeds, bars and times to settle.
    WaitFor([] { return false; }, 6000);

    Ui::MainWindow* lp_ui = lp_window->Widgets();
    lp_ui->mainTabWidget->setCurrentWidget(lp_ui->transfersTab);
    auto* lp_tabs = lp_window->findChild<QTabWidget*>(u"transfersTabControl"_s);
    auto* lp_downloads = lp_window->findChild<QTreeWidget*>(u"downloadsList"_s);
    ASSERT_TRUE(lp_tabs && lp_downloads);
    for (int l_row = 0; l_row < lp_downloads->topLevelItemCount(); ++l_row)
        if (lp_downloads->topLevelItem(l_row)->text(0).startsWith(u"frank"_s))
            lp_downloads->collapseItem(lp_downloads->topLevelItem(l_row));
    lp_tabs->setCurrentIndex(0);
    WaitFor([] { return false; }, 600);
    EXPECT_TRUE(lp_window->grab().save(l_shots + u"/transfers-downloads.png"_s));
    lp_tabs->setCurrentIndex(1);
    WaitFor([] { return false; }, 600);
    EXPECT_TRUE(lp_window->grab().save(l_shots + u"/transfers-uploads.png"_s));

    for (SeededClient* lp_client : {&l_bob, &l_erin, &l_dave})
        lp_client->Stop();
}
