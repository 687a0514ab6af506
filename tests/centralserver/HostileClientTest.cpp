#include "HeldSocket.h"
#include "ServerFixture.h"

#include "AccountBook.h"
#include "SessionRegistry.h"
#include "UserDirectory.h"

#include <QRandomGenerator>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
using HostileClientTest = ServerFixture;

// Waits only a little, so that a close on the length alone is told from one by the time for a
// frame, which is half a minute.
constexpr int c_promptMs = 1000;

QByteArray Length(quint32 i_length)
{
    return Body(i_length).Bytes();
}

// Announced lengths that no frame may have close the connection before any body comes, before
// login and after.
TEST_F(HostileClientTest, LengthsNoFrameMayHaveCloseOnTheLengthAlone)
{
    auto lp_bystander = LoggedIn("bystander");
    int l_session = 0;
    for (quint32 const l_length : {0u, 3u, 0x80000000u, 0xffffffffu})
    {
        RawClient l_stranger(mp_server->Port());
        l_stranger.SendRaw(Length(l_length));
        EXPECT_TRUE(l_stranger.WaitClosed(c_promptMs)) << l_length;
        auto lp_member = LoggedIn("member" + QByteArray::number(++l_session));
        lp_member->SendRaw(Length(l_length) + "x");
        EXPECT_TRUE(lp_member->WaitClosed(c_promptMs)) << l_length;
    }
    EXPECT_FALSE(LogLine(QStringLiteral("frame length 4294967295 out of bounds")).isEmpty());
    EXPECT_FALSE(lp_bystander->Ask(Body(64)).isEmpty());
}

// Each code has a bound of its own: a frame at it is served, one byte more closes the connection
// as soon as the code is in, without waiting for the body.
TEST_F(HostileClientTest, EachCodeClosesFramesPastItsOwnBound)
{
    auto lp_bob = LoggedIn("bob");
    auto lp_alice = LoggedIn("alice");
    QByteArray const l_portAtBound = Body(2).U32(2234).Raw(QByteArray(ServerLimits::c_maxNumbersFrameLength - 8, '\0')).Frame();
    lp_alice->SendRaw(l_portAtBound);
    QByteArray const l_unknownAtBound = Body(999).Raw(QByteArray(ServerLimits::c_maxFrameLength - 4, 'u')).Frame();
    lp_alice->SendRaw(l_unknownAtBound);
    // The longest text any reader takes goes through.
    QByteArray const l_text(static_cast<qsizetype>(ServerLimits::c_maxStringLength), 't');
    lp_alice->Send(Body(22).Str("bob").Str(l_text));
    auto l_message = lp_bob->Take(22);
    ASSERT_TRUE(l_message);
    l_message->U32();
    l_message->U32();
    EXPECT_EQ(l_message->Str(), "alice");
    EXPECT_EQ(l_message->Str(), l_text);
    lp_alice->Sync();
    EXPECT_TRUE(lp_alice->IsOpen());

    for (auto const& [l_code, l_bound] : {std::pair{2u, ServerLimits::c_maxNumbersFrameLength},
             {14u, ServerLimits::c_maxNamesFrameLength}, {22u, ServerLimits::c_maxTextFrameLength}})
    {
        auto lp_client = LoggedIn("past" + QByteArray::number(l_code));
        lp_client->SendRaw(Length(l_bound + 1) + Body(l_code).Bytes());
        EXPECT_TRUE(lp_client->WaitClosed(c_promptMs)) << l_code;
        EXPECT_FALSE(LogLine(QStringLiteral("frame length %1 out of bounds for message %2").arg(l_bound + 1).arg(l_code)).isEmpty());
    }
}

// The largest honest message of every code the server serves, names and texts at their longest,
// stays within its code's bound and is served.
TEST_F(HostileClientTest, TheLargestHonestMessageOfEveryCodeIsServed)
{
    QByteArray const l_name(ServerLimits::c_maxNameLength, 'n');
    QByteArray const l_text(static_cast<qsizetype>(ServerLimits::c_maxStringLength), 't');
    auto lp_client = LoggedIn("honest");
    QList<Body> const l_largest = {Body(2).U32(2234).U32(1).U32(2235), Body(3).Str(l_name), Body(5).Str(l_name),
        Body(6).Str(l_name), Body(7).Str(l_name), Body(36).Str(l_name), Body(14).Str(l_name).U32(1), Body(13).Str(l_name).Str(l_text),
        Body(15).Str(l_name), Body(18).U32(1).Str(l_name).Str("F"), Body(22).Str(l_name).Str(l_text), Body(23).U32(1),
        Body(26).U32(1).Str(l_text), Body(103).U32(1).Str(l_text), Body(71).U8(1), Body(100).U8(1), Body(129).U8(1),
        Body(121).U32(1000), Body(126).U32(1), Body(127).Str(l_name), Body(1001).U32(1).Str(l_name)};
    for (Body const& l_body : l_largest)
    {
        quint32 const l_code = Fields(l_body.Bytes()).U32();
        EXPECT_LE(static_cast<quint32>(l_body.Bytes().size()), ServerLimits::MaxFrameLength(l_code)) << l_code;
        lp_client->Send(l_body);
        lp_client->Sync();
        ASSERT_TRUE(lp_client->IsOpen()) << l_code;
    }
    EXPECT_TRUE(m_log.m_lines.filter(QStringLiteral("out of bounds")).isEmpty());
}

// A count of a million with nothing behind it: a code the server reads closes the connection as
// malformed; one it does not serve is never read, and the connection goes on.
TEST_F(HostileClientTest, CountsOfAMillionWithNothingBehindThem)
{
    constexpr quint32 c_million = 1000000;
    // Each served code that carries a string, with the numbers before it.
    for (auto const& [l_code, l_leading] : {std::pair{3u, 0}, {5u, 0}, {13u, 0}, {14u, 0}, {18u, 1}, {22u, 0}, {26u, 1},
             {36u, 0}, {103u, 1}, {127u, 0}, {1001u, 1}})
    {
        auto lp_client = LoggedIn("counted" + QByteArray::number(l_code));
        Body l_body(l_code);
        for (int l_number = 0; l_number < l_leading; ++l_number)
            l_body.U32(1);
        lp_client->Send(l_body.U32(c_million));
        EXPECT_TRUE(lp_client->WaitClosed(c_promptMs)) << l_code;
    }
    RawClient l_stranger(mp_server->Port());
    l_stranger.Send(Body(1).U32(c_million));
    EXPECT_TRUE(l_stranger.WaitClosed(c_promptMs));

    auto lp_other = LoggedIn("other");
    for (quint32 const l_code : {4u, 35u, 51u, 149u, 160u})
        lp_other->Send(Body(l_code).U32(c_million).U32(c_million));
    EXPECT_FALSE(lp_other->Ask(Body(64)).isEmpty());
}

// Random bytes after login close the connection or are read as codes nobody serves; frames of
// codes nobody serves are ignored. Neither touches anybody else.
TEST_F(HostileClientTest, GarbageAndUnknownCodesStayWithTheirOwnConnection)
{
    auto lp_bystander = LoggedIn("bystander");
    QRandomGenerator l_random(2024);
    for (int l_client = 0; l_client < 20; ++l_client)
    {
        auto lp_client = LoggedIn("noise" + QByteArray::number(l_client));
        QByteArray l_garbage(4096, '\0');
        l_random.fillRange(reinterpret_cast<quint32*>(l_garbage.data()), l_garbage.size() / 4);
        lp_client->SendRaw(l_garbage);
    }
    auto lp_unknown = LoggedIn("unknown");
    for (quint32 const l_code : {0u, 4u, 999u, 5000u, 0x7fffffffu, 0xffffffffu})
        lp_unknown->Send(Body(l_code).Str(QByteArray(l_random.bounded(2000), 'u')));
    EXPECT_FALSE(lp_unknown->Ask(Body(64)).isEmpty());
    EXPECT_FALSE(lp_bystander->Ask(Body(64)).isEmpty());
}

// A thousand connections that never log in: the oldest beyond 512 make way for newer ones, and
// an honest client logs in while they stand. Logged-in sessions do not count.
TEST_F(HostileClientTest, StrangersThatNeverLogInMakeWayForNewerOnes)
{
    auto lp_member = LoggedIn("member");
    std::vector<std::unique_ptr<RawClient>> l_idle;
    for (int l_index = 0; l_index < 1000; ++l_index)
        l_idle.push_back(std::make_unique<RawClient>(mp_server->Port()));
    qsizetype const l_evicted = 1000 - ServerLimits::c_maxConnectionsBeforeLogin;
    EXPECT_TRUE(l_idle[l_evicted - 1]->WaitClosed());
    EXPECT_TRUE(l_idle.front()->WaitClosed());
    EXPECT_TRUE(l_idle[l_evicted]->IsOpen());
    EXPECT_TRUE(l_idle.back()->IsOpen());
    auto lp_honest = LoggedIn("honest");
    EXPECT_EQ(m_log.m_lines.filter(QStringLiteral("no login while newer connections wait")).size(), l_evicted + 1);
    EXPECT_FALSE(lp_member->Ask(Body(64)).isEmpty());

    // A thousand more opened and closed at once.
    l_idle.clear();
    for (int l_index = 0; l_index < 1000; ++l_index)
        RawClient(mp_server->Port()).Close();
    EXPECT_FALSE(LoggedIn("late")->Ask(Body(64)).isEmpty());
}

// Many clients each leaving most of a large frame unfinished: the bytes of all frames under
// assembly stay within their bound, the client that would pass it goes, and every byte is
// accounted for once its connection has gone.
TEST_F(HostileClientTest, FramesUnderAssemblyAreBoundedForAllClientsTogether)
{
    auto lp_bystander = LoggedIn("bystander");
    constexpr quint32 c_length = ServerLimits::c_maxFrameLength;
    QByteArray const l_begun = Length(c_length) + Body(999).Bytes() + QByteArray(c_length - 4 - 100, 'a');
    int const l_clients = static_cast<int>(ServerLimits::c_maxAssemblingBytes / l_begun.size()) + 2;
    std::vector<std::unique_ptr<RawClient>> l_big;
    qint64 l_most = 0;
    auto const l_sample = [&l_most] {
        l_most = qMax(l_most, ClientConnection::AssemblingBytes());
        return false;
    };
    for (int l_index = 0; l_index < l_clients; ++l_index)
    {
        l_big.push_back(LoggedIn("big" + QByteArray::number(l_index)));
        l_big.back()->SendRaw(l_begun);
        WaitFor(l_sample, 10);
    }
    EXPECT_FALSE(LogLine(QStringLiteral("frames under assembly of all clients would pass 67108864 bytes")).isEmpty());
    WaitFor(l_sample, 200);
    EXPECT_LE(l_most, ServerLimits::c_maxAssemblingBytes);
    EXPECT_GT(l_most, ServerLimits::c_maxAssemblingBytes / 2);
    EXPECT_FALSE(lp_bystander->Ask(Body(64)).isEmpty());
    l_big.clear();
    EXPECT_TRUE(WaitFor([] { return ClientConnection::AssemblingBytes() == 0; }));
}

// Past the bound of all unsent output, a client holding more than a little is closed at its next
// message, and one that keeps up stays; every byte is accounted for once the clients have gone.
TEST(ClientConnectionTest, UnsentOutputOfAllClientsIsBounded)
{
    CapturedLog l_log;
    qint64 const l_before = ClientConnection::PendingOutputBytes();
    {
        QObject l_owner;
        QByteArray const l_mebibyte(1024 * 1024, 'x');
        qint64 const l_full = ServerLimits::c_maxPendingOutput;
        for (int l_reader = 0; l_reader < ServerLimits::c_maxPendingOutputTotal / l_full; ++l_reader)
        {
            ClientConnection& l_session = *HeldSocket::Session("full" + QByteArray::number(l_reader), l_reader, &l_owner);
            for (qint64 l_sent = 0; l_sent < l_full; l_sent += l_mebibyte.size())
                l_session.Send(l_mebibyte);
            EXPECT_FALSE(l_session.IsClosing());
        }
        EXPECT_EQ(ClientConnection::PendingOutputBytes() - l_before, ServerLimits::c_maxPendingOutputTotal);
        ClientConnection& l_light = *HeldSocket::Session("light", 100, &l_owner);
        l_light.Send(QByteArray(ServerLimits::c_pendingOutputUnderPressure, 'l'));
        EXPECT_FALSE(l_light.IsClosing());
        ClientConnection& l_heavy = *HeldSocket::Session("heavy", 101, &l_owner);
        l_heavy.Send(QByteArray(ServerLimits::c_pendingOutputUnderPressure + 1, 'h'));
        EXPECT_TRUE(l_heavy.IsClosing());
        EXPECT_EQ(l_log.m_lines.filter(QStringLiteral("reads too slowly")).size(), 1);
    }
    EXPECT_EQ(ClientConnection::PendingOutputBytes(), l_before);
}

// Out of descriptors, the listener stops accepting; once descriptors are free again it accepts
// the connections that waited.
TEST_F(HostileClientTest, TheListenerAcceptsAgainOnceDescriptorsAreFree)
{
    rlimit l_limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &l_limit), 0);
    RawClient l_waiting(mp_server->Port());
    // Every descriptor left taken, with a few more allowed than are open now.
    int const l_lowestFree = fcntl(0, F_DUPFD, 0);
    ASSERT_GE(l_lowestFree, 0);
    close(l_lowestFree);
    rlimit l_low = l_limit;
    l_low.rlim_cur = static_cast<rlim_t>(l_lowestFree + 8);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &l_low), 0);
    std::vector<int> l_taken;
    for (int l_fd; (l_fd = fcntl(0, F_DUPFD, 0)) >= 0;)
        l_taken.push_back(l_fd);
    EXPECT_FALSE(LogLine(QStringLiteral("cannot accept connections")).isEmpty());
    for (int const l_fd : l_taken)
        close(l_fd);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &l_limit), 0);
    EXPECT_EQ(l_waiting.Login("patient", "pw"), std::optional<bool>(true));
}

// A name too long for any account is answered, and not kept to be told about later.
TEST(UserDirectoryTest, NamesTooLongForAnyAccountAreNotKeptForTracking)
{
    CapturedLog l_log;
    QObject l_owner;
    SessionRegistry l_sessions;
    AccountBook l_accounts({}, 10);
    ServerOptions l_options;
    UserDirectory l_users(l_sessions, l_accounts, l_options);
    ClientConnection& l_watcher = *HeldSocket::Session("watcher", 1, &l_owner);
    QByteArray const l_longest(ServerLimits::c_maxNameLength, 'n');
    l_users.Track(l_watcher, l_longest);
    l_users.Track(l_watcher, l_longest + 'n');
    EXPECT_EQ(l_watcher.Tracked(), QSet<QByteArray>{l_longest});
    EXPECT_EQ(HeldSocket::Of(l_watcher).Bodies(5).size(), 2);
}
} // namespace
