#include <QDesktopServices>
#include <numeric>

#include "FormsFixture.h"
#include "forms/TransferFigures.h"
#include "forms/TransfersForm.h"
#include "support/SavedGraph.h"
#include "transfers/TransferQueueManager.h"

namespace
{
QString S(char const* i_text) { return QString::fromUtf8(i_text); }

QColor Colour(QTreeWidgetItem* ip_row, int i_column = 0) { return ip_row->foreground(i_column).color(); }

QColor const s_red(255, 10, 71);
QColor const s_black(Qt::black);

// The rows in order, each as its non-empty texts of columns 0 to 2, indented by depth.
QStringList Shape(QTreeWidget* ip_tree)
{
    QStringList l_shape;
    for (QTreeWidgetItemIterator l_row(ip_tree); *l_row; ++l_row)
    {
        int l_depth = 0;
        for (QTreeWidgetItem* lp_up = (*l_row)->parent(); lp_up; lp_up = lp_up->parent())
            ++l_depth;
        l_shape << QString(l_depth, QLatin1Char(' ')) + (*l_row)->text(l_depth);
    }
    return l_shape;
}

QString BarText(QTreeWidgetItem* ip_row)
{
    QProgressBar* lp_bar = TransferTree::BarOf(ip_row);
    return lp_bar ? lp_bar->format() : S("<no bar>");
}

int BarValue(QTreeWidgetItem* ip_row)
{
    QProgressBar* lp_bar = TransferTree::BarOf(ip_row);
    return lp_bar ? lp_bar->value() : -1;
}

// Collects the addresses the form asks the desktop to open.
class OpenedUrls : public QObject
{
    Q_OBJECT
public:
    OpenedUrls() { QDesktopServices::setUrlHandler(S("file"), this, "Open"); }
    ~OpenedUrls() override { QDesktopServices::unsetUrlHandler(S("file")); }
    QStringList m_paths;
public slots:
    void Open(QUrl const& i_url) { m_paths << i_url.toLocalFile(); }
};
} // namespace

class TransfersFormTest : public FormsTest
{
protected:
    void SetUp() override
    {
        FormsTest::SetUp();
        mp_transfers = mp_window->Transfers();
        ASSERT_TRUE(mp_transfers);
        mp_downloads = mp_transfers->DownloadsList();
        mp_uploads = mp_transfers->UploadsList();
    }
    void TearDown() override
    {
        for (Item* lp_entry : d.GetType("download_entry")->GetItems())
            transferQueueManager->RemoveDownload(lp_entry);
        for (Item* lp_entry : d.GetType("upload_entry")->GetItems())
            transferQueueManager->RemoveUpload(lp_entry);
        d.GetType("shared_file")->GetItems().Remove();
        FormsTest::TearDown();
    }

    static ItemPtr Download(char const* i_user, char const* i_folder, char const* i_file, long long i_size)
    {
        transferQueueManager->AddDownload(i_user, i_file, i_folder, i_size);
        return transferQueueManager->GetDownloadEntry(i_user, i_file, i_folder);
    }
    static void SetStatus(ItemPtr i_entry, char const* i_status)
    {
        transferQueueManager->SetDownloadEntryStatus(i_entry, i_status);
    }
    // A running transfer's report, held as its thread's report leaves it in the graph.
    static void Report(ItemPtr i_entry, char const* i_positionType, long long i_position, int i_speed)
    {
        if (!i_entry.HasItem(i_positionType))
        {
            i_entry += d.GetType(i_positionType)->GetItem(Value(new long long(0)));
            i_entry += d.GetType("bytes_per_second")->GetItem(Value(new int(0)));
        }
        *i_entry.HasItem(i_positionType).AsPointer<long long>() = i_position;
        *i_entry.HasItem("bytes_per_second").AsPointer<int>() = i_speed;
        if (std::string(i_positionType) == "write_position")
            emit transferQueueManager->DownloadProgressed(i_entry);
        else
            emit transferQueueManager->UploadProgressed(i_entry);
    }
    static void Progress(ItemPtr i_entry, long long i_position, int i_speed)
    {
        Report(i_entry, "write_position", i_position, i_speed);
    }
    // A queued upload of a shared file, made the way the queue makes one for a peer's request.
    static ItemPtr Upload(char const* i_user, char const* i_folder, char const* i_name, long long i_size)
    {
        ItemPtr const l_file = d.GetType("shared_file")->NewItem();
        l_file += d.GetType("shared_file_folder")->GetItem(i_folder);
        l_file += d.GetType("shared_file_name")->GetItem(i_name);
        l_file += d.GetType("shared_file_size")->GetItem(Value(i_size));
        ItemPtr const l_entry = d.GetType("upload_entry")->NewItem();
        l_entry += User(i_user);
        l_entry += l_file;
        l_entry += d.GetType("filename_as_requested")->GetItem(std::string(i_folder) + "\\" + i_name);
        static int s_order = 0;
        l_entry += d.GetType("upload_order")->GetItem(Value(++s_order));
        transferQueueManager->SetUploadEntryStatus(l_entry, "queued");
        transferQueueManager->DetermineUploadsEffectiveOrder();
        return l_entry;
    }
    void Redrawn() { QTest::qWait(TransfersForm::s_redrawIntervalMs + 100); }
    TransferRow* Row(ItemPtr i_entry) { return mp_transfers->Downloads().FileRowOf(i_entry); }
    TransferRow* UploadRow(ItemPtr i_entry) { return mp_transfers->Uploads().FileRowOf(i_entry); }
    void FocusTree(QTreeWidget* ip_tree)
    {
        Child<QTabWidget>(mp_window, "mainTabWidget")->setCurrentWidget(mp_window->Widgets()->transfersTab);
        Child<QTabWidget>(mp_transfers, "transfersTabControl")->setCurrentWidget(ip_tree->parentWidget());
        ip_tree->setFocus();
        QApplication::processEvents();
    }

    TransfersForm* mp_transfers = nullptr;
    QTreeWidget* mp_downloads = nullptr;
    QTreeWidget* mp_uploads = nullptr;
};

// The window is made here over a seeded data file, so this runs in a process of its own, as
// ctest runs every test.
TEST(TransfersFormStart, RowsComeAtTheLoadInRequestOrderAndTheSavedLimitKeepsItsSwitch)
{
    if (mainWindow)
        GTEST_SKIP() << "needs a process whose window is not made yet";
    {
        // Gone before the window is made: the window's listeners enter the data saver that
        // stands when they are made.
        SavedGraph l_seed;
        l_seed.SetFreeListeningPort();
        auto const l_entry = [](char const* i_user, char const* i_folder, char const* i_file, char const* i_status,
                                char const* i_order)
        { return SavedGraph::Download{i_user, i_file, i_folder, "1000", i_status, i_order, std::nullopt}; };
        // Written in an order of their own; shown in the order they were asked for.
        l_seed.AddDownload(l_entry("ann", "music\\live", "b.mp3", "queued", "10"));
        l_seed.AddDownload(l_entry("bob", "docs", "x.pdf", "complete", "9"));
        l_seed.AddDownload(l_entry("ann", "music\\studio", "a.mp3", "complete", "2"));
        l_seed.AddDownload(l_entry("ann", "music\\live", "c.mp3", "queued", "11"));
        l_seed.Set("global", "upload_speed_limit", "100");
        l_seed.Set("global", "upload_speed_limit_enabled", "no");
        ASSERT_TRUE(l_seed.Save(AppEnvironment::PrepareHome() + S("/.Tidewick")));
    }
    // Rows made while the file loads would come in the file's order, before the entries have
    // their final statuses.
    std::vector<int> l_entriesAtEachRow;
    struct RowWatch : DataHandler
    {
        explicit RowWatch(std::vector<int>& o_counts) : m_counts(o_counts)
        {
            d.m_itemAddedEvent.Add(MakeHandler(&RowWatch::OnItemAdded));
        }
        void OnItemAdded(Item* ip_item)
        {
            if (ip_item->GetType()->GetName() != "download_list_node")
                return;
            ItemPtr const l_queued = d.GetType("download_entry_status")->HasItem("queued");
            m_counts.push_back(l_queued ? static_cast<int>(l_queued.GetItems("download_entry").size()) : 0);
        }
        std::vector<int>& m_counts;
    } l_watch(l_entriesAtEachRow);

    MainWindow* lp_window = AppEnvironment::Window();
    CloseInformationBoxes(QString());
    l_watch.RemoveDataHandlers();
    EXPECT_EQ(l_entriesAtEachRow, (std::vector<int>(4, 2)));
    QTreeWidget* lp_tree = lp_window->Transfers()->DownloadsList();
    EXPECT_EQ(Shape(lp_tree), (QStringList{S("ann [offline]"), S(" studio/music"), S("  a.mp3"), S(" live/music"),
                                           S("  b.mp3"), S("  c.mp3"), S("bob [offline]"), S(" docs"), S("  x.pdf")}));
    EXPECT_EQ(lp_tree->topLevelItem(0)->child(0)->child(0)->text(3), S("complete"));
    EXPECT_EQ(lp_tree->topLevelItem(0)->child(1)->child(0)->text(3), S("queued"));

    auto* lp_spin = lp_window->findChild<QSpinBox*>(S("uploadLimitSpinBox"));
    auto* lp_box = lp_window->findChild<QCheckBox*>(S("uploadLimitCheckBox"));
    EXPECT_EQ(lp_spin->value(), 100);
    EXPECT_FALSE(lp_box->isChecked());
    EXPECT_EQ(GetGlobal("upload_speed_limit_enabled"), "no");
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 0);
    // Wired after the load: a change now is in force at once.
    lp_box->setChecked(true);
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 100);
}

TEST_F(TransfersFormTest, WidgetsHeadersAndStartingWidths)
{
    EXPECT_EQ(Child<QTabWidget>(mp_transfers, "transfersTabControl")->tabShape(), QTabWidget::Triangular);
    QStringList l_headers;
    for (int l_column = 0; l_column < mp_downloads->columnCount(); ++l_column)
        l_headers << mp_downloads->headerItem()->text(l_column);
    EXPECT_EQ(l_headers, (QStringList{S("User"), S("Folder"), S("File"), S("Status"), S("Progress"), S("   ETA"), S("Kbs"),
                                      S("Size"), S("Place")}));
    EXPECT_EQ(mp_uploads->columnCount(), 8);
    QList<int> l_widths;
    for (int l_column = 0; l_column < mp_downloads->columnCount(); ++l_column)
        l_widths << mp_downloads->columnWidth(l_column);
    // A window of the usual 1000 pixels shows every column without scrolling.
    EXPECT_LE(std::accumulate(l_widths.begin(), l_widths.end(), 0), 940);
    EXPECT_FALSE(mp_uploads->header()->stretchLastSection());
    EXPECT_FALSE(mp_downloads->header()->sectionsMovable());
    EXPECT_EQ(mp_downloads->selectionMode(), QAbstractItemView::ExtendedSelection);
    EXPECT_EQ(Child<QSpinBox>(mp_transfers, "uploadLimitSpinBox")->maximum(), 99999);
}

// Figures, marks and refusals are read whole in the columns' starting widths.
TEST_F(TransfersFormTest, StartingWidthsHoldTheFiguresAndStatuses)
{
    ItemPtr const l_running = Download("ann", "films", "long.mkv", 99999999999LL);
    SetStatus(l_running, "downloading");
    Progress(l_running, 31457280, 9999 * 1024);
    Download("frank", "docs", "paper.pdf", 1000);
    transferQueueManager->OnUploadDeniedNotification("frank", "docs\\paper.pdf", "Too many files queued");
    transferQueueManager->OnDownloadPlaceInLine("ann", "films\\long.mkv", 1234);
    Redrawn();

    ASSERT_EQ(mp_downloads->topLevelItemCount(), 2);
    EXPECT_EQ(CutTexts(mp_downloads, {0, 3, 5, 6, 7, 8}), QStringList());
}

TEST_F(TransfersFormTest, StatusTextColourAndPlaceInLine)
{
    ItemPtr const l_entry = Download("ann", "music\\rock", "a.mp3", 1000);
    TransferRow* lp_row = Row(l_entry);
    ASSERT_TRUE(lp_row);
    EXPECT_EQ(lp_row->text(3), S("queued"));
    EXPECT_EQ(Colour(lp_row, 7), QColor(51, 102, 255));

    transferQueueManager->OnDownloadPlaceInLine("ann", "music\\rock\\a.mp3", 7);
    EXPECT_EQ(lp_row->text(8), S("7"));
    // A place in line belongs to the status it was told in.
    SetStatus(l_entry, "downloading");
    EXPECT_EQ(lp_row->text(8), QString());
    EXPECT_EQ(Colour(lp_row), QColor(0, 0, 255));

    // The peer's words stand for a refusal, lower-cased; the colour and the group follow the status.
    transferQueueManager->OnUploadDeniedNotification("ann", "music\\rock\\a.mp3", "Too Many Files Queued");
    EXPECT_EQ(lp_row->text(3), S("too many files queued"));
    EXPECT_EQ(Colour(lp_row, 3), s_red);
    EXPECT_EQ(lp_row->toolTip(3), S("Too Many Files Queued"));
    QTreeWidgetItem* lp_user = lp_row->parent()->parent();
    lp_user->setExpanded(false);
    EXPECT_EQ(lp_user->text(3), S("denied"));
    EXPECT_EQ(Colour(lp_user), s_red);
    lp_user->setExpanded(true);
    EXPECT_EQ(lp_user->text(3), QString());
    EXPECT_EQ(Colour(lp_user), s_black);

    SetStatus(l_entry, "complete");
    EXPECT_EQ(Colour(lp_row), QColor(0, 100, 0));
    SetStatus(l_entry, "requesting");
    EXPECT_EQ(Colour(lp_row), s_black);
}

TEST_F(TransfersFormTest, CollapsedGroupsShowTheirEntriesStatusTogether)
{
    ItemPtr const l_done = Download("ann", "music", "a.mp3", 10);
    ItemPtr const l_failed = Download("ann", "music", "b.mp3", 10);
    SetStatus(l_done, "complete");
    SetStatus(l_failed, "aborted");
    QTreeWidgetItem* lp_folder = Row(l_done)->parent();
    QTreeWidgetItem* lp_user = lp_folder->parent();
    lp_user->setExpanded(false);
    EXPECT_EQ(lp_user->text(3), S("aborted"));
    EXPECT_EQ(Colour(lp_user), s_red);

    // A status change reaches a closed group at once.
    SetStatus(l_failed, "local error");
    EXPECT_EQ(lp_user->text(3), QString());
    EXPECT_EQ(Colour(lp_user), s_black);
    lp_folder->setExpanded(false);
    EXPECT_EQ(lp_folder->text(3), QString());
    SetStatus(l_failed, "complete");
    EXPECT_EQ(lp_user->text(3), S("complete"));
    EXPECT_EQ(lp_folder->text(3), S("complete"));
    EXPECT_EQ(Colour(lp_folder), QColor(0, 100, 0));
    SetStatus(l_failed, "queued");
    EXPECT_EQ(lp_user->text(3), S("queued"));
    SetStatus(l_done, "downloading");
    EXPECT_EQ(lp_user->text(3), S("downloading"));
    EXPECT_EQ(mp_transfers->GetDownloadEntriesAggregateStatus(mp_transfers->GetNodeDownloadEntryItems(lp_user)),
              "downloading");
}

TEST_F(TransfersFormTest, ProgressFiguresAreDrawnTogetherAndAtOnceOnAStatusChange)
{
    ItemPtr const l_entry = Download("ann", "music", "a.mp3", 1048576);
    SetStatus(l_entry, "downloading");
    TransferRow* lp_row = Row(l_entry);
    Progress(l_entry, 524288, 2048);
    // Marked now, drawn by the timer.
    EXPECT_EQ(BarText(lp_row), S("<no bar>"));
    Redrawn();
    EXPECT_EQ(BarText(lp_row), S("524,288 (50.0%)"));
    EXPECT_EQ(BarValue(lp_row), 50);
    EXPECT_EQ(TransferTree::BarOf(lp_row)->maximumHeight(), 14);
    EXPECT_EQ(lp_row->text(6), S("2.0"));
    EXPECT_EQ(lp_row->text(5), S("   4m:16s"));

    Progress(l_entry, 1048576 - 3723 * 100, 100);
    Redrawn();
    EXPECT_EQ(lp_row->text(5), S("   1h:2m:3s"));
    EXPECT_EQ(lp_row->text(6), S("0.1"));
    EXPECT_EQ(BarValue(lp_row), 64);
    Progress(l_entry, 1048575, 0);
    Redrawn();
    EXPECT_EQ(lp_row->text(5), S("   0s"));
    EXPECT_EQ(BarText(lp_row), S("1,048,575 (100.0%)"));
    EXPECT_EQ(BarValue(lp_row), 99);

    // The last report is drawn with the completion, without waiting for the timer, and stays.
    Progress(l_entry, 1048576, 4096);
    SetStatus(l_entry, "complete");
    EXPECT_EQ(BarText(lp_row), S("1,048,576 (100.0%)"));
    EXPECT_EQ(lp_row->text(6), S("4.0"));
    EXPECT_EQ(BarText(lp_row->parent()->parent()), S("1,048,576 (100.0%)"));
    Redrawn();
    EXPECT_EQ(BarText(lp_row), S("1,048,576 (100.0%)"));
}

TEST_F(TransfersFormTest, GroupTotalsFollowTheCountingRulesAndASingleFolderHasNoBar)
{
    ItemPtr const l_running = Download("ann", "music", "a.mp3", 1000);
    ItemPtr const l_done = Download("ann", "music", "b.mp3", 3000);
    ItemPtr const l_waiting = Download("ann", "music", "c.mp3", 4000);
    ItemPtr const l_refused = Download("ann", "music", "d.mp3", 100000);
    SetStatus(l_done, "complete");
    transferQueueManager->OnUploadDeniedNotification("ann", "music\\d.mp3", "No");
    SetStatus(l_running, "downloading");
    Progress(l_running, 500, 250);
    Redrawn();
    QTreeWidgetItem* lp_folder = Row(l_running)->parent();
    QTreeWidgetItem* lp_user = lp_folder->parent();
    // Done: 500 + 3000 + 0; left: 500 + 4000; the refusal is not counted. The time left is at
    // the speed of the entry that moved.
    EXPECT_EQ(BarText(lp_user), S("3,500 (43.8%)"));
    EXPECT_EQ(lp_user->text(5), S("   18s"));
    EXPECT_EQ(BarText(lp_folder), S("<no bar>"));
    TransferRow::Sums const l_stats =
        mp_transfers->GetDownloadsProgressStats(mp_transfers->GetNodeDownloadEntryItems(lp_user));
    EXPECT_EQ(TransferFigures::Shown(l_stats.m_done), 3500);
    EXPECT_EQ(TransferFigures::Shown(l_stats.m_left), 4500);
    EXPECT_EQ(TransferFigures::Shown(l_stats.m_total), 8000);

    // With a second folder each folder shows its own totals.
    ItemPtr const l_other = Download("ann", "films", "e.mkv", 2000);
    Progress(l_running, 1000, 250);
    Redrawn();
    EXPECT_EQ(BarText(lp_folder), S("4,000 (50.0%)"));
    EXPECT_EQ(BarText(lp_user), S("4,000 (40.0%)"));
    EXPECT_EQ(BarText(Row(l_other)->parent()), S("<no bar>"));
    // A removal redraws the totals at once.
    transferQueueManager->RemoveDownload(l_waiting);
    EXPECT_EQ(BarText(lp_user), S("4,000 (66.7%)"));
    // A size the peer offers in place of the one asked for counts from the next figures on.
    l_running += d.GetType("file_size")->GetItem(Value(2000LL));
    EXPECT_EQ(Row(l_running)->text(7), S("2,000"));
    Progress(l_running, 1000, 250);
    Redrawn();
    EXPECT_EQ(BarText(lp_user), S("4,000 (57.1%)"));
    EXPECT_EQ(BarText(Row(l_running)), S("1,000 (50.0%)"));
    (void)l_refused;
}

TEST_F(TransfersFormTest, ASizeOfNothingIsDone)
{
    ItemPtr const l_empty = Download("ann", "misc", "empty.txt", 0);
    SetStatus(l_empty, "downloading");
    Progress(l_empty, 0, 0);
    Redrawn();
    TransferRow* lp_row = Row(l_empty);
    EXPECT_EQ(BarText(lp_row), S(" (100.0%)"));
    EXPECT_EQ(BarValue(lp_row), 100);
    EXPECT_EQ(lp_row->text(5), S("   0s"));
    EXPECT_EQ(BarValue(lp_row->parent()->parent()), 100);
    EXPECT_EQ(lp_row->parent()->parent()->text(5), S("   0s"));
}

TEST_F(TransfersFormTest, SizesAPeerClaimsAddUpWithoutOverflow)
{
    long long const l_huge = std::numeric_limits<long long>::max();
    ItemPtr const l_running = Download("eve", "big", "a.bin", l_huge);
    SetStatus(Download("eve", "big", "b.bin", l_huge), "complete");
    Download("eve", "big", "c.bin", l_huge);
    SetStatus(l_running, "downloading");
    Progress(l_running, 1LL << 62, 1);
    Redrawn();
    QTreeWidgetItem* lp_user = Row(l_running)->parent()->parent();
    EXPECT_EQ(BarText(lp_user), S("9,223,372,036,854,775,807 (50.0%)"));
    EXPECT_EQ(BarValue(lp_user), 50);
    EXPECT_EQ(BarText(Row(l_running)), S("4,611,686,018,427,387,904 (50.0%)"));
}

TEST_F(TransfersFormTest, OfflineMarkOnDownloadsOnly)
{
    ItemPtr const l_user = User("cat");
    ItemPtr const l_entry = Download("cat", "docs", "x.pdf", 10);
    ItemPtr const l_upload = Upload("cat", "/srv/share", "y.pdf", 20);
    // Finished, so that coming online asks nothing of the peer.
    SetStatus(l_entry, "complete");
    transferQueueManager->SetUploadEntryStatus(l_upload, "complete");
    QTreeWidgetItem* lp_down = Row(l_entry)->parent()->parent();
    QTreeWidgetItem* lp_up = mp_uploads->topLevelItem(0);
    EXPECT_EQ(lp_down->text(0), S("cat [offline]"));
    l_user.NewItem("is_online");
    EXPECT_EQ(lp_down->text(0), S("cat"));
    EXPECT_EQ(lp_up->text(0), S("cat"));
    l_user.Disconnect("is_online");
    EXPECT_EQ(lp_down->text(0), S("cat [offline]"));
    EXPECT_EQ(lp_up->text(0), S("cat"));
}

TEST_F(TransfersFormTest, RemovalTakesEveryEntryOfTheSelectedRowsAndEmptiedGroups)
{
    ItemPtr const l_a = Download("ann", "music", "a.mp3", 10);
    ItemPtr const l_b = Download("ann", "music", "b.mp3", 10);
    ItemPtr const l_c = Download("ann", "films", "c.mkv", 10);
    ItemPtr const l_d = Download("bob", "music", "d.mp3", 10);
    // One folder under two users is two rows.
    EXPECT_NE(Row(l_a)->parent(), Row(l_d)->parent());
    FocusTree(mp_downloads);
    EXPECT_EQ(ActionTexts(), (QStringList{S("Remove Download(s)"), S("Expand Folders [on]"), S("Expand Users [on]")}));

    // The folder and one of its files: the file's row goes with the folder's first.
    Row(l_a)->parent()->setSelected(true);
    Row(l_b)->setSelected(true);
    ASSERT_TRUE(Trigger(S("Remove Download(s)")));
    EXPECT_EQ(Shape(mp_downloads), (QStringList{S("ann [offline]"), S(" films"), S("  c.mkv"), S("bob [offline]"),
                                                S(" music"), S("  d.mp3")}));
    EXPECT_EQ(d.GetType("download_list_folder_node")->GetItems().size(), 2u);

    // The last file of a user takes the folder and the user row; Delete removes too.
    Row(l_c)->setSelected(true);
    QTest::keyClick(mp_downloads, Qt::Key_Delete);
    EXPECT_EQ(Shape(mp_downloads), (QStringList{S("bob [offline]"), S(" music"), S("  d.mp3")}));
    EXPECT_EQ(d.GetType("download_list_user_node")->GetItems().size(), 1u);
    EXPECT_FALSE(transferQueueManager->GetDownloadEntry("ann", "c.mkv", "films"));
    EXPECT_TRUE(transferQueueManager->GetDownloadEntry("bob", "d.mp3", "music"));
}

TEST_F(TransfersFormTest, ExpandActionsFlipTheirMarkAndEveryRowOfTheirLevel)
{
    ItemPtr const l_entry = Download("ann", "music", "a.mp3", 10);
    Download("ann", "films", "b.mkv", 10);
    QTreeWidgetItem* lp_user = Row(l_entry)->parent()->parent();
    FocusTree(mp_downloads);
    ASSERT_TRUE(Trigger(S("Expand Folders [on]")));
    EXPECT_EQ(ActionTexts().value(1), S("Expand Folders [off]"));
    EXPECT_FALSE(lp_user->child(0)->isExpanded());
    EXPECT_FALSE(lp_user->child(1)->isExpanded());
    EXPECT_TRUE(lp_user->isExpanded());
    EXPECT_EQ(lp_user->child(0)->text(3), S("queued"));
    // New rows follow the marks.
    ItemPtr const l_new = Download("bob", "docs", "c.pdf", 10);
    EXPECT_FALSE(Row(l_new)->parent()->isExpanded());
    EXPECT_TRUE(Row(l_new)->parent()->parent()->isExpanded());
    ASSERT_TRUE(Trigger(S("Expand Users [on]")));
    EXPECT_EQ(ActionTexts().value(2), S("Expand Users [off]"));
    EXPECT_FALSE(lp_user->isExpanded());
    EXPECT_EQ(lp_user->text(3), S("queued"));
    ASSERT_TRUE(Trigger(S("Expand Users [off]")));
    ASSERT_TRUE(Trigger(S("Expand Folders [off]")));
    EXPECT_TRUE(lp_user->isExpanded());
    EXPECT_TRUE(lp_user->child(0)->isExpanded());
    EXPECT_EQ(lp_user->text(3), QString());

    FocusTree(mp_uploads);
    EXPECT_EQ(ActionTexts(), (QStringList{S("Expand Folders [on]"), S("Expand Users [on]")}));
    Upload("ann", "/srv/share", "y.pdf", 20);
    ASSERT_TRUE(Trigger(S("Expand Users [on]")));
    EXPECT_FALSE(mp_uploads->topLevelItem(0)->isExpanded());
    EXPECT_EQ(mp_uploads->topLevelItem(0)->text(3), S("queued"));
    ASSERT_TRUE(Trigger(S("Expand Users [off]")));
}

TEST_F(TransfersFormTest, SpeedControlsPutEveryChangeInForce)
{
    auto* lp_spin = Child<QSpinBox>(mp_transfers, "uploadLimitSpinBox");
    auto* lp_box = Child<QCheckBox>(mp_transfers, "uploadLimitCheckBox");
    lp_spin->setValue(64);
    EXPECT_TRUE(lp_box->isChecked());
    EXPECT_EQ(GetGlobal("upload_speed_limit"), "64");
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 64);
    lp_box->setChecked(false);
    EXPECT_EQ(GetGlobal("upload_speed_limit_enabled"), "no");
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 0);
    lp_box->setChecked(true);
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 64);
    // 0 unchecks the box, and a limit of 0 is none.
    lp_spin->setValue(0);
    EXPECT_FALSE(lp_box->isChecked());
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 0);
    lp_box->setChecked(true);
    EXPECT_EQ(GetGlobal("upload_speed_limit_enabled"), "yes");
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 0);
    lp_spin->setValue(7);
    EXPECT_EQ(transferQueueManager->GetUploadSpeed(), 7);
    lp_spin->setValue(0);
}

TEST_F(TransfersFormTest, UploadRowsFiguresTooltipsAndSummary)
{
    ItemPtr const l_first = Upload("ann", "/srv/share/music", "a.mp3", 2048);
    ItemPtr const l_second = Upload("bob", "/srv/share/music", "b.mp3", 4096);
    ItemPtr const l_third = Upload("bob", "/srv/share/docs", "c.pdf", 10);
    TransferRow* lp_row = UploadRow(l_first);
    ASSERT_TRUE(lp_row);
    EXPECT_EQ(lp_row->parent()->text(1), S("music/share/srv"));
    EXPECT_EQ(lp_row->text(2), S("a.mp3"));
    EXPECT_EQ(lp_row->text(7), S("2,048"));
    EXPECT_EQ(lp_row->toolTip(2), S("/srv/share/music/a.mp3"));
    EXPECT_EQ(UploadRow(l_third)->toolTip(3), S("Place 3 of 3 queued uploads"));

    transferQueueManager->SetUploadEntryStatus(l_first, "uploading");
    Report(l_first, "read_position", 1024, 512);
    Redrawn();
    EXPECT_EQ(BarText(lp_row), S("1,024 (50.0%)"));
    EXPECT_EQ(lp_row->text(5), S("   2s"));
    EXPECT_EQ(lp_row->text(3), S("uploading"));
    EXPECT_EQ(UploadRow(l_second)->toolTip(3), S("Place 1 of 2 queued uploads"));
    EXPECT_EQ(Child<QLabel>(mp_transfers, "uploadsSummaryLabel")->text(),
              S("Running: 1   Waiting: 2   Finished: 0   Failed: 0   Speed: 0.5 KiB/s"));
    transferQueueManager->SetUploadEntryStatus(l_first, "complete");
    EXPECT_EQ(Child<QLabel>(mp_transfers, "uploadsSummaryLabel")->text(),
              S("Running: 0   Waiting: 2   Finished: 1   Failed: 0   Speed: 0.0 KiB/s"));
    transferQueueManager->RemoveUpload(l_second);
    EXPECT_EQ(Shape(mp_uploads), (QStringList{S("ann"), S(" music/share/srv"), S("  a.mp3"), S("bob"),
                                              S(" docs/share/srv"), S("  c.pdf")}));
}

TEST_F(TransfersFormTest, MenusAndOpeningTheFolderOfAFile)
{
    OpenedUrls l_opened;
    ItemPtr const l_entry = Download("ann", "music\\rock", "a.mp3", 10);
    ItemPtr const l_upload = Upload("bob", "/srv/share", "y.pdf", 20);
    FocusTree(mp_downloads);
    QTreeWidgetItem* lp_row = Row(l_entry);
    QPoint const l_point = mp_downloads->visualItemRect(lp_row).center();
    QStringList const l_menu = MenuShownBy([&] { mp_transfers->OnDownloadsContextMenuRequested(l_point); });
    EXPECT_EQ(l_menu.mid(0, 3), (QStringList{S("Remove Download(s)"), S("Open Folder"), QString()}));
    EXPECT_TRUE(l_menu.contains(S("Message user")));
    EXPECT_EQ(l_menu.back(), S("Unshare files from user"));
    QPoint const l_beside(5, mp_downloads->viewport()->height() - 5);
    EXPECT_EQ(MenuShownBy([&] { mp_transfers->OnDownloadsContextMenuRequested(l_beside); }), QStringList{S("<no menu>")});
    FocusTree(mp_uploads);
    QPoint const l_upPoint = mp_uploads->visualItemRect(mp_uploads->topLevelItem(0)).center();
    QStringList const l_upMenu = MenuShownBy([&] { mp_transfers->OnUploadsContextMenuRequested(l_upPoint); });
    EXPECT_EQ(l_upMenu.front(), S("Message user"));

    // Return on a file row opens the folder it lies in, never the file, and only once it exists.
    FocusTree(mp_downloads);
    mp_downloads->setCurrentItem(lp_row);
    QTest::keyClick(mp_downloads, Qt::Key_Return);
    EXPECT_TRUE(l_opened.m_paths.isEmpty());
    QString const l_folder = transferQueueManager->TargetOf(l_entry, false).Folder();
    ASSERT_TRUE(QDir().mkpath(l_folder));
    QTest::keyClick(mp_downloads, Qt::Key_Return);
    EXPECT_EQ(l_opened.m_paths, QStringList{l_folder});
    EXPECT_EQ(lp_row->toolTip(2), transferQueueManager->TargetOf(l_entry, false).File());
    (void)l_upload;
}

// Not part of the normal run: with TIDEWICK_SCREENSHOT_DIR set, both tabs with a row of every
// kind are saved there as pictures to look at.
TEST_F(TransfersFormTest, ScreenshotOfEveryStatus)
{
    QString const l_dir = qEnvironmentVariable("TIDEWICK_SCREENSHOT_DIR");
    if (l_dir.isEmpty())
        GTEST_SKIP() << "TIDEWICK_SCREENSHOT_DIR is not set";
    mp_window->resize(1280, 760);
    User("ann").NewItem("is_online");
    Download("ann", "music\\rock", "a quiet song.mp3", 5120000);
    transferQueueManager->OnDownloadPlaceInLine("ann", "music\\rock\\a quiet song.mp3", 3);
    ItemPtr const l_running = Download("ann", "music\\rock", "loud song.flac", 31457280);
    SetStatus(l_running, "downloading");
    ItemPtr const l_done = Download("ann", "music\\jazz", "standard.mp3", 4194304);
    SetStatus(l_done, "downloading");
    Progress(l_done, 4194304, 180000);
    Redrawn();
    SetStatus(l_done, "complete");
    Progress(l_running, 12582912, 262144);
    Download("bob", "docs", "paper.pdf", 120000);
    transferQueueManager->OnUploadDeniedNotification("bob", "docs\\paper.pdf", "File not shared.");
    SetStatus(Download("bob", "docs", "notes.txt", 2048), "aborted");
    SetStatus(Download("bob", "docs", "scan.tiff", 9000000), "local error");
    SetStatus(Download("cat", "films", "one.mkv", 700000000), "complete");
    Download("cat", "films", "two.mkv", 700000000);
    Row(Download("cat", "films", "three.mkv", 700000000))->parent()->parent()->setExpanded(false);

    ItemPtr const l_uploading = Upload("dave", "/home/me/share/music", "tune.ogg", 8388608);
    transferQueueManager->SetUploadEntryStatus(l_uploading, "uploading");
    Report(l_uploading, "read_position", 2097152, 524288);
    Upload("erin", "/home/me/share/music", "other tune.ogg", 6000000);
    ItemPtr const l_sent = Upload("frank", "/home/me/share/books", "novel.epub", 800000);
    transferQueueManager->SetUploadEntryStatus(l_sent, "uploading");
    Report(l_sent, "read_position", 800000, 90000);
    Redrawn();
    transferQueueManager->SetUploadEntryStatus(l_sent, "complete");
    transferQueueManager->SetUploadEntryStatus(Upload("gus", "/home/me/share/books", "essay.pdf", 300000), "aborted");
    Child<QSpinBox>(mp_transfers, "uploadLimitSpinBox")->setValue(512);

    FocusTree(mp_downloads);
    Redrawn();
    EXPECT_TRUE(mp_window->grab().save(l_dir + S("/xform-downloads.png")));
    FocusTree(mp_uploads);
    Redrawn();
    EXPECT_TRUE(mp_window->grab().save(l_dir + S("/xform-uploads.png")));
    Child<QSpinBox>(mp_transfers, "uploadLimitSpinBox")->setValue(0);
}

#include "TransfersFormTest.moc"
