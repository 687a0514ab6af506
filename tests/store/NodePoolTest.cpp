#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "store/NodePool.h"

TEST(NodePool, HandsOutDistinctAlignedNodesAndReusesFreedOnes)
{
    using Pool = NodePool<40, 8>;
    std::vector<void*> l_nodes;
    for (int l_n = 0; l_n < 10000; ++l_n) // more than one block
        l_nodes.push_back(Pool::Allocate());
    std::set<void*> const l_distinct(l_nodes.begin(), l_nodes.end());
    EXPECT_EQ(l_distinct.size(), l_nodes.size());
    for (void* lp_node : l_nodes)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(lp_node) % 8, 0u);

    // Nodes do not overlap: write a pattern into each and read it back.
    for (std::size_t l_n = 0; l_n < l_nodes.size(); ++l_n)
        std::fill_n(static_cast<unsigned char*>(l_nodes[l_n]), 40, static_cast<unsigned char>(l_n));
    for (std::size_t l_n = 0; l_n < l_nodes.size(); ++l_n)
        EXPECT_EQ(static_cast<unsigned char*>(l_nodes[l_n])[39], static_cast<unsigned char>(l_n));

    Pool::Free(l_nodes[5]);
    Pool::Free(l_nodes[7]);
    EXPECT_EQ(Pool::Allocate(), l_nodes[7]);
    EXPECT_EQ(Pool::Allocate(), l_nodes[5]);
    for (void* lp_node : l_nodes)
        Pool::Free(lp_node);
}
