#include "FormsFixture.h"
#include "forms/DataDialog.h"
#include "forms/DataTreeModel.h"

using namespace Qt::StringLiterals;

namespace
{
// Types of the tests' own on the window's graph: files with words, a null flag, files related
// to files, and a type without items.
Type* MakeType(char const* i_name, bool i_isNull)
{
    Type* lp_type = d.FindType(i_name);
    return lp_type ? lp_type : d.NewType(i_name, true, i_isNull, true);
}

struct Schema
{
    Type* mp_file = MakeType("dd_file", false);
    Type* mp_word = MakeType("dd_word", false);
    Type* mp_flag = MakeType("dd_flag", true);
    Type* mp_empty = MakeType("dd_empty", false);

    Schema()
    {
        if (mp_file->IsRelated(mp_word))
            return;
        mp_file->RelateToType(mp_word, Many, Many, false);
        mp_file->RelateToType(mp_flag, Many, Many, false);
        mp_file->RelateToType(mp_file, Many, Many, false);
    }
};

QTreeWidget* Types(DataDialog* ip_dialog) { return Child<QTreeWidget>(ip_dialog, "typeList"); }
QListView* ItemList(DataDialog* ip_dialog) { return Child<QListView>(ip_dialog, "itemList"); }
QTreeView* Tree(DataDialog* ip_dialog) { return Child<QTreeView>(ip_dialog, "itemDataTree"); }
DataTreeModel* TreeModel(DataDialog* ip_dialog) { return static_cast<DataTreeModel*>(Tree(ip_dialog)->model()); }

QStringList Rows(QAbstractItemModel* ip_model, QModelIndex const& i_parent = QModelIndex())
{
    QStringList l_rows;
    for (int l_row = 0; l_row < ip_model->rowCount(i_parent); ++l_row)
        l_rows << ip_model->index(l_row, 0, i_parent).data().toString();
    return l_rows;
}

QStringList ListRows(DataDialog* ip_dialog) { return Rows(ItemList(ip_dialog)->model()); }

QModelIndex Top(DataDialog* ip_dialog) { return Tree(ip_dialog)->model()->index(0, 0); }

QModelIndex Child(DataDialog* ip_dialog, QModelIndex const& i_parent, QString const& i_text)
{
    QAbstractItemModel* lp_model = Tree(ip_dialog)->model();
    for (int l_row = 0; l_row < lp_model->rowCount(i_parent); ++l_row)
        if (lp_model->index(l_row, 0, i_parent).data().toString() == i_text)
            return lp_model->index(l_row, 0, i_parent);
    return QModelIndex();
}

std::size_t AllItems()
{
    std::size_t l_count = 0;
    for (auto const& [l_name, lp_type] : d.Types())
        l_count += lp_type->ItemCount();
    return l_count;
}
} // namespace

class DataDialogTest : public FormsTest
{
protected:
    void TearDown() override
    {
        FormsTest::TearDown();
        // The dialog took the focus when it was raised; the next test starts from the window.
        mp_window->activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(mp_window));
        for (Type* lp_type : {m_schema.mp_file, m_schema.mp_word, m_schema.mp_flag})
        {
            std::vector<Item*> const l_items(lp_type->Items().begin(), lp_type->Items().end());
            for (Item* lp_item : l_items)
                lp_item->Remove();
        }
    }

    DataDialog* Open()
    {
        mp_window->Widgets()->actionData->trigger();
        QList<DataDialog*> const l_open = OpenDialogs<DataDialog>();
        return l_open.size() == 1 ? l_open.front() : nullptr;
    }

    static QTreeWidgetItem* TypeRow(DataDialog* ip_dialog, char const* i_name) { return Row(Types(ip_dialog), i_name); }

    static void Select(DataDialog* ip_dialog, char const* i_type) { Types(ip_dialog)->setCurrentItem(TypeRow(ip_dialog, i_type)); }

    static void Click(DataDialog* ip_dialog, QString const& i_text)
    {
        QListView* lp_list = ItemList(ip_dialog);
        QModelIndexList const l_found =
            lp_list->model()->match(lp_list->model()->index(0, 0), Qt::DisplayRole, i_text, 1, Qt::MatchExactly);
        ASSERT_EQ(l_found.size(), 1) << i_text.toStdString();
        lp_list->scrollTo(l_found.front());
        QTest::mouseClick(lp_list->viewport(), Qt::LeftButton, {}, lp_list->visualRect(l_found.front()).center());
    }

    Item* File(char const* i_name) { return m_schema.mp_file->NewItem(i_name); }
    Item* Word(char const* i_name) { return m_schema.mp_word->NewItem(i_name); }

    Schema m_schema;
};

TEST_F(DataDialogTest, OpensOnceListsEveryTypeAndOpensAfreshAfterClosing)
{
    File("a")->Connect(m_schema.mp_flag->NewItem());
    DataDialog* lp_dialog = Open();
    ASSERT_TRUE(lp_dialog);
    EXPECT_EQ(lp_dialog->size(), QSize(784, 417));
    EXPECT_EQ(lp_dialog->windowTitle(), u"Dialog"_s);
    QSplitter* lp_splitter = Child<QSplitter>(lp_dialog, "typeSplitter");
    EXPECT_EQ(lp_splitter->sizes().value(0), 300);
    EXPECT_EQ(lp_splitter->widget(0), Types(lp_dialog));
    EXPECT_EQ(lp_splitter->widget(1), Child<QSplitter>(lp_dialog, "itemSplitter"));
    QTreeWidget* lp_types = Types(lp_dialog);
    EXPECT_FALSE(lp_types->rootIsDecorated());
    QTreeWidgetItem* lp_header = lp_types->headerItem();
    EXPECT_EQ((QStringList{lp_header->text(0), lp_header->text(1), lp_header->text(2)}), (QStringList{u"Type"_s, QString(), u"#"_s}));
    EXPECT_EQ(lp_types->topLevelItemCount(), static_cast<int>(d.Types().size()));
    QStringList l_names;
    for (int l_row = 0; l_row < lp_types->topLevelItemCount(); ++l_row)
        l_names << lp_types->topLevelItem(l_row)->text(0);
    QStringList l_sorted = l_names;
    l_sorted.sort();
    EXPECT_EQ(l_names, l_sorted);
    EXPECT_EQ(TypeRow(lp_dialog, "dd_file")->text(1), u"value   "_s);
    EXPECT_EQ(TypeRow(lp_dialog, "dd_flag")->text(1), u"null   "_s);
    EXPECT_EQ(TypeRow(lp_dialog, "dd_flag")->text(2), u"1"_s);
    EXPECT_EQ(TypeRow(lp_dialog, "dd_empty")->text(2), u"0"_s);
    Select(lp_dialog, "dd_empty");
    EXPECT_TRUE(ListRows(lp_dialog).isEmpty());
    Select(lp_dialog, "dd_flag");
    EXPECT_EQ(ListRows(lp_dialog), QStringList{QString()});

    EXPECT_EQ(Open(), lp_dialog);
    lp_dialog->close();
    QApplication::processEvents();
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(OpenDialogs<DataDialog>().isEmpty());
    DataDialog* lp_again = Open();
    ASSERT_TRUE(lp_again);
    EXPECT_TRUE(Types(lp_again)->selectedItems().isEmpty());
    EXPECT_TRUE(ListRows(lp_again).isEmpty());
}

TEST_F(DataDialogTest, CountsAndRowsFollowAdditionsAndRemovalsOfEveryType)
{
    File("m");
    DataDialog* lp_dialog = Open();
    Select(lp_dialog, "dd_file");
    Item* lp_z = File("z");
    File("b");
    Item* lp_word = Word("w");
    EXPECT_EQ(ListRows(lp_dialog), (QStringList{u"b"_s, u"m"_s, u"z"_s}));
    // The counts of a burst of events are written before the next paint.
    QApplication::processEvents();
    EXPECT_EQ(TypeRow(lp_dialog, "dd_file")->text(2), u"3"_s);
    EXPECT_EQ(TypeRow(lp_dialog, "dd_word")->text(2), u"1"_s);
    lp_z->Remove();
    lp_word->Remove();
    EXPECT_EQ(ListRows(lp_dialog), (QStringList{u"b"_s, u"m"_s}));
    QApplication::processEvents();
    EXPECT_EQ(TypeRow(lp_dialog, "dd_file")->text(2), u"2"_s);
    EXPECT_EQ(TypeRow(lp_dialog, "dd_word")->text(2), u"0"_s);
}

TEST_F(DataDialogTest, TheClickedItemOpensLevelByLevelAndOnlyReads)
{
    Item* lp_song = File("song");
    Item* lp_other = File("other");
    lp_song->Connect(lp_other);
    lp_song->Connect(Word("blue"));
    lp_song->Connect(Word("moon"));
    lp_song->Connect(m_schema.mp_flag->NewItem());
    Word("moon")->Connect(File("tune"));
    File("alone");
    DataDialog* lp_dialog = Open();
    Select(lp_dialog, "dd_file");
    std::size_t const l_items = AllItems();

    Click(lp_dialog, u"alone"_s);
    EXPECT_EQ(Rows(Tree(lp_dialog)->model()), QStringList{u"alone"_s});
    EXPECT_FALSE(Tree(lp_dialog)->model()->hasChildren(Top(lp_dialog)));

    Click(lp_dialog, u"song"_s);
    QModelIndex const l_top = Top(lp_dialog);
    EXPECT_EQ(l_top.data().toString(), u"song"_s);
    EXPECT_TRUE(Tree(lp_dialog)->isExpanded(l_top));
    // Its own type's connection ("other") is left out; the null flag has no connection to show
    // but the one back, so every child can be opened.
    QStringList l_children = Rows(Tree(lp_dialog)->model(), l_top);
    l_children.sort();
    EXPECT_EQ(l_children, (QStringList{u"[dd_flag, null]"_s, u"[dd_word] blue"_s, u"[dd_word] moon"_s}));
    QModelIndex const l_moon = Child(lp_dialog, l_top, u"[dd_word] moon"_s);
    EXPECT_EQ(Rows(Tree(lp_dialog)->model(), l_moon), QStringList{u"~~unloaded~~"_s});

    Tree(lp_dialog)->expand(l_moon);
    QStringList l_opened = Rows(Tree(lp_dialog)->model(), l_moon);
    l_opened.sort();
    EXPECT_EQ(l_opened, (QStringList{u"[dd_file] song"_s, u"[dd_file] tune"_s}));
    EXPECT_EQ(Tree(lp_dialog)->currentIndex(), l_moon);
    // "tune" holds only the way back: opening it still shows that.
    EXPECT_EQ(Rows(Tree(lp_dialog)->model(), Child(lp_dialog, l_moon, u"[dd_file] tune"_s)), QStringList{u"~~unloaded~~"_s});

    Tree(lp_dialog)->collapse(l_moon);
    Tree(lp_dialog)->expand(l_moon);
    EXPECT_EQ(Rows(Tree(lp_dialog)->model(), l_moon).size(), 2);
    EXPECT_EQ(AllItems(), l_items);

    lp_song->Remove();
    EXPECT_EQ(Tree(lp_dialog)->model()->rowCount(), 0);
    EXPECT_EQ(TreeModel(lp_dialog)->NodeCount(), 0u);
    EXPECT_EQ(ListRows(lp_dialog), (QStringList{u"alone"_s, u"other"_s, u"tune"_s}));
    Click(lp_dialog, u"tune"_s);
    EXPECT_EQ(Rows(Tree(lp_dialog)->model(), Top(lp_dialog)), QStringList{u"[dd_word] moon"_s});
}

TEST_F(DataDialogTest, RemovingItemsOfAnOpenedSubtreeTakesEveryNodeBelowThemOut)
{
    // song - moon - tune - star, opened all the way down; each opened node shows the way back too.
    Item* lp_song = File("song");
    Item* lp_moon = Word("moon");
    Item* lp_tune = File("tune");
    Item* lp_star = Word("star");
    lp_song->Connect(lp_moon);
    lp_moon->Connect(lp_tune);
    lp_tune->Connect(lp_star);
    DataDialog* lp_dialog = Open();
    Select(lp_dialog, "dd_file");
    Click(lp_dialog, u"song"_s);
    QTreeView* lp_tree = Tree(lp_dialog);
    QModelIndex const l_moon = Child(lp_dialog, Top(lp_dialog), u"[dd_word] moon"_s);
    lp_tree->expand(l_moon);
    QModelIndex const l_tune = Child(lp_dialog, l_moon, u"[dd_file] tune"_s);
    lp_tree->expand(Child(lp_dialog, l_moon, u"[dd_file] song"_s));
    lp_tree->expand(l_tune);
    lp_tree->expand(Child(lp_dialog, l_tune, u"[dd_word] star"_s));
    DataTreeModel* lp_model = TreeModel(lp_dialog);
    EXPECT_EQ(lp_model->NodeCount(lp_song), 2u);
    EXPECT_EQ(lp_model->NodeCount(lp_moon), 3u);
    EXPECT_EQ(lp_model->NodeCount(lp_tune), 2u);
    EXPECT_EQ(lp_model->NodeCount(lp_star), 1u);

    // moon's node under song goes with everything below it, so the later removals find nothing.
    lp_moon->Remove();
    EXPECT_EQ(Rows(lp_model, Top(lp_dialog)), QStringList{});
    EXPECT_EQ(lp_model->NodeCount(), 1u);
    lp_tune->Remove();
    lp_star->Remove();
    EXPECT_EQ(lp_model->NodeCount(), 1u);
    EXPECT_EQ(Rows(lp_model), QStringList{u"song"_s});
}

TEST_F(DataDialogTest, AnItemOfManyConnectionsShowsAtOnceAndFillsAsItIsScrolled)
{
    constexpr int l_words = 3000;
    Item* lp_song = File("song");
    std::vector<Item*> l_connected;
    for (int l_n = 0; l_n < l_words; ++l_n)
        l_connected.push_back(lp_song->Connect(Word(std::to_string(l_n).c_str())));
    DataDialog* lp_dialog = Open();
    Select(lp_dialog, "dd_file");
    Click(lp_dialog, u"song"_s);
    DataTreeModel* lp_model = TreeModel(lp_dialog);
    QModelIndex const l_top = Top(lp_dialog);
    ASSERT_GT(lp_model->rowCount(l_top), 0);
    EXPECT_LT(lp_model->rowCount(l_top), l_words);

    // With every node made gone, the node is filled from what is still to come.
    std::vector<Item*> l_made;
    for (int l_row = 0; l_row < lp_model->rowCount(l_top); ++l_row)
        l_made.push_back(lp_model->ItemOf(lp_model->index(l_row, 0, l_top)));
    for (Item* lp_item : l_made)
        lp_item->Remove();
    ASSERT_EQ(lp_model->rowCount(l_top), 0);
    ASSERT_TRUE(WaitFor([&] { return lp_model->rowCount(l_top) > 0; }, 2000));

    // Connections not made into nodes yet go when their items go, and never show.
    std::sort(l_connected.begin(), l_connected.end());
    for (int l_n = l_words - 100; l_n < l_words; ++l_n)
        l_connected[static_cast<std::size_t>(l_n)]->Remove();
    QScrollBar* lp_bar = Tree(lp_dialog)->verticalScrollBar();
    for (int l_round = 0; l_round < 100 && lp_model->canFetchMore(l_top); ++l_round)
    {
        lp_bar->setValue(lp_bar->maximum());
        QApplication::processEvents();
    }
    int const l_left = l_words - static_cast<int>(l_made.size()) - 100;
    EXPECT_FALSE(lp_model->canFetchMore(l_top));
    EXPECT_EQ(lp_model->rowCount(l_top), l_left);
    EXPECT_EQ(lp_model->NodeCount(), static_cast<std::size_t>(l_left + 1));
}

TEST_F(DataDialogTest, AHundredThousandItemsGiveAsManyRowsInOrder)
{
    constexpr int l_count = 100000;
    for (int l_n = l_count - 1; l_n >= 0; --l_n)
        Word(QStringLiteral("w%1").arg(l_n, 6, 10, QLatin1Char('0')).toUtf8().constData());
    DataDialog* lp_dialog = Open();
    Select(lp_dialog, "dd_word");
    QAbstractItemModel* lp_list = ItemList(lp_dialog)->model();
    ASSERT_EQ(lp_list->rowCount(), l_count);
    for (int l_row : {0, 1, 4711, l_count - 1})
        EXPECT_EQ(lp_list->index(l_row, 0).data().toString(), QStringLiteral("w%1").arg(l_row, 6, 10, QLatin1Char('0')));
}

TEST_F(DataDialogTest, AnyValueShowsShortenedAndWithBadBytesReplacedWhileSortingUsesItWhole)
{
    std::string const l_long(300, 'x');
    Word((l_long + "b").c_str());
    Word((l_long + "a").c_str());
    Word("bad \xff\xfe end");
    Word("caf\xc3\xa9");
    DataDialog* lp_dialog = Open();
    Select(lp_dialog, "dd_word");
    QStringList const l_rows = ListRows(lp_dialog);
    ASSERT_EQ(l_rows.size(), 4);
    EXPECT_EQ(l_rows[0], u"bad \uFFFD\uFFFD end"_s);
    EXPECT_EQ(l_rows[1], u"caf\u00e9"_s);
    EXPECT_EQ(l_rows[2], QString(200, u'x') + u"\u2026"_s);
    // The two long values look the same; their order is that of their whole bytes.
    QListView* lp_list = ItemList(lp_dialog);
    QTest::mouseClick(lp_list->viewport(), Qt::LeftButton, {}, lp_list->visualRect(lp_list->model()->index(2, 0)).center());
    ASSERT_EQ(Tree(lp_dialog)->model()->rowCount(), 1);
    static_cast<Item*>(m_schema.mp_word->HasItem(l_long + "b"))->Remove();
    EXPECT_EQ(Tree(lp_dialog)->model()->rowCount(), 1);
    static_cast<Item*>(m_schema.mp_word->HasItem(l_long + "a"))->Remove();
    EXPECT_EQ(Tree(lp_dialog)->model()->rowCount(), 0);
    EXPECT_EQ(ListRows(lp_dialog).size(), 2);
}
