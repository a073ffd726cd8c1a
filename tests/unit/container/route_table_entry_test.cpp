/* Entries of the route table: made once, undone when they cannot be made, released when they go. */
#include "route_table_fixture.h"
#include "support/expected_leak.h"

namespace
{

using namespace route_table_test;
using Entries = std::vector<void *>;

class RouteTableEntry : public RouteTableTest
{
};

TEST_F(RouteTableEntry, GroupCarriesItsAddressMaskOwnerAndSources)
{
    MCAST_ADDR_S address = Address("239.1.2.3");
    MRT_GROUP_S *group = MRT_CreateGroupMask(table, &address, 0x118);
    ASSERT_NE(group, nullptr);
    EXPECT_NE(group->address, &address);
    EXPECT_EQ(memcmp(group->address, &address, sizeof address), 0);
    EXPECT_EQ(group->mask_length, 24);
    EXPECT_EQ(group->owner, table);
    EXPECT_EQ(group->user_data, nullptr);
    EXPECT_STREQ(group->sources->name, "Sources for Group: 239.1.2.3");
    EXPECT_EQ(group->sources->level, 0);
    EXPECT_EQ(group->sources->group_data_release, nullptr);
    EXPECT_EQ(group->sources->source_data_release, ReleaseSourceData);
    EXPECT_EQ(group->sources->tree->maximum_length, 32);
}

TEST_F(RouteTableEntry, SourceTableIsNamedAfterTheLongestAddress)
{
    MRT_TABLE_S *six = NewTable(10);
    MCAST_ADDR_S address = Address("ff3e:1111:2222:3333:4444:5555:6666:7777");
    MRT_GROUP_S *group = MRT_CreateGroupMask(six, &address, 128);
    EXPECT_STREQ(group->sources->name, "Sources for Group: ff3e:1111:2222:3333:4444:5555:6666:7777");
    EXPECT_EQ(group->sources->tree->maximum_length, 128);
    MRT_DestroyTable(six);
}

TEST_F(RouteTableEntry, SourceCarriesItsAddressMaskAndGroup)
{
    MCAST_ADDR_S address = Address("10.1.1.1");
    MRT_GROUP_S *group = Group("239.1.1.1");
    MRT_SOURCE_S *source = MRT_CreateSourceMask(group, &address, 24);
    ASSERT_NE(source, nullptr);
    EXPECT_NE(source->address, &address);
    EXPECT_EQ(memcmp(source->address, &address, sizeof address), 0);
    EXPECT_EQ(source->mask_length, 24);
    EXPECT_EQ(source->group, group);
    EXPECT_EQ(source->user_data, nullptr);
    EXPECT_EQ(MRT_CountTable(group->sources), 1u);
}

TEST_F(RouteTableEntry, IsMadeOnceForItsPrefix)
{
    MRT_GROUP_S *group = Group("239.1.1.1");
    MRT_SOURCE_S *source = Entry("239.1.1.1", "10.0.0.1");
    EXPECT_EQ(Group("239.1.1.1"), group);
    EXPECT_EQ(source->group, group);
    EXPECT_EQ(Entry("239.1.1.1", "10.0.0.1"), source);
    EXPECT_NE(Group("239.1.1.1", 31), group);
    EXPECT_NE(Entry("239.1.1.1", 32, "10.0.0.1", 31), source);
    EXPECT_EQ(MRT_CountTable(table), 2u);
    EXPECT_EQ(MRT_CountTable(group->sources), 2u);
}

TEST_F(RouteTableEntry, IsNotMadeFromNullOrAnotherFamily)
{
    MCAST_ADDR_S address = Address("239.1.1.1");
    MCAST_ADDR_S odd = address;
    MRT_GROUP_S *group = Group("239.1.1.1");
    EXPECT_EQ(MRT_CreateGroupMask(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_CreateGroupMask(table, nullptr, 32), nullptr);
    for (unsigned family : {0u, 1u, 3u, 11u, 0x102u, 0x10au}) {
        odd.family = static_cast<uint16_t>(family);
        EXPECT_EQ(MRT_CreateGroupMask(table, &odd, 30), nullptr);
    }
    EXPECT_EQ(MRT_CreateSourceMask(nullptr, &address, 32), nullptr);
    EXPECT_EQ(MRT_CreateSourceMask(group, nullptr, 32), nullptr);
    EXPECT_EQ(MRT_CreateEntryMask(nullptr, &address, 32, &address, 32), nullptr);
    EXPECT_EQ(MRT_CreateEntryMask(table, nullptr, 32, &address, 32), nullptr);
    EXPECT_EQ(MRT_CreateEntryMask(table, &address, 32, nullptr, 32), nullptr);
    EXPECT_EQ(MRT_CountTable(table), 1u);
}

TEST_F(RouteTableEntry, IsNotMadeFromTheOtherFamilysAddress)
{
    MRT_TABLE_S *table6 = NewTable(MCAST_FAMILY_IPV6);
    MCAST_ADDR_S group4 = Address("239.1.1.1");
    MCAST_ADDR_S source4 = Address("10.0.0.1");
    MCAST_ADDR_S group6 = Address("ff0e::1");
    MCAST_ADDR_S source6 = Address("2001:db8::1");

    struct Row {
        MRT_TABLE_S *table;
        const MCAST_ADDR_S *group, *source, *other_group, *other_source;
    };

    for (const Row &row : {Row{table, &group4, &source4, &group6, &source6},
                           Row{table6, &group6, &source6, &group4, &source4}}) {
        EXPECT_EQ(MRT_CreateGroupMask(row.table, row.other_group, 32), nullptr);
        EXPECT_EQ(MRT_CreateEntryMask(row.table, row.other_group, 32, row.source, 32), nullptr);
        EXPECT_EQ(MRT_CreateEntryMask(row.table, row.group, 32, row.other_source, 32), nullptr);
        EXPECT_EQ(MRT_CountTable(row.table), 0u);
        MRT_GROUP_S *group = MRT_CreateGroupMask(row.table, row.group, 32);
        ASSERT_NE(group, nullptr);
        EXPECT_EQ(MRT_CreateSourceMask(group, row.other_source, 32), nullptr);
        EXPECT_EQ(MRT_CountTable(group->sources), 0u);
    }
    MRT_DestroyTable(table6);
}

TEST_F(RouteTableEntry, TableNeedsAllItsMemory)
{
    unsigned long needed = fault::ForEveryAllocation([](unsigned long) {
        MRT_TABLE_S *made = NewTable();

        EXPECT_EQ(made == nullptr, fault::Fired());
        MRT_DestroyTable(made);
    });

    EXPECT_EQ(needed, 3u);
}

TEST_F(RouteTableEntry, GroupThatCannotBeMadeLeavesNothing)
{
    Group("239.1.1.0", 24);
    long before = fault::LiveBlocks();
    unsigned long needed = fault::ForEveryAllocation([this, before](unsigned long) {
        MRT_GROUP_S *group = Group("239.1.1.1");

        EXPECT_EQ(group == nullptr, fault::Fired());
        MRT_DeleteGroup(group);
        EXPECT_EQ(MRT_CountTable(table), 1u);
        EXPECT_EQ(fault::LiveBlocks(), before);
    });

    EXPECT_EQ(needed, 6u);
}

TEST_F(RouteTableEntry, SourceThatCannotBeMadeLeavesNothing)
{
    MRT_GROUP_S *group = Entry("239.1.1.1", 32, "10.0.0.0", 24)->group;
    MCAST_ADDR_S address = Address("10.0.0.1");
    long before = fault::LiveBlocks();
    unsigned long needed = fault::ForEveryAllocation([=](unsigned long) {
        MRT_SOURCE_S *source = MRT_CreateSourceMask(group, &address, 32);

        EXPECT_EQ(source == nullptr, fault::Fired());
        MRT_DeleteSource(source);
        EXPECT_EQ(MRT_CountTable(group->sources), 1u);
        EXPECT_EQ(fault::LiveBlocks(), before);
    });

    EXPECT_EQ(needed, 3u);
}

TEST_F(RouteTableEntry, NewGroupOfASourceThatCannotBeMadeGoesAgain)
{
    Group("239.1.1.0", 24);
    long before = fault::LiveBlocks();
    unsigned long needed = fault::ForEveryAllocation([this, before](unsigned long) {
        MRT_SOURCE_S *source = Entry("239.1.1.1", "10.0.0.1");

        EXPECT_EQ(source == nullptr, fault::Fired());
        MRT_DeleteSourceGroup(source);
        EXPECT_EQ(MRT_CountTable(table), 1u);
        EXPECT_EQ(fault::LiveBlocks(), before);
    });

    EXPECT_EQ(needed, 9u);
}

TEST_F(RouteTableEntry, ExistingGroupOfASourceThatCannotBeMadeStaysAsItWas)
{
    MRT_GROUP_S *group = Entry("239.1.1.1", 32, "10.0.0.0", 24)->group;

    group->user_data = Data(7);
    fault::ForEveryAllocation([this, group](unsigned long) {
        MRT_SOURCE_S *source = Entry("239.1.1.1", "10.0.0.1");

        EXPECT_EQ(source == nullptr, fault::Fired());
        MRT_DeleteSource(source);
        EXPECT_EQ(MRT_CountTable(table), 1u);
        EXPECT_EQ(MRT_CountTable(group->sources), 1u);
        EXPECT_EQ(group->user_data, Data(7));
    });
    EXPECT_TRUE(g_released_groups.empty());
}

/* The tree's count stays raised by the insertion that lost its glue node; the entry itself is freed. */
TEST_F(RouteTableEntry, SourceRefusedAtItsGlueIsFreed)
{
    MRT_GROUP_S *group = Entry("239.1.1.1", "10.0.0.0")->group;
    MCAST_ADDR_S address = Address("10.0.0.1");
    long before = fault::LiveBlocks();
    fault::FailAllocation(4);
    {
        ExpectedLeak lost_node;
        EXPECT_EQ(MRT_CreateSourceMask(group, &address, 32), nullptr);
    }
    EXPECT_TRUE(fault::Fired());
    fault::FailAllocation(0);
    EXPECT_EQ(fault::LiveBlocks(), before + 1);
    EXPECT_EQ(MRT_CountTable(group->sources), 2u);
    EXPECT_EQ(MRT_Locate(group->sources, &address), nullptr);
    ++blocks;
}

TEST_F(RouteTableEntry, DeletingASourceReleasesItsDataAndKeepsTheGroup)
{
    MRT_SOURCE_S *source = Entry("239.1.1.1", "10.0.0.1");
    MRT_GROUP_S *group = source->group;

    source->user_data = Data(5);
    MRT_DeleteSource(source);
    EXPECT_EQ(g_released_sources, (Entries{Data(5)}));
    EXPECT_EQ(MRT_CountTable(group->sources), 0u);
    EXPECT_EQ(MRT_CountTable(table), 1u);

    MRT_DeleteSource(Entry("239.1.1.1", "10.0.0.2"));
    EXPECT_EQ(g_released_sources.size(), 1u);
}

void *g_field_seen;
uint32_t g_count_seen;

void NoteField(void **user_data)
{
    MRT_SOURCE_S *source = reinterpret_cast<MRT_SOURCE_S *>(reinterpret_cast<char *>(user_data) -
                                                            offsetof(MRT_SOURCE_S, user_data));
    g_field_seen = source;
    g_count_seen = MRT_CountTable(source->group->sources);
}

TEST_F(RouteTableEntry, ReleaseGetsTheAddressOfTheFieldAfterTheEntryIsUnlinked)
{
    MRT_TABLE_S *other = MRT_CreateTable(2, nullptr, nullptr, NoteField);
    MCAST_ADDR_S address = Address("239.1.1.1");
    MRT_SOURCE_S *source = MRT_CreateEntryMask(other, &address, 32, &address, 32);
    source->user_data = Data(5);
    MRT_DeleteSource(source);
    EXPECT_EQ(g_field_seen, source);
    EXPECT_EQ(g_count_seen, 0u);
    MRT_DestroyTable(other);
}

TEST_F(RouteTableEntry, DeletingAGroupReleasesItsSourcesFirst)
{
    MRT_SOURCE_S *source = Entry("239.1.1.1", "10.0.0.1");
    source->user_data = Data(1);
    source->group->user_data = Data(2);
    MRT_DeleteGroup(source->group);
    EXPECT_EQ(g_released_sources, (Entries{Data(1)}));
    EXPECT_EQ(g_released_groups, (Entries{Data(2)}));
    EXPECT_EQ(MRT_CountTable(table), 0u);
}

TEST_F(RouteTableEntry, DataWithoutAReleaseFunctionIsLeftAlone)
{
    MRT_TABLE_S *other = MRT_CreateTable(2, nullptr, nullptr, nullptr);
    MCAST_ADDR_S address = Address("239.1.1.1");
    MRT_SOURCE_S *source = MRT_CreateEntryMask(other, &address, 32, &address, 32);
    source->user_data = Data(1);
    source->group->user_data = Data(2);
    MRT_DestroyTable(other);
    EXPECT_TRUE(g_released_sources.empty());
    EXPECT_TRUE(g_released_groups.empty());
}

TEST_F(RouteTableEntry, LastSourceTakesItsGroupAlong)
{
    MRT_SOURCE_S *first = Entry("239.1.1.1", "10.0.0.1");
    MRT_SOURCE_S *second = Entry("239.1.1.1", "10.0.0.2");
    first->group->user_data = Data(2);
    MRT_DeleteSourceGroup(first);
    EXPECT_EQ(MRT_CountTable(table), 1u);
    EXPECT_TRUE(g_released_groups.empty());
    MRT_DeleteSourceGroup(second);
    EXPECT_EQ(MRT_CountTable(table), 0u);
    EXPECT_EQ(g_released_groups, (Entries{Data(2)}));
}

TEST_F(RouteTableEntry, RemovedNodeStaysTheCallers)
{
    MRT_SOURCE_S *source = Entry("239.1.1.1", "10.0.0.1");
    MRT_GROUP_S *group = source->group;
    source->user_data = Data(1);
    MRT_RemoveNode(group->sources, source);
    EXPECT_EQ(MRT_CountTable(group->sources), 0u);
    EXPECT_TRUE(g_released_sources.empty());
    free(source->address);
    free(source);
    MRT_RemoveNode(nullptr, group);
    MRT_RemoveNode(table, nullptr);
    EXPECT_EQ(MRT_CountTable(table), 1u);
}

TEST_F(RouteTableEntry, DeletersIgnoreNull)
{
    MRT_DeleteSource(nullptr);
    MRT_DeleteGroup(nullptr);
    MRT_DeleteSourceGroup(nullptr);
}

TEST_F(RouteTableEntry, GoesUnderAnOpenWalkWithoutStoppingIt)
{
    MRT_GROUP_S *first = Entry("239.1.1.1", "10.0.0.1")->group;
    MRT_GROUP_S *second = Entry("239.1.1.2", "10.0.0.1")->group;
    MRT_GROUP_S *third = Entry("239.1.1.3", "10.0.0.1")->group;
    MRT_WALK_S *walk = MRT_CreateWalk(table);
    EXPECT_EQ(MRT_WalkNext(walk), first);
    MRT_DeleteGroup(first);
    MRT_DeleteGroup(second);
    EXPECT_EQ(Drain(walk), (Entries{third}));
}

} // namespace
