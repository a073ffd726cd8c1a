/*
 * Timers of milliseconds. Those of common/timer.h count whole seconds and round up, which suits holdtimes; but an
 * override within 2.5 s has to come before a prune that waits 3.0 s.
 */
#ifndef DAEMONS_PIMSMD_MS_TIMER_H
#define DAEMONS_PIMSMD_MS_TIMER_H

#include <cstdint>
#include <functional>
#include <optional>

#include "mcast/heap.h"

namespace pimsmd
{

class MsQueue;

// A timer inside the record whose time it keeps. It stops when the record goes; it is neither copied nor moved. The
// queue outlives it.
class MsTimer
{
public:
    // Called when it ends, with what was given at its start. The timer is then stopped and may be started again or
    // destroyed.
    using Handler = void (*)(void *owner);

    MsTimer() = default;
    MsTimer(const MsTimer &) = delete;
    MsTimer &operator=(const MsTimer &) = delete;
    ~MsTimer();

    bool running() const
    {
        return queue_ != nullptr;
    }

private:
    friend class MsQueue;

    MsQueue *queue_ = nullptr; // while it runs
    uint64_t position_ = 0;    // in the queue's heap
    uint64_t due_ms_ = 0;
    uint64_t start_ = 0; // which of all starts, so that equal timers end in the order of their starts
    Handler handler_ = nullptr;
    void *owner_ = nullptr;
};

class MsQueue
{
public:
    // Milliseconds of a clock that never goes back.
    using Clock = std::function<uint64_t()>;

    // Throws std::bad_alloc when there is no memory for the queue.
    explicit MsQueue(Clock clock);
    ~MsQueue();
    MsQueue(const MsQueue &) = delete;
    MsQueue &operator=(const MsQueue &) = delete;

    uint64_t now_ms() const
    {
        return clock_();
    }

    // Starts the timer or starts it over; handler and owner replace those that it had. Throws std::bad_alloc when a
    // stopped one finds no room even with the reserve (common/memory.h).
    void start(MsTimer &timer, uint64_t delay_ms, MsTimer::Handler handler, void *owner);

    // Stops the timer without calling its handler; a stopped one stays stopped.
    void stop(MsTimer &timer);

    // Brings the end of a running timer forward to delay_ms from now when it would end later.
    void lower(MsTimer &timer, uint64_t delay_ms);

    // Puts the end of a running timer off to delay_ms from now when it would end earlier.
    void raise(MsTimer &timer, uint64_t delay_ms);

    // Milliseconds until the timer ends; 0 when it does not run or is due.
    uint64_t remaining_ms(const MsTimer &timer) const;

    // When the next timer ends, on the clock; nothing when none runs.
    std::optional<uint64_t> next_ms() const;

    // Calls the handlers of timers that are due now, earliest first, at most so many of them; not of timers that
    // these handlers start. Whether some that are due were left.
    bool run_due(size_t most);

    // Timers that run.
    size_t size() const
    {
        return heap_->count;
    }

private:
    void move_to(MsTimer &timer, uint64_t due_ms);

    Clock clock_;
    MCAST_MINHEAP_S *heap_; // of MsTimer
    uint64_t starts_ = 0;
};

// Milliseconds of the monotonic clock, which MsWakeup's descriptor counts in too.
uint64_t monotonic_ms();

// The one descriptor of a queue: readable once its next timer is due, until arm sets it anew. Nobody reads from it.
class MsWakeup
{
public:
    MsWakeup();
    ~MsWakeup();
    MsWakeup(const MsWakeup &) = delete;
    MsWakeup &operator=(const MsWakeup &) = delete;

    // -1 when there is none.
    int descriptor() const
    {
        return descriptor_;
    }

    // Sets it for the queue's next timer, or off when there is none. To be called after every round in which timers
    // were started or ended; it costs a system call only when the time is another than last.
    void arm(const MsQueue &queue);

private:
    int descriptor_;
    std::optional<uint64_t> armed_ms_;
};

} // namespace pimsmd

#endif
