/*
 * Virtual time, and what is to happen in it: events in the order of their time, those of the same time in the
 * order in which they were made. Time stands still while anything can run.
 */
#ifndef TESTS_SIMULATION_KERNEL_CLOCK_H
#define TESTS_SIMULATION_KERNEL_CLOCK_H

#include <functional>
#include <queue>
#include <vector>

#include "tests/simulation/kernel/basics.h"

namespace sim
{

constexpr Ns NEVER = UINT64_MAX;

class Clock
{
public:
    // The clock of 32-bit milliseconds that daemons use wraps nine hours after the start.
    static constexpr Ns START = (Ns{1} << 32) * MILLISECOND - 9 * 3600 * SECOND + 437 * MILLISECOND;

    Ns now() const
    {
        return now_;
    }
    // The time since the start.
    Ns elapsed() const
    {
        return now_ - START;
    }
    // An event of the past happens now.
    void at(Ns when, std::function<void()> act);
    void after(Ns delay, std::function<void()> act)
    {
        at(now_ + delay, std::move(act));
    }
    // When the next event is due; NEVER when there is none.
    Ns next() const
    {
        return events_.empty() ? NEVER : events_.top().when;
    }
    // Moves on to a time that is not in the past, and does what is due then.
    void advance(Ns to);

private:
    struct Event {
        Ns when;
        uint64_t order;
        std::function<void()> act;

        bool operator<(const Event &other) const
        {
            return when != other.when ? when > other.when : order > other.order;
        }
    };

    Ns now_ = START;
    uint64_t made_ = 0;
    std::priority_queue<Event> events_;
};

} // namespace sim

#endif
