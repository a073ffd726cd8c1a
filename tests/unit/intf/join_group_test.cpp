#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <vector>

#include "intf/registry.h"
#include "mcast/interface_registry.h"
#include "support/fault.h"
#include "support/scripted_platform.h"

namespace
{

constexpr uint32_t kUntouched = 0xabcdabcd;

class JoinGroup : public testing::Test
{
protected:
    long blocks = 0;
    long trees = 0;
    uint32_t count = kUntouched;

    void SetUp() override
    {
        ASSERT_EQ(MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV4), MCAST_OK);
        blocks = fault::LiveBlocks();
        trees = platform::LiveTrees();
    }

    void TearDown() override
    {
        platform::Reset();
        MCAST_IF_Fini();
    }

    void ExpectEmpty()
    {
        EXPECT_EQ(fault::LiveBlocks(), blocks);
        EXPECT_EQ(platform::LiveTrees(), trees);
    }
};

TEST_F(JoinGroup, CountsTheSubInterfacesOfEachParent)
{
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 11, &count), MCAST_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(2, 10, &count), MCAST_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 10, &count), MCAST_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 11, &count), MCAST_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(2, 10, &count), MCAST_OK);
    ExpectEmpty();
}

TEST_F(JoinGroup, RefusesTheSameSubInterfaceTwiceAndKeepsTheParent)
{
    ASSERT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_OK);
    count = kUntouched;
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_ERR_GENERAL);
    EXPECT_EQ(count, kUntouched);
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 0xffffffff, &count), MCAST_OK);
    EXPECT_EQ(count, 2u);
}

TEST_F(JoinGroup, LastSubInterfaceTakesTheParentWithIt)
{
    ASSERT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_OK);
    ASSERT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 10, &count), MCAST_OK);
    ExpectEmpty();
    count = kUntouched;
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 10, &count), MCAST_ERR_GENERAL);
    EXPECT_EQ(count, kUntouched);
}

TEST_F(JoinGroup, UnknownSubInterfaceIsRefused)
{
    ASSERT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_OK);
    count = kUntouched;
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 11, &count), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(10, 1, &count), MCAST_ERR_GENERAL);
    EXPECT_EQ(count, kUntouched);
}

TEST_F(JoinGroup, UndoesAnAddThatFailsAndOnlyThat)
{
    EXPECT_EQ(fault::ForEveryAllocation([&](unsigned long) {
                  count = kUntouched;
                  if (MCAST_AddToSameJoinGroupIf(1, 10, &count) == MCAST_OK) {
                      EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(1, 10, &count), MCAST_OK);
                  } else {
                      EXPECT_EQ(count, kUntouched);
                  }
                  ExpectEmpty();
              }),
              2u);
    platform::Fail(platform::Operation::kTreeInit, 1);
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_ERR_GENERAL);
    ExpectEmpty();
    for (unsigned long nth = 1; nth <= 2; ++nth) {
        platform::Fail(platform::Operation::kTreeInsert, nth);
        EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_ERR_GENERAL);
        ExpectEmpty();
    }

    ASSERT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_OK);
    long live = fault::LiveBlocks();

    platform::Fail(platform::Operation::kTreeInsert, 1);
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 11, &count), MCAST_ERR_GENERAL);
    EXPECT_EQ(fault::LiveBlocks(), live);
    EXPECT_EQ(MCAST_AddToSameJoinGroupIf(1, 10, &count), MCAST_ERR_GENERAL) << "the parent was lost";
}

TEST_F(JoinGroup, CreatesASubInterfaceInAnyParentOnce)
{
    MCAST_IF_JOIN_PARENT_S parent = {};
    auto by_index = [](const void *first, const void *second) -> int32_t {
        uint32_t a = static_cast<const MCAST_IF_JOIN_SUB_S *>(first)->sub_if_index;
        uint32_t b = static_cast<const MCAST_IF_JOIN_SUB_S *>(second)->sub_if_index;

        return a < b ? -1 : a > b;
    };

    parent.sub_interfaces = AVL_Init(by_index, 0, MCAST_FreeFunc);
    EXPECT_EQ(mcastIf_CreateSubIf(&parent, 5), MCAST_OK);
    EXPECT_EQ(mcastIf_CreateSubIf(&parent, 5), MCAST_ERR_GENERAL);
    fault::FailAllocation(1);
    EXPECT_EQ(mcastIf_CreateSubIf(&parent, 6), MCAST_ERR_GENERAL);
    fault::FailAllocation(0);
    EXPECT_EQ(AVL_Count(parent.sub_interfaces), 1u);
    AVL_Fini(parent.sub_interfaces);
    ExpectEmpty();
}

TEST_F(JoinGroup, SurvivesDegradeAndIsFreedWithTheRegistry)
{
    for (uint32_t parent = 1; parent < 20; ++parent) {
        for (uint32_t sub = 0; sub < parent; ++sub) {
            ASSERT_EQ(MCAST_AddToSameJoinGroupIf(parent, sub, &count), MCAST_OK);
        }
    }
    ASSERT_EQ(MCAST_IF_Degrade(), MCAST_OK);
    EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(7, 3, &count), MCAST_OK);
    EXPECT_EQ(count, 6u);
    MCAST_IF_Fini();
    EXPECT_EQ(platform::LiveTrees(), 0);
}

TEST_F(JoinGroup, LetsOneThreadAtATimeChangeTheLists)
{
    pthread_mutex_lock(&mcast::g_registry.lock.posix);
    std::vector<std::thread> threads;

    for (uint32_t i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            uint32_t left = 0;

            for (uint32_t sub = 0; sub < 200; ++sub) {
                EXPECT_EQ(MCAST_AddToSameJoinGroupIf(sub % 3, sub * 4 + i, &left), MCAST_OK);
            }
            for (uint32_t sub = 0; sub < 200; ++sub) {
                EXPECT_EQ(MCAST_DeleteFromSameJoinGroupIf(sub % 3, sub * 4 + i, &left), MCAST_OK);
            }
        });
    }
    EXPECT_EQ(fault::LiveBlocks(), blocks);
    pthread_mutex_unlock(&mcast::g_registry.lock.posix);
    for (std::thread &thread : threads) {
        thread.join();
    }
    ExpectEmpty();
}

} // namespace
