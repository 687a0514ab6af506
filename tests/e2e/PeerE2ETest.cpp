// The client under test is the window of this process, logged in to the real central server, and
// it browses three real clients: bob directly, at the port he changed to; carol, who cannot
// listen, by her dialling back; and dave, asked while offline and again once he has come.
#include <gtest/gtest.h>

#include <QFile>
#include <QMenu>
#include <QStatusBar>
#include <QTemporaryDir>

#include <map>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "forms/UserMenuOptions.h"
#include "peer/PeerMessenger.h"
#include "server/Server.h"
#include "shell/MainWindow.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "support/AppEnvironment.h"
#include "support/FreePort.h"
#include "support/SavedGraph.h"
#include "support/ScriptedPeer.h"
#include "support/TestPorts.h"
#include "support/WaitFor.h"

namespace
{
void Seed(QString const& i_file, std::string const& i_name, quint16 i_port, std::string const& i_newPort = {})
{
    SavedGraph l_seed;
    l_seed.Set("global", "username", i_name);
    l_seed.Set("global", "password", i_name + "-pw");
    l_seed.Set("global", "use_upnp", "no");
    l_seed.Set("global", "listening_port", std::to_string(i_port));
    if (!i_newPort.empty())
        l_seed.Set("global", "new_listening_port", i_newPort);
    ASSERT_TRUE(l_seed.Save(i_file));
}

// As the user does it: the "Browse user's files" entry of the user's menu.
void Browse(std::string const& i_user)
{
    QMenu l_menu;
    UserMenuOptions l_options(&l_menu, i_user);
    for (QAction* lp_action : l_menu.actions())
        if (lp_action->text() == QStringLiteral("Browse user's files"))
            lp_action->trigger();
}

std::string Attribute(char const* i_user, char const* i_type)
{
    return ItemPtr(d.GetType("user")->GetItem(i_user))[i_type].AsString();
}

std::string Quote(QStringList const& i_lines)
{
    return i_lines.join(QLatin1Char('\n')).toStdString();
}

// Kinds of item that live only while the program runs: their names in a data file would mean
// that sockets, attempts or waiting messages were saved.
bool HoldsPeerTypes(QString const& i_file)
{
    QFile l_file(i_file);
    EXPECT_TRUE(l_file.open(QIODevice::ReadOnly)) << i_file.toStdString();
    QByteArray const l_bytes = l_file.readAll();
    for (char const* lp_name : {"peer_socket", "uninitialized_socket", "unsent_message", "connect_to_peer_request",
                                "peer_connection_request", "user_address"})
        if (l_bytes.contains(lp_name))
            return true;
    return false;
}
} // namespace

TEST(PeerEndToEnd, BrowsingReachesPeersDirectlyByDialBackAndOnceOnline)
{
    QTemporaryDir l_dir;
    CentralServerProcess l_server(l_dir.path() + QStringLiteral("/accounts"));
    ASSERT_TRUE(l_server.Start());
    RefusingPort l_refusing;
    quint16 const l_bobOld = FreePort();
    quint16 const l_bobNew = FreePort();
    ClientProcess l_bob, l_carol, l_dave;
    Seed(l_bob.DataFile(), "bob", l_bobOld, std::to_string(l_bobNew));
    Seed(l_carol.DataFile(), "carol", l_refusing.Port());
    Seed(l_dave.DataFile(), "dave", FreePort());
    ASSERT_TRUE(l_bob.Start() && l_carol.Start());

    Seed(AppEnvironment::PrepareHome() + QStringLiteral("/.Tidewick"), "alice", FreePort());
    AppEnvironment::Window();
    QStringList l_lines;
    SetLogSink([&](QString const& i_area, int, QString const& i_text, ItemPtr) {
        if (i_area == QStringLiteral("Peer Messenger"))
            l_lines << i_text;
    });
    auto l_logged = [&](QString const& i_line) { return WaitFor([&] { return l_lines.contains(i_line); }, 15000); };
    std::multimap<std::string, std::size_t> l_shares;
    QObject::connect(peerMessenger, &PeerMessenger::UserShare,
                     [&](std::string const& i_user, FileInfoMap& i_share, AttributeTranslationTable&) {
                         l_shares.emplace(i_user, i_share.size());
                     });
    for (char const* lp_user : {"alice", "bob", "carol"})
        ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("login %1 from 127.0.0.1").arg(QLatin1String(lp_user)), 20000)) << lp_user;

    // Bob tells the server his port just after his login; asked before that, the server knows
    // none. So the address is asked until it holds the port bob took at the start.
    ASSERT_TRUE(WaitFor([&] {
        gp_server->GetUserAddress("bob");
        return Attribute("bob", "user_port") == std::to_string(l_bobNew);
    }, 15000));
    // Bob is reached at his new port, by whichever way comes first.
    Browse("bob");
    EXPECT_EQ(mainWindow->statusBar()->currentMessage(), QStringLiteral("Asked bob for the list of shared files"));
    ASSERT_TRUE(WaitFor([&] { return l_shares.count("bob") == 1; }, 15000)) << Quote(l_lines);
    EXPECT_TRUE(l_lines.contains(QStringLiteral("Direct connection of type P to user bob successful")) ||
                l_lines.contains(QStringLiteral("Found req, accepted indirect connection to user bob, connection type P")));
    EXPECT_EQ(Attribute("bob", "user_port"), std::to_string(l_bobNew));
    ScriptedPeer l_prober;
    EXPECT_TRUE(l_prober.Dial(l_bobNew));
    EXPECT_FALSE(l_prober.Dial(l_bobOld));

    // Carol cannot listen, so only her dialling back works. Her address is known beforehand, so
    // that the direct attempt starts at once and has failed before she calls.
    gp_server->GetUserAddress("carol");
    ASSERT_TRUE(WaitFor([&] { return Attribute("carol", "user_port") == std::to_string(l_refusing.Port()); }));
    Browse("carol");
    EXPECT_TRUE(l_logged(QStringLiteral("Direct connection of type P to user carol failed")));
    EXPECT_TRUE(l_server.WaitForLine(QStringLiteral("indirect connection alice -> carol P token")));
    EXPECT_TRUE(l_logged(QStringLiteral("Found req, accepted indirect connection to user carol, connection type P")));
    EXPECT_TRUE(WaitFor([&] { return l_shares.count("carol") == 1; }, 15000)) << Quote(l_lines);

    // Dave is offline: the server refuses at once, the attempt ends and the request waits. None
    // of that goes into a data file.
    Browse("dave");
    EXPECT_TRUE(l_logged(QStringLiteral("Indirect connection of type P to user dave failed")));
    EXPECT_TRUE(WaitFor([] { return d.GetType("connect_to_peer_request")->ItemCount() == 0; }));
    ItemPtr const l_daveItem = d.GetType("user")->GetItem("dave");
    EXPECT_EQ(l_daveItem.GetItems("unsent_message").size(), 1u);
    ASSERT_TRUE(WaitFor([&] { return !Attribute("dave", "user_port").empty(); }));
    QString const l_saved = l_dir.path() + QStringLiteral("/alice-saved");
    dataSaver->Save(&d, l_saved.toLocal8Bit().constData());
    EXPECT_FALSE(HoldsPeerTypes(l_saved));

    // Once he is on, the null address he had fails, he dials back, and both requests go out in
    // their order on the new connection.
    ASSERT_TRUE(l_dave.Start());
    ASSERT_TRUE(l_server.WaitForLine(QStringLiteral("login dave from 127.0.0.1"), 20000));
    Browse("dave");
    EXPECT_TRUE(l_logged(QStringLiteral("Direct connection of type P to user dave failed")));
    EXPECT_TRUE(l_logged(QStringLiteral("Found req, accepted indirect connection to user dave, connection type P")));
    EXPECT_TRUE(l_logged(QStringLiteral("Sending 2 pending peer messages to user dave")));
    EXPECT_TRUE(WaitFor([&] { return l_shares.count("dave") == 2; }, 15000)) << Quote(l_lines);
    EXPECT_TRUE(l_daveItem.GetItems("unsent_message").empty());

    // Each answer came once, with nothing shared; the three end cleanly, bob keeps his new port
    // as the one to listen on, and no saved file holds anything of the connections.
    EXPECT_EQ(l_shares.size(), 4u);
    for (auto const& [l_user, l_files] : l_shares)
        EXPECT_EQ(l_files, 0u) << l_user;
    for (ClientProcess* lp_client : {&l_bob, &l_carol, &l_dave})
    {
        ASSERT_TRUE(lp_client->Terminate()) << lp_client->Output().toStdString();
        EXPECT_EQ(lp_client->ExitCode(), 0);
        EXPECT_FALSE(HoldsPeerTypes(lp_client->DataFile()));
    }
    SavedGraph l_bobSaved;
    l_bobSaved.Load(l_bob.DataFile());
    EXPECT_EQ(l_bobSaved.Setting("global", "listening_port"), std::to_string(l_bobNew));
    EXPECT_FALSE(l_bobSaved.Setting("global", "new_listening_port").has_value());
}
