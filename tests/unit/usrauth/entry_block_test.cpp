#include "usrauth/entry_block.h"

#include <cstring>
#include <gtest/gtest.h>

#include "support/fault.h"

using namespace mcast::usrauth;

namespace
{

TEST(EntryBlock, GroupsLieBehindItsHeadOneBehindTheOtherAndGoWithTheLast)
{
    const long live = fault::LiveBlocks();
    Group *first;
    Group *second;
    {
        EntryAllocator allocator;
        first = allocator.Take(2);
        second = allocator.Take(1);
        ASSERT_NE(first, nullptr);
    }
    EntryBlock *block = first->block;
    EXPECT_GE(reinterpret_cast<char *>(first), reinterpret_cast<char *>(block + 1));
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(second->block, block);
    EXPECT_EQ(block->users, 2u);
    memset(first, 0xff, offsetof(Group, block));
    memset(second, 0xff, offsetof(Group, block));
    EXPECT_EQ(block->capacity, 2u);
    FreeGroup(first);
    EXPECT_EQ(fault::LiveBlocks(), live + 1);
    FreeGroup(second);
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
