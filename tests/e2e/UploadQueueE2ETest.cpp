// This process's window uploads under a speed limit to real clients that were seeded with
// downloads of its files: the order its queue serves them in, and a user unshared mid-transfer.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtWidgets>

#include <memory>

#include "CentralServerProcess.h"
#include "SeededClient.h"
#include "forms/UserMenuOptions.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "support/AppEnvironment.h"
#include "support/WaitFor.h"

using namespace Qt::StringLiterals;

namespace
{
constexpr int c_fileWaitMs = 60000;
constexpr int c_wait = 20000;
constexpr int c_limitKib = 128;
// About five seconds a file at the limit; the first a little longer, so that two clients can
// start and ask while it runs.
constexpr qsizetype c_fileSize = 5 * c_limitKib * 1024;
constexpr qsizetype c_firstSize = 8 * c_limitKib * 1024;

// The status of the window's upload of the file to the user; empty while there is no entry.
std::string UploadStatus(std::string const& i_user, std::string const& i_file)
{
    for (Item* lp_entry : d.GetType("upload_entry")->Items())
    {
        ItemPtr const l_entry(lp_entry);
        if (l_entry.HasItem("user").AsString() == i_user
            && l_entry.HasItem("shared_file").HasItem("shared_file_name").AsString() == i_file)
            return l_entry.HasItem("upload_entry_status").AsString();
    }
    return {};
}

bool HasUploadsTo(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->HasItem(i_user);
    return l_user && !l_user.GetItems("upload_entry").empty();
}

// Whether the Uploads tab shows a row of the user.
bool HasUploadRow(QString const& i_user)
{
    auto* lp_tree = mainWindow->findChild<QTreeWidget*>(u"uploadsList"_s);
    for (int l_row = 0; lp_tree && l_row < lp_tree->topLevelItemCount(); ++l_row)
        if (lp_tree->topLevelItem(l_row)->text(0) == i_user)
            return true;
    return false;
}

// Triggers the entry of the user's menu as the user does; false when the menu lacks it.
bool TriggerUserMenu(std::string const& i_user, QString const& i_text)
{
    QMenu l_menu;
    UserMenuOptions l_options(&l_menu, i_user);
    for (QAction* lp_action : l_menu.actions())
        if (lp_action->text() == i_text)
        {
            lp_action->trigger();
            return true;
        }
    return false;
}

class UploadQueueEndToEnd : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_dir = std::make_unique<QTemporaryDir>();
        s_server = std::make_unique<CentralServerProcess>(s_dir->path() + u"/accounts"_s,
                                                          QStringList{u"--privileged"_s, u"erin"_s});
        ASSERT_TRUE(s_server->Start());
        QString const l_home = AppEnvironment::PrepareHome();
        s_pool = l_home + u"/pool"_s;
        for (auto const& [l_name, l_size] : {std::pair{"a.bin", c_firstSize}, {"b.bin", c_fileSize}, {"c.bin", c_fileSize},
                                             {"e.bin", c_fileSize}, {"f.bin", 3 * c_fileSize}})
            ASSERT_TRUE(WriteFile(s_pool + u'/' + QLatin1String(l_name), RandomBytes(l_size, qHash(QLatin1String(l_name)))));
        {
            SavedGraph l_seed;
            l_seed.SetIdentity("una", (l_home + u"/dl"_s).toStdString());
            l_seed.ShareFolder(s_pool.toStdString(), SavedGraph::Access::Everyone);
            l_seed.SetUploadLimit(c_limitKib, true);
            l_seed.ListUser("frank", {"captains"});
            ASSERT_TRUE(l_seed.Save(l_home + u"/.Tidewick"_s));
        }
        AppEnvironment::Window();
        ASSERT_TRUE(s_server->WaitForLine(u"login una from"_s, c_wait));
        // A group's priority is not kept in the data file: it is set here, as the group dialog does.
        d.GetType("user_list_group")->GetItem("captains")->Connect(d.GetType("group_download_priority")->GetItem("5"));
    }
    static void TearDownTestSuite()
    {
        s_server.reset();
        s_dir.reset();
    }

    // A real client seeded with queued downloads of the window's files, started.
    std::unique_ptr<SeededClient> StartDownloader(std::string const& i_name, std::vector<char const*> const& i_files)
    {
        auto lp_client = std::make_unique<SeededClient>(i_name);
        for (char const* lp_file : i_files)
            lp_client->QueueDownload("una", s_pool + u'/' + QLatin1String(lp_file), QFileInfo(s_pool + u'/' + QLatin1String(lp_file)).size());
        EXPECT_TRUE(lp_client->Start(*s_server)) << lp_client->Output().toStdString();
        return lp_client;
    }

    static QByteArray Shared(char const* i_file) { return ReadAll(s_pool + u'/' + QLatin1String(i_file)); }

    static inline std::unique_ptr<QTemporaryDir> s_dir;
    static inline std::unique_ptr<CentralServerProcess> s_server;
    static inline QString s_pool;
};
} // namespace

TEST_F(UploadQueueEndToEnd, GroupPriorityThenPrivilegeThenArrivalDecideTheOrder)
{
    std::unique_ptr<SeededClient> lp_dave = StartDownloader("dave", {"a.bin", "b.bin"});
    ASSERT_TRUE(WaitFor([] { return UploadStatus("dave", "a.bin") == "uploading"; }, c_wait)) << lp_dave->Output().toStdString();
    ASSERT_TRUE(WaitFor([] { return UploadStatus("dave", "b.bin") == "queued"; }, c_wait));
    std::unique_ptr<SeededClient> lp_erin = StartDownloader("erin", {"c.bin"});
    ASSERT_TRUE(WaitFor([] { return !UploadStatus("erin", "c.bin").empty(); }, c_wait)) << lp_erin->Output().toStdString();
    std::unique_ptr<SeededClient> lp_frank = StartDownloader("frank", {"e.bin"});
    ASSERT_TRUE(WaitFor([] { return !UploadStatus("frank", "e.bin").empty(); }, c_wait)) << lp_frank->Output().toStdString();
    // Otherwise the order below would not show what came after whom.
    ASSERT_EQ(UploadStatus("dave", "a.bin"), "uploading") << "the first file finished before all had asked";

    struct Awaited
    {
        SeededClient* mp_client;
        char const* mp_file;
    };
    std::vector<Awaited> l_pending{{lp_dave.get(), "a.bin"}, {lp_dave.get(), "b.bin"}, {lp_erin.get(), "c.bin"}, {lp_frank.get(), "e.bin"}};
    std::vector<std::string> l_finished;
    while (!l_pending.empty())
    {
        bool const l_one = WaitFor(
            [&]
            {
                for (auto l_it = l_pending.begin(); l_it != l_pending.end(); ++l_it)
                    if (QFileInfo::exists(l_it->mp_client->Complete(u"pool/"_s + QLatin1String(l_it->mp_file))))
                    {
                        l_finished.push_back(l_it->mp_client->Name() + '/' + l_it->mp_file);
                        l_pending.erase(l_it);
                        return true;
                    }
                return false;
            },
            c_fileWaitMs);
        ASSERT_TRUE(l_one) << "finished so far: " << testing::PrintToString(l_finished);
    }
    EXPECT_EQ(l_finished, (std::vector<std::string>{"dave/a.bin", "frank/e.bin", "erin/c.bin", "dave/b.bin"}));
    EXPECT_TRUE(ReadAll(lp_dave->Complete(u"pool/b.bin"_s)) == Shared("b.bin"));
    EXPECT_TRUE(ReadAll(lp_frank->Complete(u"pool/e.bin"_s)) == Shared("e.bin"));
    EXPECT_TRUE(WaitFor([] { return UploadStatus("dave", "b.bin") == "complete"; }, c_wait));
    for (SeededClient* lp_client : {lp_dave.get(), lp_erin.get(), lp_frank.get()})
        lp_client->Stop();
}

TEST_F(UploadQueueEndToEnd, AnUnsharedUserLosesTheRunningUploadUntilReshared)
{
    std::unique_ptr<SeededClient> lp_carol = StartDownloader("carol", {"f.bin"});
    QString const l_part = lp_carol->Downloading(u"pool/f.bin"_s);
    ASSERT_TRUE(WaitFor([&] { return QFileInfo(l_part).size() >= 256 << 10; }, c_wait)) << lp_carol->Output().toStdString();

    EXPECT_TRUE(HasUploadRow(u"carol"_s));
    ASSERT_TRUE(TriggerUserMenu("carol", u"Unshare files from user"_s));
    EXPECT_FALSE(HasUploadsTo("carol"));
    EXPECT_TRUE(WaitFor([] { return !HasUploadRow(u"carol"_s); }, 2000));
    // What was on its way when the upload stopped is given time to land.
    WaitFor([] { return false; }, 1000);
    qint64 const l_stoppedAt = QFileInfo(l_part).size();
    WaitFor([] { return false; }, 2500);
    EXPECT_EQ(QFileInfo(l_part).size(), l_stoppedAt);
    EXPECT_LT(l_stoppedAt, QFileInfo(s_pool + u"/f.bin"_s).size());
    EXPECT_FALSE(HasUploadsTo("carol"));

    ASSERT_TRUE(dataSaver->Save(&d, MainWindow::DataFileName().c_str()));
    {
        SavedGraph l_saved;
        l_saved.Load(AppEnvironment::Home() + u"/.Tidewick"_s);
        EXPECT_TRUE(l_saved.IsUnshared("carol"));
    }

    EXPECT_FALSE(TriggerUserMenu("carol", u"Unshare files from user"_s));
    ASSERT_TRUE(TriggerUserMenu("carol", u"Re-share files with user"_s));
    lp_carol->Stop();
    ASSERT_TRUE(lp_carol->Start(*s_server)) << lp_carol->Output().toStdString();
    QString const l_done = lp_carol->Complete(u"pool/f.bin"_s);
    ASSERT_TRUE(WaitFor([&] { return QFileInfo::exists(l_done); }, c_fileWaitMs)) << lp_carol->Output().toStdString();
    EXPECT_TRUE(ReadAll(l_done) == Shared("f.bin"));
    EXPECT_TRUE(WaitFor([] { return UploadStatus("carol", "f.bin") == "complete"; }, c_wait));
    lp_carol->Stop();
}
