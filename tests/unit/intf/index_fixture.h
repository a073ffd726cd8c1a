/* The registry of interface indexes, opened for a test, and a look into its pools. */
#ifndef TESTS_UNIT_INTF_INDEX_FIXTURE_H
#define TESTS_UNIT_INTF_INDEX_FIXTURE_H

#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "intf/index_pool.h"
#include "intf/registry.h"
#include "mcast/interface_registry.h"
#include "support/fault.h"
#include "support/scripted_platform.h"

namespace index_test
{

using mcast::FreeRange;
using mcast::g_registry;
using mcast::IndexPool;

constexpr uint32_t kBase = 0xD0000000;
constexpr uint32_t kAtHand = 16384;
constexpr uint32_t kSimpleAtHand = 128;

using Ranges = std::vector<std::pair<uint32_t, uint32_t>>;

/* The free ranges as the list has them, once the tree has been seen to hold the same. */
inline Ranges RangesOf(const IndexPool &pool)
{
    Ranges ranges;
    const FreeRange *last = nullptr;
    void *in_tree = AVL_GetLeftMost(pool.ranges);
    for (const FreeRange *range = pool.head; range != nullptr; range = range->next) {
        EXPECT_EQ(in_tree, range);
        in_tree = in_tree == nullptr ? nullptr : AVL_GetNext(pool.ranges, in_tree);
        ranges.emplace_back(range->lo, range->hi);
        last = range;
    }
    EXPECT_EQ(in_tree, nullptr);
    EXPECT_EQ(pool.tail, last);
    EXPECT_EQ(AVL_Count(pool.ranges), ranges.size());
    return ranges;
}

class Index : public testing::Test
{
protected:
    long blocks = fault::LiveBlocks();
    long trees = platform::LiveTrees();

    void SetUp() override
    {
        ASSERT_EQ(MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV4), MCAST_OK);
        g_registry.interfaces.range_failures = 0; /* counts for as long as the process lives */
    }

    void TearDown() override
    {
        platform::Reset();
        EXPECT_EQ(MCAST_IF_Fini(), MCAST_OK);
        EXPECT_EQ(fault::LiveBlocks(), blocks);
        EXPECT_EQ(platform::LiveTrees(), trees);
    }

    /* Takes indexes until the cache is empty, so that the next fetch shows the ranges. */
    void DrainCache()
    {
        while (g_registry.interfaces.cursor < g_registry.interfaces.capacity) {
            MCAST_CreateIf();
        }
    }
};

/* After a fetch the cache is full: what comes back now goes to the ranges. */
class FullCache : public Index
{
protected:
    void SetUp() override
    {
        Index::SetUp();
        ASSERT_EQ(MCAST_IF_ReserveFinish(), MCAST_OK);
        ASSERT_EQ(g_registry.interfaces.cursor, 0u);
    }

    IndexPool &pool = g_registry.interfaces;
    const uint32_t first = kBase + kAtHand; /* of the free range behind the cache */
    const uint32_t last = kBase + 0x1FFFFFF;
};

} // namespace index_test

#endif
