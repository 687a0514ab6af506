// Real clients upload to each other under a speed limit. The milestone's downloader is this
// process's window, which searches and downloads as a user does; the resume is between two
// real clients.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

#include "CentralServerProcess.h"
#include "SeededClient.h"
#include "forms/SearchResultListItem.h"
#include "shell/ActionSetToolBar.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "support/AppEnvironment.h"
#include "support/WaitFor.h"

using namespace Qt::StringLiterals;

namespace
{
// The longest any one file may take.
constexpr int c_fileWaitMs = 60000;
constexpr int c_wait = 20000;

QTabWidget* Tabs() { return mainWindow->findChild<QTabWidget*>(u"searchTabControl"_s); }

QTreeWidget* Results()
{
    return Tabs()->count() ? Tabs()->widget(0)->findChild<QTreeWidget*>(u"searchResultsTreeWidget"_s) : nullptr;
}

QTreeWidgetItem* UserRow(QString const& i_user)
{
    QTreeWidget* lp_tree = Results();
    for (int l_row = 0; lp_tree && l_row < lp_tree->topLevelItemCount(); ++l_row)
        if (lp_tree->topLevelItem(l_row)->text(SearchResultListItem::UserColumn) == i_user)
            return lp_tree->topLevelItem(l_row);
    return nullptr;
}

std::vector<QTreeWidgetItem*> FileRows(QTreeWidgetItem* ip_user)
{
    std::vector<QTreeWidgetItem*> l_rows;
    for (int l_folder = 0; ip_user && l_folder < ip_user->childCount(); ++l_folder)
        for (int l_file = 0; l_file < ip_user->child(l_folder)->childCount(); ++l_file)
            l_rows.push_back(ip_user->child(l_folder)->child(l_file));
    return l_rows;
}

// Types the search as the user does, in a fresh tab, until the user's files are all listed;
// what the user's row says in its free-slot column, or nothing when they never were.
std::optional<QString> SearchFor(QString const& i_text, QString const& i_user, std::size_t i_files)
{
    std::optional<QString> l_free;
    WaitFor(
        [&]
        {
            while (Tabs()->count())
                emit Tabs()->tabCloseRequested(0);
            auto* lp_edit = mainWindow->findChild<QLineEdit*>(u"searchEdit"_s);
            lp_edit->setText(i_text);
            QTest::keyClick(lp_edit, Qt::Key_Return);
            WaitFor([&] { return FileRows(UserRow(i_user)).size() >= i_files; }, 3000);
            if (FileRows(UserRow(i_user)).size() >= i_files)
                l_free = UserRow(i_user)->text(SearchResultListItem::FreeColumn);
            return l_free.has_value();
        },
        c_wait);
    return l_free;
}

std::vector<long long> UploadSpeedsLogged(CentralServerProcess& io_server, QString const& i_user)
{
    std::vector<long long> l_speeds;
    QString const l_prefix = u"upload speed %1 "_s.arg(i_user);
    for (QString const& l_line : io_server.Log().split(u'\n'))
        if (qsizetype const l_at = l_line.indexOf(l_prefix); l_at >= 0)
            l_speeds.push_back(l_line.mid(l_at + l_prefix.size()).trimmed().toLongLong());
    return l_speeds;
}

bool IsEmptyTree(QString const& i_folder)
{
    return QDirIterator(i_folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories).hasNext() == false;
}
} // namespace

TEST(UploadEndToEnd, AFileFoundBySearchArrivesWholeFromALimitedUploader)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s);
    ASSERT_TRUE(l_server.Start());

    QByteArray const l_big = RandomBytes(5 << 20, 11);
    QByteArray const l_foreign = RandomBytes(300 << 10, 12);
    QString const l_foreignName = u"tidewater Übersee 潮汐.bin"_s;
    SeededClient l_bob("bob");
    l_bob.Seed().SetUploadLimit(512, true);
    l_bob.Share(u"share"_s, {{u"tidewater/tidewater five.bin"_s, l_big}, {u"tidewater/Tiefsee/"_s + l_foreignName, l_foreign}});
    ASSERT_TRUE(l_bob.Start(l_server)) << l_bob.Output().toStdString();

    QString const l_downloads = AppEnvironment::PrepareHome() + u"/dl"_s;
    {
        SavedGraph l_seed;
        l_seed.SetIdentity("tim", l_downloads.toStdString());
        ASSERT_TRUE(l_seed.Save(AppEnvironment::PrepareHome() + u"/.Tidewick"_s));
    }
    AppEnvironment::Window();
    ASSERT_TRUE(l_server.WaitForLine(u"login tim from"_s, c_wait));

    ASSERT_EQ(SearchFor(u"tidewater"_s, u"bob"_s, 2), u"Y"_s) << l_bob.Output().toStdString();
    for (QTreeWidgetItem* lp_row : FileRows(UserRow(u"bob"_s)))
        lp_row->setSelected(true);
    emit actionBar->ActionTriggered("download_search_results_file");

    // While the big file is on its way, bob has no free slot.
    QString const l_bigPart = l_downloads + u"/downloading/tidewater/tidewater five.bin"_s;
    ASSERT_TRUE(WaitFor([&] { return QFileInfo(l_bigPart).size() > 0; }, c_wait));
    std::optional<QString> const l_busy = SearchFor(u"tidewater"_s, u"bob"_s, 2);
    ASSERT_TRUE(l_busy);
    EXPECT_NE(*l_busy, u"Y"_s);

    QString const l_bigDone = l_downloads + u"/complete/tidewater/tidewater five.bin"_s;
    QString const l_foreignDone = l_downloads + u"/complete/Tiefsee/"_s + l_foreignName;
    ASSERT_TRUE(WaitFor([&] { return QFileInfo(l_bigDone).size() == l_big.size(); }, c_fileWaitMs));
    ASSERT_TRUE(WaitFor([&] { return QFileInfo(l_foreignDone).size() == l_foreign.size(); }, c_fileWaitMs));
    EXPECT_TRUE(ReadAll(l_bigDone) == l_big);
    EXPECT_TRUE(ReadAll(l_foreignDone) == l_foreign);
    EXPECT_TRUE(IsEmptyTree(l_downloads + u"/downloading"_s));

    EXPECT_EQ(SearchFor(u"tidewater"_s, u"bob"_s, 2), u"Y"_s);
    // One speed report per completed upload, each a real figure.
    ASSERT_TRUE(WaitFor([&] { return UploadSpeedsLogged(l_server, u"bob"_s).size() >= 2; }, c_wait));
    std::vector<long long> const l_speeds = UploadSpeedsLogged(l_server, u"bob"_s);
    EXPECT_EQ(l_speeds.size(), 2u) << l_server.Log().toStdString();
    for (long long l_speed : l_speeds)
        EXPECT_GT(l_speed, 0);

    ASSERT_TRUE(dataSaver->Save(&d, MainWindow::DataFileName().c_str()));
    std::vector<SavedGraph::Download> l_entries;
    {
        SavedGraph l_saved;
        l_saved.Load(AppEnvironment::Home() + u"/.Tidewick"_s);
        l_entries = l_saved.Downloads();
    }
    ASSERT_EQ(l_entries.size(), 2u);
    for (SavedGraph::Download const& l_entry : l_entries)
        EXPECT_EQ(l_entry.m_status, "complete") << *l_entry.m_fileName;
    l_bob.Stop();
}

TEST(UploadEndToEnd, AStoppedDownloadGoesOnFromThePartialsLength)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s);
    ASSERT_TRUE(l_server.Start());

    QByteArray const l_content = RandomBytes(3 << 20, 21);
    SeededClient l_bob("bob");
    l_bob.Seed().SetUploadLimit(256, true);
    QString const l_shared = l_bob.Share(u"share"_s, {{u"reef/reef.bin"_s, l_content}});
    ASSERT_TRUE(l_bob.Start(l_server)) << l_bob.Output().toStdString();
    SeededClient l_carol("carol");
    l_carol.QueueDownload("bob", l_shared + u"/reef/reef.bin"_s, l_content.size());
    ASSERT_TRUE(l_carol.Start(l_server)) << l_carol.Output().toStdString();

    QString const l_part = l_carol.Downloading(u"reef/reef.bin"_s);
    ASSERT_TRUE(WaitFor([&] { return QFileInfo(l_part).size() > (1 << 20); }, c_fileWaitMs))
        << l_carol.Output().toStdString() << l_bob.Output().toStdString();
    std::vector<SavedGraph::Download> const l_atStop = l_carol.Stop();
    ASSERT_EQ(l_atStop.size(), 1u);
    EXPECT_NE(l_atStop[0].m_status, "complete");
    EXPECT_LT(QFileInfo(l_part).size(), l_content.size());

    // A marker the uploader never sent: only a transfer that goes on from the partial's
    // length leaves it in place.
    QByteArray const l_marker(4096, 'M');
    {
        QFile l_file(l_part);
        ASSERT_TRUE(l_file.open(QIODevice::ReadWrite));
        ASSERT_EQ(l_file.write(l_marker), l_marker.size());
    }
    ASSERT_TRUE(l_carol.Start(l_server)) << l_carol.Output().toStdString();
    QString const l_done = l_carol.Complete(u"reef/reef.bin"_s);
    ASSERT_TRUE(WaitFor([&] { return QFileInfo(l_done).size() == l_content.size(); }, c_fileWaitMs))
        << l_carol.Output().toStdString() << l_bob.Output().toStdString();
    EXPECT_TRUE(ReadAll(l_done) == l_marker + l_content.mid(l_marker.size()));
    EXPECT_FALSE(QFileInfo::exists(l_part));
    l_carol.Stop();
    l_bob.Stop();
}
