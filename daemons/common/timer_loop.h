/*
 * The daemon's timer manager in its event loop.
 */
#ifndef DAEMONS_COMMON_TIMER_LOOP_H
#define DAEMONS_COMMON_TIMER_LOOP_H

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <utility>

#include "daemons/common/descriptor.h"
#include "daemons/common/reactor.h"
#include "mcast/timer.h"

namespace mcastd
{

// The second of CLOCK_BOOTTIME that the timers, which count seconds modulo 2^32, call boot_s; now_s is the present
// one, and boot_s less than 2^31 seconds away from it.
int64_t moment_of(uint32_t boot_s, int64_t now_s);

// How long timers that are due may run before everything else in the loop has a turn.
constexpr int TIMER_TURN_MS = 5;

// How long they wait at most for somebody who is behind with what the last ones caused, and how often they look.
constexpr int TIMER_PATIENCE_MS = 20;
constexpr int TIMER_LOOK_MS = 1;

// How long timers may run in a turn while somebody stays behind whom they have waited for in vain.
constexpr int TIMER_SHORT_TURN_MS = 2;

class TimerLoop
{
public:
    explicit TimerLoop(Reactor &reactor) : reactor_(reactor)
    {
    }
    ~TimerLoop();
    TimerLoop(const TimerLoop &) = delete;
    TimerLoop &operator=(const TimerLoop &) = delete;

    // Makes the manager and its timer in the loop. False on failure, which is logged.
    bool open();

    // NULL before open.
    MCAST_TMR_S *manager() const
    {
        return manager_;
    }

    // While behind returns true, timers that are due wait for the patience at most.
    void set_brake(std::function<bool()> behind)
    {
        behind_ = std::move(behind);
    }

    // Sets the wake-up for the earliest timer; to be called after everything that may have changed it.
    void set_wake_up();

private:
    static void platform_timer_fired(uint64_t parameters[4]);
    void run_due();
    MCAST_TMR_NODE_S *due_timer();
    bool is_behind() const;
    bool put_off(uint32_t due_s);
    bool set_wake_up_to(const timespec &moment, uint32_t due_s);
    void begin_anew();
    void woken();

    using Clock = std::chrono::steady_clock;

    Reactor &reactor_;
    std::function<bool()> behind_;
    Clock::time_point patience_ends_;
    bool put_off_ = false; // somebody is waited for
    MCAST_TMR_S *manager_ = nullptr;
    Descriptor wake_up_;
    uint32_t last_s_ = 0;    // the second in which timers ran last
    uint32_t wake_up_s_ = 0; // what wake_up_ is set to, seconds since boot; 0 when it is not
};

} // namespace mcastd

#endif
