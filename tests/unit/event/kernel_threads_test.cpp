#include <gtest/gtest.h>

#include "mcast/service.h"
#include "support/fault.h"
#include "support/scripted_device.h"

namespace
{

using Calls = std::vector<std::string>;
using scripted::device;
using scripted::device_calls;

class KernelThreads : public testing::Test
{
protected:
    void SetUp() override
    {
        scripted::ResetDevice();
        live = fault::LiveBlocks();
        device.master = 3;
        device.self = 3;
    }

    void TearDown() override
    {
        EXPECT_EQ(fault::LiveBlocks(), live) << "a list of nodes was not freed";
    }

    long live = 0;
};

TEST_F(KernelThreads, StartOnTheNodeThatIsNamed)
{
    EXPECT_EQ(MCAST_StartSpecifyKernelThread(0xffff), MCAST_OK);
    EXPECT_EQ(device_calls, Calls{"threads 65535"});
}

TEST_F(KernelThreads, GiveTheResultOfTheCallAndNotThePlanesStatus)
{
    device.start_threads = [](uint16_t) { return 0x80000005u; };
    EXPECT_EQ(MCAST_StartSpecifyKernelThread(1), 0x80000005u);
}

TEST_F(KernelThreads, StartOnTheMasterFirstAndThenOnEveryOtherNodeThatIsUp)
{
    device.nodes = {{9, 3, 4, 1, 9}};
    device.node_up = [](uint16_t node) { return node == 4 ? 0u : 1u; };
    EXPECT_EQ(MCAST_StartAllKernelThread(), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"threads 3", "nodes", "up 9", "up 3", "up 4", "up 1", "up 9", "threads 9",
                                   "threads 1", "threads 9"}));
}

TEST_F(KernelThreads, StartOnTheMasterEvenWhenItIsDown)
{
    device.nodes = {{3, 4}};
    device.node_up = [](uint16_t) { return 0u; };
    EXPECT_EQ(MCAST_StartAllKernelThread(), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"threads 3", "nodes", "up 3", "up 4"}));
}

TEST_F(KernelThreads, TakeANodeForUpWhenTheLow16BitsAreOne)
{
    device.nodes = {{1, 2, 4}};
    device.node_up = [](uint16_t node) { return node == 1 ? 0x10001u : node == 2 ? 2u : 0x10000u; };
    EXPECT_EQ(MCAST_StartAllKernelThread(), MCAST_OK);
    EXPECT_EQ(device_calls.back(), "threads 1");
}

TEST_F(KernelThreads, OrTheResultsOfAllNodesAndTryEachOfThem)
{
    device.nodes = {{1, 2, 3}};
    device.start_threads = [](uint16_t node) { return node == 2 ? 0u : 0x100u << node; };
    EXPECT_EQ(MCAST_StartAllKernelThread(), 0xa00u);
    EXPECT_EQ(device_calls, (Calls{"threads 3", "nodes", "up 1", "up 2", "up 3", "threads 1", "threads 2"}));
}

TEST_F(KernelThreads, FailWithoutAListOfNodesAfterTheMastersWereStarted)
{
    EXPECT_EQ(MCAST_StartAllKernelThread(), MCAST_ERR_GENERAL);
    EXPECT_EQ(device_calls, (Calls{"threads 3", "nodes"}));
}

TEST_F(KernelThreads, FailWithAnEmptyListAndFreeIt)
{
    device.nodes.emplace();
    EXPECT_EQ(MCAST_StartAllKernelThread(), MCAST_ERR_GENERAL);
    EXPECT_EQ(device_calls, (Calls{"threads 3", "nodes"}));
}

TEST_F(KernelThreads, FailWithoutMemoryWhateverTheMastersResult)
{
    device.nodes = {{3, 4}};
    device.start_threads = [](uint16_t) { return 0x20000000u; };

    /* The first allocation is the platform's list, the second the copy. */
    EXPECT_EQ(fault::ForEveryAllocation([](unsigned long nth) {
                  EXPECT_EQ(MCAST_StartAllKernelThread(), nth <= 2 ? MCAST_ERR_GENERAL : 0x20000000u);
              }),
              2u);
}

TEST_F(KernelThreads, StartEverywhereFromTheSystemMaster)
{
    device.nodes = {{3, 5}};
    EXPECT_EQ(MCAST_StartKernelThread(), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"threads 3", "nodes", "up 3", "up 5", "threads 5"}));
}

TEST_F(KernelThreads, StartOnItselfAloneFromAnyOtherNode)
{
    device.self = 5;
    device.nodes = {{3, 5}};
    device.start_threads = [](uint16_t) { return 7u; };
    EXPECT_EQ(MCAST_StartKernelThread(), 7u);
    EXPECT_EQ(device_calls, Calls{"threads 5"});
}

} // namespace
