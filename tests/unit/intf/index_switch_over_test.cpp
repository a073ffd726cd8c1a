#include "unit/intf/index_fixture.h"

namespace index_test
{
namespace
{

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
} // namespace index_test
