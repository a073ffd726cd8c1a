#include <set>

#include "unit/intf/index_fixture.h"

namespace index_test
{
namespace
{

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

} // namespace
} // namespace index_test
