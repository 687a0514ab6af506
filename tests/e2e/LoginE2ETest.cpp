#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include "CentralServerProcess.h"
#include "ClientProcess.h"
#include "DataFileImage.h"
#include "support/RawClient.h"
#include "support/WaitFor.h"

namespace
{
// A home whose data file logs in with this name and password, without UPnP, and joins a room.
void SeedClient(ClientProcess& io_client, std::string const& i_name, std::string const& i_password)
{
    DataFileImage l_seed;
    l_seed.m_types.push_back({"global", false, {{1, "username"}, {2, "password"}, {3, "use_upnp"}}});
    l_seed.m_types.push_back({"global_value", false, {{4, i_name}, {5, i_password}, {6, "no"}}});
    l_seed.m_types.push_back({"room", false, {{7, "e2e-room"}}});
    l_seed.m_types.push_back({"room_autojoin", true, {{8, ""}}});
    l_seed.m_pairs = {{1, 4}, {2, 5}, {3, 6}, {7, 8}};
    QFile l_file(io_client.DataFile());
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly));
    l_file.write(l_seed.Encode());
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
    SeedClient(l_alice, "alice", "alice-pw");
    SeedClient(l_bob, "bob", "bob-pw");
    ASSERT_TRUE(l_alice.Start());
    ASSERT_TRUE(l_bob.Start());

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

    // All three close cleanly, and the saved files keep the login and the auto-join room.
    for (ClientProcess* lp_client : {&l_alice, &l_bob, &l_impostor})
    {
        ASSERT_TRUE(lp_client->Terminate()) << lp_client->Output().toStdString();
        EXPECT_EQ(lp_client->ExitCode(), 0);
    }
    QFile l_saved(l_alice.DataFile());
    ASSERT_TRUE(l_saved.open(QIODevice::ReadOnly));
    std::optional<DataFileImage> l_image = DataFileImage::Decode(l_saved.readAll());
    ASSERT_TRUE(l_image.has_value());
    EXPECT_EQ(l_image->Setting("global", "username"), "alice");
    ASSERT_NE(l_image->Find("room"), nullptr);
    EXPECT_EQ(l_image->Find("room")->m_items.front().second, "e2e-room");
    ASSERT_NE(l_image->Find("room_autojoin"), nullptr);
    EXPECT_EQ(l_image->Find("room_autojoin")->m_items.size(), 1u);

    // Logging out is seen by the server for both good clients.
    EXPECT_TRUE(lp_server->WaitForLine(QStringLiteral("logout alice"))) << Quote(*lp_server).toStdString();
    EXPECT_TRUE(lp_server->Stop());
}
