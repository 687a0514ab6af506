// Four real clients build a search tree at the central server's word, lose a branch and heal
// it; the searcher is this process's window, which types searches and keeps a wish list.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "shell/ActionSetToolBar.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "support/AppEnvironment.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"
#include "support/WaitFor.h"

using namespace Qt::StringLiterals;

void PrintTo(QString const& i_text, std::ostream* op_out)
{
    *op_out << '"' << i_text.toStdString() << '"';
}

namespace
{
constexpr int s_wait = 30000;

QTabWidget* Tabs() { return mainWindow->findChild<QTabWidget*>(u"searchTabControl"_s); }

QTreeWidget* TreeOf(int i_tab)
{
    return Tabs()->widget(i_tab)->findChild<QTreeWidget*>(u"searchResultsTreeWidget"_s);
}

// The file rows of a results tab as "user|folder|file", sorted, with the folder row's first
// part: the folder shows deepest first.
QStringList Rows(int i_tab)
{
    QStringList l_rows;
    QTreeWidget* lp_tree = TreeOf(i_tab);
    for (int l_user = 0; l_user < lp_tree->topLevelItemCount(); ++l_user)
    {
        QTreeWidgetItem* lp_user = lp_tree->topLevelItem(l_user);
        for (int l_folder = 0; l_folder < lp_user->childCount(); ++l_folder)
        {
            QTreeWidgetItem* lp_folder = lp_user->child(l_folder);
            for (int l_file = 0; l_file < lp_folder->childCount(); ++l_file)
                l_rows << lp_user->text(0) + u'|' + lp_folder->text(3).section(u'/', 0, 0) + u'|' +
                              lp_folder->child(l_file)->text(4);
        }
    }
    l_rows.sort();
    return l_rows;
}

QStringList Users(QStringList const& i_rows)
{
    QStringList l_users;
    for (QString const& l_row : i_rows)
        if (QString const l_user = l_row.section(u'|', 0, 0); !l_users.contains(l_user))
            l_users << l_user;
    return l_users;
}

// Types the text into the search line as the user does, and gives the ticket the server saw.
void TypeSearch(QString const& i_text)
{
    auto* lp_edit = mainWindow->findChild<QLineEdit*>(u"searchEdit"_s);
    lp_edit->setText(i_text);
    QTest::keyClick(lp_edit, Qt::Key_Return);
}

void CloseTab(int i_tab)
{
    emit Tabs()->tabCloseRequested(i_tab);
    QApplication::processEvents();
}

// A client of the tree: a name, a password, its own port, and one shared file that the
// searches find, in a folder of its name.
void SeedClient(ClientProcess& io_client, QString const& i_root, std::string const& i_name, SavedGraph& io_seed)
{
    QString const l_folder = i_root + u'/' + QString::fromStdString(i_name);
    QDir().mkpath(l_folder + u"/songs"_s);
    QFile l_file(l_folder + u"/songs/tidepool "_s + QString::fromStdString(i_name) + u".txt"_s);
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly));
    l_file.write("tide");
    io_seed.Set("global", "username", i_name);
    io_seed.Set("global", "password", i_name + "-pw");
    io_seed.Set("global", "use_upnp", "no");
    io_seed.Set("global", "listening_port", std::to_string(FreePort()));
    io_seed.ShareFolder(l_folder.toStdString(), SavedGraph::Access::Everyone);
    ASSERT_TRUE(io_seed.Save(io_client.DataFile()));
}
} // namespace

TEST(SearchTreeEndToEnd, TreeGrowsHealsAndCarriesSearchesAndWishes)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + u"/accounts"_s,
                                  {u"--possible-parents"_s, u"1"_s, u"--upload-speed"_s, u"anna=1000000"_s,
                                   u"--upload-speed"_s, u"ben=1000000"_s, u"--wishlist-period"_s, u"2"_s});
    ASSERT_TRUE(l_server.Start());

    // The searcher logs in first: with the lowest rank it is offered no parent and stays a
    // root, so that searches it sends reach the tree through anna alone.
    SavedGraph l_searcherSeed;
    l_searcherSeed.Set("global", "username", "sam");
    l_searcherSeed.Set("global", "password", "sam-pw");
    l_searcherSeed.Set("global", "use_upnp", "no");
    l_searcherSeed.Set("global", "listening_port", std::to_string(FreePort()));
    ASSERT_TRUE(l_searcherSeed.Save(AppEnvironment::PrepareHome() + u"/.Tidewick"_s));
    AppEnvironment::Window();
    ASSERT_TRUE(l_server.WaitForLine(u"login sam from 127.0.0.1"_s, s_wait));

    std::vector<std::string> const l_names{"anna", "ben", "cora", "dan"};
    std::map<std::string, std::unique_ptr<ClientProcess>> l_clients;
    for (std::string const& l_name : l_names)
    {
        auto& lp_client = l_clients[l_name] = std::make_unique<ClientProcess>();
        SavedGraph l_seed;
        if (l_name == "anna")
        {
            l_seed.AddWishListItem("kelp forest", true);
            l_seed.AddWishListItem("driftwood", false);
        }
        SeedClient(*lp_client, l_dir.path(), l_name, l_seed);
        ASSERT_TRUE(lp_client->Start());
        QString const l_user = QString::fromStdString(l_name);
        ASSERT_TRUE(l_server.WaitForLine(u"login %1 from 127.0.0.1"_s.arg(l_user), s_wait)) << l_name;
        if (l_name == "anna" || l_name == "ben")
        {
            ASSERT_TRUE(l_server.WaitForLine(u"can parent %1 yes"_s.arg(l_user), s_wait)) << l_name;
        }
    }
    EXPECT_TRUE(l_server.WaitForLine(u"possible parents for ben: anna"_s, s_wait));
    EXPECT_TRUE(l_server.WaitForLine(u"possible parents for cora: ben"_s, s_wait));
    EXPECT_TRUE(l_server.WaitForLine(u"possible parents for dan: ben"_s, s_wait));

    // The first search reaches every root; anna passes it to ben, who adopts her and passes
    // it to cora and dan, who adopt him.
    TypeSearch(u"tidepool"_s);
    for (char const* lp_name : {"ben", "cora", "dan"})
        ASSERT_TRUE(l_server.WaitForLine(u"has parent %1 yes"_s.arg(QLatin1String(lp_name)), s_wait))
            << lp_name << "\n" << l_server.Log().toStdString();
    ASSERT_EQ(Tabs()->count(), 1);
    CloseTab(0);

    // Now one root is left beside the searcher, and the search reaches the others through it.
    int const l_sentBefore = l_server.CountLines(u"to 1 clients"_s);
    TypeSearch(u"tidepool"_s);
    EXPECT_TRUE(WaitFor([&] { return l_server.CountLines(u"to 1 clients"_s) > l_sentBefore; }, s_wait));
    ASSERT_EQ(Tabs()->count(), 1);
    EXPECT_TRUE(WaitFor([&] { return Rows(0).size() >= 4; }, s_wait)) << l_server.Log().toStdString();
    EXPECT_EQ(Rows(0), (QStringList{u"anna|songs|tidepool anna.txt"_s, u"ben|songs|tidepool ben.txt"_s,
                                    u"cora|songs|tidepool cora.txt"_s, u"dan|songs|tidepool dan.txt"_s}));
    CloseTab(0);

    // Ben leaves: his children report that they have no parent and are named anna.
    ASSERT_TRUE(l_clients["ben"]->Terminate());
    for (char const* lp_name : {"cora", "dan"})
    {
        QString const l_user = QLatin1String(lp_name);
        EXPECT_TRUE(l_server.WaitForLine(u"has parent %1 no"_s.arg(l_user), s_wait)) << lp_name;
        EXPECT_TRUE(l_server.WaitForLine(u"possible parents for %1: anna"_s.arg(l_user), s_wait)) << lp_name;
    }
    TypeSearch(u"tidepool"_s);
    ASSERT_EQ(Tabs()->count(), 1);
    EXPECT_TRUE(WaitFor([&] { return Users(Rows(0)).size() >= 3; }, s_wait));
    EXPECT_EQ(Users(Rows(0)), (QStringList{u"anna"_s, u"cora"_s, u"dan"_s}));
    CloseTab(0);

    // The search joins the wish list, with a second enabled one and a disabled one; the tab
    // closes, since a user's results are listed once while an earlier tab is open.
    auto const l_addToWishList = [&](QString const& i_text)
    {
        TypeSearch(i_text);
        ASSERT_TRUE(WaitFor([] { return Tabs()->count() == 1; }));
        Tabs()->setCurrentIndex(0);
        emit actionBar->ActionTriggered("add_remove_wishlist");
        CloseTab(0);
    };
    l_addToWishList(u"tidepool"_s);
    ASSERT_EQ(Tabs()->count(), 0);
    l_addToWishList(u"seaweed"_s);
    l_addToWishList(u"zzz disabled"_s);
    auto* lp_wishList = mainWindow->findChild<QTreeWidget*>(u"wishList"_s);
    ASSERT_EQ(lp_wishList->topLevelItemCount(), 3);
    for (int l_row = 0; l_row < 3; ++l_row)
        if (lp_wishList->topLevelItem(l_row)->text(1) == u"zzz disabled"_s)
            qobject_cast<QCheckBox*>(lp_wishList->itemWidget(lp_wishList->topLevelItem(l_row), 0))->setChecked(false);

    // The wish list searches go out one per period, in the order of their texts.
    QStringList l_sent;
    EXPECT_TRUE(WaitFor(
        [&]
        {
            l_sent.clear();
            for (QString const& l_line : l_server.Log().split(u'\n'))
                if (l_line.contains(u"wishlist search sam "_s))
                    l_sent << l_line.section(u" for \""_s, -1).chopped(1);
            return l_sent.size() >= 4;
        },
        s_wait));
    EXPECT_FALSE(l_sent.contains(u"zzz disabled"_s)) << l_sent.join(u", "_s).toStdString();
    for (qsizetype l_index = 1; l_index < l_sent.size(); ++l_index)
        EXPECT_NE(l_sent[l_index], l_sent[l_index - 1]) << l_sent.join(u", "_s).toStdString();

    // A wish list tab opens in the background and fills.
    EXPECT_TRUE(WaitFor([] { return Tabs()->count() >= 1 && !Rows(0).isEmpty(); }, s_wait));
    EXPECT_TRUE(WaitFor([] { return Users(Rows(0)).size() >= 3; }, s_wait));

    // Anna keeps her wish list across a restart, and no file holds a part of the tree.
    ClientProcess& l_anna = *l_clients["anna"];
    ASSERT_TRUE(l_anna.Terminate());
    ASSERT_TRUE(l_anna.Start());
    ASSERT_TRUE(WaitFor([&] { return l_server.CountLines(u"login anna from 127.0.0.1"_s) == 2; }, s_wait));
    for (auto& [l_name, lp_client] : l_clients)
        if (lp_client->IsRunning())
        {
            EXPECT_TRUE(lp_client->Terminate()) << l_name;
        }
    SavedGraph l_saved;
    l_saved.Load(l_anna.DataFile());
    EXPECT_EQ(l_saved.WishList(), (std::map<std::string, bool>{{"driftwood", false}, {"kelp forest", true}}));
    for (auto& [l_name, lp_client] : l_clients)
    {
        QFile l_file(lp_client->DataFile());
        ASSERT_TRUE(l_file.open(QIODevice::ReadOnly)) << l_name;
        EXPECT_FALSE(l_file.readAll().contains("dnet_")) << l_name;
    }
}
