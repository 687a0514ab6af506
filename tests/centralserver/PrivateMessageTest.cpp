#include "HeldSocket.h"
#include "ServerFixture.h"

#include "PrivateMessageBox.h"
#include "SessionRegistry.h"

#include <QDateTime>

namespace
{
using PrivateMessageTest = ServerFixture;

// A received message 22 with its id and time, which are compared apart, set to zero.
QByteArray Zeroed(QByteArray i_body) { return i_body.size() < 12 ? i_body : i_body.replace(4, 8, QByteArray(8, '\0')); }
quint32 Id(QByteArray const& i_body) { return Fields(i_body.mid(4)).U32(); }
QByteArray Message(QByteArray const& i_text, quint8 i_spontaneous)
{
    return Body(22).U32(0).U32(0).Str("alice").Str(i_text).U8(i_spontaneous).Bytes();
}

// Delivered at once to a user online and at the next login to one offline, again at every login
// until acknowledged; dropped for a name without an account.
TEST_F(PrivateMessageTest, DeliveredNowOrAtLoginUntilAcknowledged)
{
    LoggedIn("carol").reset();
    auto lp_alice = LoggedIn("alice"), lp_bob = LoggedIn("bob");
    lp_alice->Send(Body(22).Str("bob").Str("hi bob"));
    for (char const* l_text : {"first", "second"})
        lp_alice->Send(Body(22).Str("carol").Str(l_text));
    lp_alice->Send(Body(22).Str("ghost").Str("lost"));
    QByteArray const l_live = lp_bob->TakeBody(22);
    EXPECT_EQ(Zeroed(l_live), Message("hi bob", 1));
    EXPECT_LE(qAbs(static_cast<qint64>(Fields(l_live.mid(8)).U32()) - QDateTime::currentSecsSinceEpoch()), 5);
    EXPECT_TRUE(lp_alice->NothingOf(22, 50));

    lp_bob = LoggedIn("bob");
    QByteArray const l_again = lp_bob->TakeBody(22);
    EXPECT_EQ(Zeroed(l_again), Message("hi bob", 0));
    EXPECT_EQ(Id(l_again), Id(l_live));
    lp_bob->Send(Body(23).U32(Id(l_again)));
    lp_bob->Sync();
    EXPECT_TRUE(LoggedIn("bob")->NothingOf(22));

    auto lp_carol = LoggedIn("carol");
    QByteArray const l_first = lp_carol->TakeBody(22), l_second = lp_carol->TakeBody(22);
    EXPECT_EQ(Zeroed(l_first), Message("first", 0));
    EXPECT_EQ(Zeroed(l_second), Message("second", 0));
    EXPECT_NE(Id(l_first), Id(l_second));
    EXPECT_TRUE(LoggedIn("ghost")->NothingOf(22));
}

// At most 1,000 messages and 4 MiB wait for one user; each message beyond is dropped and logged
// with its sender and recipient.
TEST(PrivateMessageBoxTest, WhatWaitsForOneUserIsBoundedAndEachDropIsLogged)
{
    CapturedLog l_log;
    QObject l_owner;
    SessionRegistry l_sessions;
    AccountBook l_accounts({}, 10);
    l_accounts.Login("bob", "pw");
    l_accounts.Login("carol", "pw");
    PrivateMessageBox l_box(l_sessions, l_accounts);
    ClientConnection& l_alice = *HeldSocket::Session("alice", 1, &l_owner);

    for (int l_message = 0; l_message < ServerLimits::c_maxPendingMessagesPerUser; ++l_message)
        l_box.Post(l_alice, "bob", "hi");
    l_log.m_lines.clear();
    l_box.Post(l_alice, "bob", "one more");
    EXPECT_EQ(l_box.PendingCount("bob"), ServerLimits::c_maxPendingMessagesPerUser);
    EXPECT_EQ(l_log.m_lines, QStringList{QStringLiteral("private message dropped alice -> bob: too many kept")});

    QByteArray const l_large(128 * 1024, 'x');
    for (qsizetype l_kept = 0; l_kept < ServerLimits::c_maxKeptMessageBytesPerUser; l_kept += l_large.size())
        l_box.Post(l_alice, "carol", l_large);
    qsizetype const l_full = ServerLimits::c_maxKeptMessageBytesPerUser / l_large.size();
    EXPECT_EQ(l_box.PendingCount("carol"), l_full);
    l_box.Post(l_alice, "carol", "x");
    EXPECT_EQ(l_box.PendingCount("carol"), l_full);
    EXPECT_EQ(l_log.m_lines.last(), QStringLiteral("private message dropped alice -> carol: too many kept"));
}
}
