/*
 * Records for the tests of the group and source table. Every record made is counted until it is freed.
 */
#ifndef TESTS_UNIT_CONTAINER_MTABLE_RECORDS_H
#define TESTS_UNIT_CONTAINER_MTABLE_RECORDS_H

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/mtable.h"
#include "support/addresses.h"
#include "support/scripted_platform.h"

struct Group {
    MTABLE_GROUP_S head;
    int mark;
};

struct Source {
    MTABLE_SOURCE_S head;
    int mark;
};

class MTableTest : public testing::Test
{
protected:
    void SetUp() override
    {
        platform::Reset();
        trees_before_ = platform::LiveTrees();
        released_.clear();
        live_ = 0;
        ASSERT_EQ(MTable_Init(&table_, ReleaseGroup), MCAST_OK);
    }

    void TearDown() override
    {
        platform::Reset();
        MTable_Fini(&table_);
        EXPECT_EQ(live_, 0);
        EXPECT_EQ(platform::LiveTrees(), trees_before_);
    }

    static void ReleaseGroup(void *record)
    {
        released_.push_back("group " + Text(&static_cast<MTABLE_GROUP_S *>(record)->address));
        FreeRecord(record);
    }

    static void ReleaseSource(void *record)
    {
        released_.push_back("source " + Text(&static_cast<MTABLE_SOURCE_S *>(record)->address));
        FreeRecord(record);
    }

    /* Frees a record and makes a later look at it find nothing of use. */
    static void FreeRecord(void *record)
    {
        --live_;
        std::memset(record, 0xff, sizeof(MTABLE_SOURCE_S));
        __asm__ volatile("" : : "r"(record) : "memory"); /* or the compiler drops the writes */
        std::free(record);
    }

    static std::string Text(const MCAST_ADDR_S *addr)
    {
        char text[INET6_ADDRSTRLEN] = "";
        inet_ntop(addr->family, addr->address, text, sizeof(text));
        return text;
    }

    /* A group set up and in no table. */
    static Group *NewGroup(const MCAST_ADDR_S &address)
    {
        Group *group = static_cast<Group *>(std::calloc(1, sizeof(Group)));
        ++live_;
        EXPECT_EQ(MTable_InitGroup(&group->head, &address, ReleaseSource), MCAST_OK);
        return group;
    }

    static Source *NewSource(const MCAST_ADDR_S &address)
    {
        Source *source = static_cast<Source *>(std::calloc(1, sizeof(Source)));
        ++live_;
        source->head.address = address;
        return source;
    }

    MTABLE_GROUP_S *AddGroup(const char *address)
    {
        Group *group = NewGroup(Addr(address));
        EXPECT_EQ(MTable_InsertGroup(&table_, &group->head), MCAST_OK);
        return &group->head;
    }

    static MTABLE_SOURCE_S *AddSource(MTABLE_GROUP_S *group, const char *address)
    {
        Source *source = NewSource(Addr(address));
        EXPECT_EQ(MTable_InsertSource(group, &source->head), MCAST_OK);
        return &source->head;
    }

    /* A group with the sources 10.0.0.1, 10.0.0.2, ... */
    MTABLE_GROUP_S *AddGroupWithSources(const char *address, int sources)
    {
        MTABLE_GROUP_S *group = AddGroup(address);
        for (int i = 1; i <= sources; ++i) {
            AddSource(group, ("10.0.0." + std::to_string(i)).c_str());
        }
        return group;
    }

    MTABLE_S table_;
    inline static std::vector<std::string> released_;
    inline static int live_ = 0;

private:
    long trees_before_ = 0;
};

#endif
