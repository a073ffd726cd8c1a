/* A route table with release functions that record what they were given. */
#ifndef TESTS_UNIT_CONTAINER_ROUTE_TABLE_FIXTURE_H
#define TESTS_UNIT_CONTAINER_ROUTE_TABLE_FIXTURE_H

#include <gtest/gtest.h>
#include <vector>

#include "mcast/route_table.h"
#include "radix_fixture.h"
#include "support/fault.h"

namespace route_table_test
{

using radix_test::Address;

inline std::vector<void *> g_released_groups;
inline std::vector<void *> g_released_sources;

inline void ReleaseGroupData(void **user_data)
{
    g_released_groups.push_back(*user_data);
}

inline void ReleaseSourceData(void **user_data)
{
    g_released_sources.push_back(*user_data);
}

inline MRT_TABLE_S *NewTable(unsigned family = MCAST_FAMILY_IPV4)
{
    return MRT_CreateTable(family, "test", ReleaseGroupData, ReleaseSourceData);
}

/* Starts without released data and checks that the test gave all memory of the library back. */
class RouteTableTest : public testing::Test
{
protected:
    RouteTableTest() : blocks(fault::LiveBlocks()), table(NewTable())
    {
        g_released_groups.clear();
        g_released_sources.clear();
    }

    void TearDown() override
    {
        MRT_DestroyTable(table);
        EXPECT_EQ(fault::LiveBlocks(), blocks);
    }

    MRT_GROUP_S *Group(const char *group, unsigned length = 32) const
    {
        MCAST_ADDR_S address = Address(group);
        return MRT_CreateGroupMask(table, &address, length);
    }

    MRT_SOURCE_S *Entry(const char *group, unsigned group_length, const char *source,
                        unsigned source_length) const
    {
        MCAST_ADDR_S group_address = Address(group);
        MCAST_ADDR_S source_address = Address(source);
        return MRT_CreateEntryMask(table, &group_address, group_length, &source_address, source_length);
    }

    MRT_SOURCE_S *Entry(const char *group, const char *source) const
    {
        return Entry(group, 32, source, 32);
    }

    static std::vector<void *> Drain(MRT_WALK_S *walk)
    {
        std::vector<void *> yielded;
        for (void *entry = MRT_WalkNext(walk); entry != nullptr; entry = MRT_WalkNext(walk)) {
            yielded.push_back(entry);
        }
        MRT_DeleteWalk(walk);
        return yielded;
    }

    long blocks;
    MRT_TABLE_S *table;
};

/* A value to hang on an entry. */
inline void *Data(uintptr_t value)
{
    return reinterpret_cast<void *>(value);
}

} // namespace route_table_test

#endif
