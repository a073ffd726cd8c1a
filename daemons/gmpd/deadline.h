/*
 * When something ends, without a timer of its own: a second since boot, compared when somebody looks. It rounds as
 * timers do (common/timer.h), so that it and a timer of the same length end in the same second.
 */
#ifndef DAEMONS_GMPD_DEADLINE_H
#define DAEMONS_GMPD_DEADLINE_H

#include <cstdint>

#include "daemons/common/timer.h"

namespace gmpd
{

class Deadline
{
public:
    bool running() const
    {
        return running_;
    }

    // The second since boot at which it ends, or ended; of a running one.
    uint32_t end_s() const
    {
        return end_s_;
    }

    // Whether a running one has ended.
    bool is_due() const
    {
        return running_ && end_s_ <= mcastd::boot_time_s();
    }

    // Seconds until the end; 0 when it does not run or is due.
    uint32_t remaining_s() const
    {
        const uint32_t now_s = mcastd::boot_time_s();
        return running_ && end_s_ > now_s ? end_s_ - now_s : 0;
    }

    // Sets the end, running or not.
    void start(uint32_t timeout_ms)
    {
        start_at(mcastd::timer_end_s(timeout_ms));
    }
    void start_at(uint32_t end_s)
    {
        end_s_ = end_s;
        running_ = true;
    }
    void stop()
    {
        running_ = false;
    }

    // Whether it runs and ends later than one started now for timeout_ms would.
    bool is_beyond(uint32_t timeout_ms) const
    {
        return running_ && end_s_ > mcastd::timer_end_s(timeout_ms);
    }

    // Brings the end of a running one forward, or puts it off, to timeout_ms from now at the latest, or earliest.
    void lower(uint32_t timeout_ms)
    {
        if (is_beyond(timeout_ms)) {
            start(timeout_ms);
        }
    }
    void raise(uint32_t timeout_ms)
    {
        if (running_ && end_s_ < mcastd::timer_end_s(timeout_ms)) {
            start(timeout_ms);
        }
    }

private:
    uint32_t end_s_ = 0;
    bool running_ = false;
};

} // namespace gmpd

#endif
