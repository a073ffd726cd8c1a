#include "timer_fixture.h"

using namespace container_test;

namespace
{

TEST_F(TimerManager, ProcessingRunsEveryDueTimerEarliestFirstAndArmsForTheNext)
{
    Add(7, 3);
    Add(5, 1);
    Add(5, 2);
    Add(9, 4);
    scripted_timer::Advance(5);
    Calls();
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(g_ran, (Names{1, 2}));
    EXPECT_EQ(Calls(), "stop, attr, enable, arm 2000");

    scripted_timer::Advance(100);
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(g_ran, (Names{1, 2, 3, 4}));
    EXPECT_EQ(Calls(), "stop") << "left stopped when no timer remains";
    EXPECT_EQ(manager->heap->count, 0u);
}

TEST_F(TimerManager, ATimerDueExactlyNowRunsAndOneASecondLaterDoesNot)
{
    Add(5, 1);
    Add(6, 2);
    scripted_timer::Advance(5);
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(g_ran, (Names{1}));
}

TEST_F(TimerManager, ProcessingWhenNothingIsDueOnlyArms)
{
    MCAST_TMR_NODE_S *node = Add(5, 1);
    MCAST_TMR_RefreshNode(manager, node, 8);
    scripted_timer::Advance(5);
    EXPECT_TRUE(scripted_timer::FireIfDue());
    Calls();
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_TRUE(g_ran.empty());
    EXPECT_EQ(Calls(), "stop, attr, enable, arm 3000");
}

TEST_F(TimerManager, ProcessingReturnsThePlatformsCodeAndIgnoresTheResultOfStopping)
{
    Add(5, 1);
    Add(50, 2);
    scripted_timer::Advance(5);
    scripted_timer::platform.set_status[TIMER_STATE_STOP] = kRefused;
    scripted_timer::platform.set_status[TIMER_STATE_ARM] = kRefused + 1;
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), kRefused + 1);
    EXPECT_EQ(g_ran, (Names{1}));
    EXPECT_EQ(manager->heap->count, 1u);

    scripted_timer::platform.set_status.clear();
    scripted_timer::platform.set_status[TIMER_STATE_ENABLE] = kRefused + 2;
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), kRefused + 2);
    scripted_timer::platform.get_attr_status = kRefused + 3;
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), kRefused + 3);

    scripted_timer::platform.get_attr_status = 0;
    scripted_timer::platform.set_status.clear();
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_TRUE(scripted_timer::Only().armed);
}

TEST_F(TimerManager, ATimerIsFreedRightAfterItsCallback)
{
    static long during;
    Add(1, 1);
    Add(2, 2);
    long pending = fault::LiveBlocks();
    g_act = [](uint64_t[4]) { during = fault::LiveBlocks(); };
    scripted_timer::Advance(1);
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(during, pending);
    EXPECT_EQ(fault::LiveBlocks(), pending - 1);
}

TEST_F(TimerManager, ATimerWithoutCallbackIsFreedAllTheSame)
{
    MCAST_TMR_AddNode(manager, 1, nullptr, nullptr);
    long pending = fault::LiveBlocks();

    scripted_timer::Advance(1);
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(fault::LiveBlocks(), pending - 1);
}

TEST_F(TimerManager, ATimerAddedByACallbackAndDueNowRunsInTheSameCall)
{
    g_act = [this](uint64_t data[4]) {
        if (data[0] < 4) {
            Add(0, data[0] + 1);
        } else if (data[0] == 4) {
            Add(1, 100);
        }
    };
    Add(1, 1);
    scripted_timer::Advance(1);
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(g_ran, (Names{1, 2, 3, 4}));
    EXPECT_EQ(manager->heap->count, 1u);
    EXPECT_EQ(scripted_timer::Only().due_ms, scripted_timer::platform.now_ms + 1000);
}

TEST_F(TimerManager, NowIsReadOnceForTheWholeProcessing)
{
    g_act = [this](uint64_t data[4]) {
        scripted_timer::Advance(10);
        if (data[0] == 1) {
            Add(0, 3); /* due at the new now, which is later than the one processing goes by */
        }
    };
    Add(1, 1);
    Add(2, 2);
    scripted_timer::Advance(1);
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(g_ran, (Names{1}));
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(g_ran, (Names{1, 2, 3}));
}

TEST_F(TimerManager, ACallbackMayDeleteAndRefreshOtherTimers)
{
    MCAST_TMR_NODE_S *deleted = Add(5, 2);
    MCAST_TMR_NODE_S *later = Add(5, 3);
    MCAST_TMR_NODE_S *sooner = Add(50, 4);
    g_act = [&](uint64_t data[4]) {
        if (data[0] == 1) {
            MCAST_TMR_DeleteNode(manager, deleted);
            MCAST_TMR_RefreshNode(manager, later, 7);
            MCAST_TMR_RefreshNode(manager, sooner, 0);
        }
    };
    Add(4, 1);
    scripted_timer::Advance(5);
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(g_ran, (Names{1, 4}));
    EXPECT_EQ(MCAST_MinHeapTop(manager->heap), later);
}

TEST_F(TimerManager, DeletingOrRefreshingItsOwnTimerFromACallbackChangesNothing)
{
    MCAST_TMR_NODE_S *self = Add(1, 1);
    MCAST_TMR_NODE_S *other = Add(60, 2);
    Add(70, 3);
    g_act = [&](uint64_t data[4]) {
        if (data[0] == 1) {
            Calls();
            EXPECT_EQ(MCAST_TMR_RefreshNode(manager, self, 0), MCAST_OK);
            EXPECT_EQ(MCAST_TMR_RefreshNode(manager, self, 7), MCAST_OK);
            MCAST_TMR_DeleteNode(manager, self);
            EXPECT_EQ(Calls(), "");
        }
    };
    scripted_timer::Advance(1);
    MCAST_TMR_ProcExpires(manager);
    EXPECT_EQ(g_ran, (Names{1}));
    EXPECT_EQ(manager->heap->count, 2u);
    EXPECT_EQ(MCAST_MinHeapTop(manager->heap), other);
    EXPECT_EQ(scripted_timer::Only().due_ms, scripted_timer::platform.now_ms + 59000);
}

TEST_F(TimerManager, TheLastTimersCallbackMayDeleteItsOwnTimer)
{
    MCAST_TMR_NODE_S *self = Add(1, 1);
    g_act = [&](uint64_t[4]) { MCAST_TMR_DeleteNode(manager, self); };
    scripted_timer::Advance(1);
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(manager->heap->count, 0u);
}

TEST_F(TimerManager, ACallbackMayProcessAgain)
{
    g_act = [this](uint64_t data[4]) {
        if (data[0] == 1) {
            EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
        }
    };
    Add(1, 1);
    Add(2, 2);
    Add(9, 3);
    scripted_timer::Advance(2);
    EXPECT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
    EXPECT_EQ(g_ran, (Names{1, 2}));
    EXPECT_EQ(manager->heap->count, 1u);
    EXPECT_TRUE(scripted_timer::Only().armed);
}

TEST_F(TimerManager, DestroyFreesPendingTimersWithoutCallingThem)
{
    for (uint64_t name = 0; name < 100; ++name) {
        Add(static_cast<uint32_t>(name * 37 % 100), name);
    }
    Calls();
    MCAST_TMR_Destroy(manager);
    EXPECT_EQ(Calls(), "delete");
    EXPECT_TRUE(g_ran.empty());
    EXPECT_EQ(fault::LiveBlocks(), live);
    manager = nullptr;
}

TEST_F(TimerManager, LivesThroughManyLifeCycles)
{
    for (int cycle = 0; cycle < 50; ++cycle) {
        MCAST_TMR_S *other = MCAST_TMR_Create(scripted_timer::Service(), Fired, nullptr);

        for (uint32_t seconds = 0; seconds < 40; ++seconds) {
            MCAST_TMR_AddNode(other, seconds, nullptr, nullptr);
        }
        scripted_timer::Advance(20);
        EXPECT_EQ(MCAST_TMR_ProcExpires(other), MCAST_OK);
        EXPECT_EQ(other->heap->count, 19u);
        MCAST_TMR_Destroy(other);
    }
}

} // namespace
