// Timers and the boot-time clock. The time limits only bound a failing run.
#include "platform/timer.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

#include "mcasthost/loop.h"
#include "platform/random.h"

namespace
{

std::function<void(uint64_t *)> g_action;
int g_fired;

void fired(uint64_t parameters[4])
{
    ++g_fired;
    if (g_action) {
        g_action(parameters);
    }
}

uint64_t boot_ms()
{
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

class Timers : public testing::Test
{
protected:
    void SetUp() override
    {
        g_action = nullptr;
        g_fired = 0;
        loop_ = HOST_LoopCreate();
        service_ = HOST_LoopTimerService(loop_);
        ASSERT_NE(service_, nullptr);
    }
    void TearDown() override
    {
        EXPECT_EQ(HOST_LoopDestroy(loop_), 0u);
    }
    // Serves until so many timers fired.
    void run_until_fired(int count)
    {
        while (g_fired < count) {
            ASSERT_GE(HOST_LoopRunOnce(loop_, 60000), 0);
        }
    }
    uint32_t state(TIMER_ID timer)
    {
        TIMER_ATTR_S attributes;
        return Timer_GetAttr(service_, timer, &attributes, 0) == 0 ? attributes.state : 99;
    }
    TIMER_ID armed_later()
    {
        return Timer_Create(service_, TIMER_KIND_ARMED_LATER, TIMER_NO_PERIOD, fired, nullptr);
    }
    int loop_ = -1;
    TIMER_SERVICE service_ = nullptr;
};

TEST_F(Timers, WalksThroughItsStates)
{
    TIMER_ID timer = armed_later();
    ASSERT_NE(timer, TIMER_NONE);
    EXPECT_EQ(state(timer), 0u);
    EXPECT_NE(Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 1), 0u); // stopped
    EXPECT_EQ(Timer_SetStatus(service_, timer, TIMER_STATE_ENABLE, 0), 0u);
    EXPECT_NE(state(timer), 0u);
    EXPECT_EQ(Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 1), 0u);
    EXPECT_EQ(state(timer), TIMER_STATE_ARM);
    run_until_fired(1);
    EXPECT_EQ(state(timer), TIMER_STATE_ENABLE);
    EXPECT_EQ(Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 0), 0u); // again, without enabling
    run_until_fired(2);
    EXPECT_EQ(Timer_SetStatus(service_, timer, TIMER_STATE_STOP, 0), 0u);
    EXPECT_EQ(state(timer), 0u);
    EXPECT_NE(Timer_SetStatus(service_, timer, 2, 0), 0u);
    EXPECT_EQ(Timer_Delete(service_, timer), 0u);
}

TEST_F(Timers, StoppedTimerDoesNotFire)
{
    TIMER_ID stopped = armed_later();
    TIMER_ID later = armed_later();
    for (TIMER_ID timer : {stopped, later}) {
        Timer_SetStatus(service_, timer, TIMER_STATE_ENABLE, 0);
    }
    Timer_SetStatus(service_, stopped, TIMER_STATE_ARM, 0);
    Timer_SetStatus(service_, stopped, TIMER_STATE_STOP, 0);
    Timer_SetStatus(service_, later, TIMER_STATE_ARM, 2);
    run_until_fired(1);
    EXPECT_EQ(g_fired, 1);
    EXPECT_EQ(state(later), TIMER_STATE_ENABLE);
}

TEST_F(Timers, NeverFiresEarlyByTheBootClock)
{
    uint64_t before = boot_ms();
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 20, fired, nullptr);
    run_until_fired(1);
    EXPECT_GE(boot_ms(), before + 20);
}

TEST_F(Timers, LaterArmedEarlierTimerFiresFirst)
{
    std::vector<uint64_t> order;
    g_action = [&](uint64_t *parameters) { order.push_back(parameters[0]); };
    uint64_t words[4] = {1, 2, 3, 4};
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 60, fired, words);
    words[0] = 2; // the words were copied
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 1, fired, words);
    words[0] = 3;
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 30, fired, words);
    run_until_fired(3);
    EXPECT_EQ(order, (std::vector<uint64_t>{2, 3, 1}));
}

TEST_F(Timers, RearmedTimerFiresOnceAtItsNewTime)
{
    TIMER_ID timer = armed_later();
    Timer_SetStatus(service_, timer, TIMER_STATE_ENABLE, 0);
    Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 3600000);
    Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 1); // earlier
    run_until_fired(1);
    Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 0);
    Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 3600000); // later
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 2, fired, nullptr);
    run_until_fired(2);
    EXPECT_EQ(g_fired, 2);
    EXPECT_EQ(state(timer), TIMER_STATE_ARM);
}

TEST_F(Timers, OneShotDeletesItselfAfterItsHandler)
{
    TIMER_ID timer = TIMER_NONE;
    uint32_t during = 99;
    g_action = [&](uint64_t *) { during = state(timer); };
    timer = Timer_Create(service_, TIMER_KIND_ONE_SHOT, 0, fired, nullptr);
    run_until_fired(1);
    EXPECT_EQ(during, TIMER_STATE_ENABLE);
    EXPECT_EQ(state(timer), 99u);
    EXPECT_NE(Timer_Delete(service_, timer), 0u);
}

TEST_F(Timers, HandlerMayDeleteItsOwnTimerOfEitherKind)
{
    for (uint32_t kind : {TIMER_KIND_ARMED_LATER, TIMER_KIND_ONE_SHOT}) {
        TIMER_ID timer = TIMER_NONE;
        g_fired = 0;
        g_action = [&](uint64_t *parameters) {
            EXPECT_EQ(Timer_Delete(service_, timer), 0u);
            EXPECT_NE(Timer_Delete(service_, timer), 0u);
            EXPECT_EQ(parameters[3], 7u); // still there
        };
        uint64_t words[4] = {0, 0, 0, 7};
        timer = Timer_Create(service_, kind, 0, fired, words);
        Timer_SetStatus(service_, timer, TIMER_STATE_ENABLE, 0);
        Timer_SetStatus(service_, timer, TIMER_STATE_ARM, 0);
        run_until_fired(1);
    }
}

TEST_F(Timers, HandlerMayDeleteAnotherDueTimerAndChainNewOnes)
{
    TIMER_ID timers[2];
    g_action = [&](uint64_t *) { // whichever is first deletes both
        Timer_Delete(service_, timers[0]);
        Timer_Delete(service_, timers[1]);
    };
    timers[0] = Timer_Create(service_, TIMER_KIND_ONE_SHOT, 0, fired, nullptr);
    timers[1] = Timer_Create(service_, TIMER_KIND_ONE_SHOT, 0, fired, nullptr);
    run_until_fired(1);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), 0);
    EXPECT_EQ(g_fired, 1);

    g_fired = 0;
    g_action = [&](uint64_t *) {
        if (g_fired < 20) {
            Timer_Create(service_, TIMER_KIND_ONE_SHOT, 0, fired, nullptr);
        }
    };
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 0, fired, nullptr);
    run_until_fired(20);
}

TEST_F(Timers, IdentifiersAreNotUsedAgain)
{
    std::vector<TIMER_ID> seen;
    for (int i = 0; i < 1000; ++i) {
        TIMER_ID timer = armed_later();
        EXPECT_EQ(Timer_Delete(service_, timer), 0u);
        seen.push_back(timer);
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
    TIMER_ATTR_S attributes;
    EXPECT_NE(Timer_GetAttr(service_, seen[0], &attributes, 0), 0u);
    EXPECT_NE(Timer_SetStatus(service_, seen[0], TIMER_STATE_STOP, 0), 0u);
}

TEST_F(Timers, BadArgumentsAreRefused)
{
    EXPECT_EQ(Timer_Create(nullptr, 1, 1, fired, nullptr), TIMER_NONE);
    EXPECT_EQ(Timer_Create(service_, 1, 1, nullptr, nullptr), TIMER_NONE);
    EXPECT_EQ(Timer_Create(service_, 0, 1, fired, nullptr), TIMER_NONE);
    EXPECT_EQ(Timer_Create(service_, 3, 1, fired, nullptr), TIMER_NONE);
    EXPECT_NE(Timer_SetStatus(nullptr, 1, 0, 0), 0u);
    EXPECT_NE(Timer_Delete(nullptr, 1), 0u);
    EXPECT_NE(Timer_GetAttr(service_, armed_later(), nullptr, 0), 0u);
}

uint64_t count_call(uint32_t, int32_t)
{
    ++g_fired;
    return 0;
}

void stop_loop(uint64_t parameters[4])
{
    HOST_LoopStop(static_cast<int32_t>(parameters[0]));
}

TEST_F(Timers, RunUnderAFloodOfReadyDescriptors)
{
    std::vector<int> flood;
    for (int i = 0; i < 32; ++i) {
        flood.push_back(eventfd(1, EFD_CLOEXEC)); // never read: always ready
        HOST_LoopAdd(loop_, flood.back(), EPOLLIN, count_call);
    }
    uint64_t words[4] = {static_cast<uint64_t>(loop_), 0, 0, 0};
    Timer_Create(service_, TIMER_KIND_ONE_SHOT, 1, stop_loop, words);
    EXPECT_EQ(HOST_LoopRun(loop_), 0u); // ends only when the timer gets its turn
    EXPECT_GT(g_fired, 0);
    for (int fd : flood) {
        close(fd);
    }
}

TEST_F(Timers, LoopIsDestroyedWithArmedTimers)
{
    for (int i = 0; i < 10; ++i) {
        Timer_Create(service_, TIMER_KIND_ONE_SHOT, 0, fired, nullptr);
    }
    int second = HOST_LoopCreate();
    EXPECT_EQ(HOST_LoopDestroy(second), 0u);
    EXPECT_EQ(g_fired, 0);
}

TEST(BootTime, IsTheBootClockInSecondsAndNanoseconds)
{
    uint64_t before = boot_ms();
    uint32_t seconds = 0;
    uint32_t sub_seconds = 0;
    TIME_GetSystemBootTime(&seconds, &sub_seconds);
    uint64_t told = uint64_t{seconds} * 1000 + sub_seconds / 1000000;
    EXPECT_LT(sub_seconds, 1000000000u);
    EXPECT_GE(told, before);
    EXPECT_LE(told, boot_ms());
}

TEST(RandomBytes, FillExactlyTheLengthAsked)
{
    for (int length : {0, 1, 4, 256, 257, 100000}) {
        std::vector<uint8_t> bytes(static_cast<size_t>(length) + 8, 0);
        EXPECT_EQ(FIPS_rand_bytes(bytes.data(), length), 1);
        EXPECT_TRUE(std::all_of(bytes.end() - 8, bytes.end(), [](uint8_t byte) { return byte == 0; }));
        if (length >= 256) { // all zero with a chance of 2 to the -2048
            EXPECT_FALSE(std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; }));
            EXPECT_FALSE(std::all_of(bytes.end() - 72, bytes.end(), [](uint8_t byte) { return byte == 0; }));
        }
    }
    uint8_t byte = 0;
    EXPECT_EQ(FIPS_rand_bytes(&byte, -1), 0);
    EXPECT_EQ(FIPS_rand_bytes(nullptr, 4), 0);
}

} // namespace
