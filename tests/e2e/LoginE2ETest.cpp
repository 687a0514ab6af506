#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QThread>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "support/SavedGraph.h"
#include "support/RawClient.h"
#include "support/WaitFor.h"

namespace
{
// A home whose data file logs in with this name and password, without UPnP, and joins a room.
// The home may also keep one user on its user list, in one group.
void SeedClient(ClientProcess& io_client, std::string const& i_name, std::string const& i_password,
                std::string const& i_listedUser = std::string())
{
    SavedGraph l_seed;
    l_seed.Set("global", "username", i_name);
    l_seed.Set("global", "password", i_password);
    l_seed.Set("global", "use_upnp", "no");
    l_seed.SetFreeListeningPort();
    l_seed.AddAutojoinRoom("e2e-room");
    if (!i_listedUser.empty())
        l_seed.ListUser(i_listedUser, {"friends"});
    ASSERT_TRUE(l_seed.Save(io_client.DataFile()));
}

QString Quote(CentralServerProcess& io_server)
{
    return QStringLiteral("\n--- central server log ---\n") + io_server.Log();
}
} // namespace

TEST(LoginEndToEnd, ClientsLogInChatReceiveMessagesAndReconnect)
{
    QTemporaryDir l_dir;
    QString const l_accounts = l_dir.path() + QStringLiteral("/accounts");
    auto lp_server = std::make_unique<CentralServerProcess>(l_accounts);
    ASSERT_TRUE(lp_server->Start());

    ClientProcess l_alice;
    ClientProcess l_bob;
    SeedClient(l_alice, "alice", "alice-pw", "bob");
    SeedClient(l_bob, "bob", "bob-pw");

    // Alice keeps bob on her user list, so she tracks him from her login on, and hears of him
    // coming online.
    ASSERT_TRUE(l_alice.Start());
    ASSERT_TRUE(lp_server->WaitForLine(QStringLiteral("track alice bob"), 20000)) << Quote(*lp_server).toStdString();
    ASSERT_TRUE(l_bob.Start());
    ASSERT_TRUE(lp_server->WaitForLine(QStringLiteral("status bob online to alice"), 20000))
        << Quote(*lp_server).toStdString();

    // Both log in by themselves and enter the room they keep for auto-join.
    for (char const* lp_line : {"login alice from 127.0.0.1", "login bob from 127.0.0.1", "enter room alice e2e-room",
                                "enter room bob e2e-room"})
        ASSERT_TRUE(lp_server->WaitForLine(QString::fromLatin1(lp_line), 20000)) << lp_line << Quote(*lp_server).toStdString();

    // A third party speaking raw frames: its room chat reaches both clients, and a private
    // message to alice is acknowledged by alice's client.
    {
        RawClient l_carol(2242);
        ASSERT_EQ(l_carol.Login("carol", "carol-pw"), std::optional<bool>(true));
        l_carol.Send(Body(14).Str("e2e-room"));
        l_carol.Send(Body(13).Str("e2e-room").Str("hello room"));
        EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("room chat carol e2e-room to alice, bob, carol")))
            << Quote(*lp_server).toStdString();
        l_carol.Send(Body(22).Str("alice").Str("hello alice"));
        EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("private message acknowledged alice id")))
            << Quote(*lp_server).toStdString();
    }

    // A wrong password is refused once, and that client does not try again by itself.
    ClientProcess l_impostor;
    SeedClient(l_impostor, "bob", "not-bobs-password");
    ASSERT_TRUE(l_impostor.Start());
    ASSERT_TRUE(lp_server->WaitForLine(QStringLiteral("login refused bob from 127.0.0.1: INVALIDPASS"), 20000))
        << Quote(*lp_server).toStdString();

    // The server goes away and comes back: the two good clients log in again within the
    // 30-second retry period; the refused one stays quiet.
    ASSERT_TRUE(lp_server->Stop());
    lp_server = std::make_unique<CentralServerProcess>(l_accounts);
    ASSERT_TRUE(lp_server->Start());
    EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("login alice from 127.0.0.1"), 45000)) << Quote(*lp_server).toStdString();
    EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("login bob from 127.0.0.1"), 45000)) << Quote(*lp_server).toStdString();
    WaitFor([] { return false; }, 5000);
    EXPECT_EQ(lp_server->CountLines(QStringLiteral("login refused")), 0) << Quote(*lp_server).toStdString();
    EXPECT_EQ(lp_server->CountLines(QStringLiteral("login bob")), 1) << Quote(*lp_server).toStdString();
    // Tracking is asked for again on the new link, and bob's leaving reaches alice.
    EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("track alice bob"))) << Quote(*lp_server).toStdString();

    // All three close cleanly, and the saved files keep the login, the auto-join room and the
    // user list with its group.
    for (ClientProcess* lp_client : {&l_bob, &l_alice, &l_impostor})
    {
        ASSERT_TRUE(lp_client->Terminate()) << lp_client->Output().toStdString();
        EXPECT_EQ(lp_client->ExitCode(), 0);
        if (lp_client == &l_bob)
        {
            EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("status bob offline to alice")))
                << Quote(*lp_server).toStdString();
        }
    }
    SavedGraph l_saved;
    l_saved.Load(l_alice.DataFile());
    EXPECT_EQ(l_saved.Setting("global", "username"), "alice");
    EXPECT_TRUE(l_saved.IsAutojoinRoom("e2e-room"));
    EXPECT_EQ(l_saved.ListedUserGroups("bob"), std::vector<std::string>{"friends"});

    // Logging out is seen by the server for both good clients.
    EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("logout alice"))) << Quote(*lp_server).toStdString();
    EXPECT_TRUE(lp_server->Stop());
}
