#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "intf/index_pool.h"
#include "intf/registry.h"
#include "mcast/interface_registry.h"
#include "support/fault.h"
#include "support/scripted_platform.h"

namespace
{

using mcast::FreeRange;
using mcast::g_registry;
using mcast::IndexPool;

constexpr uint32_t kBase = 0xD0000000;
constexpr uint32_t kAtHand = 16384;
constexpr uint32_t kSimpleAtHand = 128;

using Ranges = std::vector<std::pair<uint32_t, uint32_t>>;

/* The free ranges as the list has them, once the tree has been seen to hold the same. */
Ranges RangesOf(const IndexPool &pool)
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

TEST_F(Index, FirstOnesAreTheBaseOfTheTypeAndOfTheSimpleRange)
{
    EXPECT_EQ(MCAST_CreateIf(), 0xD0000000u);
    EXPECT_EQ(MCAST_CreateIf(), 0xD0000001u);
    EXPECT_EQ(MCAST_CreateSimplyIf(), 0xFE000000u);
    EXPECT_EQ(MCAST_CreateSimplyIf(), 0xFE000001u);
}

TEST_F(Index, EveryTypeHasABaseOfItsOwn)
{
    struct {
        uint32_t type;
        uint32_t base;
    } rows[] = {{6, 0xCC000000}, {7, 0xCE000000}, {8, 0xD0000000}, {9, 0xD2000000}};

    for (const auto &row : rows) {
        ASSERT_EQ(MCAST_IF_Init(row.type), MCAST_OK);
        EXPECT_EQ(MCAST_CreateIf(), row.base);
        EXPECT_EQ(g_registry.interfaces.hi, row.base + 0x1FFFFFF);
        EXPECT_EQ(MCAST_CreateSimplyIf(), 0xFE000000u);
        EXPECT_EQ(g_registry.simple_interfaces.hi, 0xFFFFFFFEu);
    }
}

TEST_F(Index, UnknownTypeIsRefusedAndChangesNothing)
{
    for (uint32_t type : {0u, 5u, 10u, 40u, 0xffffffffu}) {
        EXPECT_EQ(MCAST_IF_Init(type), MCAST_ERR_GENERAL) << type;
    }
    EXPECT_EQ(MCAST_CreateIf(), kBase);
}

TEST_F(Index, LastOneGivenBackIsTheNextHandedOut)
{
    uint32_t one = static_cast<uint32_t>(MCAST_CreateIf());
    uint32_t two = static_cast<uint32_t>(MCAST_CreateIf());
    uint32_t three = static_cast<uint32_t>(MCAST_CreateIf());

    MCAST_DestroyIf(one);
    MCAST_DestroyIf(three);
    EXPECT_EQ(MCAST_CreateIf(), three);
    EXPECT_EQ(MCAST_CreateIf(), one);
    EXPECT_EQ(MCAST_CreateIf(), three + 1);
    MCAST_DestroyIf(two);
    EXPECT_EQ(MCAST_CreateIf(), two);
}

TEST_F(Index, CacheIsFilledAgainWithTheNextLowest)
{
    for (uint32_t i = 0; i < 3 * kAtHand + 5; ++i) {
        ASSERT_EQ(MCAST_CreateIf(), kBase + i);
    }
    EXPECT_EQ(RangesOf(g_registry.interfaces), (Ranges{{kBase + 4 * kAtHand, kBase + 0x1FFFFFF}}));
    for (uint32_t i = 0; i < 3 * kSimpleAtHand + 5; ++i) {
        ASSERT_EQ(MCAST_CreateSimplyIf(), 0xFE000000u + i);
    }
    EXPECT_EQ(RangesOf(g_registry.simple_interfaces),
              (Ranges{{0xFE000000u + 4 * kSimpleAtHand, 0xFFFFFFFE}}));
}

TEST_F(Index, WholePoolIsHandedOutOnceAndThenZero)
{
    for (uint32_t i = 0; i <= MCAST_IF_NUMBER_MASK; ++i) {
        ASSERT_EQ(MCAST_CreateIf(), kBase + i);
    }
    EXPECT_EQ(MCAST_CreateIf(), 0u);
    EXPECT_EQ(MCAST_CreateIf(), 0u);
    EXPECT_EQ(RangesOf(g_registry.interfaces), Ranges{});
    MCAST_DestroyIf(kBase + 77);
    EXPECT_EQ(MCAST_CreateIf(), kBase + 77);
    EXPECT_EQ(MCAST_CreateIf(), 0u);
}

TEST_F(Index, SimplePoolEndsBelowTheHighestNumber)
{
    uint64_t index = 0;
    uint64_t count = 0;

    for (uint64_t next = MCAST_CreateSimplyIf(); next != 0; next = MCAST_CreateSimplyIf()) {
        index = next;
        ++count;
    }
    EXPECT_EQ(index, 0xFFFFFFFEu);
    EXPECT_EQ(count, 0x1FFFFFFu);
    MCAST_DestroyIf(0xFFFFFFFF);
    EXPECT_EQ(MCAST_CreateSimplyIf(), 0u);
}

TEST_F(Index, OneThatNoPoolServesIsIgnored)
{
    for (uint32_t index : {0u, 1u, 0xBFFFFFFFu, 0xCFFFFFFFu, 0xD2000000u, 0xFDFFFFFFu, 0xFFFFFFFFu}) {
        MCAST_DestroyIf(index);
        EXPECT_EQ(MCAST_ReserveIf(index), MCAST_ERR_GENERAL);
    }
    EXPECT_EQ(MCAST_CreateIf(), kBase);
    EXPECT_EQ(MCAST_CreateSimplyIf(), 0xFE000000u);
}

TEST_F(Index, PoolsTakeBackTheirOwn)
{
    uint32_t simple = static_cast<uint32_t>(MCAST_CreateSimplyIf());
    uint32_t index = static_cast<uint32_t>(MCAST_CreateIf());

    MCAST_DestroyIf(simple);
    MCAST_DestroyIf(index);
    EXPECT_EQ(MCAST_CreateIf(), index);
    EXPECT_EQ(MCAST_CreateSimplyIf(), simple);
}

TEST_F(FullCache, IndexAloneBecomesARangeInOrder)
{
    ASSERT_EQ(RangesOf(pool), (Ranges{{first, last}}));
    MCAST_DestroyIf(kBase + 100);
    MCAST_DestroyIf(kBase + 300);
    MCAST_DestroyIf(kBase + 200);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 100, kBase + 100},
                                      {kBase + 200, kBase + 200},
                                      {kBase + 300, kBase + 300},
                                      {first, last}}));
}

TEST_F(FullCache, IndexJoinsTheRangeBelowOrAbove)
{
    MCAST_DestroyIf(kBase + 100);
    MCAST_DestroyIf(kBase + 101);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 100, kBase + 101}, {first, last}}));
    MCAST_DestroyIf(kBase + 99);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 99, kBase + 101}, {first, last}}));
    MCAST_DestroyIf(first - 1);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 99, kBase + 101}, {first - 1, last}}));
}

TEST_F(FullCache, IndexThatFillsAGapJoinsBothRanges)
{
    MCAST_DestroyIf(kBase + 100);
    MCAST_DestroyIf(kBase + 102);
    MCAST_DestroyIf(kBase + 101);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 100, kBase + 102}, {first, last}}));
    MCAST_DestroyIf(first - 2);
    MCAST_DestroyIf(first - 1);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 100, kBase + 102}, {first - 2, last}}));
    EXPECT_EQ(pool.range_failures, 0u);
}

TEST_F(FullCache, TailFollowsTheLastRange)
{
    ASSERT_EQ(MCAST_IF_Degrade(), MCAST_OK);
    for (uint32_t i = 0; i < 4; ++i) {
        ASSERT_EQ(MCAST_ReserveIf(last - i), MCAST_OK);
    }
    ASSERT_EQ(MCAST_IF_ReserveFinish(), MCAST_OK);
    MCAST_DestroyIf(last);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first, last - 4}, {last, last}}));
    MCAST_DestroyIf(last - 2);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first, last - 4}, {last - 2, last - 2}, {last, last}}));
    MCAST_DestroyIf(last - 1);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first, last - 4}, {last - 2, last}}));
    MCAST_DestroyIf(last - 3);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first, last}}));
}

TEST_F(FullCache, IndexForWhichThereIsNoMemoryStaysInUse)
{
    long live = fault::LiveBlocks();

    fault::FailAllocation(1);
    MCAST_DestroyIf(kBase + 100);
    fault::FailAllocation(0);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first, last}}));
    EXPECT_EQ(pool.range_failures, 1u);
    platform::Fail(platform::Operation::kTreeInsert, 1);
    MCAST_DestroyIf(kBase + 100);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first, last}}));
    EXPECT_EQ(pool.range_failures, 2u);
    EXPECT_EQ(fault::LiveBlocks(), live);
    pool.range_failures = 0;
}

TEST_F(FullCache, RangesGoToTheCacheEachBelowTheOneBefore)
{
    DrainCache();
    /* Fill the cache again with what is given back, so that ranges of 3 and 2 stand below the large one. */
    for (uint32_t i = 0; i < kAtHand; ++i) {
        MCAST_DestroyIf(kBase + 1000 + i % 2);
    }
    ASSERT_EQ(pool.cursor, 0u);
    for (uint32_t index : {10u, 11u, 12u, 20u, 21u}) {
        MCAST_DestroyIf(kBase + index);
    }
    DrainCache();
    EXPECT_EQ(MCAST_CreateIf(), first); /* the large range's, lowest slots */
    for (uint32_t i = 1; i < kAtHand - 5; ++i) {
        ASSERT_EQ(MCAST_CreateIf(), first + i);
    }
    EXPECT_EQ(MCAST_CreateIf(), kBase + 20);
    EXPECT_EQ(MCAST_CreateIf(), kBase + 21);
    EXPECT_EQ(MCAST_CreateIf(), kBase + 10);
    EXPECT_EQ(MCAST_CreateIf(), kBase + 11);
    EXPECT_EQ(MCAST_CreateIf(), kBase + 12);
    EXPECT_EQ(RangesOf(pool), (Ranges{{first + kAtHand - 5, last}}));
}

TEST_F(FullCache, RangeExactlyAsLongAsTheCacheIsTakenWhole)
{
    ASSERT_EQ(MCAST_IF_Degrade(), MCAST_OK);
    ASSERT_EQ(MCAST_ReserveIf(kBase + kAtHand), MCAST_OK);
    ASSERT_EQ(MCAST_IF_ReserveFinish(), MCAST_OK);
    EXPECT_EQ(pool.cursor, 0u);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + kAtHand + 1, last}}));
    EXPECT_EQ(MCAST_CreateIf(), kBase);
}

TEST_F(FullCache, FinishLeavesIndexesAtHandAlone)
{
    ASSERT_EQ(MCAST_CreateIf(), kBase);
    ASSERT_EQ(MCAST_CreateIf(), kBase + 1);
    ASSERT_EQ(MCAST_IF_ReserveFinish(), MCAST_OK);
    EXPECT_EQ(MCAST_CreateIf(), first);
    EXPECT_EQ(MCAST_CreateIf(), first + 1);
    EXPECT_EQ(MCAST_CreateIf(), kBase + 2);
}

TEST_F(FullCache, GivingBackAFreeIndexMakesItFreeTwice)
{
    MCAST_DestroyIf(first + 5);
    EXPECT_EQ(AVL_Count(pool.ranges), 2u);
    DrainCache();
    std::multiset<uint64_t> seen;

    for (uint32_t i = 0; i < kAtHand; ++i) {
        seen.insert(MCAST_CreateIf());
    }
    EXPECT_LE(seen.count(first + 5), 2u);
    EXPECT_GE(seen.count(first + 5), 1u);
}

TEST_F(Index, ReserveTakesOneIndexOutOfTheFreeRange)
{
    IndexPool &pool = g_registry.interfaces;
    const uint32_t last = kBase + 0x1FFFFFF;

    EXPECT_EQ(MCAST_ReserveIf(kBase + 5), MCAST_OK); /* splits */
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase, kBase + 4}, {kBase + 6, last}}));
    EXPECT_EQ(MCAST_ReserveIf(kBase + 5), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_ReserveIf(kBase), MCAST_OK);     /* shrinks from below */
    EXPECT_EQ(MCAST_ReserveIf(kBase + 4), MCAST_OK); /* shrinks from above */
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 1, kBase + 3}, {kBase + 6, last}}));
    EXPECT_EQ(MCAST_ReserveIf(kBase + 2), MCAST_OK);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 1, kBase + 1}, {kBase + 3, kBase + 3}, {kBase + 6, last}}));
    EXPECT_EQ(MCAST_ReserveIf(kBase + 3), MCAST_OK); /* removes, in the middle and in front */
    EXPECT_EQ(MCAST_ReserveIf(kBase + 1), MCAST_OK);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 6, last}}));
    EXPECT_EQ(MCAST_ReserveIf(last - 1), MCAST_OK);
    EXPECT_EQ(MCAST_ReserveIf(last), MCAST_OK); /* removes the tail */
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase + 6, last - 2}}));
    EXPECT_EQ(MCAST_ReserveIf(0xFFFFFFFE), MCAST_OK);
    EXPECT_EQ(RangesOf(g_registry.simple_interfaces), (Ranges{{0xFE000000, 0xFFFFFFFD}}));
}

TEST_F(Index, ReserveRefusesWhatIsAtHand)
{
    ASSERT_EQ(MCAST_CreateIf(), kBase);
    EXPECT_EQ(MCAST_ReserveIf(kBase), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_ReserveIf(kBase + 1), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_ReserveIf(kBase + kAtHand), MCAST_OK);
}

TEST_F(Index, ReserveThatFindsNoMemoryChangesNothing)
{
    IndexPool &pool = g_registry.interfaces;

    fault::FailAllocation(1);
    EXPECT_EQ(MCAST_ReserveIf(kBase + 5), MCAST_ERR_GENERAL);
    fault::FailAllocation(0);
    platform::Fail(platform::Operation::kTreeInsert, 1);
    EXPECT_EQ(MCAST_ReserveIf(kBase + 5), MCAST_ERR_GENERAL);
    EXPECT_EQ(RangesOf(pool), (Ranges{{kBase, kBase + 0x1FFFFFF}}));
    EXPECT_EQ(MCAST_ReserveIf(kBase + 5), MCAST_OK);
    EXPECT_EQ(pool.range_failures, 2u);
    pool.range_failures = 0;
}

TEST_F(Index, SwitchOverKeepsTheReservedAndForgetsTheRest)
{
    for (int i = 0; i < 100; ++i) {
        MCAST_CreateIf();
        MCAST_CreateSimplyIf();
    }
    ASSERT_EQ(MCAST_IF_Degrade(), MCAST_OK);
    EXPECT_EQ(MCAST_ReserveIf(kBase), MCAST_OK);
    EXPECT_EQ(MCAST_ReserveIf(kBase + 2), MCAST_OK);
    EXPECT_EQ(MCAST_ReserveIf(0xFE000000), MCAST_OK);
    EXPECT_EQ(MCAST_IF_ReserveFinish(), MCAST_OK);
    EXPECT_EQ(g_registry.interfaces.cursor, 0u);
    EXPECT_EQ(g_registry.simple_interfaces.cursor, 0u);
    EXPECT_EQ(MCAST_CreateSimplyIf(), 0xFE000001u);

    std::set<uint64_t> seen;

    for (uint32_t i = 0; i < kAtHand; ++i) {
        seen.insert(MCAST_CreateIf());
    }
    EXPECT_EQ(seen.size(), kAtHand);
    EXPECT_EQ(seen.count(kBase), 0u);
    EXPECT_EQ(seen.count(kBase + 1), 1u);
    EXPECT_EQ(seen.count(kBase + 2), 0u);
    EXPECT_EQ(*seen.rbegin(), kBase + kAtHand + 1);
}

TEST_F(Index, DegradeWithoutMemoryFailsAndASecondOneRecovers)
{
    for (unsigned long nth : {1ul, 2ul}) {
        fault::FailAllocation(nth);
        EXPECT_EQ(MCAST_IF_Degrade(), MCAST_ERR_GENERAL);
        fault::FailAllocation(0);
        EXPECT_EQ(nth == 1 ? MCAST_CreateIf() : MCAST_CreateSimplyIf(), 0u);
    }
    EXPECT_EQ(MCAST_IF_Degrade(), MCAST_OK);
    EXPECT_EQ(MCAST_CreateIf(), kBase);
    g_registry.interfaces.range_failures = 0;
    g_registry.simple_interfaces.range_failures = 0;
}

TEST(ClosedRegistry, RefusesOrIgnoresEverything)
{
    uint32_t count = 7;

    MCAST_IF_Fini();
    for (int round = 0; round < 2; ++round) {
        for (uint32_t index : {0u, 1u, 0xC0000000u, kBase, 0xFE000000u, 0xFFFFFFFFu}) {
            MCAST_DestroyIf(index);
            EXPECT_EQ(MCAST_ReserveIf(index), MCAST_ERR_GENERAL);
        }
        EXPECT_EQ(MCAST_CreateIf(), 0u);
        EXPECT_EQ(MCAST_CreateSimplyIf(), 0u);
        EXPECT_EQ(MCAST_IF_Degrade(), MCAST_ERR_GENERAL);
        EXPECT_EQ(MCAST_IF_ReserveFinish(), MCAST_OK);
        EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 2, &count), MCAST_ERR_GENERAL);
        EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 2, &count), MCAST_ERR_GENERAL);
        EXPECT_EQ(count, 7u);
        /* As it is left by a registry that was open. */
        ASSERT_EQ(MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV6), MCAST_OK);
        MCAST_CreateIf();
        EXPECT_EQ(MCAST_IF_Fini(), MCAST_OK);
        EXPECT_EQ(MCAST_IF_Fini(), MCAST_OK);
    }
}

TEST(ClosedRegistry, OpensOrLeavesNothingBehindWhateverFails)
{
    long blocks = fault::LiveBlocks();
    long trees = platform::LiveTrees();
    auto attempt = [&] {
        if (MCAST_IF_Init(MCAST_IF_TYPE_NBMA_FIRST) == MCAST_OK) {
            EXPECT_EQ(MCAST_CreateIf(), 0xCC000000u);
            MCAST_IF_Fini();
        } else {
            EXPECT_EQ(MCAST_CreateIf(), 0u);
        }
        EXPECT_EQ(fault::LiveBlocks(), blocks);
        EXPECT_EQ(platform::LiveTrees(), trees);
    };

    EXPECT_EQ(fault::ForEveryAllocation([&](unsigned long) { attempt(); }), 4u);
    for (auto operation : {platform::Operation::kTreeInit, platform::Operation::kTreeInsert}) {
        for (unsigned long nth = 1; nth <= 3; ++nth) {
            platform::Fail(operation, nth);
            attempt();
            platform::Reset();
        }
    }
}

TEST(ClosedRegistry, OpeningTwiceStartsAfresh)
{
    long blocks = fault::LiveBlocks();

    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(MCAST_IF_Init(MCAST_IF_TYPE_NBMA_SECOND), MCAST_OK);
        EXPECT_EQ(MCAST_CreateIf(), 0xCE000000u);
    }
    MCAST_IF_Fini();
    EXPECT_EQ(fault::LiveBlocks(), blocks);
}

} // namespace
