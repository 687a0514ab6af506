#include "ServerFixture.h"

namespace
{
using RoomTest = ServerFixture;

// Message 14 for a room of one online member, up to the countries.
Body Alone(QByteArray const& i_room, QByteArray const& i_user)
{
    return Body(14).Str(i_room).Strs({i_user}).U32(1).U32(2).U32(1).Stats(0).U32(1).U32(0).Strs({""});
}

// Members are told of each other, with the countries, as given, and file counts set for them, and
// are reached by chat; the room list comes at login, unasked, with the rooms that stand, counts
// members and drops a room that its last member left, whether by leaving or by going offline.
TEST_F(RoomTest, EnterChatListAndLeaveReachEveryMember)
{
    m_options.m_countries = {{"alice", "DE"}, {"bob", "br"}};
    m_options.m_sharedFiles = {{"alice", 1234}, {"bob", 7}};
    Restart();
    auto lp_alice = LoggedIn("alice");
    auto lp_outsider = LoggedIn("carol");
    lp_alice->Send(Body(121).U32(300));
    EXPECT_EQ(lp_alice->Ask(Body(14).Str("lobby")),
        Body(14).Str("lobby").Strs({"alice"}).U32(1).U32(2).U32(1).Stats(300, 1234).U32(1).U32(0).Strs({"DE"}).Bytes());
    auto lp_bob = std::make_unique<RawClient>(mp_server->Port());
    ASSERT_EQ(lp_bob->Login("bob", "pw"), std::optional<bool>(true));
    EXPECT_EQ(lp_bob->TakeBody(64), Body(64).Strs({"lobby"}).U32(1).U32(1).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).Bytes());
    lp_bob->Send(Body(121).U32(1500));
    EXPECT_EQ(lp_bob->Ask(Body(14).Str("lobby")), Body(14).Str("lobby").Strs({"alice", "bob"}).U32(2).U32(2).U32(2).U32(2)
                                                      .Stats(300, 1234).Stats(1500, 7).U32(2).U32(0).U32(0).Strs({"DE", "br"}).Bytes());
    EXPECT_EQ(lp_alice->TakeBody(16), Body(16).Str("lobby").Str("bob").U32(2).Stats(1500, 7).U32(0).Str("br").Bytes());
    EXPECT_TRUE(lp_bob->NothingOf(16, 50));
    EXPECT_EQ(lp_alice->Ask(Body(5).Str("bob")), Body(5).Str("bob").U8(1).U32(2).Stats(1500, 7).Str("br").Bytes());
    EXPECT_EQ(lp_bob->Ask(Body(36).Str("alice")), Body(36).Str("alice").Stats(300, 1234).Bytes());

    lp_bob->Send(Body(13).Str("lobby").Str("hello"));
    for (RawClient* lp_member : {lp_alice.get(), lp_bob.get()})
        EXPECT_EQ(lp_member->TakeBody(13), Body(13).Str("lobby").Str("bob").Str("hello").Bytes());
    lp_outsider->Send(Body(13).Str("lobby").Str("intrusion"));
    EXPECT_TRUE(lp_alice->NothingOf(13));
    EXPECT_TRUE(lp_outsider->NothingOf(13, 50));

    // An owned room carries its owner and its operators in order.
    EXPECT_EQ(lp_outsider->Ask(Body(14).Str("club")), Alone("club", "carol").Str("alice").Strs({"al", "bob", "carl", "dora", "eve", "fay"}).Bytes());
    ASSERT_FALSE(lp_bob->Ask(Body(14).Str("club")).isEmpty());
    EXPECT_EQ(lp_alice->Ask(Body(64)), Body(64).Strs({"club", "lobby"}).U32(2).U32(2).U32(2).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).Bytes());

    EXPECT_EQ(lp_bob->Ask(Body(15).Str("lobby")), Body(15).Str("lobby").Bytes());
    EXPECT_EQ(lp_alice->TakeBody(17), Body(17).Str("lobby").Str("bob").Bytes());
    lp_bob->Send(Body(15).Str("lobby"));
    EXPECT_TRUE(lp_bob->NothingOf(15));
    lp_outsider.reset();
    EXPECT_EQ(lp_bob->TakeBody(17), Body(17).Str("club").Str("carol").Bytes());
    ASSERT_FALSE(lp_bob->Ask(Body(15).Str("club")).isEmpty());
    EXPECT_EQ(lp_alice->Ask(Body(64)), Body(64).Strs({"lobby"}).U32(1).U32(1).U32(0).U32(0).U32(0).U32(0).U32(0).U32(0).Bytes());
}

// Lines beyond a sender's allowance are dropped and logged, and a sender that keeps pushing is
// closed; the members who read the room, and whoever it writes to in private, stay.
TEST_F(RoomTest, AFlooderIsBoundedAndItsReadersStay)
{
    auto lp_alice = LoggedIn("alice"), lp_bob = LoggedIn("bob"), lp_flooder = LoggedIn("flooder");
    for (RawClient* lp_member : {lp_alice.get(), lp_bob.get(), lp_flooder.get()})
        ASSERT_FALSE(lp_member->Ask(Body(14).Str("lobby")).isEmpty());
    int const l_burst = ChatAllowance::c_burstLines;
    // What the reader is sent of the code until nothing more comes: the burst, and perhaps a line
    // or two that refilled while the burst was being read.
    auto const l_burstReaches = [l_burst](RawClient& i_reader, quint32 i_code)
    {
        int l_received = 0;
        while (i_reader.Take(i_code, 300))
            ++l_received;
        return l_received >= l_burst && l_received <= l_burst + 2;
    };
    QByteArray l_lines;
    for (int l_line = 0; l_line < l_burst + ChatAllowance::c_dropsBeforeClose; ++l_line)
        l_lines += Body(13).Str("lobby").Str(QByteArray(1000, 'x')).Frame();
    lp_flooder->SendRaw(l_lines);
    EXPECT_TRUE(lp_flooder->WaitClosed());
    for (RawClient* lp_reader : {lp_alice.get(), lp_bob.get()})
    {
        EXPECT_TRUE(l_burstReaches(*lp_reader, 13));
        lp_reader->Sync();
        EXPECT_TRUE(lp_reader->IsOpen());
    }
    EXPECT_FALSE(LogLine(QStringLiteral("room chat dropped flooder lobby: sender too fast")).isEmpty());
    EXPECT_FALSE(LogLine(QStringLiteral("closing connection from 127.0.0.1: sends chat faster than allowed")).isEmpty());

    auto lp_spammer = LoggedIn("spammer");
    for (int l_message = 0; l_message <= l_burst + 2; ++l_message)
        lp_spammer->Send(Body(22).Str("alice").Str("buy"));
    EXPECT_TRUE(l_burstReaches(*lp_alice, 22));
    EXPECT_FALSE(LogLine(QStringLiteral("private message dropped spammer -> alice: sender too fast")).isEmpty());
    EXPECT_TRUE(lp_spammer->IsOpen());
}

// The most accounts, 100,000 unless set, countries, file counts, upload speeds and the length of a
// list of possible parents, 10 unless set, are read; malformed ones are refused, naming the option.
TEST(ServerOptionsTest, NumbersAndPairsAreReadAndMalformedOnesRefused)
{
    QString l_error;
    auto const l_parse = [&](std::initializer_list<char const*> i_arguments, ServerOptions& o_options)
    {
        QStringList l_arguments{QStringLiteral("tidewick-central")};
        for (char const* lp_argument : i_arguments)
            l_arguments.append(QString::fromLatin1(lp_argument));
        return o_options.Parse(l_arguments, l_error);
    };
    ServerOptions l_options;
    EXPECT_EQ(l_options.m_maxAccounts, 100000u);
    EXPECT_EQ(l_options.m_possibleParents, 10u);
    ASSERT_TRUE(l_parse({"--country", "alice=DE", "--country", "a=b=se", "--shared-files", "alice=12", "--shared-files",
                            "alice=0", "--shared-files", "bob=4294967295", "--max-accounts", "0", "--upload-speed",
                            "alice=300000", "--upload-speed", "bob=0", "--possible-parents", "0"},
        l_options))
        << l_error.toStdString();
    EXPECT_EQ(l_options.m_maxAccounts, 0u);
    EXPECT_EQ(l_options.m_countries, (QMap<QByteArray, QByteArray>{{"alice", "DE"}, {"a=b", "se"}}));
    EXPECT_EQ(l_options.m_sharedFiles, (QMap<QByteArray, quint32>{{"alice", 0}, {"bob", 4294967295u}}));
    EXPECT_EQ(l_options.m_uploadSpeeds, (QMap<QByteArray, quint32>{{"alice", 300000}, {"bob", 0}}));
    EXPECT_EQ(l_options.m_possibleParents, 0u);
    ASSERT_TRUE(l_parse({"--possible-parents", "1000"}, l_options));
    EXPECT_EQ(l_options.m_possibleParents, 1000u);

    for (auto [lp_option, lp_value] : {std::pair{"--country", "alice"}, {"--country", "=DE"}, {"--country", "alice="},
             {"--shared-files", "bob"}, {"--shared-files", "=5"}, {"--shared-files", "bob=-3"},
             {"--shared-files", "bob=many"}, {"--shared-files", "bob=4294967296"}, {"--max-accounts", "many"},
             {"--upload-speed", "bob"}, {"--upload-speed", "bob=fast"}, {"--upload-speed", "bob=4294967296"},
             {"--possible-parents", "1001"}, {"--possible-parents", "-1"}, {"--possible-parents", "ten"}})
    {
        ServerOptions l_refused;
        EXPECT_FALSE(l_parse({lp_option, lp_value}, l_refused)) << lp_option << " " << lp_value;
        EXPECT_TRUE(l_error.startsWith(QString::fromLatin1(lp_option) + QLatin1Char(' '))) << l_error.toStdString();
    }
}
}
