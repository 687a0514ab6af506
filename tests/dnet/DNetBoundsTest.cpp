// What a parent or a stranger may make alice hold or do in the tree: searches a second,
// children, and a burst that must not keep other connections waiting.

#include "DNetFixture.h"

#include <QRegularExpression>

#include <utility>

namespace
{
// The sum of the counts in the lines that report dropped messages.
int DroppedCounted(QByteArrayList const& i_lines)
{
    static QRegularExpression const s_line(QStringLiteral("^1\\|(\\d+) distributed messages were dropped$"));
    int l_sum = 0;
    for (QByteArray const& l_line : i_lines)
        if (QRegularExpressionMatch const l_match = s_line.match(QString::fromUtf8(l_line)); l_match.hasMatch())
            l_sum += l_match.captured(1).toInt();
    return l_sum;
}
} // namespace

// A parent that sends more searches than the bound of a second gets the rest of that second
// dropped, neither reported nor passed on; every message is either taken or counted as
// dropped. A burst is read a part at a time: a child's report sent once the burst is under way
// is read long before the burst's end.
TEST_F(DNetTest, AFloodOfSearchesIsDroppedPastItsBoundAndReadAPartAtATime)
{
    LogIn();
    std::unique_ptr<PeerLink> lp_dan = Child(m_dan, "dan");
    std::unique_ptr<PeerLink> lp_bob = Parent(m_bob, "bob");
    ASSERT_TRUE(lp_dan && lp_bob);
    qsizetype l_seenAt = -1;
    bool l_reported = false;
    QObject l_context;
    QObject::connect(dnetManager, &DNetManager::DNetSearchRequest, &l_context, [&] {
        if (!std::exchange(l_reported, true))
            lp_dan->SendRaw(Framed(Depth(3)));
        if (l_seenAt < 0 && ItemPtr(User("dan")["dnet_child"])["dnet_child_depth"])
            l_seenAt = m_searches.size();
    });
    int const l_sent = 2500;
    QByteArray l_bytes;
    for (int l_token = 2; l_token < 2 + l_sent; ++l_token)
        l_bytes += Framed(Search("sam", static_cast<quint32>(l_token), "flood"));
    lp_bob->SendRaw(l_bytes);
    ASSERT_TRUE(WaitFor([&] { return m_searches.size() - 1 + DroppedCounted(m_lines) == l_sent; }, 10000))
        << m_searches.size() << " " << DroppedCounted(m_lines);
    EXPECT_GE(m_searches.size(), DNetLimits::s_maxSearchesPerSecond);
    EXPECT_LT(m_searches.size(), l_sent);
    EXPECT_TRUE(Logged("1|More than 1000 distributed messages came within a second; the rest of that second are dropped"));
    // The child got the first search and then exactly the searches taken.
    int l_passedOn = 0;
    for (QByteArray l_frame = lp_dan->Next(300); !l_frame.isEmpty(); l_frame = lp_dan->Next(300))
        l_passedOn += l_frame.startsWith('\x03') ? 1 : 0;
    EXPECT_EQ(l_passedOn, m_searches.size());
    EXPECT_GT(l_seenAt, 0);
    EXPECT_LT(l_seenAt, DNetLimits::s_maxSearchesPerSecond / 2);
}

// Past the bound of children a stranger's tree connection is refused, while one that replaces
// a child's connection is still taken.
TEST_F(DNetTest, AStrangerPastTheBoundOfChildrenIsRefused)
{
    LogIn();
    std::vector<std::unique_ptr<PeerLink>> l_children;
    for (std::size_t l_index = 0; l_index < DNetLimits::s_maxChildren; ++l_index)
        l_children.push_back(Child(m_dan, "c" + QByteArray::number(l_index)));
    EXPECT_EQ(Count("dnet_child"), DNetLimits::s_maxChildren);
    std::unique_ptr<PeerLink> lp_late = m_erin.Dial(mp_messenger->ListeningPort());
    ASSERT_TRUE(lp_late);
    lp_late->SendGreeting("late", "D");
    EXPECT_TRUE(lp_late->WaitClosed());
    EXPECT_TRUE(Logged("1|64 children already; refusing the one from late"));
    EXPECT_TRUE(Child(m_erin, "c0"));
    EXPECT_EQ(Count("dnet_child"), DNetLimits::s_maxChildren);
}
