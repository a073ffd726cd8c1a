#include <cstring>

#include "unit/container/mtable_records.h"

namespace
{

using MTable = MTableTest;
using Released = std::vector<std::string>;

MTABLE_SOURCE_S RecordOf(const char *address)
{
    MTABLE_SOURCE_S record = {};
    record.address = Addr(address);
    return record;
}

MTABLE_GROUP_S GroupRecordOf(const char *address)
{
    MTABLE_GROUP_S record = {};
    record.address = Addr(address);
    return record;
}

TEST_F(MTable, OrdersIpv4AsABigEndianNumberAndGivesOnlyTheSign)
{
    const struct {
        const char *first;
        const char *second;
        int expected;
    } rows[] = {
        {"10.0.0.1", "10.0.0.1", 0},  {"10.0.0.1", "10.0.0.9", -1},    {"10.0.0.9", "10.0.0.1", 1},
        {"1.0.0.255", "1.0.1.0", -1}, {"128.0.0.0", "127.0.0.0", 1},   {"255.0.0.0", "0.0.0.1", 1},
        {"0.0.0.0", "224.0.0.1", -1}, {"224.1.0.0", "224.0.255.1", 1},
    };

    for (const auto &row : rows) {
        MTABLE_SOURCE_S first = RecordOf(row.first), second = RecordOf(row.second);
        MTABLE_GROUP_S group = GroupRecordOf(row.first), other = GroupRecordOf(row.second);

        EXPECT_EQ(MTable_SrcAvlNodeCmp(&first, &second), row.expected) << row.first;
        EXPECT_EQ(MTable_SrcAvlKeyCmp(&first, &second.address), row.expected) << row.first;
        EXPECT_EQ(MTable_GrpAvlNodeCmp(&group, &other), row.expected) << row.first;
        EXPECT_EQ(MTable_GrpAvlKeyCmp(&group, &other.address), row.expected) << row.first;
    }
}

TEST_F(MTable, OrdersIpv6ByTheDifferenceOfTheFirstUnequalBytes)
{
    for (int byte = 0; byte < 16; ++byte) {
        MTABLE_SOURCE_S first = RecordOf("2001:db8::"), second = first;
        MTABLE_GROUP_S group = GroupRecordOf("2001:db8::"), other = group;

        first.address.address[byte] = group.address.address[byte] = 250;
        second.address.address[byte] = other.address.address[byte] = 245;
        if (byte < 15) {
            second.address.address[15] = other.address.address[15] = 255;
        }
        EXPECT_EQ(MTable_SrcAvlNodeCmp(&first, &second), 5) << byte;
        EXPECT_EQ(MTable_SrcAvlNodeCmp(&second, &first), -5) << byte;
        EXPECT_EQ(MTable_SrcAvlKeyCmp(&first, &second.address), 5) << byte;
        EXPECT_EQ(MTable_GrpAvlNodeCmp(&group, &other), 5) << byte;
        EXPECT_EQ(MTable_GrpAvlNodeCmp(&other, &group), -5) << byte;
        EXPECT_EQ(MTable_GrpAvlKeyCmp(&group, &other.address), 5) << byte;
        EXPECT_EQ(MTable_SrcAvlNodeCmp(&first, &first), 0) << byte;
    }
}

TEST_F(MTable, ComparesUnsignedBytes)
{
    MTABLE_SOURCE_S low = RecordOf("::"), high = RecordOf("ff00::");
    EXPECT_EQ(MTable_SrcAvlNodeCmp(&high, &low), 255);
    EXPECT_EQ(MTable_SrcAvlNodeCmp(&low, &high), -255);
}

TEST_F(MTable, ComparesUnderTheWholeFamilyOfTheFirstArgument)
{
    MTABLE_SOURCE_S four = RecordOf("10.0.0.1"), longer = RecordOf("10.0.0.1");
    longer.address.address[4] = 7;
    EXPECT_EQ(MTable_SrcAvlNodeCmp(&four, &longer), 0);
    longer.address.family = 0x0202;
    EXPECT_EQ(MTable_SrcAvlNodeCmp(&longer, &four), 7);
    EXPECT_EQ(MTable_SrcAvlNodeCmp(&four, &longer), 0);
}

TEST_F(MTable, StartsEmptyAndKnowsItsRelease)
{
    EXPECT_NE(table_.groups, 0u);
    EXPECT_EQ(table_.group_count, 0u);
    EXPECT_EQ(table_.source_count, 0u);
    EXPECT_EQ(table_.group_release, &MTableTest::ReleaseGroup);
    EXPECT_EQ(MTable_GetNextGroup(&table_, nullptr), nullptr);
}

TEST_F(MTable, InitFailsWhenThePlatformHasNoTree)
{
    MTABLE_S table;
    std::memset(&table, 0xa5, sizeof(table));
    platform::Fail(platform::Operation::kTreeInit, 1);
    EXPECT_EQ(MTable_Init(&table, ReleaseGroup), MCAST_ERR_GENERAL);
    EXPECT_EQ(table.groups, 0u);
    EXPECT_EQ(table.group_count, 0u);
    MTable_Fini(&table);
}

TEST_F(MTable, FiniReleasesEverythingAndZeroesTheTable)
{
    MTABLE_S zero = {};
    AddGroupWithSources("224.1.1.1", 2);
    AddGroup("224.1.1.2");
    MTable_Fini(&table_);
    EXPECT_EQ(released_,
              (Released{"source 10.0.0.1", "source 10.0.0.2", "group 224.1.1.1", "group 224.1.1.2"}));
    EXPECT_EQ(std::memcmp(&table_, &zero, sizeof(zero)), 0);
    MTable_Fini(&table_);
    EXPECT_EQ(released_.size(), 4u);
}

TEST_F(MTable, IsReusableAfterFini)
{
    for (int round = 0; round < 3; ++round) {
        AddGroupWithSources("224.1.1.1", 3);
        MTable_Fini(&table_);
        ASSERT_EQ(MTable_Init(&table_, ReleaseGroup), MCAST_OK);
        EXPECT_EQ(table_.group_count, 0u);
    }
}

TEST_F(MTable, InitGroupWritesTheHeadAndOnlyTheBytesOfTheFamily)
{
    Group group;
    MCAST_ADDR_S address = Addr("224.1.1.1");
    address.address[4] = 9;
    std::memset(static_cast<void *>(&group), 0xa5, sizeof(group));
    ASSERT_EQ(MTable_InitGroup(&group.head, &address, ReleaseSource), MCAST_OK);
    EXPECT_EQ(group.head.owner, nullptr);
    EXPECT_EQ(group.head.source_release, &MTableTest::ReleaseSource);
    EXPECT_EQ(group.head.address.family, MCAST_FAMILY_IPV4);
    EXPECT_EQ(std::memcmp(group.head.address.address, "\xe0\x01\x01\x01\xa5", 5), 0);
    EXPECT_NE(group.head.sources, 0u);
    EXPECT_EQ(group.mark, static_cast<int>(0xa5a5a5a5));
    MTable_FiniGroup(&group.head);
    EXPECT_EQ(group.head.sources, 0u);
    MTable_FiniGroup(&group.head);
}

TEST_F(MTable, InitGroupTakesAllSixteenBytesOfAnyOtherFamily)
{
    MTABLE_GROUP_S group;
    MCAST_ADDR_S address = Addr("ff0e::1:2:3");
    address.family = 7;
    ASSERT_EQ(MTable_InitGroup(&group, &address, ReleaseSource), MCAST_OK);
    EXPECT_EQ(group.address.family, 7);
    EXPECT_EQ(std::memcmp(group.address.address, address.address, 16), 0);
    MTable_FiniGroup(&group);
}

TEST_F(MTable, InitGroupFailsWhenThePlatformHasNoTree)
{
    MTABLE_GROUP_S group;
    MCAST_ADDR_S address = Addr("224.1.1.1");
    platform::Fail(platform::Operation::kTreeInit, 1);
    EXPECT_EQ(MTable_InitGroup(&group, &address, ReleaseSource), MCAST_ERR_GENERAL);
    EXPECT_EQ(group.sources, 0u);
    EXPECT_EQ(group.owner, nullptr);
}

TEST_F(MTable, CountsGroupsAndSources)
{
    MTABLE_GROUP_S *first = AddGroupWithSources("224.1.1.1", 3);
    MTABLE_GROUP_S *second = AddGroupWithSources("224.1.1.2", 2);
    EXPECT_EQ(table_.group_count, 2u);
    EXPECT_EQ(table_.source_count, 5u);
    EXPECT_EQ(first->owner, &table_);
    EXPECT_EQ(second->owner, &table_);
}

TEST_F(MTable, ASecondGroupOfTheSameAddressIsRefusedAndLosesItsSourceTree)
{
    AddGroup("224.1.1.1");
    long trees = platform::LiveTrees();
    Group *second = NewGroup(Addr("224.1.1.1"));

    EXPECT_EQ(MTable_InsertGroup(&table_, &second->head), MCAST_ERR_GENERAL);
    EXPECT_EQ(second->head.sources, 0u);
    EXPECT_EQ(second->head.owner, nullptr);
    EXPECT_EQ(platform::LiveTrees(), trees);
    EXPECT_EQ(table_.group_count, 1u);

    MCAST_ADDR_S other = Addr("224.1.1.2");

    ASSERT_EQ(MTable_InitGroup(&second->head, &other, ReleaseSource), MCAST_OK);
    EXPECT_EQ(MTable_InsertGroup(&table_, &second->head), MCAST_OK);
    EXPECT_EQ(table_.group_count, 2u);
}

TEST_F(MTable, ARefusedGroupGivesUpTheSourcesThatItBrought)
{
    MTABLE_GROUP_S *moved = AddGroupWithSources("224.1.1.1", 2);
    ASSERT_EQ(MTable_RemoveGroup(&table_, moved), moved);
    AddGroup("224.1.1.1");
    EXPECT_EQ(MTable_InsertGroup(&table_, moved), MCAST_ERR_GENERAL);
    EXPECT_EQ(released_, (Released{"source 10.0.0.1", "source 10.0.0.2"}));
    EXPECT_EQ(table_.group_count, 1u);
    EXPECT_EQ(table_.source_count, 0u);
    FreeRecord(moved);
}

TEST_F(MTable, RemovingAGroupTakesItsSourcesOutOfTheCountAndLeavesThemInTheGroup)
{
    MTABLE_GROUP_S *group = AddGroupWithSources("224.1.1.1", 3);

    AddGroupWithSources("224.1.1.2", 2);
    EXPECT_EQ(MTable_RemoveGroup(&table_, group), group);
    EXPECT_EQ(table_.group_count, 1u);
    EXPECT_EQ(table_.source_count, 2u);
    EXPECT_EQ(group->owner, nullptr);
    EXPECT_EQ(AVL_Count(group->sources), 3u);
    EXPECT_TRUE(released_.empty());

    EXPECT_EQ(MTable_RemoveGroup(&table_, group), nullptr);
    EXPECT_EQ(table_.group_count, 1u);
    EXPECT_EQ(table_.source_count, 2u);

    MTable_FiniGroup(group);
    EXPECT_EQ(released_, (Released{"source 10.0.0.1", "source 10.0.0.2", "source 10.0.0.3"}));
    FreeRecord(group);
}

TEST_F(MTable, ASecondSourceOfTheSameAddressIsRefused)
{
    MTABLE_GROUP_S *group = AddGroupWithSources("224.1.1.1", 1);
    Source *second = NewSource(Addr("10.0.0.1"));
    second->head.group = group;
    EXPECT_EQ(MTable_InsertSource(group, &second->head), MCAST_ERR_GENERAL);
    EXPECT_EQ(second->head.group, nullptr);
    EXPECT_EQ(table_.source_count, 1u);
    FreeRecord(second);
}

TEST_F(MTable, AGroupInNoTableTakesNoSources)
{
    Group *group = NewGroup(Addr("224.1.1.1"));
    Source *source = NewSource(Addr("10.0.0.1"));
    EXPECT_EQ(MTable_InsertSource(&group->head, &source->head), MCAST_ERR_GENERAL);
    EXPECT_EQ(source->head.group, nullptr);
    EXPECT_EQ(AVL_Count(group->head.sources), 0u);
    MTable_FiniGroup(&group->head);
    FreeRecord(group);
    FreeRecord(source);
}

TEST_F(MTable, RemovingASourceGivesItBack)
{
    MTABLE_GROUP_S *group = AddGroup("224.1.1.1");
    MTABLE_SOURCE_S *source = AddSource(group, "10.0.0.1");
    AddSource(group, "10.0.0.2");
    EXPECT_EQ(source->group, group);
    EXPECT_EQ(MTable_RemoveSource(group, source), source);
    EXPECT_EQ(source->group, nullptr);
    EXPECT_EQ(table_.source_count, 1u);
    EXPECT_EQ(MTable_RemoveSource(group, source), nullptr);
    EXPECT_EQ(table_.source_count, 1u);
    EXPECT_TRUE(released_.empty());
    FreeRecord(source);
}

TEST_F(MTable, ASourceCanBeRemovedFromARemovedGroup)
{
    MTABLE_GROUP_S *group = AddGroup("224.1.1.1");
    MTABLE_SOURCE_S *source = AddSource(group, "10.0.0.1");
    ASSERT_EQ(MTable_RemoveGroup(&table_, group), group);
    EXPECT_EQ(MTable_RemoveSource(group, source), source);
    EXPECT_EQ(table_.source_count, 0u);
    MTable_FiniGroup(group);
    FreeRecord(group);
    FreeRecord(source);
}

TEST_F(MTable, FindsGroupsAndSourcesByAddress)
{
    MTABLE_GROUP_S *group = AddGroup("224.1.1.1");
    MTABLE_SOURCE_S *source = AddSource(group, "10.0.0.1");
    MCAST_ADDR_S g = Addr("224.1.1.1"), other_g = Addr("224.1.1.2");
    MCAST_ADDR_S s = Addr("10.0.0.1"), other_s = Addr("10.0.0.2");
    EXPECT_EQ(MTable_SearchGroup(&table_, &g), group);
    EXPECT_EQ(MTable_SearchGroup(&table_, &other_g), nullptr);
    EXPECT_EQ(MTable_SearchSourceInGroup(group, &s), source);
    EXPECT_EQ(MTable_SearchSourceInGroup(group, &other_s), nullptr);
    EXPECT_EQ(MTable_SearchSource(&table_, &g, &s), source);
    EXPECT_EQ(MTable_SearchSource(&table_, &g, &other_s), nullptr);
    EXPECT_EQ(MTable_SearchSource(&table_, &other_g, &s), nullptr);
}

TEST_F(MTable, GivesTheNextGroupAlsoAfterAnAddressThatItDoesNotHold)
{
    MTABLE_GROUP_S *first = AddGroup("224.1.1.1");
    MTABLE_GROUP_S *third = AddGroup("224.1.1.3");
    const struct {
        const char *after;
        MTABLE_GROUP_S *expected;
    } rows[] = {{"0.0.0.0", first}, {"224.1.1.1", third}, {"224.1.1.2", third}, {"224.1.1.3", nullptr}};

    EXPECT_EQ(MTable_GetNextGroup(&table_, nullptr), first);
    for (const auto &row : rows) {
        MCAST_ADDR_S after = Addr(row.after);

        EXPECT_EQ(MTable_GetNextGroup(&table_, &after), row.expected) << row.after;
    }
}

TEST_F(MTable, HoldsIpv6GroupsInTheOrderOfTheirBytes)
{
    for (const char *address : {"ff0e::2", "ff05::1", "ff0e::1", "ff05:0:0:1::"}) {
        AddSource(AddGroup(address), "2001:db8::1");
    }

    Released order;

    for (MTABLE_GROUP_S *group = MTable_GetNextGroup(&table_, nullptr); group != nullptr;
         group = MTable_GetNextGroup(&table_, &group->address)) {
        order.push_back(Text(&group->address));
    }
    EXPECT_EQ(order, (Released{"ff05::1", "ff05:0:0:1::", "ff0e::1", "ff0e::2"}));
}

TEST_F(MTable, FreeingAGroupsSourcesKeepsTheGroup)
{
    MTABLE_GROUP_S *group = AddGroupWithSources("224.1.1.1", 3);
    AddGroupWithSources("224.1.1.2", 1);
    EXPECT_EQ(MTable_FreeAllSourceInGroup(group), 0u);
    EXPECT_EQ(released_, (Released{"source 10.0.0.1", "source 10.0.0.2", "source 10.0.0.3"}));
    EXPECT_EQ(table_.group_count, 2u);
    EXPECT_EQ(table_.source_count, 1u);
    AddSource(group, "10.0.0.1");
    EXPECT_EQ(table_.source_count, 2u);
}

TEST_F(MTable, FreeingTheSourcesOfARemovedGroupTouchesNoCount)
{
    MTABLE_GROUP_S *group = AddGroupWithSources("224.1.1.1", 3);
    AddGroupWithSources("224.1.1.2", 1);
    ASSERT_EQ(MTable_RemoveGroup(&table_, group), group);
    EXPECT_EQ(MTable_FreeAllSourceInGroup(group), 0u);
    EXPECT_EQ(released_.size(), 3u);
    EXPECT_EQ(table_.source_count, 1u);
    MTable_FiniGroup(group);
    FreeRecord(group);
}

TEST_F(MTable, FreeAllEmptiesTheTableAndLeavesItUsable)
{
    AddGroupWithSources("224.1.1.1", 1);
    AddGroupWithSources("224.1.1.2", 1);
    EXPECT_EQ(MTable_FreeAll(&table_), 0u);
    EXPECT_EQ(released_,
              (Released{"source 10.0.0.1", "group 224.1.1.1", "source 10.0.0.1", "group 224.1.1.2"}));
    EXPECT_EQ(table_.group_count, 0u);
    EXPECT_EQ(table_.source_count, 0u);
    EXPECT_EQ(live_, 0);
    AddGroupWithSources("224.1.1.1", 2);
    EXPECT_EQ(table_.source_count, 2u);
}

TEST_F(MTable, CountsNeverFallBelowZero)
{
    MTABLE_GROUP_S *group = AddGroupWithSources("224.1.1.1", 3);

    /* A group brings its sources along uncounted when it comes from elsewhere. */
    ASSERT_EQ(MTable_RemoveGroup(&table_, group), group);
    ASSERT_EQ(MTable_InsertGroup(&table_, group), MCAST_OK);
    EXPECT_EQ(table_.source_count, 0u);

    MCAST_ADDR_S address = Addr("10.0.0.1");
    MTABLE_SOURCE_S *source = MTable_SearchSourceInGroup(group, &address);

    ASSERT_EQ(MTable_RemoveSource(group, source), source);
    FreeRecord(source);
    EXPECT_EQ(table_.source_count, 0u);
    AddSource(group, "10.0.0.9");
    EXPECT_EQ(table_.source_count, 1u);
    EXPECT_EQ(MTable_FreeAllSourceInGroup(group), 0u);
    EXPECT_EQ(table_.source_count, 0u);
    table_.group_count = 0;
    ASSERT_EQ(MTable_RemoveGroup(&table_, group), group);
    EXPECT_EQ(table_.group_count, 0u);
    MTable_FiniGroup(group);
    FreeRecord(group);
}

TEST_F(MTable, WithoutReleaseFunctionsRecordsAreLeftToTheCaller)
{
    MTABLE_S table;
    Group group = {};
    Source source = {};
    MCAST_ADDR_S address = Addr("224.1.1.1");
    ASSERT_EQ(MTable_Init(&table, nullptr), MCAST_OK);
    ASSERT_EQ(MTable_InitGroup(&group.head, &address, nullptr), MCAST_OK);
    ASSERT_EQ(MTable_InsertGroup(&table, &group.head), MCAST_OK);
    source.head.address = Addr("10.0.0.1");
    ASSERT_EQ(MTable_InsertSource(&group.head, &source.head), MCAST_OK);
    MTable_Fini(&table);
    EXPECT_EQ(group.head.sources, 0u);
}

} // namespace
