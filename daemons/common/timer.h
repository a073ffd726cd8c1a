/*
 * Timers that do not end early. The library's timers are due at whole seconds since boot, counted from the
 * second in which they are started; a timeout of 2 s started at 10.9 s would end at 12.0 s, after 1.1 s. The
 * functions here therefore round the end up to the next whole second: late by less than a second, early
 * never. Only what repeats a message may be early, by half a second; see timer_start_near.
 */
#ifndef DAEMONS_COMMON_TIMER_H
#define DAEMONS_COMMON_TIMER_H

#include <cstdint>

#include "mcast/timer.h"

namespace mcastd
{

constexpr uint32_t MS_PER_S = 1000;

// Called when a timer ends, with what was given at its start. The timer is then stopped and may be started
// again or freed.
using TimerHandler = void (*)(void *owner);

// A timer inside the record whose time it keeps. It must be stopped before the record is freed.
struct Timer {
    MCAST_TMR_NODE_S *node = nullptr;

    bool running() const
    {
        return node != nullptr;
    }
};

// Seconds since boot, the time in which the timers count.
uint32_t boot_time_s();

// Starts the timer or, when it runs, starts it over. handler and owner of a running timer stay as they are. Throws
// std::bad_alloc, as all that start a stopped timer, when not even the reserve (memory.h) has room for it.
void timer_start(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms, TimerHandler handler, void *owner);

// The same where the caller can do without the timer: false, with the timer stopped, when there is no memory
// for it. A running timer is always started over.
bool timer_try_start(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms, TimerHandler handler,
                     void *owner);

// As timer_start, for what is sent again and again: to the nearest whole second, so that a period is kept.
void timer_start_near(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms, TimerHandler handler,
                      void *owner);

// Starts the timer, or starts it over, to end at a second since boot.
void timer_start_at(MCAST_TMR_S *manager, Timer &timer, uint32_t end_s, TimerHandler handler, void *owner);

// Stops the timer without calling its handler; a stopped one stays stopped.
void timer_stop(MCAST_TMR_S *manager, Timer &timer);

// Brings the end of a running timer forward to timeout_ms from now when it would end later.
void timer_lower(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms);

// Puts the end of a running timer off to timeout_ms from now when it would end earlier.
void timer_raise(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms);

// The second since boot at which a timer ends that is started now for timeout_ms.
uint32_t timer_end_s(uint32_t timeout_ms);

// Whether the timer runs and ends later than one started now for timeout_ms would.
bool timer_beyond(const Timer &timer, uint32_t timeout_ms);

// Whether the timer's end has come though its handler has not been called yet.
bool timer_is_due(const Timer &timer);

// Seconds until the timer ends; 0 when it does not run or is due.
uint32_t timer_remaining_s(const Timer &timer);

} // namespace mcastd

#endif
