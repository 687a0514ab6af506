#include "ServerFixture.h"

#include <QFile>
#include <QTemporaryDir>

namespace
{
using RobustnessTest = ServerFixture;

// A frame split across writes, frames joined in one, and a large frame of a code nobody serves
// are all read; a bad frame closes only its own connection.
TEST_F(RobustnessTest, FramesAreReadAsTheyComeAndBadOnesCloseOnlyTheirOwnConnection)
{
    auto lp_bystander = LoggedIn("bystander");
    QByteArray const l_list = Body(64).Frame();
    lp_bystander->SendRaw(l_list.left(2));
    EXPECT_TRUE(lp_bystander->NothingOf(64, 100));
    lp_bystander->SendRaw(l_list.mid(2) + l_list);
    EXPECT_TRUE(lp_bystander->Take(64) && lp_bystander->Take(64));
    lp_bystander->Send(Body(999).Str(QByteArray(900 * 1024, 'z')));

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

TEST_F(RobustnessTest, AccountsOutliveARestartAndDamagedLinesAreSkipped)
{
    QTemporaryDir l_dir;
    m_options.m_accountsFile = l_dir.filePath(QStringLiteral("accounts"));
    QFile l_file(m_options.m_accountsFile);
    ASSERT_TRUE(l_file.open(QIODevice::WriteOnly) && l_file.write("garbage line\n!!! ### $$$\n\n") > 0);
    l_file.close();
    Restart();
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "secret"), std::optional<bool>(true));
    Restart();
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "other"), std::optional<bool>(false));
    EXPECT_EQ(RawClient(mp_server->Port()).Login("alice", "secret"), std::optional<bool>(true));
    ASSERT_TRUE(l_file.open(QIODevice::ReadOnly));
    QByteArray const l_content = l_file.readAll();
    EXPECT_TRUE(l_content.contains(QByteArray("alice").toBase64()));
    EXPECT_FALSE(l_content.contains("secret"));
}
}

namespace
{
// Texts from clients reach the log whole up to 200 bytes and cut at a character boundary beyond.
TEST(ServerLogTest, ClientTextsAreCutTo200Bytes)
{
    QByteArray const l_limit(ServerLog::c_maxTextBytes, 'a');
    EXPECT_EQ(ServerLog::Printable(l_limit), QString::fromLatin1(l_limit));
    EXPECT_EQ(ServerLog::Printable(l_limit + 'b'), QString::fromLatin1(l_limit) + QStringLiteral("..."));
    // "é" is two bytes; the one that would straddle the cut is left out whole.
    QByteArray const l_straddling = QByteArray(ServerLog::c_maxTextBytes - 1, 'a') + "\xc3\xa9";
    EXPECT_EQ(ServerLog::Printable(l_straddling), QString::fromLatin1(l_straddling.first(199)) + QStringLiteral("..."));
    EXPECT_EQ(ServerLog::Printable(QByteArray(128 * 1024, '\n')), QString(200, QLatin1Char('?')) + QStringLiteral("..."));
}
}
