/*
 * Timers in the event loop: what is due does not run without end, and the loop's seconds are those of the timers.
 */
#include <chrono>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "daemons/common/timer.h"
#include "daemons/common/timer_loop.h"

using namespace mcastd;

namespace
{

struct Slow {
    unsigned *ended;
    Timer timer;
};

void work_for(int ms, void *owner)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
    }
    ++*static_cast<Slow *>(owner)->ended;
}

// Takes longer than all timers may take together.
void work(void *owner)
{
    work_for(2 * TIMER_TURN_MS, owner);
}

// Takes longer than they may while somebody is behind, and much less than otherwise.
void work_little(void *owner)
{
    work_for(TIMER_SHORT_TURN_MS, owner);
}

} // namespace

TEST(TimerLoop, EverythingElseHasATurnBetweenTimersThatAreDue)
{
    Reactor reactor;
    TimerLoop timers(reactor);
    unsigned ended = 0;
    unsigned turns = 0;
    Slow slow[3] = {{&ended, {}}, {&ended, {}}, {&ended, {}}};
    const int ready = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
    ASSERT_TRUE(timers.open());
    ASSERT_TRUE(reactor.add(ready, EPOLLIN, [&turns](uint32_t) { ++turns; }));
    for (Slow &each : slow) {
        timer_start(timers.manager(), each.timer, 0, work, &each);
    }
    while (ended < 3) {
        const unsigned before = ended;
        timers.set_wake_up();
        ASSERT_TRUE(reactor.run_once(2000));
        ASSERT_LE(ended, before + 1) << "in one round";
    }
    EXPECT_GE(turns, 2u);
    reactor.remove(ready);
    close(ready);
}

TEST(Timer, IsRaisedAndLoweredButNeverTheOtherWay)
{
    Reactor reactor;
    TimerLoop timers(reactor);
    Timer timer;
    ASSERT_TRUE(timers.open());
    timer_raise(timers.manager(), timer, 100000);
    timer_lower(timers.manager(), timer, 100000);
    EXPECT_FALSE(timer.running()) << "a stopped one stays stopped";
    EXPECT_FALSE(timer_beyond(timer, 0));
    timer_start(timers.manager(), timer, 100000, work, nullptr);
    EXPECT_FALSE(timer_beyond(timer, 100000)) << "not beyond its own end";
    EXPECT_TRUE(timer_beyond(timer, 50000));
    timer_raise(timers.manager(), timer, 50000);
    EXPECT_TRUE(timer_beyond(timer, 50000));
    timer_raise(timers.manager(), timer, 200000);
    EXPECT_TRUE(timer_beyond(timer, 150000));
    timer_lower(timers.manager(), timer, 300000);
    EXPECT_FALSE(timer_beyond(timer, 250000));
    timer_lower(timers.manager(), timer, 50000);
    EXPECT_FALSE(timer_beyond(timer, 60000));
    timer_stop(timers.manager(), timer);
    EXPECT_EQ(timer_remaining_s(timer), 0u);
}

TEST(TimerLoop, TimersWaitForSomebodyWhoIsBehindAndNotForEver)
{
    Reactor reactor;
    TimerLoop timers(reactor);
    unsigned ended = 0;
    unsigned asked = 0;
    bool behind = true;
    Slow slow[3] = {{&ended, {}}, {&ended, {}}, {&ended, {}}};
    ASSERT_TRUE(timers.open());
    timers.set_brake([&] {
        ++asked;
        return behind;
    });
    for (Slow &each : slow) {
        timer_start(timers.manager(), each.timer, 0, work, &each);
    }
    timers.set_wake_up();
    ASSERT_TRUE(reactor.run_once(2000));
    EXPECT_EQ(ended, 0u);
    EXPECT_EQ(asked, 1u);
    while (ended < 2) {
        timers.set_wake_up();
        ASSERT_TRUE(reactor.run_once(2000));
    }
    behind = false;
    timers.set_wake_up();
    while (ended < 3) {
        ASSERT_TRUE(reactor.run_once(2000));
    }
}

TEST(TimerLoop, TimersThatWaitedInVainAddLittle)
{
    Reactor reactor;
    TimerLoop timers(reactor);
    unsigned ended = 0;
    Slow slow[3] = {{&ended, {}}, {&ended, {}}, {&ended, {}}};
    ASSERT_TRUE(timers.open());
    timers.set_brake([] { return true; });
    for (Slow &each : slow) {
        timer_start(timers.manager(), each.timer, 0, work_little, &each);
    }
    while (ended < 3) {
        const unsigned before = ended;
        timers.set_wake_up();
        ASSERT_TRUE(reactor.run_once(2000));
        ASSERT_LE(ended, before + 1) << "in one round";
    }
}

TEST(TimerLoop, SecondsBeyondTheRangeOfTheTimersStayAhead)
{
    constexpr int64_t WRAP = int64_t{1} << 32;
    EXPECT_EQ(moment_of(1000, 900), 1000);
    EXPECT_EQ(moment_of(900, 1000), 900);
    EXPECT_EQ(moment_of(1000, WRAP + 900), WRAP + 1000);
    EXPECT_EQ(moment_of(5, WRAP - 5), WRAP + 5);
    EXPECT_EQ(moment_of(UINT32_MAX, WRAP + 5), WRAP - 1);
}
