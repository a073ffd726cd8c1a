#include "unit/mrib/msdp_fixture.h"

namespace mrib_test
{
namespace
{

TEST_F(Msdp, SsmRangeWithoutAnAclIs232)
{
    Connect();
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, Be(232, 1, 1, 1)), 1u);
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, Be(233, 0, 0, 1)), 0u);
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(99, Be(232, 1, 1, 1)), 1u) << "no such instance, no ACL";
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(99, Be(233, 0, 0, 1)), 0u) << "no such instance, no ACL";
}

TEST_F(Msdp, SsmRangeWithAnAclIsWhatItPermits)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(1, 2000)), 0u);
    Permit([](uint32_t list, uint32_t first, uint32_t) { return list == 2000 && first >> 8 == 0xef0101; });
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, kGroup1), 1u);
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, Be(232, 1, 1, 1)), 0u);
}

TEST_F(Msdp, ReadingComesInOrderOfRpGroupAndSource)
{
    MRIB_MSDP_CURSOR_S cursor = {};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything();

    Connect();
    ASSERT_EQ(Add(kRp2, kGroup1, Be(1, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup2, Be(2, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, 2)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(9, 0, 0, 3)), 0u);

    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.rp_be, kRp1);
    ASSERT_EQ(batch.count, 3u);
    EXPECT_EQ(batch.pairs[0].source_be, Be(9, 0, 0, 3));
    EXPECT_EQ(batch.pairs[1].source_be, Be(10, 0, 0, 2));
    EXPECT_EQ(batch.pairs[2].group_be, kGroup2);
    EXPECT_EQ(cursor.rp_be, kRp2);
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.rp_be, kRp2);
    EXPECT_EQ(batch.count, 1u);
    EXPECT_EQ(cursor.rp_be, 0u) << "the walk is over";
}

TEST_F(Msdp, FullBatchGoesOnWithoutLossOrRepetition)
{
    Connect();
    for (uint32_t i = 0; i < 30; ++i) {
        ASSERT_EQ(Add(i % 2 == 0 ? kRp1 : kRp2, Be(239, 0, 0, i % 5), Be(10, 0, i, 1)), 0u);
    }
    for (uint32_t limit : {1u, 2u, 3u, 7u, 15u, 16u, 255u, 1000u}) {
        std::vector<uint64_t> batches;
        std::vector<Pair> pairs = ReadAll(Everything(limit), &batches);

        EXPECT_EQ(pairs.size(), 30u) << limit;
        EXPECT_EQ(std::set<Pair>(pairs.begin(), pairs.end()).size(), 30u) << limit;
        for (uint64_t count : batches) {
            EXPECT_LE(count, limit);
        }
    }
}

TEST_F(Msdp, LimitAboveTheBatchIsTheBatch)
{
    Connect();
    for (uint32_t i = 0; i < 300; ++i) {
        ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, i / 256, i % 256)), 0u);
    }
    std::vector<uint64_t> batches;

    EXPECT_EQ(ReadAll(Everything(0xffffffff), &batches).size(), 300u);
    EXPECT_EQ(batches, (std::vector<uint64_t>{255, 45}));
}

TEST_F(Msdp, ResumedWalkVisitsAgainThePairAtWhichItStopped)
{
    MRIB_MSDP_CURSOR_S cursor = {};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything(2);
    Connect();
    for (uint32_t source = 1; source <= 3; ++source) {
        ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, source)), 0u);
    }
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0x60010022u);
    EXPECT_EQ(batch.count, 2u);
    EXPECT_EQ(cursor.rp_be, kRp1);
    EXPECT_EQ(cursor.group_be, kGroup1);
    EXPECT_EQ(cursor.source_be, Be(10, 0, 0, 3));
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    ASSERT_EQ(batch.count, 1u);
    EXPECT_EQ(batch.pairs[0].source_be, Be(10, 0, 0, 3));
}

TEST_F(Msdp, FullBatchStopsAlsoAtAGroupThatWouldBeLeftOut)
{
    MRIB_MSDP_CURSOR_S cursor = {};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything(1);
    Connect();
    ASSERT_EQ(Add(kRp1, Be(231, 1, 1, 1), 1), 0u);
    ASSERT_EQ(Add(kRp1, Be(232, 1, 1, 1), 1), 0u);
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0x60010022u);
    EXPECT_EQ(cursor.group_be, Be(232, 1, 1, 1));
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.count, 0u);
}

TEST_F(Msdp, GroupFilterReadsThatGroupAloneAlsoInPieces)
{
    Connect();
    for (uint32_t rp : {kRp1, kRp2}) {
        for (uint32_t i = 0; i < 5; ++i) {
            ASSERT_EQ(Add(rp, kGroup1, Be(10, 0, i, rp >> 24)), 0u);
            ASSERT_EQ(Add(rp, kGroup2, Be(10, 0, i, rp >> 24)), 0u);
        }
    }
    for (uint32_t limit : {1u, 2u, 5u, 255u}) {
        for (uint32_t group : {kGroup1, kGroup2}) {
            MRIB_MSDP_FILTER_S filter = Everything(limit);

            filter.group_be = group;
            std::vector<Pair> pairs = ReadAll(filter);

            EXPECT_EQ(pairs.size(), 10u) << limit;
            for (const Pair &pair : pairs) {
                EXPECT_EQ(pair.first, group);
            }
        }
    }
}

TEST_F(Msdp, SsmGroupsAndWhatTheAclDeniesAreLeftOut)
{
    Connect();
    ASSERT_EQ(Add(kRp1, Be(232, 1, 1, 1), Be(10, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, 2)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup2, Be(10, 0, 0, 2)), 0u);
    EXPECT_EQ(ReadAll(Everything()).size(), 3u);
    Permit([](uint32_t list, uint32_t source, uint32_t group) {
        return list == 3001 && source == 0x0a000002 && group == 0xef010101;
    });
    MRIB_MSDP_FILTER_S filter = Everything();

    filter.acl_number = 3001;
    EXPECT_EQ(ReadAll(filter), (std::vector<Pair>{{kGroup1, Be(10, 0, 0, 2)}}));
}

TEST_F(Msdp, CursorWhoseRpIsGoneGoesOnWithTheNextRpFromItsStart)
{
    MRIB_MSDP_CURSOR_S cursor = {kRp1, kGroup2, Be(99, 0, 0, 0)};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything();
    Connect();
    ASSERT_EQ(Add(kRp2, kGroup1, 1), 0u);
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.rp_be, kRp2);
    EXPECT_EQ(batch.count, 1u);
    cursor = {Be(10, 0, 0, 9), kGroup2, 1};
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.count, 0u);
    EXPECT_EQ(cursor.rp_be, 0u);
    EXPECT_EQ(cursor.group_be, 0u);
}

TEST_F(Msdp, EmptyTableAndUnknownInstanceEndTheWalkAtOnce)
{
    MRIB_MSDP_FILTER_S filter = Everything();

    filter.group_be = kGroup1;
    Connect();
    for (uint32_t vrf_index : {1u, 2u, 77u}) {
        MRIB_MSDP_CURSOR_S cursor = {kRp1, 1, 1};
        MRIB_MSDP_BATCH_S batch;

        batch.count = 9;
        EXPECT_EQ(MRIB_MSDP_GetLocalSrc(vrf_index, &filter, &cursor, &batch), 0u);
        EXPECT_EQ(batch.count, 0u);
        EXPECT_EQ(cursor.rp_be, 0u);
        EXPECT_EQ(cursor.group_be, kGroup1);
        EXPECT_EQ(cursor.source_be, 0u);
    }
}

} // namespace
} // namespace mrib_test
