#include "FormsFixture.h"
#include "forms/SearchForm.h"
#include "forms/SearchResultListItem.h"
#include "forms/SearchResultsForm.h"
#include "forms/WishListSearcher.h"
#include "peer/PeerMessenger.h"
#include "shell/DiagnosticsForm.h"
#include "shell/EventToolBar.h"
#include "support/ScriptedPeer.h"

namespace
{
// A file a peer reports: the path as sent, its size and attribute pairs.
struct Found
{
    Found(char const* i_path, quint64 i_size = 1, QList<std::pair<quint32, quint32>> i_attributes = {})
        : m_path(i_path), m_size(i_size), m_attributes(std::move(i_attributes)) {}
    QByteArray m_path;
    quint64 m_size;
    QList<std::pair<quint32, quint32>> m_attributes;
};

struct Slot
{
    bool m_free = false;
    quint32 m_speed = 0;
    quint32 m_queue = 0;
};

QString S(char const* i_text) { return QString::fromUtf8(i_text); }

QStringList L(std::initializer_list<char const*> i_texts)
{
    QStringList l_list;
    for (char const* lp_text : i_texts) l_list << S(lp_text);
    return l_list;
}

// The shown rows in order: a user as its name, a folder as its folder, a file as its name,
// indented by depth; hidden rows are left out.
QStringList Shape(QTreeWidget* ip_tree)
{
    QStringList l_shape;
    for (QTreeWidgetItemIterator l_row(ip_tree); *l_row; ++l_row)
    {
        int l_depth = 0;
        bool l_hidden = (*l_row)->isHidden();
        for (QTreeWidgetItem* lp_up = (*l_row)->parent(); lp_up; lp_up = lp_up->parent(), ++l_depth)
            l_hidden = l_hidden || lp_up->isHidden();
        int const l_column = l_depth == 0 ? 0 : l_depth == 1 ? 3 : 4;
        if (!l_hidden)
            l_shape << QString(l_depth, QLatin1Char(' ')) + (*l_row)->text(l_column);
    }
    return l_shape;
}

int FileRows(QTreeWidget* ip_tree)
{
    int l_files = 0;
    for (QTreeWidgetItemIterator l_row(ip_tree); *l_row; ++l_row)
        l_files += (*l_row)->parent() && (*l_row)->parent()->parent();
    return l_files;
}

std::size_t Count(char const* i_type) { return d.GetType(i_type)->ItemCount(); }
} // namespace

class SearchFormTest : public FormsTest
{
protected:
    void SetUp() override
    {
        FormsTest::SetUp();
        mp_search = mp_window->Search();
        mp_tabs = mp_search->TabControl();
        Child<QTabWidget>(mp_window, "mainTabWidget")->setCurrentWidget(mp_search->parentWidget());
        LogIn();
    }
    void TearDown() override
    {
        while (mp_tabs->count()) mp_search->OnTabCloseRequested(0);
        g("wish_list_item").Remove();
        wishListSearcher->OnWishListWait(0);
        FormsTest::TearDown();
    }

    // Types a search and returns its ticket, as the central server receives it.
    quint32 Search(char const* i_text)
    {
        mp_search->SearchEdit()->setText(S(i_text));
        QTest::keyClick(mp_search->SearchEdit(), Qt::Key_Return);
        std::optional<Fields> l_message = mp_central->Take(26);
        EXPECT_TRUE(l_message);
        quint32 const l_ticket = l_message ? l_message->U32() : 0;
        EXPECT_EQ(l_message ? l_message->Str() : QByteArray(), QByteArray(i_text));
        return l_ticket;
    }
    // A messaging connection from the peer of that name; one per name for the whole test.
    PeerLink& Peer(QByteArray const& i_name)
    {
        std::unique_ptr<PeerLink>& lp_link = m_links[i_name];
        if (!lp_link)
        {
            lp_link = m_peer.Dial(peerMessenger->ListeningPort());
            EXPECT_TRUE(lp_link);
            lp_link->SendGreeting(i_name, "P");
        }
        return *lp_link;
    }
    // The peer answers the ticket with a file search result.
    void Answer(QByteArray const& i_user, quint32 i_ticket, QList<Found> const& i_files, Slot i_slot = {})
    {
        Body l_body(0);
        l_body.Str(i_user).U32(i_ticket).U32(static_cast<quint32>(i_files.size()));
        for (Found const& l_file : i_files)
        {
            l_body.U8(1).Str(l_file.m_path).U64(l_file.m_size).Str("mp3").U32(static_cast<quint32>(l_file.m_attributes.size()));
            for (auto const& [l_code, l_value] : l_file.m_attributes) l_body.U32(l_code).U32(l_value);
        }
        l_body.U8(i_slot.m_free).U32(i_slot.m_speed).U32(i_slot.m_queue);
        Peer(i_user).SendCompressed(9, l_body.Bytes().mid(4));
    }
    SearchResultsForm* Form(int i_index) { return qobject_cast<SearchResultsForm*>(mp_tabs->widget(i_index)); }
    QTreeWidget* Tree(int i_index) { return Form(i_index)->searchResults(); }
    bool WaitFiles(int i_index, int i_files)
    {
        return WaitFor([&] { return mp_tabs->count() > i_index && FileRows(Tree(i_index)) == i_files; });
    }

    SearchForm* mp_search = nullptr;
    QTabWidget* mp_tabs = nullptr;
    ScriptedPeer m_peer;
    std::map<QByteArray, std::unique_ptr<PeerLink>> m_links;
};

TEST_F(SearchFormTest, RowsShowTheirColumnsAndBothOrdersRankUsers)
{
    quint32 const l_ticket = Search(" Song  ");
    ASSERT_EQ(mp_tabs->count(), 1);
    EXPECT_EQ(mp_tabs->tabText(0), S(" Song  "));
    QTreeWidget* lp_tree = Tree(0);
    EXPECT_EQ(QApplication::focusWidget(), lp_tree);
    EXPECT_FALSE(lp_tree->header()->sectionsClickable());
    EXPECT_EQ(ActionTexts(), L({"Download File", "Download Folder", "Order by Available [on]", "Order by Fastest",
                                "Expand Folders [on]", "Expand Users [on]", "Add to Wishlist"}));

    Answer("bob", l_ticket, {{"share\\b.mp3"}}, {false, 0, 3});
    Answer("cal", l_ticket, {{"share\\c.mp3"}}, {false, 9216, 1});
    Answer("dan", l_ticket, {{"share\\d.mp3"}});
    Answer("ann", l_ticket,
           {{"music\\rock\\zeta.mp3", 3221225472ull, {{0, 192}, {2, 1}, {1, 125}}}, {"music\\rock\\alpha.mp3", 999}},
           {true, 10240, 7});
    ASSERT_TRUE(WaitFiles(0, 5));
    // A user's later message changes nothing of its row.
    Answer("ann", l_ticket, {{"music\\x.mp3"}}, {false, 0, 50});
    ASSERT_TRUE(WaitFiles(0, 6));

    // Free first, then the shorter queue, an empty one too.
    QTreeWidgetItem* lp_ann = lp_tree->topLevelItem(0);
    EXPECT_EQ(Shape(lp_tree), L({"ann", " rock/music", "  alpha.mp3", "  zeta.mp3", " music", "  x.mp3", "dan", " share",
                                 "  d.mp3", "cal", " share", "  c.mp3", "bob", " share", "  b.mp3"}));
    EXPECT_EQ(lp_ann->text(1), S("Y"));
    EXPECT_EQ(lp_ann->textAlignment(1), int(Qt::AlignCenter));
    EXPECT_EQ(lp_ann->text(2), S("10.0"));
    EXPECT_EQ(lp_tree->topLevelItem(1)->text(1), S("0"));
    EXPECT_EQ(lp_tree->topLevelItem(1)->text(2), QString());
    EXPECT_EQ(lp_tree->topLevelItem(2)->text(2), S("9.0"));
    QTreeWidgetItem* lp_zeta = lp_ann->child(0)->child(1);
    EXPECT_EQ((QStringList{lp_zeta->text(4), lp_zeta->text(5), lp_zeta->text(6)}),
              L({"zeta.mp3", "3,221,225,472", "192 VBR, 2m5s"}));
    EXPECT_EQ(mp_tabs->tabToolTip(0), S("4 users, 6 files"));

    ASSERT_TRUE(Trigger(S("Order by Fastest")));
    EXPECT_EQ(ActionTexts().mid(2, 2), L({"Order by Available", "Order by Fastest [on]"}));
    // Speeds as numbers, 10.0 above 9.0; equal ones keep their places.
    EXPECT_EQ(Shape(lp_tree).filter(QRegularExpression(S("^\\w"))), L({"ann", "cal", "dan", "bob"}));
    ASSERT_TRUE(Trigger(S("Order by Available")));
    EXPECT_EQ(Shape(lp_tree).filter(QRegularExpression(S("^\\w"))), L({"ann", "dan", "cal", "bob"}));

    ASSERT_TRUE(Trigger(S("Expand Folders [on]")));
    EXPECT_FALSE(lp_ann->child(0)->isExpanded());
    EXPECT_TRUE(lp_ann->isExpanded());
    EXPECT_TRUE(ActionTexts().contains(S("Expand Folders [off]")));
    ASSERT_TRUE(Trigger(S("Expand Users [on]")));
    EXPECT_FALSE(lp_ann->isExpanded());

    // The menu of a row offers its downloads, then its user's entries, from a file row too.
    lp_ann->setExpanded(true);
    lp_ann->child(0)->setExpanded(true);
    QPoint const l_at = lp_tree->visualItemRect(lp_zeta).center();
    EXPECT_EQ(MenuShownBy([&] { mp_search->OnSearchResultsContextMenuRequested(l_at); }),
              L({"Download File", "Download Folder", "", "Message user", "Add user to list", "Browse user's files", "",
                 "Unshare files from user"}));
}

TEST_F(SearchFormTest, FilterMatchesFolderOrFileAndGivesTheSameRowsBeforeOrAfterResults)
{
    QList<Found> const l_files{{"Music\\Rock\\one.mp3"}, {"Music\\Rock\\Two.ogg"}, {"Docs\\rock notes.txt"}, {"Docs\\other.txt"}};
    auto const l_feed = [&](quint32 i_ticket) {
        Answer("ann", i_ticket, l_files);
        Answer("bob", i_ticket, {{"Jazz\\blue.mp3"}}, {false, 0, 1});
        return WaitFiles(0, 5);
    };

    ASSERT_TRUE(l_feed(Search("after")));
    Form(0)->filterEdit()->setText(S("ROCK o"));
    // "ROCK" is in the folder of one.mp3 and Two.ogg and in the name of the notes; "o" in
    // every name but blue.mp3's.
    QStringList const l_after = Shape(Tree(0));
    EXPECT_EQ(l_after, L({"ann", " Docs", "  rock notes.txt", " Rock/Music", "  one.mp3", "  Two.ogg"}));
    Form(0)->filterEdit()->setFocus();
    QTest::keyClick(Form(0)->filterEdit(), Qt::Key_Escape);
    EXPECT_EQ(Form(0)->filterEdit()->text(), QString());
    EXPECT_EQ(Shape(Tree(0)).size(), 10);
    mp_search->OnTabCloseRequested(0);

    quint32 const l_ticket = Search("before");
    Form(0)->filterEdit()->setText(S("ROCK o"));
    ASSERT_TRUE(l_feed(l_ticket));
    EXPECT_EQ(Shape(Tree(0)), l_after);
    Form(0)->filterEdit()->setText(S("blue"));
    EXPECT_EQ(Shape(Tree(0)), L({"bob", " Jazz", "  blue.mp3"}));
}

TEST_F(SearchFormTest, AClosedTabLeavesNothingAndLaterResultsAreDropped)
{
    std::map<char const*, std::size_t> l_before;
    char const* const l_types[] = {"search_request", "search_results", "search_result", "search_results_widget",
                                   "search_results_user_node", "search_results_folder_node", "search_result_node"};
    for (char const* lp_type : l_types) l_before[lp_type] = Count(lp_type);

    quint32 const l_first = Search("same");
    quint32 const l_second = Search("same");
    ASSERT_EQ(mp_tabs->count(), 2);
    EXPECT_EQ(mp_tabs->tabText(1), S("same"));
    EXPECT_EQ(mp_tabs->currentIndex(), 1);
    Answer("ann", l_first, {{"a\\one.mp3"}, {"a\\two.mp3"}});
    ASSERT_TRUE(WaitFiles(0, 2));
    // A file listed for the open first tab is not listed again for the second.
    Answer("ann", l_second, {{"a\\one.mp3"}, {"a\\three.mp3"}});
    ASSERT_TRUE(WaitFiles(1, 1));

    mp_search->OnTabCloseRequested(0);
    Answer("ann", l_first, {{"b\\late.mp3"}});
    Answer("ann", l_second, {{"b\\marker.mp3"}});
    ASSERT_TRUE(WaitFiles(0, 2));
    EXPECT_EQ(mp_tabs->count(), 1);
    EXPECT_EQ(SearchForm::FormOfRequest(l_second), Form(0));

    mp_search->OnTabCloseRequested(0);
    EXPECT_EQ(mp_tabs->count(), 0);
    for (char const* lp_type : l_types) EXPECT_EQ(Count(lp_type), l_before[lp_type]) << lp_type;
    EXPECT_FALSE(d.GetType("search_result_file_name")->HasItem("late.mp3"));
}

TEST_F(SearchFormTest, DownloadsCollectSelectedFilesAndWholeFoldersOnce)
{
    quint32 const l_ticket = Search("dl");
    Answer("ann", l_ticket, {{"Music\\Rock\\c.mp3", 3}, {"Music\\Rock\\a.mp3", 6442450944ull}, {"Music\\Rock\\b.mp3", 2}, {"Other\\d.mp3", 4}});
    ASSERT_TRUE(WaitFiles(0, 4));
    QTreeWidgetItem* lp_user = Tree(0)->topLevelItem(0);
    QTreeWidgetItem* lp_rock = lp_user->child(0);
    ASSERT_EQ(lp_rock->text(3), S("Rock/Music"));
    lp_rock->child(0)->setSelected(true);
    lp_rock->child(2)->setSelected(true);
    lp_user->setSelected(true);

    std::vector<RemoteFile> const l_rock{{"ann", "a.mp3", "Music\\Rock", 6442450944ll}, {"ann", "b.mp3", "Music\\Rock", 2},
                                         {"ann", "c.mp3", "Music\\Rock", 3}};
    EXPECT_EQ(mp_search->Downloads("download_search_results_folder"), l_rock);
    lp_rock->setSelected(true);
    EXPECT_EQ(mp_search->Downloads("download_search_results_folder"), l_rock);
    // The file action takes file rows only.
    std::vector<RemoteFile> l_files = mp_search->Downloads("download_search_results_file");
    std::sort(l_files.begin(), l_files.end(), [](auto const& i_a, auto const& i_b) { return i_a.m_name < i_b.m_name; });
    EXPECT_EQ(l_files, (std::vector<RemoteFile>{l_rock[0], l_rock[2]}));

    // The actions queue what they collect, in that order; a file queued already stays one entry.
    emit actionBar->ActionTriggered("download_search_results_folder");
    emit actionBar->ActionTriggered("download_search_results_file");
    EXPECT_EQ(QueuedDownloads(), L({"ann|Music\\Rock|a.mp3|6442450944", "ann|Music\\Rock|b.mp3|2", "ann|Music\\Rock|c.mp3|3"}));
}

TEST_F(SearchFormTest, WishListRowsFollowTheirItemsAndTheirBoxes)
{
    QTreeWidget* lp_list = mp_search->WishList();
    // Shown for the first time, the page gives the wish list its 200 pixels and the rest to
    // the results.
    mp_window->Widgets()->mainTabWidget->setCurrentWidget(mp_window->Widgets()->searchTab);
    ASSERT_TRUE(WaitFor([&] { return lp_list->isVisible(); }));
    EXPECT_EQ(lp_list->width(), 200);
    EXPECT_GT(mp_search->TabControl()->width(), 400);
    auto const l_box = [lp_list](int i_row) { return qobject_cast<QCheckBox*>(lp_list->itemWidget(lp_list->topLevelItem(i_row), 0)); };
    auto const l_rows = [lp_list] {
        QStringList l_texts;
        for (int l_row = 0; l_row < lp_list->topLevelItemCount(); ++l_row)
            l_texts << lp_list->topLevelItem(l_row)->text(0) + QLatin1Char('|') + lp_list->topLevelItem(l_row)->text(1);
        return l_texts;
    };
    ItemPtr const l_enabled = d.GetType("wish_list_item_enabled")->GetGlobalNullItem();

    Search("zebra");
    ASSERT_TRUE(Trigger(S("Add to Wishlist")));
    Search("apple");
    ASSERT_TRUE(Trigger(S("Add to Wishlist")));
    ASSERT_TRUE(Trigger(S("Add to Wishlist")));
    EXPECT_EQ(l_rows(), L({"Y|apple", "Y|zebra"}));
    EXPECT_TRUE(l_box(0)->isChecked());
    EXPECT_TRUE(ActionTexts().contains(S("Add to Wishlist")));

    l_box(1)->setChecked(false);
    EXPECT_EQ(l_rows(), L({"Y|apple", "|zebra"}));
    EXPECT_FALSE(d.GetType("wish_list_item")->HasItem("zebra").IsConnected(l_enabled));
    lp_list->setFocus();
    ASSERT_TRUE(Trigger(S("Disable All Wish List Searches")));
    EXPECT_EQ(l_rows(), L({"|apple", "|zebra"}));
    ASSERT_TRUE(Trigger(S("Enable All Wish List Searches")));
    EXPECT_EQ(l_rows(), L({"Y|apple", "Y|zebra"}));
    EXPECT_TRUE(d.GetType("wish_list_item")->HasItem("zebra").IsConnected(l_enabled));

    lp_list->topLevelItem(0)->setSelected(true);
    lp_list->setFocus();
    QTest::keyClick(lp_list, Qt::Key_Delete);
    EXPECT_EQ(l_rows(), L({"Y|zebra"}));
    EXPECT_FALSE(d.GetType("wish_list_item")->HasItem("apple"));
    EXPECT_EQ(Count("wish_list_node"), 1u);
    EXPECT_EQ(Count("wish_list_node_checkbox"), 1u);
}

TEST_F(SearchFormTest, AWishListSearchOpensOneBackgroundTabAndADisabledOneNone)
{
    ItemPtr const l_enabled = d.GetType("wish_list_item_enabled")->GetGlobalNullItem();
    ItemPtr const l_tune = d.GetType("wish_list_item")->GetItem("tune");
    l_tune += l_enabled;
    mp_search->OnWishListItemAdded(l_tune);
    mp_search->OnWishListItemAdded(d.GetType("wish_list_item")->GetItem("off"));
    Search("typed");
    QWidget* lp_typed = mp_tabs->currentWidget();

    auto const l_wishSearch = [this](char const* i_text) {
        gp_server->FileSearch(i_text, true);
        std::optional<Fields> l_message = mp_central->Take(103);
        return l_message ? l_message->U32() : 0u;
    };
    quint32 const l_off = l_wishSearch("off");
    Answer("ann", l_off, {{"x\\off.mp3"}});
    quint32 const l_first = l_wishSearch("tune");
    EXPECT_EQ(mp_tabs->count(), 1);
    Answer("ann", l_first, {{"x\\tune one.mp3"}});
    ASSERT_TRUE(WaitFiles(1, 1));
    EXPECT_EQ(mp_tabs->currentWidget(), lp_typed);
    EXPECT_EQ(mp_tabs->tabText(1), S("tune"));
    QStringList l_events;
    for (QAction* lp_action : eventToolBar->actions()) l_events << lp_action->text();
    EXPECT_TRUE(l_events.contains(S("tune")));

    quint32 const l_again = l_wishSearch("tune");
    Answer("bob", l_again, {{"y\\tune two.mp3"}});
    ASSERT_TRUE(WaitFiles(1, 2));
    EXPECT_EQ(mp_tabs->count(), 2);
    EXPECT_FALSE(SearchForm::FormOfRequest(l_off));

    // Removing from the tab leaves the tab; a closed tab leaves the item, and the next results
    // open a new one.
    mp_tabs->setCurrentIndex(1);
    Tree(1)->setFocus();
    ASSERT_TRUE(Trigger(S("Remove from Wish List")));
    EXPECT_FALSE(d.GetType("wish_list_item")->HasItem("tune"));
    EXPECT_EQ(mp_tabs->count(), 2);
    ItemPtr const l_back = d.GetType("wish_list_item")->GetItem("tune");
    l_back += l_enabled;
    mp_search->OnTabCloseRequested(1);
    quint32 const l_third = l_wishSearch("tune");
    Answer("cal", l_third, {{"z\\tune three.mp3"}});
    ASSERT_TRUE(WaitFiles(1, 1));
}

TEST_F(SearchFormTest, WishListSearcherTakesEnabledItemsInTurnAtTheServersPeriod)
{
    ItemPtr const l_enabled = d.GetType("wish_list_item_enabled")->GetGlobalNullItem();
    for (char const* lp_text : {"b", "a", "C"}) d.GetType("wish_list_item")->GetItem(lp_text)->Connect(l_enabled);
    d.GetType("wish_list_item")->GetItem("d");
    SetVGlobal("wish_list_search_index", 0);
    auto const l_sent = [this] {
        wishListSearcher->OnSearchTimerTimeout();
        std::optional<Fields> l_message = mp_central->Take(103, 1000);
        if (!l_message) return QByteArray("<none>");
        l_message->U32();
        return l_message->Str();
    };

    EXPECT_FALSE(wishListSearcher->IsSearching());
    mp_central->Send(Body(104).U32(2));
    ASSERT_TRUE(WaitFor([] { return wishListSearcher->IsSearching(); }));
    EXPECT_EQ(wishListSearcher->Interval(), 2000);
    EXPECT_EQ(GetVGlobalValue("wish_list_wait").AsInt(), 2);
    wishListSearcher->OnWishListWait(0);
    EXPECT_FALSE(wishListSearcher->IsSearching());

    // Byte order, so "C" before "a", and around again.
    EXPECT_EQ((QByteArrayList{l_sent(), l_sent(), l_sent(), l_sent()}), (QByteArrayList{"C", "a", "b", "C"}));
    // The index stays where it was: a new first item moves every other one down by one, so
    // "C" comes again.
    d.GetType("wish_list_item")->GetItem("B")->Connect(l_enabled);
    EXPECT_EQ(l_sent(), QByteArray("C"));
    EXPECT_EQ(l_sent(), QByteArray("a"));

    g("wish_list_item").Disconnect("wish_list_item_enabled");
    EXPECT_EQ(l_sent(), QByteArray("<none>"));
    diagnosticsForm->FlushPendingLines();
    auto* lp_log = qobject_cast<QPlainTextEdit*>(d.GetType("log")->HasItem("Wish List")["log_widget"].AsPointer<QObject>());
    ASSERT_TRUE(lp_log);
    EXPECT_TRUE(lp_log->toPlainText().contains(S("Wish list wait period set to 2000 milliseconds")));
    EXPECT_TRUE(lp_log->toPlainText().contains(S("Sent wish list search: C")));
}

TEST_F(SearchFormTest, AMessageTooLargeForOneTurnEndsWholeAndSortedOrGoesWithItsTab)
{
    QList<Found> l_many;
    for (int l_file = 7999; l_file >= 0; --l_file)
        l_many << Found(QByteArray("big\\f" + QByteArray::number(l_file).rightJustified(4, '0') + ".mp3").constData());
    quint32 const l_kept = Search("kept");
    Answer("ann", l_kept, l_many);
    Answer("bob", l_kept, {{"small\\after.mp3"}}, {true, 0, 0});
    ASSERT_TRUE(WaitFor([&] { return mp_search->PendingMessages() > 0; }));
    ASSERT_TRUE(WaitFiles(0, 8001));
    EXPECT_EQ(mp_search->PendingMessages(), 0u);
    // Sorted after the last slice: bob, free, above ann, and the files by name.
    EXPECT_EQ(Tree(0)->topLevelItem(0)->text(0), S("bob"));
    QTreeWidgetItem* lp_big = Tree(0)->topLevelItem(1)->child(0);
    EXPECT_EQ((QStringList{lp_big->child(0)->text(4), lp_big->child(7999)->text(4)}), L({"f0000.mp3", "f7999.mp3"}));
    mp_search->OnTabCloseRequested(0);

    std::size_t const l_results = Count("search_result");
    quint32 const l_closed = Search("closed");
    Answer("ann", l_closed, l_many);
    ASSERT_TRUE(WaitFor([&] { return mp_search->PendingMessages() > 0; }));
    mp_search->OnTabCloseRequested(0);
    EXPECT_EQ(mp_search->PendingMessages(), 0u);
    QTest::qWait(50);
    EXPECT_EQ(mp_tabs->count(), 0);
    EXPECT_EQ(Count("search_result"), l_results);
    EXPECT_EQ(Count("search_result_node"), 0u);
}

TEST_F(SearchFormTest, KeysMoveBetweenLinesAndAMiddleClickClosesATab)
{
    Search("one");
    Search("two");
    // An empty line is a search like any other.
    Search("");
    EXPECT_EQ(mp_tabs->tabText(2), QString());
    mp_search->OnTabCloseRequested(2);
    Tree(1)->setFocus();
    QTest::keyClick(Tree(1), Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), Form(1)->filterEdit());
    QTest::keyClick(Form(1)->filterEdit(), Qt::Key_L, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), mp_search->SearchEdit());
    // Outside the results, Ctrl+F finds on the network.
    mp_search->findChild<QTreeWidget*>(S("wishList"))->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), mp_search->SearchEdit());

    QTabBar* lp_bar = mp_tabs->tabBar();
    QTest::mouseClick(lp_bar, Qt::LeftButton, {}, lp_bar->tabRect(0).center());
    EXPECT_EQ(mp_tabs->count(), 2);
    QTest::mouseClick(lp_bar, Qt::MiddleButton, {}, lp_bar->tabRect(0).center());
    ASSERT_EQ(mp_tabs->count(), 1);
    EXPECT_EQ(mp_tabs->tabText(0), S("two"));
}
