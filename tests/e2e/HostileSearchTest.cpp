// A parent in the search tree that floods its child with searches.
#include <gtest/gtest.h>

#include <QThread>

#include <vector>

#include "HostileClient.h"
#include "dnet/DNetLimits.h"
#include "support/WaitFor.h"

namespace
{
// A distributed search as a parent passes it on: code 3, then the search request 49.
QByteArray Search(quint32 i_token, QByteArray const& i_text)
{
    return PeerLink::Framed(QByteArray(1, 3) + Body(49).Str("searcher").U32(i_token).Str(i_text).Bytes());
}
} // namespace

TEST(HostilePeers, AParentFloodsItsChildWithSearches)
{
    // Known to the server before the client, the flooder is the parent the server names to it.
    ScriptedPeer l_flooder;
    HostileClient l_client;
    ASSERT_TRUE(l_client.Start([&] {
        ASSERT_TRUE(l_flooder.LogIn(2242, "flooder", "flooder-pw", l_flooder.ListenPort()));
        l_flooder.Central().Send(Body(100).U8(1));
        l_flooder.Central().Sync();
    })) << l_client.Client().Output().toStdString();
    std::unique_ptr<PeerLink> lp_child = l_flooder.Accept(20000);
    ASSERT_TRUE(lp_child);
    EXPECT_EQ(lp_child->TakeFirstFrame(), PeerLink::GreetingFrame("target", "D").mid(4));
    lp_child->SendRaw(Search(0, "first"));
    ASSERT_TRUE(l_client.WaitForLog(0, "Received first search request from parent candidate flooder, adopting as parent."))
        << l_client.Client().Output().right(4000).toStdString();

    // 100,000 searches as fast as they go, in ten bursts: the client takes its bound a second
    // and drops the rest, reading no faster than it handles them.
    l_client.Attack("100,000 searches", 0, "More than 1000 distributed messages came within a second; the rest of that second are dropped", [&] {
        for (int l_burst = 0; l_burst < 10; ++l_burst)
        {
            QByteArray l_bytes;
            for (quint32 l_token = 1; l_token <= 10000; ++l_token)
                l_bytes += Search(l_burst * 10000 + l_token, "flood " + QByteArray::number(l_token));
            lp_child->SendSplit(l_bytes, {}, 200);
        }
        EXPECT_TRUE(lp_child->IsOpen());
    });
    EXPECT_TRUE(l_client.WaitForLog(0, "distributed messages were dropped"));
    EXPECT_TRUE(l_client.Stop()) << l_client.Client().Output().right(4000).toStdString();
}

// A hundred users ask to be children in the search tree: the client takes its bound of
// children and closes the rest.
TEST(HostilePeers, AHundredWouldBeChildren)
{
    HostileClient l_client;
    ASSERT_TRUE(l_client.Start()) << l_client.Client().Output().toStdString();
    std::vector<std::unique_ptr<PeerLink>> l_children;
    l_client.Attack("a hundred tree children", 0, "64 children already; refusing the one from child", [&] {
        for (int l_n = 0; l_n < 100; ++l_n)
            l_children.push_back(l_client.Dial("child" + QByteArray::number(l_n), "D"));
        int l_open = 0;
        EXPECT_TRUE(WaitFor([&] {
            l_open = 0;
            for (std::unique_ptr<PeerLink> const& lp_link : l_children)
                l_open += lp_link->IsOpen() ? 1 : 0;
            return l_open == static_cast<int>(DNetLimits::s_maxChildren);
        }, 20000)) << l_open;
    });
    EXPECT_TRUE(l_client.Stop()) << l_client.Client().Output().right(4000).toStdString();
}
