#include "ServerFixture.h"

#include <QDateTime>

namespace
{
using PrivateMessageTest = ServerFixture;

struct Received
{
    quint32 m_id = 0;
    quint32 m_time = 0;
    QByteArray m_sender;
    QByteArray m_text;
    quint8 m_spontaneous = 0;
};

std::optional<Received> TakeMessage(RawClient& io_client, int i_timeoutMs = 3000)
{
    std::optional<Fields> l_fields = io_client.Take(22, i_timeoutMs);
    if (!l_fields)
        return std::nullopt;
    Received l_message{l_fields->U32(), l_fields->U32(), l_fields->Str(), l_fields->Str(),
        l_fields->U8()};
    EXPECT_TRUE(l_fields->AtEnd() && !l_fields->Failed());
    return l_message;
}

TEST_F(PrivateMessageTest, DeliveredAtOnceAndAgainUntilAcknowledged)
{
    auto lp_alice = LoggedIn("alice");
    auto lp_bob = LoggedIn("bob");
    lp_alice->Send(Body(22).Str("bob").Str("hi bob"));

    std::optional<Received> l_live = TakeMessage(*lp_bob);
    ASSERT_TRUE(l_live);
    EXPECT_EQ(l_live->m_sender, "alice");
    EXPECT_EQ(l_live->m_text, "hi bob");
    EXPECT_EQ(l_live->m_spontaneous, 1);
    EXPECT_LE(qAbs(static_cast<qint64>(l_live->m_time) - QDateTime::currentSecsSinceEpoch()), 5);
    EXPECT_TRUE(lp_alice->NothingOf(22, 50));

    // Lost with the connection before the acknowledgement: comes again at the next login.
    lp_bob = LoggedIn("bob");
    std::optional<Received> l_again = TakeMessage(*lp_bob);
    ASSERT_TRUE(l_again);
    EXPECT_EQ(l_again->m_id, l_live->m_id);
    EXPECT_EQ(l_again->m_spontaneous, 0);

    lp_bob->Send(Body(23).U32(l_again->m_id));
    lp_bob->Send(Body(64));
    ASSERT_TRUE(lp_bob->Take(64));
    lp_bob = LoggedIn("bob");
    EXPECT_FALSE(TakeMessage(*lp_bob, 300));
}

TEST_F(PrivateMessageTest, KeptForAnOfflineUserAndDroppedForAnUnknownOne)
{
    LoggedIn("bob").reset();
    auto lp_alice = LoggedIn("alice");
    lp_alice->Send(Body(22).Str("bob").Str("first"));
    lp_alice->Send(Body(22).Str("bob").Str("second"));
    lp_alice->Send(Body(22).Str("ghost").Str("lost"));
    lp_alice->Send(Body(64));
    ASSERT_TRUE(lp_alice->Take(64));

    auto lp_bob = LoggedIn("bob");
    std::optional<Received> l_first = TakeMessage(*lp_bob);
    std::optional<Received> l_second = TakeMessage(*lp_bob);
    ASSERT_TRUE(l_first && l_second);
    EXPECT_EQ(l_first->m_text, "first");
    EXPECT_EQ(l_second->m_text, "second");
    EXPECT_NE(l_first->m_id, l_second->m_id);
    EXPECT_EQ(l_first->m_spontaneous, 0);

    auto lp_ghost = LoggedIn("ghost");
    EXPECT_FALSE(TakeMessage(*lp_ghost, 300));
}
}
