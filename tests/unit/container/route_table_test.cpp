/* Route tables: creation, clearing, lookups, successors and walks. */
#include <arpa/inet.h>

#include "route_table_fixture.h"

namespace
{

using namespace route_table_test;
using Entries = std::vector<void *>;

class RouteTable : public RouteTableTest
{
};

TEST_F(RouteTable, ExistsOnlyForTheTwoFamilies)
{
    for (unsigned family = 0; family < 256; ++family) {
        MRT_TABLE_S *made = MRT_CreateTable(family, nullptr, nullptr, nullptr);

        EXPECT_EQ(made != nullptr, family == 2 || family == 10) << family;
        MRT_DestroyTable(made);
    }
}

TEST_F(RouteTable, ReadsTheLowByteOfTheFamily)
{
    MRT_TABLE_S *made = MRT_CreateTable(0x10a, "six", nullptr, nullptr);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->tree->maximum_length, 128);
    MRT_DestroyTable(made);
    EXPECT_EQ(MRT_CreateTable(0x200, "none", nullptr, nullptr), nullptr);
}

TEST_F(RouteTable, CarriesItsNameReleasesLevelAndTree)
{
    char name[] = "groups";
    MRT_TABLE_S *made = MRT_CreateTable(2, name, ReleaseGroupData, ReleaseSourceData);

    name[0] = 'X';
    EXPECT_STREQ(made->name, "groups");
    EXPECT_EQ(made->group_data_release, ReleaseGroupData);
    EXPECT_EQ(made->source_data_release, ReleaseSourceData);
    EXPECT_EQ(made->level, 1);
    EXPECT_EQ(made->tree->maximum_length, 32);
    EXPECT_EQ(made->tree->key_pointer_offset, 0);
    EXPECT_EQ(made->tree->length_offset, 8);
    EXPECT_EQ(made->tree->address_offset, 4);
    MRT_DestroyTable(made);

    made = MRT_CreateTable(10, nullptr, nullptr, nullptr);
    EXPECT_EQ(made->name, nullptr);
    MRT_DestroyTable(made);
}

TEST_F(RouteTable, IgnoresNullEverywhere)
{
    MCAST_ADDR_S address = Address("239.1.1.1");
    MRT_DestroyTable(nullptr);
    MRT_ClearTable(nullptr);
    EXPECT_EQ(MRT_CountTable(nullptr), 0u);
    EXPECT_EQ(MRT_LocateMask(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_LocateMask(table, nullptr, 32), nullptr);
    EXPECT_EQ(MRT_Locate(nullptr, &address), nullptr);
    EXPECT_EQ(MRT_Locate(table, nullptr), nullptr);
    EXPECT_EQ(MRT_LocateSourceMask(nullptr, &address, 32, &address, 32), nullptr);
    EXPECT_EQ(MRT_LocateSourceMask(table, nullptr, 32, &address, 32), nullptr);
    EXPECT_EQ(MRT_LocateSource(nullptr, &address, &address), nullptr);
    EXPECT_EQ(MRT_BestMatch(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_BestMatch(table, nullptr, 32), nullptr);
    EXPECT_EQ(MRT_GetNext(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_SearchNextBest(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_GetNextSourceGroup(nullptr, nullptr, 0, nullptr, 0), nullptr);
    EXPECT_EQ(MRT_CreateWalk(nullptr), nullptr);
    EXPECT_EQ(MRT_Walk_Start(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_Walk_Subset(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_Walk_Reverse(nullptr), nullptr);
    EXPECT_EQ(MRT_Walk_ReadMode(nullptr), nullptr);
    EXPECT_EQ(MRT_WalkNext(nullptr), nullptr);
    MRT_DeleteWalk(nullptr);
}

TEST_F(RouteTable, EmptyTableAnswersNothingAndClears)
{
    MCAST_ADDR_S address = Address("239.1.1.1");
    MRT_ClearTable(table);
    EXPECT_EQ(MRT_CountTable(table), 0u);
    EXPECT_EQ(MRT_Locate(table, &address), nullptr);
    EXPECT_EQ(MRT_BestMatch(table, &address, 32), nullptr);
    EXPECT_EQ(MRT_GetNext(table, nullptr, 0), nullptr);
    EXPECT_EQ(MRT_SearchNextBest(table, nullptr, 0), nullptr);
    EXPECT_EQ(MRT_GetNextSourceGroup(table, nullptr, 0, nullptr, 0), nullptr);
    EXPECT_EQ(MRT_CreateWalk(table), nullptr);
    EXPECT_EQ(MRT_Walk_Reverse(table), nullptr);
    EXPECT_EQ(MRT_Walk_ReadMode(table), nullptr);
}

TEST_F(RouteTable, ClearReleasesAllUserDataAndLeavesATableToUse)
{
    Entry("239.1.1.1", "10.0.0.1")->user_data = Data(1);
    Entry("239.1.1.1", "10.0.0.2")->user_data = nullptr;
    MRT_SOURCE_S *third = Entry("239.1.1.2", "10.0.0.1");

    third->user_data = Data(3);
    third->group->user_data = Data(7);
    MRT_ClearTable(table);

    EXPECT_EQ(g_released_sources, (Entries{Data(1), Data(3)}));
    EXPECT_EQ(g_released_groups, (Entries{Data(7)}));
    EXPECT_EQ(MRT_CountTable(table), 0u);
    EXPECT_NE(Entry("239.1.1.1", "10.0.0.1"), nullptr);
    EXPECT_EQ(MRT_CountTable(table), 1u);
}

TEST_F(RouteTable, ClearOfASourceTableKeepsItsGroup)
{
    MRT_GROUP_S *group = Entry("239.1.1.1", "10.0.0.1")->group;
    Entry("239.1.1.1", "10.0.0.2");
    group->user_data = Data(7);
    MRT_ClearTable(group->sources);
    EXPECT_EQ(MRT_CountTable(group->sources), 0u);
    EXPECT_EQ(MRT_CountTable(table), 1u);
    EXPECT_TRUE(g_released_groups.empty());
}

TEST_F(RouteTable, ClearNeedsNoMemory)
{
    for (int i = 1; i < 20; ++i) {
        Entry(("239.1.1." + std::to_string(i)).c_str(), "10.0.0.1")->user_data = Data(1);
    }
    fault::ForEveryAllocation([this](unsigned long) {
        Entry("239.2.2.2", "10.0.0.1");
        MRT_ClearTable(table);
        EXPECT_EQ(MRT_CountTable(table), 0u);
    });
    EXPECT_EQ(g_released_sources.size(), 19u);
}

TEST_F(RouteTable, WalksOpenWhileATableIsClearedEndAndOutliveIt)
{
    Entry("239.1.1.1", "10.0.0.1");
    Entry("239.1.1.2", "10.0.0.1");
    MRT_WALK_S *walk = MRT_CreateWalk(table);

    MRT_ClearTable(table);
    EXPECT_EQ(MRT_WalkNext(walk), nullptr);
    MRT_DestroyTable(table);
    table = nullptr;
    EXPECT_EQ(MRT_WalkNext(walk), nullptr);
    MRT_DeleteWalk(walk);
}

TEST_F(RouteTable, LocateUsesTheFullLengthOfTheFamily)
{
    MRT_GROUP_S *range = Group("239.1.0.0", 16);
    MRT_GROUP_S *host = Group("239.1.0.0", 32);
    MCAST_ADDR_S key = Address("239.1.0.0");
    EXPECT_EQ(MRT_Locate(table, &key), host);
    MRT_DeleteGroup(host);
    EXPECT_EQ(MRT_Locate(table, &key), nullptr);
    EXPECT_EQ(MRT_LocateMask(table, &key, 16), range);
    EXPECT_EQ(MRT_BestMatch(table, &key, 32), range);
    EXPECT_EQ(MRT_BestMatch(table, &key, 15), nullptr);
}

TEST_F(RouteTable, LocateSourceGoesThroughBothLevels)
{
    MRT_SOURCE_S *host = Entry("239.1.1.1", "10.0.0.1");
    MRT_SOURCE_S *masked = Entry("239.1.0.0", 16, "10.0.0.0", 8);
    MCAST_ADDR_S group = Address("239.1.1.1");
    MCAST_ADDR_S range = Address("239.1.0.0");
    MCAST_ADDR_S source = Address("10.0.0.1");
    EXPECT_EQ(MRT_LocateSource(table, &group, &source), host);
    EXPECT_EQ(MRT_LocateSourceMask(table, &group, 32, &source, 32), host);
    EXPECT_EQ(MRT_LocateSourceMask(table, &range, 16, &source, 8), masked);
    EXPECT_EQ(MRT_LocateSourceMask(table, &range, 16, &source, 32), nullptr);
    EXPECT_EQ(MRT_LocateSourceMask(table, &range, 15, &source, 8), nullptr);
    EXPECT_EQ(MRT_LocateSource(table, &range, &source), nullptr);
    EXPECT_EQ(MRT_LocateSource(table, &group, nullptr), nullptr);
}

TEST_F(RouteTable, NextSourceGroupVisitsEverySourceOfEveryGroupInOrder)
{
    Entries expected = {Entry("239.1.1.1", "10.0.0.1"), Entry("239.1.1.1", "10.0.0.2"),
                        Entry("239.1.1.3", "10.0.0.1")};
    Entries visited;
    Group("239.1.1.2");
    const MRT_SOURCE_S *at = MRT_GetNextSourceGroup(table, nullptr, 32, nullptr, 32);

    while (at != nullptr) {
        visited.push_back(const_cast<MRT_SOURCE_S *>(at));
        at = MRT_GetNextSourceGroup(table, at->group->address, 32, at->address, 32);
    }
    EXPECT_EQ(visited, expected);
}

TEST_F(RouteTable, NextSourceGroupSkipsTheSourcesOfAGroupWithAShorterMask)
{
    Entry("239.1.0.0", 16, "10.0.0.1", 32);
    Entry("239.1.0.0", 16, "10.0.0.2", 32);
    MRT_SOURCE_S *following = Entry("239.2.0.0", 16, "10.0.0.1", 32);
    MCAST_ADDR_S group = Address("239.1.0.0");
    MCAST_ADDR_S source = Address("10.0.0.1");

    EXPECT_EQ(MRT_GetNextSourceGroup(table, &group, 16, &source, 32), following);
}

TEST_F(RouteTable, NextSourceGroupOfAnAbsentGroupStartsAtTheFirstSourceOfTheNext)
{
    MRT_SOURCE_S *first = Entry("239.1.1.5", "10.0.0.1");
    MCAST_ADDR_S absent = Address("239.1.1.1");
    MCAST_ADDR_S source = Address("10.0.0.9");
    EXPECT_EQ(MRT_GetNextSourceGroup(table, &absent, 32, &source, 32), first);
}

TEST_F(RouteTable, NextSourceGroupWithoutAGroupStartsAfterTheSourceInTheFirst)
{
    MCAST_ADDR_S source = Address("10.0.0.1");
    Entry("239.1.1.1", "10.0.0.1");
    MRT_SOURCE_S *second = Entry("239.1.1.1", "10.0.0.2");

    EXPECT_EQ(MRT_GetNextSourceGroup(table, nullptr, 32, &source, 32), second);
    EXPECT_EQ(MRT_GetNextSourceGroup(table, nullptr, 32, second->address, 0), nullptr);
}

TEST_F(RouteTable, NextSourceGroupMovesOnByTheCallersGroupLength)
{
    MRT_SOURCE_S *host = Entry("239.1.0.0", "10.0.0.1");
    MRT_SOURCE_S *covered = Entry("239.1.0.1", "10.0.0.1");
    MRT_SOURCE_S *beyond = Entry("239.2.0.0", "10.0.0.1");
    /* At full length the next group is the neighbour. At length 16 the first below 239.1/16 is this group. */
    EXPECT_EQ(MRT_GetNextSourceGroup(table, host->group->address, 32, host->address, 32), covered);
    EXPECT_EQ(MRT_GetNextSourceGroup(table, host->group->address, 16, host->address, 32), host);
    EXPECT_EQ(MRT_GetNextSourceGroup(table, covered->group->address, 0, covered->address, 32), beyond);
}

TEST_F(RouteTable, NextSourceGroupEndsWhereAShortGroupLengthLeadsBackToAnEmptyGroup)
{
    MCAST_ADDR_S key = Address("239.1.0.0");
    Group("239.1.0.0");
    EXPECT_EQ(MRT_GetNextSourceGroup(table, &key, 16, nullptr, 32), nullptr);
    MRT_SOURCE_S *only = Entry("239.1.0.0", "10.0.0.1");
    EXPECT_EQ(MRT_GetNextSourceGroup(table, &key, 16, only->address, 32), only);
}

TEST_F(RouteTable, WalkStartRunsOnWhereWalkSubsetStops)
{
    MRT_GROUP_S *range = Group("239.1.0.0", 16);
    MRT_GROUP_S *inside = Group("239.1.1.1");
    MRT_GROUP_S *outside = Group("239.2.1.1");
    MCAST_ADDR_S key = Address("239.1.0.0");
    EXPECT_EQ(Drain(MRT_Walk_Start(table, &key, 16)), (Entries{range, inside, outside}));
    EXPECT_EQ(Drain(MRT_Walk_Subset(table, &key, 16)), (Entries{range, inside}));
    EXPECT_EQ(Drain(MRT_CreateWalk(table)), (Entries{range, inside, outside}));
    EXPECT_EQ(Drain(MRT_Walk_Reverse(table)), (Entries{outside, range, inside}));
    EXPECT_EQ(Drain(MRT_Walk_ReadMode(table)), (Entries{range, inside, outside}));
}

TEST_F(RouteTable, OnlyTheReadModeWalkIsNotRegistered)
{
    Group("239.1.1.1");
    MRT_WALK_S *read = MRT_Walk_ReadMode(table);

    EXPECT_EQ(table->tree->walks.next, &table->tree->walks);
    MRT_WALK_S *reverse = MRT_Walk_Reverse(table);
    EXPECT_EQ(table->tree->walks.next, &reverse->links);
    MRT_DeleteWalk(read);
    MRT_DeleteWalk(reverse);
}

TEST_F(RouteTable, NextFollowsOrderAndSearchNextBestComparesUnmasked)
{
    MRT_GROUP_S *range = Group("239.1.0.0", 16);
    MRT_GROUP_S *host = Group("239.1.0.0", 32);
    MCAST_ADDR_S key = Address("239.1.0.0");
    EXPECT_EQ(MRT_GetNext(table, nullptr, 0), range);
    EXPECT_EQ(MRT_GetNext(table, &key, 16), host);
    EXPECT_EQ(MRT_SearchNextBest(table, nullptr, 0), range);
    EXPECT_EQ(MRT_SearchNextBest(table, &key, 24), host);
    EXPECT_EQ(MRT_SearchNextBest(table, &key, 32), nullptr);
}

} // namespace
