#include "HeldSocket.h"
#include "ServerFixture.h"

#include <QFile>
#include <QTemporaryDir>

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

    // Too short for a code; too long, closed on the length alone without waiting for a body that
    // never comes; a field cut short.
    for (auto const& [lp_name, l_bytes] : {std::pair{"short", QByteArray("\x02\x00\x00\x00\x40\x00", 6)},
             {"huge", QByteArray("\xff\xff\xff\x7f\x16\x00\x00\x00", 8)}, {"truncated", Body(22).U32(1000).Str("x").Frame()}})
    {
        auto lp_client = LoggedIn(lp_name);
        lp_client->SendRaw(l_bytes);
        EXPECT_TRUE(lp_client->WaitClosed()) << lp_name;
    }
    RawClient l_early(mp_server->Port());
    l_early.Send(Body(64));
    EXPECT_TRUE(l_early.WaitClosed());

    EXPECT_FALSE(lp_bystander->Ask(Body(64)).isEmpty());
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

// Before login a frame may be 64 KiB and no more: at the bound the login is read and its name
// refused, with the name cut in the log; past it the connection closes on the length alone.
TEST_F(RobustnessTest, BeforeLoginFramesStopAt64KiB)
{
    // The login body is 58 bytes besides the name, with a password of two.
    qsizetype const l_nameAtBound = ServerLimits::c_maxLoginFrameLength - 58;
    RawClient l_at(mp_server->Port());
    l_at.Send(RawClient::LoginBody(QByteArray(l_nameAtBound, 'n'), "pw"));
    EXPECT_EQ(l_at.Next(), Body(1).U8(0).Str("INVALIDUSERNAME").Bytes());
    QString const l_refusal = LogLine(QStringLiteral("login refused nnn"));
    EXPECT_TRUE(l_refusal.endsWith(QStringLiteral("n... from 127.0.0.1: INVALIDUSERNAME"))) << l_refusal.size();
    EXPECT_LT(l_refusal.size(), 300);

    RawClient l_past(mp_server->Port());
    l_past.Send(RawClient::LoginBody(QByteArray(l_nameAtBound + 1, 'n'), "pw"));
    EXPECT_TRUE(l_past.WaitClosed());
    EXPECT_TRUE(l_past.NothingOf(1, 0));
    EXPECT_FALSE(LogLine(QStringLiteral("frame length 65537 out of bounds")).isEmpty());
}

// A frame begun and not completed in time closes its connection, before login or after, however
// its bytes trickle in; a frame completed in time and an idle connection stay. Half a minute
// unless set otherwise.
TEST_F(RobustnessTest, AFrameLeftUnfinishedClosesItsConnection)
{
    EXPECT_EQ(ServerOptions().m_partialFrameTimeoutMs, 30 * 1000);
    m_options.m_partialFrameTimeoutMs = 300;
    Restart();
    RawClient l_stranger(mp_server->Port());
    l_stranger.SendRaw(RawClient::LoginBody("slow", "pw").Frame().first(3));
    auto lp_trickler = LoggedIn("trickler");
    QByteArray const l_long = Body(999).Str(QByteArray(100, 'x')).Frame();
    qsizetype l_sent = 0;
    for (; l_sent < l_long.size() && lp_trickler->IsOpen(); ++l_sent)
    {
        lp_trickler->SendRaw(l_long.mid(l_sent, 1));
        WaitFor([] { return false; }, 50);
    }
    EXPECT_LT(l_sent, l_long.size());
    EXPECT_TRUE(lp_trickler->WaitClosed());
    EXPECT_TRUE(l_stranger.WaitClosed());
    EXPECT_FALSE(LogLine(QStringLiteral("frame not completed within 300 ms")).isEmpty());

    auto lp_member = LoggedIn("member");
    QByteArray const l_list = Body(64).Frame();
    lp_member->SendRaw(l_list.first(6));
    WaitFor([] { return false; }, 50);
    lp_member->SendRaw(l_list.mid(6));
    EXPECT_TRUE(lp_member->Take(64));
    WaitFor([] { return false; }, 600);
    lp_member->Sync();
    EXPECT_TRUE(lp_member->IsOpen());
}

// A client is closed when its own unsent bytes pass the bound, not when they reach it.
TEST(ClientConnectionTest, AClientIsClosedOnlyPastItsOwnUnsentBound)
{
    CapturedLog l_log;
    QObject l_owner;
    ClientConnection& l_reader = *HeldSocket::Session("reader", 1, &l_owner);
    int l_closed = 0;
    QObject::connect(&l_reader, &ClientConnection::Closed, &l_owner, [&l_closed] { ++l_closed; });
    QByteArray const l_mebibyte(1024 * 1024, 'x');
    for (qint64 l_sent = 0; l_sent < ServerLimits::c_maxPendingOutput; l_sent += l_mebibyte.size())
        l_reader.Send(l_mebibyte);
    EXPECT_FALSE(l_reader.IsClosing());
    l_reader.Send("x");
    EXPECT_TRUE(l_reader.IsClosing());
    EXPECT_EQ(l_closed, 1);
    EXPECT_EQ(l_log.m_lines, QStringList{QStringLiteral("closing connection from : client does not read what it is sent")});
}

// Twenty lines at once, then five a second; a client that keeps pushing is to be closed at its
// twentieth dropped line, unless it paused long enough to refill.
TEST(ChatAllowanceTest, BurstThenSteadyRateThenClose)
{
    using Verdict = ChatAllowance::Verdict;
    ChatAllowance l_allowance;
    for (int l_line = 0; l_line < ChatAllowance::c_burstLines; ++l_line)
        EXPECT_EQ(l_allowance.TakeAt(1000), Verdict::Pass);
    EXPECT_EQ(l_allowance.TakeAt(1000), Verdict::Drop);
    EXPECT_EQ(l_allowance.TakeAt(1199), Verdict::Drop);
    EXPECT_EQ(l_allowance.TakeAt(1200), Verdict::Pass);
    for (int l_drop = 3; l_drop < ChatAllowance::c_dropsBeforeClose; ++l_drop)
        EXPECT_EQ(l_allowance.TakeAt(1200), Verdict::Drop);
    EXPECT_EQ(l_allowance.TakeAt(1200), Verdict::Close);

    for (int l_line = 0; l_line < ChatAllowance::c_burstLines; ++l_line)
        EXPECT_EQ(l_allowance.TakeAt(5200), Verdict::Pass);
    EXPECT_EQ(l_allowance.TakeAt(5200), Verdict::Drop);
}

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
