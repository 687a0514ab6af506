#include "ServerFixture.h"

#include <QDateTime>

namespace
{
using PrivateMessageTest = ServerFixture;

// Message 22 with its id and time, which are compared apart, set to zero in the body.
struct Received
{
    quint32 m_id = 0;
    quint32 m_time = 0;
    QByteArray m_body;
};

Received TakeMessage(RawClient& io_client)
{
    QByteArray l_body = io_client.TakeBody(22);
    Fields l_fields(l_body.mid(4));
    Received l_received{l_fields.U32(), l_fields.U32(), l_body};
    if (l_body.size() >= 12)
        l_received.m_body.replace(4, 8, QByteArray(8, '\0'));
    return l_received;
}

QByteArray Message(QByteArray const& i_sender, QByteArray const& i_text, quint8 i_spontaneous)
{
    return Body(22).U32(0).U32(0).Str(i_sender).Str(i_text).U8(i_spontaneous).Bytes();
}

TEST_F(PrivateMessageTest, DeliveredAtOnceAndAgainUntilAcknowledged)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    lp_alice->Send(Body(22).Str("bob").Str("hi bob"));
    Received const l_live = TakeMessage(*lp_bob);
    EXPECT_EQ(l_live.m_body, Message("alice", "hi bob", 1));
    EXPECT_LE(qAbs(static_cast<qint64>(l_live.m_time) - QDateTime::currentSecsSinceEpoch()), 5);
    EXPECT_TRUE(lp_alice->NothingOf(22, 50));

    // Lost with the connection before the acknowledgement: comes again at the next login.
    lp_bob = LoggedIn("bob");
    Received const l_again = TakeMessage(*lp_bob);
    EXPECT_EQ(l_again.m_body, Message("alice", "hi bob", 0));
    EXPECT_EQ(l_again.m_id, l_live.m_id);

    lp_bob->Send(Body(23).U32(l_again.m_id));
    lp_bob->Sync();
    lp_bob = LoggedIn("bob");
    EXPECT_TRUE(lp_bob->NothingOf(22));
}

TEST_F(PrivateMessageTest, KeptForAnOfflineUserAndDroppedForAnUnknownOne)
{
    LoggedIn("bob").reset();
    auto lp_alice = LoggedIn("alice");
    lp_alice->Send(Body(22).Str("bob").Str("first"));
    lp_alice->Send(Body(22).Str("bob").Str("second"));
    lp_alice->Send(Body(22).Str("ghost").Str("lost"));
    lp_alice->Sync();

    auto lp_bob = LoggedIn("bob");
    Received const l_first = TakeMessage(*lp_bob);
    Received const l_second = TakeMessage(*lp_bob);
    EXPECT_EQ(l_first.m_body, Message("alice", "first", 0));
    EXPECT_EQ(l_second.m_body, Message("alice", "second", 0));
    EXPECT_NE(l_first.m_id, l_second.m_id);
    EXPECT_TRUE(LoggedIn("ghost")->NothingOf(22));
}
}
