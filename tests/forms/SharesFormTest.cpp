#include <sys/resource.h>

#include "FormsFixture.h"
#include "forms/ShareForm.h"
#include "forms/SharesForm.h"
#include "shares/SharedFoldersManager.h"
#include "shell/EventToolBar.h"
#include "shell/FocusWidget.h"

namespace
{
using Files = std::vector<std::pair<std::string, long long>>;
using Folders = std::vector<std::pair<std::string, Files>>;

QStringList L(std::initializer_list<char const*> i_texts)
{
    QStringList l_list;
    for (char const* lp_text : i_texts) l_list << QString::fromUtf8(lp_text);
    return l_list;
}

QTreeWidget* Tree(ShareForm* ip_form) { return Child<QTreeWidget>(ip_form, "folderTree"); }
QTreeWidget* FileList(ShareForm* ip_form) { return Child<QTreeWidget>(ip_form, "fileList"); }

QStringList Texts(QTreeWidget* ip_list, int i_column = 0)
{
    QStringList l_texts;
    for (int l_row = 0; l_row < ip_list->topLevelItemCount(); ++l_row)
        l_texts << ip_list->topLevelItem(l_row)->text(i_column);
    return l_texts;
}

// The rows of the tree in order, each as its text, then "+" when expanded and "-" when hidden,
// indented by depth.
QStringList Shape(QTreeWidget* ip_tree)
{
    QStringList l_shape;
    for (QTreeWidgetItemIterator l_row(ip_tree); *l_row; ++l_row)
    {
        QString l_text = (*l_row)->text(0) + QString::fromUtf8((*l_row)->isExpanded() ? "+" : "") +
                         QString::fromUtf8((*l_row)->isHidden() ? "-" : "");
        for (QTreeWidgetItem* lp_up = (*l_row)->parent(); lp_up; lp_up = lp_up->parent()) l_text.prepend(QLatin1Char(' '));
        l_shape << l_text;
    }
    return l_shape;
}

QStringList EventTexts()
{
    QStringList l_texts;
    for (QAction* lp_action : eventToolBar->actions()) l_texts << lp_action->text();
    return l_texts;
}

void SetFilter(ShareForm* ip_form, char const* i_text)
{
    Child<QLineEdit>(ip_form, "filterEdit")->setText(QString::fromUtf8(i_text));
}

long long const s_big = 3221225472LL;
} // namespace

class SharesFormTest : public FormsTest
{
protected:
    void SetUp() override
    {
        FormsTest::SetUp();
        mp_shares = mp_window->findChild<SharesForm*>();
        // Until the main window builds the shares manager itself, the tests give it one.
        if (!d.FindType("user_share_tab") && (sharedFoldersManager || new SharedFoldersManager()))
            mp_shares->Init();
        mp_tabs = mp_shares->TabControl();
    }
    void TearDown() override
    {
        while (mp_tabs->count()) mp_shares->OnTabCloseRequested(0);
        FormsTest::TearDown();
    }

    // A list received from the user, in the shape its reader leaves in the graph: an older share
    // removed, the new one under the user, folders, files, and the loaded mark last.
    ShareForm* Receive(char const* i_user, Folders const& i_folders)
    {
        ItemPtr const l_user = User(i_user);
        if (ItemPtr const l_old = l_user["user_share"])
            l_old.Remove();
        ItemPtr const l_share = l_user.NewItem("user_share");
        for (auto const& [l_name, l_files] : i_folders)
        {
            ItemPtr const l_folder = l_share.NewItem("user_share_folder");
            l_folder += d.GetType("user_share_folder_name")->GetItem(l_name);
            for (auto const& [l_file, l_size] : l_files)
            {
                ItemPtr const l_item = l_folder.NewItem("user_share_file");
                l_item += d.GetType("user_share_file_name")->GetItem(l_file);
                l_item += d.GetType("user_share_file_size")->GetItem(Value(l_size));
            }
        }
        l_share.NewItem("user_share_loaded");
        auto* lp_form = static_cast<ShareForm*>(l_share["user_share_tab"].AsPointer<QWidget>());
        EXPECT_TRUE(lp_form && mp_tabs->indexOf(lp_form) >= 0);
        return lp_form;
    }

    void ShowSharesPage() { Child<QTabWidget>(mp_window, "mainTabWidget")->setCurrentWidget(mp_shares->parentWidget()); }
    static std::size_t Count(char const* i_type) { return d.GetType(i_type)->ItemCount(); }

    SharesForm* mp_shares = nullptr;
    QTabWidget* mp_tabs = nullptr;
};

TEST_F(SharesFormTest, TreeFollowsTheReceivedPathsAndTabsOpenInTheBackground)
{
    ShareForm* lp_ann = Receive("ann", {{"music", {}}, {"music\\rock", {{"b.mp3", s_big}, {"a.mp3", 999}, {"c.ogg", 1000}}},
                                        {"music\\rock\\live\\", {}}, {"other\\deep\\x", {}}});
    // A trailing backslash is no component; a folder whose parent is not listed stands at the top.
    EXPECT_EQ(Shape(Tree(lp_ann)), (L({"music+", " rock+", "  live", "x"})));
    ShareForm* lp_bob = Receive("bob", {});
    EXPECT_EQ(Tree(lp_bob)->topLevelItemCount(), 0);
    EXPECT_EQ(mp_tabs->currentWidget(), lp_ann);
    EXPECT_EQ(mp_tabs->tabText(1), QStringLiteral("bob"));

    EXPECT_TRUE(EventTexts().contains(QStringLiteral("bob")));
    ShowSharesPage();
    mp_tabs->setCurrentWidget(lp_bob);
    QApplication::processEvents();
    EXPECT_FALSE(EventTexts().contains(QStringLiteral("bob")));

    // Files by name first, by size as a number on a click of its header.
    ItemPtr const l_file = d.GetType("user_share_file_name")->HasItem("b.mp3").GetItems("user_share_file");
    l_file += d.GetType("bitrate")->GetItem("192");
    l_file += d.GetType("bitrate_mode")->GetItem("vbr");
    Tree(lp_ann)->setCurrentItem(Tree(lp_ann)->topLevelItem(0)->child(0));
    EXPECT_EQ(Texts(FileList(lp_ann)), (L({"a.mp3", "b.mp3", "c.ogg"})));
    EXPECT_EQ(Texts(FileList(lp_ann), 1), (L({"999", "3,221,225,472", "1,000"})));
    QTreeWidget* lp_files = FileList(lp_ann);
    EXPECT_GE(lp_files->columnWidth(1), lp_files->fontMetrics().horizontalAdvance(QStringLiteral("3,221,225,472"))); // shown whole
    EXPECT_EQ(Texts(FileList(lp_ann), 2), (L({"", "192 VBR", ""})));
    FileList(lp_ann)->header()->setSortIndicator(1, Qt::AscendingOrder);
    EXPECT_EQ(Texts(FileList(lp_ann)), (L({"a.mp3", "c.ogg", "b.mp3"})));
}

TEST_F(SharesFormTest, FilterTermsAreUsedUpAlongThePathAndCurrentFilesChangeOnlyWithTheFolder)
{
    ShareForm* lp_form = Receive("ann", {{"Music", {{"intro.txt", 1}}},
                                         {"Music\\Rock", {{"Song One.mp3", 2}, {"song two.flac", 3}}},
                                         {"Music\\Jazz", {{"blue.mp3", 4}}}, {"Papers", {{"rock notes.txt", 5}}}});
    QTreeWidget* lp_tree = Tree(lp_form);
    QTreeWidgetItem* lp_music = lp_tree->topLevelItem(0);
    QTreeWidgetItem *lp_jazz = lp_music->child(0), *lp_rock = lp_music->child(1);
    auto const l_filter = [lp_form](char const* i_text) { SetFilter(lp_form, i_text); };

    // A folder's name takes its terms, a file below the rest; neither case nor a sibling that
    // used the same term counts.
    lp_tree->setCurrentItem(lp_rock);
    l_filter("ROCK one");
    EXPECT_EQ(Shape(lp_tree), (L({"Music+", " Jazz-", " Rock", "Papers-"})));
    EXPECT_EQ(FileList(lp_form)->topLevelItemCount(), 2);
    lp_tree->setCurrentItem(lp_music);
    EXPECT_EQ(FileList(lp_form)->topLevelItemCount(), 0);
    lp_tree->setCurrentItem(lp_rock);
    EXPECT_EQ(Texts(FileList(lp_form)), L({"Song One.mp3"}));
    l_filter("music rock");
    EXPECT_EQ(Shape(lp_tree), (L({"Music+", " Jazz-", " Rock", "Papers-"})));

    // A term only the parent holds leaves the whole subtree and its files.
    l_filter("music");
    EXPECT_EQ(Shape(lp_tree), (L({"Music+", " Jazz", " Rock", "Papers-"})));
    lp_tree->setCurrentItem(lp_jazz);
    EXPECT_EQ(Texts(FileList(lp_form)), L({"blue.mp3"}));

    // A hidden current row empties the files; Escape in the filter empties it, which shows
    // everything again.
    l_filter("zzz");
    EXPECT_EQ(FileList(lp_form)->topLevelItemCount(), 0);
    EXPECT_TRUE(lp_music->isHidden());
    FocusWidgetAndParents(Child<QLineEdit>(lp_form, "filterEdit"));
    QTest::keyClick(Child<QLineEdit>(lp_form, "filterEdit"), Qt::Key_Escape);
    EXPECT_TRUE(Child<QLineEdit>(lp_form, "filterEdit")->text().isEmpty());
    EXPECT_EQ(Shape(lp_tree), (L({"Music+", " Jazz", " Rock", "Papers"})));
}

TEST_F(SharesFormTest, DownloadsGatherEveryTabsOwnSelection)
{
    ShareForm* lp_ann =
        Receive("ann", {{"Music\\Rock", {{"a.mp3", s_big}, {"b.mp3", 7}}}, {"Music\\Rock\\Live", {{"c.mp3", 8}}}});
    ShareForm* lp_bob = Receive("bob", {{"Docs", {{"d.txt", 9}, {"e.txt", 10}}}});
    Tree(lp_ann)->setCurrentItem(Tree(lp_ann)->topLevelItem(0));
    SetFilter(lp_bob, "d.txt");
    Tree(lp_bob)->setCurrentItem(Tree(lp_bob)->topLevelItem(0));
    ASSERT_EQ(FileList(lp_bob)->topLevelItemCount(), 1);

    // A folder gives its own files, filtered or not, and none of its subfolders'.
    std::vector<ShareDownload> l_all = lp_ann->Downloads("download_share_folder");
    for (ShareDownload const& l_download : lp_bob->Downloads("download_share_folder")) l_all.push_back(l_download);
    std::sort(l_all.begin(), l_all.end(), [](auto const& a, auto const& b) { return a.m_name < b.m_name; });
    EXPECT_EQ(l_all, (std::vector<ShareDownload>{{"ann", "a.mp3", "Music\\Rock", s_big}, {"ann", "b.mp3", "Music\\Rock", 7},
                                                 {"bob", "d.txt", "Docs", 9}, {"bob", "e.txt", "Docs", 10}}));

    FileList(lp_ann)->sortByColumn(1, Qt::DescendingOrder);
    FileList(lp_ann)->topLevelItem(0)->setSelected(true);
    EXPECT_EQ(lp_ann->Downloads("download_share_file"),
              (std::vector<ShareDownload>{{"ann", "a.mp3", "Music\\Rock", s_big}}));

    // Every open tab queues its own selection, the folder as received, the size whole.
    emit actionBar->ActionTriggered("download_share_file");
    QStringList const l_first = QueuedDownloads();
    EXPECT_EQ(l_first, QStringList{QStringLiteral("ann|Music\\Rock|a.mp3|%1").arg(s_big)});
    emit actionBar->ActionTriggered("download_share_folder");
    QStringList l_queued = QueuedDownloads();
    EXPECT_EQ(l_queued.first(), l_first.first());
    l_queued.sort();
    EXPECT_EQ(l_queued, (QStringList{QStringLiteral("ann|Music\\Rock|a.mp3|%1").arg(s_big), QStringLiteral("ann|Music\\Rock|b.mp3|7"),
                                  QStringLiteral("bob|Docs|d.txt|9"), QStringLiteral("bob|Docs|e.txt|10")}));
}

TEST_F(SharesFormTest, ANewerListTakesTheOldTabsPlaceAndClosingEitherLeavesTheOtherShare)
{
    ShareForm* lp_old = Receive("ann", {{"old", {{"old.txt", 1}}}});
    Receive("bob", {{"b", {{"bob.txt", 2}}}});
    ShareForm* lp_cal = Receive("cal", {{"c", {{"cal.txt", 3}}}});
    mp_tabs->setCurrentWidget(lp_old);

    ShareForm* lp_new = Receive("ann", {{"new", {{"new.txt", 4}}}});
    EXPECT_EQ(lp_old->Share(), nullptr);
    EXPECT_EQ(mp_tabs->currentWidget(), lp_new);
    QPointer<ShareForm> l_old(lp_old);
    QApplication::processEvents();
    EXPECT_TRUE(l_old.isNull());
    EXPECT_EQ(mp_tabs->count(), 3);
    EXPECT_EQ(mp_tabs->widget(0), lp_new);
    EXPECT_FALSE(d.GetType("user_share_file_name")->HasItem("old.txt"));
    EXPECT_TRUE(lp_new->Share() && User("ann")["user_share"] == lp_new->Share());

    // A tab's close takes its share, folders, files and rows, and nothing of the others'.
    mp_shares->OnTabCloseRequested(mp_tabs->indexOf(lp_cal));
    EXPECT_FALSE(User("cal")["user_share"]);
    EXPECT_FALSE(d.GetType("user_share_file_name")->HasItem("cal.txt"));
    EXPECT_TRUE(d.GetType("user_share_file_name")->HasItem("new.txt"));
    for (char const* lp_type : {"user_share_folder", "user_share_folder_node", "user_share_tab"})
        EXPECT_EQ(Count(lp_type), 2u) << lp_type;
    while (mp_tabs->count()) mp_shares->OnTabCloseRequested(0);
    for (char const* lp_type : {"user_share", "user_share_folder", "user_share_file", "user_share_folder_name",
                                "user_share_file_size", "user_share_folder_node", "user_share_file_node", "user_share_tab"})
        EXPECT_EQ(Count(lp_type), 0u) << lp_type;
}

TEST_F(SharesFormTest, AVeryDeepShareBuildsFiltersAndClosesWithoutRecursionPerLevel)
{
    // Each level's name holds its parent's, so depth costs its square in bytes; the stack is
    // cut down instead, so that a walk with one frame per level would run out of it.
    int const l_depth = 6000;
    Folders l_folders;
    std::string l_name = "d";
    for (int l_level = 0; l_level < l_depth; ++l_level, l_name += "\\d") l_folders.push_back({l_name, {}});
    l_folders.back().second.push_back({"bottom.txt", 1});

    // A quarter of a megabyte: enough for the work itself, too little for Qt's own recursive
    // walks over this depth, such as deleting a row with its subtree or laying out expanded rows.
    rlimit l_saved{};
    getrlimit(RLIMIT_STACK, &l_saved);
    rlimit l_small{256 << 10, l_saved.rlim_max};
    setrlimit(RLIMIT_STACK, &l_small);
    std::shared_ptr<void> const l_restore(nullptr, [&l_saved](void*) { setrlimit(RLIMIT_STACK, &l_saved); });
    ShareForm* lp_form = Receive("deep", l_folders);
    QTreeWidgetItem* lp_row = Tree(lp_form)->topLevelItem(0);
    int l_levels = 1;
    for (; lp_row->childCount(); lp_row = lp_row->child(0)) ++l_levels;
    EXPECT_EQ(l_levels, l_depth);
    // On show the view lays out what is expanded, so deep rows come up collapsed.
    ShowSharesPage();
    QApplication::processEvents();
    EXPECT_TRUE(lp_form->isVisible());
    SetFilter(lp_form, "bottom");
    EXPECT_FALSE(Tree(lp_form)->topLevelItem(0)->isHidden());
    SetFilter(lp_form, "nothing");
    EXPECT_TRUE(lp_row->isHidden());
    mp_shares->OnTabCloseRequested(0);
    EXPECT_EQ(Count("user_share_folder"), 0u);
}
