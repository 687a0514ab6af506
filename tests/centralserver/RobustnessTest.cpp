#include "ServerFixture.h"
#include "support/WaitFor.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

namespace
{
using RobustnessTest = ServerFixture;

TEST_F(RobustnessTest, BadFramesCloseOnlyTheirOwnConnection)
{
    auto lp_bystander = LoggedIn("bystander");
    auto lp_short = LoggedIn("short");
    lp_short->SendRaw(QByteArray("\x02\x00\x00\x00\x40\x00", 6));
    EXPECT_TRUE(lp_short->WaitClosed());
    // Closed on the length alone, without waiting for a body that never comes.
    auto lp_huge = LoggedIn("huge");
    lp_huge->SendRaw(QByteArray("\xff\xff\xff\x7f\x16\x00\x00\x00", 8));
    EXPECT_TRUE(lp_huge->WaitClosed());
    auto lp_truncated = LoggedIn("truncated");
    lp_truncated->Send(Body(22).U32(1000).Str("x"));
    EXPECT_TRUE(lp_truncated->WaitClosed());
    RawClient l_early(mp_server->Port());
    l_early.Send(Body(64));
    EXPECT_TRUE(l_early.WaitClosed());

    lp_bystander->Send(Body(64));
    EXPECT_TRUE(lp_bystander->Take(64));
}

TEST_F(RobustnessTest, FrameSplitAcrossWritesAndFramesJoinedInOneAreServed)
{
    auto lp_client = LoggedIn("alice");
    QByteArray const l_list = Body(64).Frame();
    lp_client->SendRaw(l_list.left(2));
    EXPECT_TRUE(lp_client->NothingOf(64, 100));
    lp_client->SendRaw(l_list.mid(2) + l_list);
    EXPECT_TRUE(lp_client->Take(64));
    EXPECT_TRUE(lp_client->Take(64));
    // Larger than what the socket buffers at once, and of a code nobody serves.
    lp_client->Send(Body(999).Str(QByteArray(900 * 1024, 'z')));
    lp_client->Send(Body(64));
    EXPECT_TRUE(lp_client->Take(64));
}

// An accounts file that begins with damaged lines.
class AccountFileTest : public ServerFixture
{
protected:
    void Configure(ServerOptions& o_options) override
    {
        o_options.m_accountsFile = m_dir.filePath(QStringLiteral("accounts"));
        QFile l_file(o_options.m_accountsFile);
        ASSERT_TRUE(l_file.open(QIODevice::WriteOnly));
        l_file.write("garbage line\n!!! ### $$$\n\n");
    }

    QTemporaryDir m_dir;
};

TEST_F(AccountFileTest, AccountsOutliveARestartAndBadLinesAreSkipped)
{
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "secret"), std::optional<bool>(true));
    mp_server.reset();
    mp_server = std::make_unique<CentralServer>(m_options);
    QString l_error;
    ASSERT_TRUE(mp_server->Start(l_error)) << l_error.toStdString();
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "other"), std::optional<bool>(false));
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "secret"), std::optional<bool>(true));
    QFile l_stored(m_options.m_accountsFile);
    ASSERT_TRUE(l_stored.open(QIODevice::ReadOnly));
    QByteArray const l_content = l_stored.readAll();
    EXPECT_TRUE(l_content.contains(QByteArray("alice").toBase64()));
    EXPECT_FALSE(l_content.contains("secret"));
}

TEST(ProgramTest, StartsOnAnyPortServesLoginAndStopsCleanlyOnTerm)
{
    // With an accounts file to read, the port must still be on the first line.
    QTemporaryDir l_dir;
    QFile l_file(l_dir.filePath(QStringLiteral("accounts")));
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly) && l_file.write("bad line\n") > 0);
    l_file.close();
    QProcess l_process;
    l_process.start(QStringLiteral(TIDEWICK_CENTRAL_BINARY), {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--listen"),
                                                              QStringLiteral("127.0.0.1"), QStringLiteral("--accounts"), l_file.fileName()});
    ASSERT_TRUE(l_process.waitForStarted(5000));
    ASSERT_TRUE(WaitFor([&] { return l_process.canReadLine(); }, 10000));
    QString const l_first = QString::fromUtf8(l_process.readLine()).trimmed();
    quint16 const l_port = l_first.section(QLatin1Char(' '), -1).toUShort();
    ASSERT_NE(l_port, 0) << l_first.toStdString();

    EXPECT_EQ(RawClient(l_port).Login("alice", "pw"), std::optional<bool>(true));
    ASSERT_TRUE(WaitFor([&] { return l_process.peek(1 << 16).contains("login alice from 127.0.0.1"); }, 5000));
    l_process.terminate();
    ASSERT_TRUE(l_process.waitForFinished(10000));
    EXPECT_EQ(l_process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(l_process.exitCode(), 0);
}
}
