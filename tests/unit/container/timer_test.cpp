#include "timer_fixture.h"

using namespace container_test;

namespace
{

TEST_F(TimerManager, CreationMakesAPlatformTimerAndStopsItAtOnce)
{
    uint64_t parameters[4] = {11, 12, 13, 14};
    MCAST_TMR_S *other = MCAST_TMR_Create(scripted_timer::Service(), Fired, parameters);

    EXPECT_EQ(Calls(), "create 1 4294967295, stop");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->service, scripted_timer::Service());
    EXPECT_EQ(other->heap->capacity, 16u);
    EXPECT_EQ(other->parameters[3], 14u);
    EXPECT_EQ(scripted_timer::platform.timers.at(other->timer).parameters[2], 13u);
    EXPECT_EQ(scripted_timer::platform.timers.at(other->timer).handler, Fired);
    EXPECT_FALSE(scripted_timer::platform.timers.at(other->timer).armed);

    uint64_t out[4] = {};
    EXPECT_EQ(MCAST_TMR_GetParam(other, out), MCAST_OK);
    EXPECT_EQ(out[0], 11u);
    EXPECT_EQ(out[3], 14u);
    MCAST_TMR_Destroy(other);
    EXPECT_EQ(Calls(), "delete");
}

TEST_F(TimerManager, ParametersAreZeroWhenNoneAreGiven)
{
    uint64_t out[4] = {1, 1, 1, 1};
    EXPECT_EQ(MCAST_TMR_GetParam(manager, out), MCAST_OK);
    for (uint64_t word : out) {
        EXPECT_EQ(word, 0u);
    }
}

TEST_F(TimerManager, CreationUndoesEverythingWhenAStepFails)
{
    long before = fault::LiveBlocks();
    unsigned long needed = fault::ForEveryAllocation([](unsigned long) {
        MCAST_TMR_S *other = MCAST_TMR_Create(scripted_timer::Service(), Fired, nullptr);

        EXPECT_EQ(other == nullptr, fault::Fired());
        MCAST_TMR_Destroy(other);
    });

    EXPECT_EQ(needed, 4u);
    scripted_timer::platform.fail_create = true;
    Calls();
    EXPECT_EQ(MCAST_TMR_Create(scripted_timer::Service(), Fired, nullptr), nullptr);
    EXPECT_EQ(Calls(), "create 1 4294967295");
    scripted_timer::platform.fail_create = false;
    scripted_timer::platform.set_status[TIMER_STATE_STOP] = kRefused;
    EXPECT_EQ(MCAST_TMR_Create(scripted_timer::Service(), Fired, nullptr), nullptr);
    EXPECT_EQ(Calls(), "create 1 4294967295, stop, delete");
    EXPECT_EQ(fault::LiveBlocks(), before);
    EXPECT_EQ(scripted_timer::platform.timers.size(), 1u);
}

TEST_F(TimerManager, CreationNeedsAServiceAndAHandler)
{
    EXPECT_EQ(MCAST_TMR_Create(nullptr, Fired, nullptr), nullptr);
    EXPECT_EQ(MCAST_TMR_Create(scripted_timer::Service(), nullptr, nullptr), nullptr);
    EXPECT_EQ(Calls(), "");
}

TEST_F(TimerManager, RefusesMissingArguments)
{
    uint64_t out[4] = {9, 9, 9, 9};
    MCAST_TMR_NODE_S *node = Add(5);
    Calls();
    EXPECT_EQ(MCAST_TMR_AddNode(nullptr, 1, Ran, nullptr), nullptr);
    EXPECT_EQ(MCAST_TMR_RefreshNode(nullptr, node, 1), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, nullptr, 1), MCAST_ERR_GENERAL);
    MCAST_TMR_DeleteNode(nullptr, node);
    MCAST_TMR_DeleteNode(manager, nullptr);
    EXPECT_EQ(MCAST_TMR_ProcExpires(nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_TMR_GetParam(nullptr, out), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_TMR_GetParam(manager, nullptr), MCAST_ERR_GENERAL);
    MCAST_TMR_Destroy(nullptr);
    EXPECT_EQ(out[0], 9u);
    EXPECT_EQ(manager->heap->count, 1u);
    EXPECT_EQ(Calls(), "");
}

TEST_F(TimerManager, FirstTimerEnablesTheStoppedPlatformTimerAndArmsIt)
{
    MCAST_TMR_NODE_S *node = Add(5, 1);
    EXPECT_EQ(Calls(), "attr, enable, arm 5000");
    EXPECT_EQ(node->expiry, 1005u);
    EXPECT_EQ(node->position, 1u);
    EXPECT_EQ(node->callback, Ran);
    EXPECT_EQ(node->data[0], 1u);
    EXPECT_EQ(node->data[3], 4u);
}

TEST_F(TimerManager, AddWithoutDataHasZeroWords)
{
    MCAST_TMR_NODE_S *node = MCAST_TMR_AddNode(manager, 5, nullptr, nullptr);
    for (uint64_t word : node->data) {
        EXPECT_EQ(word, 0u);
    }
}

TEST_F(TimerManager, OnlyAnEarlierTimerArmsAgainAndWithoutEnabling)
{
    Add(10);
    Calls();
    Add(20);
    EXPECT_EQ(Calls(), "");
    Add(10);
    EXPECT_EQ(Calls(), "");
    Add(3);
    EXPECT_EQ(Calls(), "attr, arm 3000");
}

TEST_F(TimerManager, EveryArmingReadsTheTimeAgain)
{
    scripted_timer::platform.time_reads = 0;
    Add(10);
    EXPECT_EQ(scripted_timer::platform.time_reads, 2u);
    Add(20);
    EXPECT_EQ(scripted_timer::platform.time_reads, 3u);
    scripted_timer::Advance(10);
    scripted_timer::platform.time_reads = 0;
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(scripted_timer::platform.time_reads, 2u);
    EXPECT_EQ(g_ran.size(), 1u);
}

TEST_F(TimerManager, SubSecondsAreNotCounted)
{
    scripted_timer::platform.now_ms += 999;
    MCAST_TMR_NODE_S *node = Add(5);

    EXPECT_EQ(node->expiry, 1005u);
    EXPECT_EQ(Calls(), "attr, enable, arm 5000");
}

TEST_F(TimerManager, WhatIsAlreadyDueArmsForOneSecond)
{
    Add(0);
    EXPECT_EQ(Calls(), "attr, enable, arm 1000");
}

TEST_F(TimerManager, LongDistancesPassAsSeconds)
{
    MCAST_TMR_NODE_S *node = Add(4294967);
    EXPECT_EQ(Calls(), "attr, enable, arm 4294967");
    MCAST_TMR_DeleteNode(manager, node);

    node = Add(4294966);
    EXPECT_EQ(Calls(), "attr, arm 4294966000");
    MCAST_TMR_DeleteNode(manager, node);

    Add(0xF0000000);
    EXPECT_EQ(Calls(), "attr, arm 4026531840");
}

TEST_F(TimerManager, ExpirySaturates)
{
    struct Row {
        uint32_t seconds;
        uint32_t expiry;
    };

    for (Row row : {Row{0xFFFFFFFF, 0xFFFFFFFF}, Row{0xFFFFFFFF - 1000, 0xFFFFFFFF},
                    Row{0xFFFFFFFF - 1001, 0xFFFFFFFE}, Row{0xFFFFFFFF - 999, 0xFFFFFFFF}}) {
        MCAST_TMR_NODE_S *node = Add(row.seconds);

        EXPECT_EQ(node->expiry, row.expiry) << row.seconds;
        EXPECT_EQ(MCAST_TMR_RefreshNode(manager, node, 1), MCAST_OK);
        EXPECT_EQ(MCAST_TMR_RefreshNode(manager, node, row.seconds), MCAST_OK);
        EXPECT_EQ(node->expiry, row.expiry) << row.seconds;
        MCAST_TMR_DeleteNode(manager, node);
    }
}

TEST_F(TimerManager, ATimerThatNeverExpiresDoesNotArmAnEmptyManager)
{
    Add(0xFFFFFFFF);
    EXPECT_EQ(Calls(), "");
}

TEST_F(TimerManager, RefreshArmsOnlyForAnEarlierTop)
{
    MCAST_TMR_NODE_S *first = Add(10);
    MCAST_TMR_NODE_S *second = Add(20);
    Calls();
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, first, 15), MCAST_OK);
    EXPECT_EQ(Calls(), "") << "the earliest became later";
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, second, 16), MCAST_OK);
    EXPECT_EQ(Calls(), "") << "still not the earliest";
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, second, 16), MCAST_OK);
    EXPECT_EQ(Calls(), "") << "unchanged";
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, second, 5), MCAST_OK);
    EXPECT_EQ(Calls(), "attr, arm 5000");
    EXPECT_EQ(MCAST_MinHeapTop(manager->heap), second);
    EXPECT_EQ(second->position, 1u);
    EXPECT_EQ(first->position, 2u);
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, second, 30), MCAST_OK);
    EXPECT_EQ(MCAST_MinHeapTop(manager->heap), first);
}

TEST_F(TimerManager, RefreshReturnsThePlatformsCodeWithTheTimerRefreshed)
{
    MCAST_TMR_NODE_S *node = Add(10);
    scripted_timer::platform.get_attr_status = kRefused;
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, node, 4), kRefused);
    EXPECT_EQ(node->expiry, 1004u);
    scripted_timer::platform.get_attr_status = 0;
    scripted_timer::platform.set_status[TIMER_STATE_ARM] = kRefused + 1;
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, node, 3), kRefused + 1);
    EXPECT_EQ(node->expiry, 1003u);
}

TEST_F(TimerManager, AddKeepsTheTimerWhenArmingFails)
{
    Calls();
    scripted_timer::platform.get_attr_status = kRefused;
    EXPECT_NE(Add(10), nullptr);
    EXPECT_EQ(Calls(), "attr");
    scripted_timer::platform.get_attr_status = 0;
    scripted_timer::platform.set_status[TIMER_STATE_ENABLE] = kRefused;
    EXPECT_NE(Add(9), nullptr);
    EXPECT_EQ(Calls(), "attr, enable");
    scripted_timer::platform.set_status.clear();
    EXPECT_NE(Add(8), nullptr);
    EXPECT_EQ(Calls(), "attr, enable, arm 8000");
    EXPECT_EQ(manager->heap->count, 3u);
}

TEST_F(TimerManager, AfterAFailedArmingTheNextAddArmsForTheUnchangedEarliest)
{
    scripted_timer::platform.set_status[TIMER_STATE_ARM] = kRefused;
    Add(5);
    EXPECT_EQ(Calls(), "attr, enable, arm 5000");
    Add(50);
    EXPECT_EQ(Calls(), "attr, arm 5000") << "tried again, and refused again";
    scripted_timer::platform.set_status.clear();
    Add(50);
    EXPECT_EQ(Calls(), "attr, arm 5000");
    Add(50);
    EXPECT_EQ(Calls(), "") << "armed now";
}

TEST_F(TimerManager, AfterAFailedArmingTheNextRefreshArmsForTheUnchangedEarliest)
{
    MCAST_TMR_NODE_S *later = Add(50);
    scripted_timer::platform.set_status[TIMER_STATE_ARM] = kRefused;
    Add(5);
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, later, 60), kRefused);
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, later, 60), kRefused) << "also when nothing changes";
    Calls();
    scripted_timer::platform.set_status.clear();
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, later, 60), MCAST_OK);
    EXPECT_EQ(Calls(), "attr, arm 5000");
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, later, 70), MCAST_OK);
    EXPECT_EQ(Calls(), "") << "armed now";
}

TEST_F(TimerManager, AfterAFailedArmingARefreshThatMovesTheEarliestArmsForTheNewOne)
{
    scripted_timer::platform.get_attr_status = kRefused;
    MCAST_TMR_NODE_S *first = Add(5);
    Add(50);
    scripted_timer::platform.get_attr_status = 0;
    Calls();
    EXPECT_EQ(MCAST_TMR_RefreshNode(manager, first, 60), MCAST_OK);
    EXPECT_EQ(Calls(), "attr, enable, arm 50000");
}

TEST_F(TimerManager, AFailedArmingIsForgottenWithoutTimers)
{
    scripted_timer::platform.set_status[TIMER_STATE_ARM] = kRefused;
    MCAST_TMR_DeleteNode(manager, Add(5));
    scripted_timer::platform.set_status.clear();
    Calls();
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(Calls(), "stop");
    Add(0xFFFFFFFF);
    EXPECT_EQ(Calls(), "") << "as in a manager that never had a timer";
}

TEST_F(TimerManager, AddFailsWithoutMemoryForTheTimerOrTheHeap)
{
    for (int index = 0; index < 16; ++index) {
        Add(10);
    }
    Calls();
    unsigned long needed = fault::ForEveryAllocation([this](unsigned long) {
        MCAST_TMR_NODE_S *node = Add(1);

        EXPECT_EQ(node == nullptr, fault::Fired());
        if (node == nullptr) {
            EXPECT_EQ(manager->heap->count, 16u);
            EXPECT_EQ(Calls(), "");
        }
    });
    EXPECT_EQ(needed, 3u);
    EXPECT_EQ(manager->heap->count, 17u);
}

TEST_F(TimerManager, DeleteTakesTheTimerOutAndLeavesThePlatformTimerAlone)
{
    MCAST_TMR_NODE_S *first = Add(10, 1);

    Add(20, 2);
    Calls();
    MCAST_TMR_DeleteNode(manager, first);
    EXPECT_EQ(Calls(), "");
    EXPECT_EQ(manager->heap->count, 1u);

    scripted_timer::Advance(10);
    EXPECT_TRUE(scripted_timer::FireIfDue()) << "armed for the deleted timer still";
    Calls();
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(Calls(), "stop, attr, enable, arm 10000");
    EXPECT_TRUE(g_ran.empty());
}

} // namespace
