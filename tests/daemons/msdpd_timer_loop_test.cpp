/*
 * The event loop's timers where the seconds since boot, of which they have 32 bits, begin again at 0: here, because this
 * program's time is scripted.
 */
#include <gtest/gtest.h>

#include "daemons/common/timer.h"
#include "daemons/common/timer_loop.h"
#include "support/scripted_timer.h"

using namespace mcastd;
using scripted_timer::platform;

namespace
{

constexpr uint64_t AGAIN_0_S = uint64_t{1} << 32;

struct Ending {
    unsigned times = 0;
    Timer timer;

    void start(TimerLoop &timers, uint32_t seconds)
    {
        timer_start(
            timers.manager(), timer, seconds * MS_PER_S,
            [](void *owner) { ++static_cast<Ending *>(owner)->times; }, this);
    }
};

} // namespace

TEST(TimerLoopBeyondTheLastSecond, WhatWasDueBeforeEndsAndWhatIsDueLaterWaits)
{
    scripted_timer::Reset();
    platform.now_ms = (AGAIN_0_S - 20) * MS_PER_S;
    Reactor reactor;
    Ending before;
    Ending beyond;
    Ending next;
    Ending later;
    {
        TimerLoop timers(reactor);
        ASSERT_TRUE(timers.open());
        before.start(timers, 10);
        beyond.start(timers, 60); // past the last second that a timer can be set to
        platform.now_ms = (AGAIN_0_S + 5) * MS_PER_S;
        next.start(timers, 1);
        later.start(timers, 100);
        scripted_timer::ServeFor(MS_PER_S);
        EXPECT_EQ(next.times, 1u);
        EXPECT_EQ(before.times, 1u);
        EXPECT_EQ(beyond.times, 1u);
        EXPECT_EQ(later.times, 0u);
        platform.now_ms += 100 * MS_PER_S;
        MCAST_TMR_ProcExpires(timers.manager());
        EXPECT_EQ(later.times, 1u);
    }
    scripted_timer::Reset();
}
