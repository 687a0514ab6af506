// Bounds on what one peer may announce, hold and send at once on messaging connections.

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

#include <utility>

#include "PeerFixture.h"
#include "peer/Compression.h"

// A body is held to the bound of the code it starts with, which is checked once the code is in:
// a small message that claims a large body is refused before its body is buffered, a bulk one
// may announce up to the general bound. Bodies too short to hold a code close the connection,
// however slowly their bytes come.
TEST_F(PeerTest, EachMessageCodeHasItsOwnLengthBound)
{
    struct Case
    {
        quint32 m_code;
        quint32 m_length;
        bool m_stays;
    };
    for (Case const& l_case : {Case{4, 1024, true}, Case{4, 1025, false}, Case{43, 65536, true}, Case{43, 65537, false},
                               Case{999, 65537, false}, Case{16, (4 << 20) + 1, false}, Case{5, 64 << 20, true},
                               Case{37, 64 << 20, true}})
    {
        SCOPED_TRACE(l_case.m_code);
        std::unique_ptr<PeerLink> lp_link = OpenFrom("bob");
        // The code alone: what a body is held to must be known before more of it is taken.
        lp_link->SendRaw(Body(l_case.m_length).U32(l_case.m_code).Bytes());
        if (l_case.m_stays)
        {
            QTest::qWait(100);
            EXPECT_TRUE(lp_link->IsOpen());
            EXPECT_EQ(Count("peer_socket"), 1u);
        }
        else
        {
            EXPECT_TRUE(lp_link->WaitClosed());
            QByteArray const l_line = "1|user bob announced a " + PeerMessenger::MessageCodeToString(l_case.m_code).toUtf8() +
                                      " message of " + QByteArray::number(l_case.m_length) + " bytes, above its bound of " +
                                      QByteArray::number(l_case.m_length - 1) + "; closing";
            EXPECT_TRUE(m_lines.contains(l_line)) << l_line.toStdString();
        }
        lp_link->Close();
        ASSERT_TRUE(WaitFor([] { return Count("peer_socket") == 0; }));
    }
    // At its bound a small message is whole and handled.
    std::unique_ptr<PeerLink> lp_link = OpenFrom("bob");
    lp_link->SendRaw(Body(65536).Raw(Body(43).Str("f").Bytes()).Raw(QByteArray(65536 - 9, 'x')).Bytes());
    Settle(*lp_link);
    EXPECT_TRUE(m_events.contains("43|bob|f"));

    m_lines.clear();
    for (QByteArray const& l_short : {QByteArray(), QByteArray("\x04\x00\x00", 3)})
    {
        std::unique_ptr<PeerLink> lp_short = OpenFrom("carol");
        QByteArray const l_frame = PeerLink::Framed(l_short);
        lp_short->SendSplit(l_frame, EveryByte(l_frame.size()), 20);
        EXPECT_TRUE(lp_short->WaitClosed()) << l_short.size();
    }
    EXPECT_EQ(m_lines.count("1|Could not read message code on connection to user carol, disposing of socket"), 2);
}

// A user's fifth messaging connection closes its idlest one.
TEST_F(PeerTest, OneUserHoldsFewConnections)
{
    std::vector<std::unique_ptr<PeerLink>> l_links;
    for (int l_index = 0; l_index < 4; ++l_index)
    {
        l_links.push_back(OpenFrom("bob"));
        Settle(*l_links.back()); // each later one was active later
    }
    l_links.front()->Send(Body(43).Str("first"));
    ASSERT_TRUE(WaitFor([&] { return m_events.contains("43|bob|first"); }));
    EXPECT_FALSE(m_lines.join().contains("messaging connections; closing"));
    l_links.push_back(DialIn());
    l_links.back()->SendGreeting("bob", "P");
    EXPECT_TRUE(l_links[1]->WaitClosed());
    EXPECT_TRUE(m_lines.contains("1|User bob holds 4 messaging connections; closing the one idle longest"));
    EXPECT_EQ(User("bob").GetItems("peer_socket").size(), 4u);
    for (std::size_t l_index : {0u, 2u, 3u, 4u})
        EXPECT_TRUE(l_links[l_index]->IsOpen()) << l_index;
}

// A burst of requests on one connection is handled a part at a time: a message that another
// connection sends once the burst is under way is handled long before the burst's end.
TEST_F(PeerTest, ABurstOnOneConnectionLetsOthersIn)
{
    std::unique_ptr<PeerLink> lp_ann = OpenFrom("ann");
    std::unique_ptr<PeerLink> lp_ben = OpenFrom("ben");
    QObject l_context;
    bool l_sent = false;
    QObject::connect(mp_messenger.get(), &PeerMessenger::QueueUploadRequested, &l_context,
                     [&](std::string const& i_user, std::string const&) {
                         if (i_user == "ann" && !std::exchange(l_sent, true))
                             lp_ben->Send(Body(43).Str("b"));
                     });
    int const l_burst = 2000;
    lp_ann->SendRaw(Body(43).Str("a").Frame().repeated(l_burst));
    ASSERT_TRUE(WaitFor([&] { return m_events.size() == l_burst + 1; }, 20000)) << m_events.size();
    qsizetype const l_ben = m_events.indexOf("43|ben|b");
    EXPECT_GT(l_ben, 0);
    EXPECT_LT(l_ben, l_burst / 2);
}

// A bomb, 300 MiB of zeros, is inflated away from the event loop: timers keep firing while it
// is, the connection goes once it passes the bound, and the frames behind it are not handled.
TEST_F(PeerTest, ACompressedBodyIsInflatedAwayFromTheEventLoop)
{
    QByteArray const l_bomb = PeerLink::DeflatedZeros(300ull << 20);
    QElapsedTimer l_clock;
    l_clock.start();
    MemStream l_body;
    ASSERT_EQ(Inflate(l_bomb.constData(), static_cast<std::size_t>(l_bomb.size()), l_body), InflateResult::TooLarge);
    qint64 const l_inlineMs = l_clock.elapsed();
    if (l_inlineMs < 40)
        GTEST_SKIP() << "inflating the bomb takes " << l_inlineMs << " ms here, too little to tell a held loop";

    std::unique_ptr<PeerLink> lp_link = OpenFrom("bomber");
    QTimer l_tick;
    qint64 l_last = l_clock.elapsed();
    qint64 l_longestGap = 0;
    QObject::connect(&l_tick, &QTimer::timeout, [&] {
        l_longestGap = std::max(l_longestGap, l_clock.elapsed() - l_last);
        l_last = l_clock.elapsed();
    });
    l_tick.start(5);
    lp_link->Send(Body(5).Raw(l_bomb));
    lp_link->Send(Body(43).Str("behind"));
    ASSERT_TRUE(lp_link->WaitClosed(10000));
    EXPECT_LT(l_longestGap, l_inlineMs / 2);
    EXPECT_TRUE(m_lines.contains("1|PM_SHARED_FILE_LIST message from user bomber inflates to more than 268435456 bytes; closing"));
    EXPECT_FALSE(m_events.contains("43|bomber|behind"));
}
