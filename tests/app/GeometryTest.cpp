// Sizes kept by the size manager: widgets sharing a name, equal numbers sharing an item, the
// stretched last column, tabs that close, the maximised window; and, across processes over one
// home folder, what a user changed coming back, with damaged numbers in the file skipped.
#include "AppTest.h"

#include <QProcess>

#include "shell/SizeManager.h"
#include "forms/UserListForm.h"
#include "support/SavedGraph.h"
#include "store/Data.h"

namespace
{
ItemPtr Named(char const* i_type, char const* i_name)
{
    return d.GetType(i_type)->HasItem(Value(i_name));
}

// The stored size of each entry of a name, by index.
std::map<int, std::string> Stored(char const* i_type, char const* i_name, char const* i_entry, char const* i_number)
{
    std::map<int, std::string> l_sizes;
    if (ItemPtr const l_owner = Named(i_type, i_name))
        for (Item* lp_entry : l_owner.GetItems(i_entry))
            l_sizes[std::stoi(ItemPtr(lp_entry).HasItem(i_number).AsString())] = ItemPtr(lp_entry).HasItem("sizer_size").AsString();
    return l_sizes;
}

std::unique_ptr<QTreeWidget> Tree(int i_columns)
{
    auto lp_tree = std::make_unique<QTreeWidget>();
    lp_tree->setColumnCount(i_columns);
    for (int l_column = 0; l_column < i_columns; ++l_column)
        lp_tree->setColumnWidth(l_column, 60 + 10 * l_column);
    return lp_tree;
}

QList<int> Sizes(QHeaderView* ip_header)
{
    QList<int> l_sizes;
    for (int l_index = 0; l_index < ip_header->count(); ++l_index)
        l_sizes << ip_header->sectionSize(l_index);
    return l_sizes;
}
} // namespace

TEST(Geometry, TreesOfOneNameFollowEachOtherAndTheStretchedLastColumnIsNotKept)
{
    AppEnvironment::Window();
    std::unique_ptr<QTreeWidget> lp_first = Tree(3), lp_second = Tree(3);
    lp_second->setColumnWidth(0, 200);
    sizeManager->RegisterTreeWidget(QStringLiteral("geometry_trees"), lp_first.get());
    sizeManager->RegisterTreeWidget(QStringLiteral("geometry_trees"), lp_second.get());
    EXPECT_EQ(Stored("sizer_tree", "geometry_trees", "sizer_tree_column", "sizer_tree_column_number"),
              (std::map<int, std::string>{{0, "60"}, {1, "70"}}));
    EXPECT_EQ(lp_second->header()->sectionSize(0), 60);

    lp_second->header()->resizeSection(1, 111);
    EXPECT_EQ(lp_first->header()->sectionSize(1), 111);
    EXPECT_EQ(Stored("sizer_tree", "geometry_trees", "sizer_tree_column", "sizer_tree_column_number"),
              (std::map<int, std::string>{{0, "60"}, {1, "111"}}));
    EXPECT_EQ(Named("sizer_tree", "geometry_trees").GetItems("sizer_tree_column").size(), 2u);

    // A tab that closes leaves the name and its numbers; the other goes on.
    lp_first.reset();
    EXPECT_EQ(Named("sizer_tree", "geometry_trees").GetItems("sizer_tree_widget").size(), 1u);
    lp_second->header()->resizeSection(0, 77);
    EXPECT_EQ(Stored("sizer_tree", "geometry_trees", "sizer_tree_column", "sizer_tree_column_number").at(0), "77");
    std::unique_ptr<QTreeWidget> lp_third = Tree(3);
    sizeManager->RegisterTreeWidget(QStringLiteral("geometry_trees"), lp_third.get());
    EXPECT_EQ(Sizes(lp_third->header()).mid(0, 2), (QList<int>{77, 111}));
}

TEST(Geometry, EqualPanesShareOneNumberAndMovingOneLeavesItInPlace)
{
    AppEnvironment::Window();
    // Shown at a width that holds the sizes exactly, so that a splitter takes them as they are.
    QSplitter l_first, l_second;
    for (QSplitter* lp_splitter : {&l_first, &l_second})
    {
        for (int l_pane = 0; l_pane < 3; ++l_pane)
            lp_splitter->addWidget(new QWidget());
        lp_splitter->resize(400 + 2 * lp_splitter->handleWidth(), 100);
        lp_splitter->show();
    }
    QApplication::processEvents();
    sizeManager->RegisterSplitter(QStringLiteral("geometry_split"), &l_first, {100, 100, 200});
    ItemPtr const l_hundred = d.GetType("sizer_size")->HasItem(Value("100"));
    ASSERT_TRUE(l_hundred);
    EXPECT_EQ(l_hundred.GetItems("sizer_splitter_index").size(), 2u);
    sizeManager->RegisterSplitter(QStringLiteral("geometry_split"), &l_second, {});

    l_first.setSizes({100, 150, 150});
    emit l_first.splitterMoved(250, 2);
    EXPECT_EQ(Stored("sizer_splitter", "geometry_split", "sizer_splitter_index", "sizer_splitter_index_number"),
              (std::map<int, std::string>{{0, "100"}, {1, "150"}, {2, "150"}}));
    EXPECT_EQ(d.GetType("sizer_size")->HasItem(Value("100")), l_hundred);
    EXPECT_EQ(l_hundred.GetItems("sizer_splitter_index").size(), 1u);
    EXPECT_FALSE(d.GetType("sizer_size")->HasItem(Value("200")) && d.GetType("sizer_size")->HasItem(Value("200")).GetItems("sizer_splitter_index").size());
    EXPECT_EQ(l_second.sizes(), l_first.sizes());
}

TEST(Geometry, AMaximisedWindowStoresNothing)
{
    MainWindow* lp_window = AppEnvironment::Window();
    lp_window->showNormal();
    lp_window->resize(900, 550);
    QApplication::processEvents();
    ItemPtr const l_window = Named("sizer_window", "main_window");
    ASSERT_TRUE(l_window);
    EXPECT_EQ(l_window.HasItem("sizer_width").AsString(), "900");
    lp_window->showMaximized();
    QApplication::processEvents();
    ASSERT_TRUE(lp_window->isMaximized());
    EXPECT_NE(lp_window->width(), 900);
    EXPECT_EQ(l_window.HasItem("sizer_width").AsString(), "900");
    lp_window->showNormal();
    QApplication::processEvents();
}

// One home folder, three processes of this program, each with its own window: the first
// changes what a user can change and quits; the second finds it all, then leaves damaged
// numbers and a place off every screen behind; the third starts over them with the sizes it has
// and on the primary screen.
TEST(Geometry, ChangesSurviveARestartAndDamagedNumbersAreSkipped)
{
    QString const l_phase = qEnvironmentVariable("TIDEWICK_GEOMETRY_PHASE");
    if (l_phase.isEmpty())
    {
        QTemporaryDir l_home;
        for (char const* lp_phase : {"1", "2", "3"})
        {
            QProcess l_child;
            QProcessEnvironment l_env = QProcessEnvironment::systemEnvironment();
            l_env.insert(QStringLiteral("TIDEWICK_GEOMETRY_PHASE"), QString::fromLatin1(lp_phase));
            l_env.insert(QStringLiteral("TIDEWICK_GEOMETRY_HOME"), l_home.path());
            l_child.setProcessEnvironment(l_env);
            l_child.setProcessChannelMode(QProcess::MergedChannels);
            l_child.start(QCoreApplication::applicationFilePath(),
                          {QStringLiteral("--gtest_filter=Geometry.ChangesSurviveARestartAndDamagedNumbersAreSkipped")});
            ASSERT_TRUE(l_child.waitForFinished(60000));
            QByteArray const l_output = l_child.readAll();
            ASSERT_EQ(l_child.exitCode(), 0) << "phase " << lp_phase << ":\n" << l_output.toStdString();
            ASSERT_TRUE(l_output.contains("[  PASSED  ] 1 test")) << l_output.toStdString();
        }
        return;
    }

    QString const l_home = qEnvironmentVariable("TIDEWICK_GEOMETRY_HOME");
    qputenv("HOME", l_home.toLocal8Bit());
    if (l_phase == QLatin1String("1"))
    {
        SavedGraph l_seed;
        l_seed.SetFreeListeningPort();
        l_seed.Set("global", "use_upnp", "no");
        ASSERT_TRUE(l_seed.Save(l_home + QStringLiteral("/.Tidewick")));
    }
    auto* lp_window = new MainWindow();
    lp_window->show();
    QApplication::processEvents();
    CloseInformationBoxes(QString());
    Ui::MainWindow* lp_ui = lp_window->Widgets();
    QHeaderView* lp_userColumns = lp_window->UserList()->findChild<QTreeWidget*>(QStringLiteral("userList"))->header();
    QSplitter* lp_splitter = lp_ui->roomListSplitter;
    if (l_phase == QLatin1String("1"))
    {
        lp_window->setGeometry(40, 50, 820, 530);
        QApplication::processEvents();
        // A drag of the handle, as the user makes it: setSizes would tell nobody.
        lp_ui->mainTabWidget->setCurrentWidget(lp_ui->roomsTab);
        QApplication::processEvents();
        QSplitterHandle* lp_handle = lp_splitter->handle(1);
        QPoint const l_grip = lp_handle->rect().center();
        QTest::mousePress(lp_handle, Qt::LeftButton, {}, l_grip);
        QTest::mouseMove(lp_handle, l_grip - QPoint(120, 0));
        QTest::mouseRelease(lp_handle, Qt::LeftButton, {}, l_grip - QPoint(120, 0));
        lp_userColumns->resizeSection(0, 133);
        QFile l_expected(l_home + QStringLiteral("/expected"));
        ASSERT_TRUE(l_expected.open(QIODevice::WriteOnly));
        for (int l_size : lp_splitter->sizes())
            l_expected.write(QByteArray::number(l_size) + ' ');
        EXPECT_NE(lp_splitter->sizes().value(1), 220);
    }
    else if (l_phase == QLatin1String("2"))
    {
        EXPECT_EQ(lp_window->geometry(), QRect(40, 50, 820, 530));
        QFile l_expected(l_home + QStringLiteral("/expected"));
        ASSERT_TRUE(l_expected.open(QIODevice::ReadOnly));
        QByteArray l_sizes;
        for (int l_size : lp_splitter->sizes())
            l_sizes += QByteArray::number(l_size) + ' ';
        EXPECT_EQ(l_sizes, l_expected.readAll());
        EXPECT_EQ(lp_userColumns->sectionSize(0), 133);
        // Damage as a file may hold it: a negative width, a column the tree lacks, a size that is
        // no number, and panes that add up to nothing.
        ItemPtr const l_window = Named("sizer_window", "main_window");
        l_window += d.GetType("sizer_width")->GetItem(Value("-5"));
        // And a place on a screen that is not there any more.
        l_window += d.GetType("sizer_x")->GetItem(Value("50000"));
        ItemPtr const l_column = Named("sizer_tree", "user_list").NewItem("sizer_tree_column");
        l_column += d.GetType("sizer_tree_column_number")->GetItem(Value("99"));
        l_column += d.GetType("sizer_size")->GetItem(Value("50"));
        for (Item* lp_entry : Named("sizer_tree", "user_list").GetItems("sizer_tree_column"))
            if (ItemPtr(lp_entry).HasItem("sizer_tree_column_number").AsString() == "0")
                ItemPtr(lp_entry) += d.GetType("sizer_size")->GetItem(Value("abc"));
        for (Item* lp_entry : Named("sizer_splitter", "room_list_splitter").GetItems("sizer_splitter_index"))
            ItemPtr(lp_entry) += d.GetType("sizer_size")->GetItem(Value("0"));
    }
    else
    {
        // The place lies off every screen and is moved onto the primary one; the size was
        // damaged, and the window keeps its own.
        QRect const l_screen = QGuiApplication::primaryScreen()->availableGeometry();
        EXPECT_TRUE(l_screen.contains(lp_window->geometry().topLeft()));
        EXPECT_LT((lp_window->geometry().topLeft() - l_screen.topLeft()).manhattanLength(), 20);
        EXPECT_NE(lp_window->size(), QSize(820, 530));
        EXPECT_GT(lp_window->width(), 0);
        EXPECT_GT(lp_splitter->sizes().value(0), 0);
        EXPECT_GT(lp_userColumns->sectionSize(0), 0);
    }
    delete lp_window;
    QFile l_file(l_home + QStringLiteral("/.Tidewick"));
    ASSERT_TRUE(l_file.open(QIODevice::ReadOnly));
    QByteArray const l_saved = l_file.readAll();
    EXPECT_TRUE(l_saved.contains("sizer_width"));
    EXPECT_FALSE(l_saved.contains("_widget"));
}
