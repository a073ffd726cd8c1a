/*
 * The timer manager beside libevent's and libev's timers. Ours counts seconds, so its expiries are made due
 * by moving the boot time that the platform tells, theirs by waiting outside the measurement.
 *
 *   libevent           an event from event_new for every timer, as ours takes a node from malloc
 *   libevent placed    events that stand in the caller's records: no allocation is measured
 *   libev              timers in the caller's records; libev takes the time from its loop without asking the
 *                      clock
 */
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include "mcast/timer.h"
#include "platform/timer.h"
#include "rounds.h"

#ifdef BENCH_WITH_LIBEVENT
#include <event2/event.h>
#include <event2/event_struct.h>
#endif
#ifdef BENCH_WITH_LIBEV
/* Both libraries use these names, libevent as macros. */
#undef EV_READ
#undef EV_WRITE
#undef EV_TIMEOUT
#undef EV_SIGNAL
#include <ev.h>
#endif

namespace
{

using bench::Figures;
using bench::Order;
using bench::Population;

uint32_t g_moved_s;     /* added to the boot time */
uint32_t g_timer_state; /* of the one platform timer */
size_t g_expired;

constexpr uint32_t kClockTick_us = 8000; /* libevent goes by a clock of a few milliseconds a tick */

} // namespace

/* The platform: one timer that never fires, and a clock that costs what the clock of the system costs. */
TIMER_ID Timer_Create(TIMER_SERVICE, uint32_t, uint32_t, TIMER_HANDLER, const uint64_t *)
{
    return 1;
}

uint32_t Timer_SetStatus(TIMER_SERVICE, TIMER_ID, uint32_t state, uint32_t)
{
    g_timer_state = state;
    return 0;
}

uint32_t Timer_GetAttr(TIMER_SERVICE, TIMER_ID, TIMER_ATTR_S *attributes, uint32_t)
{
    attributes->state = g_timer_state;
    return 0;
}

uint32_t Timer_Delete(TIMER_SERVICE, TIMER_ID)
{
    return 0;
}

void TIME_GetSystemBootTime(uint32_t *seconds, uint32_t *sub_seconds)
{
    struct timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    *seconds = static_cast<uint32_t>(now.tv_sec) + g_moved_s;
    *sub_seconds = static_cast<uint32_t>(now.tv_nsec);
}

namespace
{

/*
 * The phases, the same for every kind of timer. Timers has Add(entry, distance), Refresh(entry, distance),
 * Cancel(entry), AddShort(entry, distance) for what Expire, called after MakeDue, is to run.
 */
template <typename Timers> void Phases(Population &population, Figures &figures)
{
    for (size_t repeat = 0; repeat < population.repeats; ++repeat) {
        double before = bench::Allocated();
        Timers timers(population.entries);
        Order distances = population.Shuffled();
        Order others = population.Shuffled();
        Order picks = population.Shuffled();
        Order cancels = population.Shuffled();
        uint32_t count = static_cast<uint32_t>(population.entries);
        double orders = 4.0 * sizeof(uint32_t) * count;

        figures.Time("add", count, [&] {
            for (uint32_t entry = 0; entry < count; ++entry) {
                timers.Add(entry, distances[entry]);
            }
        });
        double bytes = bench::Allocated() - before - orders;

        figures.Time("refresh", count, [&] {
            for (uint32_t entry : picks) {
                timers.Refresh(entry, others[entry]);
            }
        });
        figures.Time("cancel", count, [&] {
            for (uint32_t entry : cancels) {
                timers.Cancel(entry);
            }
        });
        for (uint32_t entry = 0; entry < count; ++entry) {
            timers.AddShort(entry, distances[entry]);
        }
        timers.MakeDue();
        g_expired = 0;
        figures.Time("expire", count, [&] { timers.Expire(); });
        if (g_expired != count) {
            std::abort();
        }
        if (repeat == 0) {
            figures.Note("bytes a timer", bytes / count);
        }
    }
}

class Ours
{
public:
    explicit Ours(size_t entries)
        : manager(MCAST_TMR_Create(reinterpret_cast<TIMER_SERVICE>(this), Fired, nullptr)), nodes(entries)
    {
    }

    ~Ours()
    {
        MCAST_TMR_Destroy(manager);
    }

    void Add(uint32_t entry, uint32_t distance)
    {
        uint64_t data[4] = {entry, 0, 0, 0};
        nodes[entry] = MCAST_TMR_AddNode(manager, distance + 1, Expired, data);
    }

    void Refresh(uint32_t entry, uint32_t distance)
    {
        MCAST_TMR_RefreshNode(manager, nodes[entry], distance + 1);
    }

    void Cancel(uint32_t entry)
    {
        MCAST_TMR_DeleteNode(manager, nodes[entry]);
    }

    void AddShort(uint32_t entry, uint32_t distance)
    {
        Add(entry, distance);
    }

    void MakeDue()
    {
        g_moved_s += static_cast<uint32_t>(nodes.size()) + 2;
    }

    void Expire()
    {
        MCAST_TMR_ProcExpires(manager);
    }

private:
    static void Fired(uint64_t *)
    {
    }

    static void Expired(uint64_t *)
    {
        ++g_expired;
    }

    MCAST_TMR_S *manager;
    std::vector<MCAST_TMR_NODE_S *> nodes;
};

#ifdef BENCH_WITH_LIBEVENT
struct timeval Seconds(uint32_t distance)
{
    return {static_cast<time_t>(distance) + 1, 0};
}

/* What both ways of using libevent share: the base and the way events become due. */
class EventBase
{
public:
    EventBase() : base(event_base_new())
    {
    }

    ~EventBase()
    {
        event_base_free(base);
    }

    void MakeDue()
    {
        usleep(longest_us + kClockTick_us);
    }

    void Expire()
    {
        event_base_loop(base, EVLOOP_NONBLOCK);
    }

protected:
    static void Expired(evutil_socket_t, short, void *)
    {
        ++g_expired;
    }

    struct timeval Short(uint32_t distance)
    {
        longest_us = std::max(longest_us, distance + 1);
        return {(distance + 1) / 1000000, static_cast<suseconds_t>((distance + 1) % 1000000)};
    }

    struct event_base *base;
    uint32_t longest_us = 0;
};

class EventNew : public EventBase
{
public:
    explicit EventNew(size_t entries) : events(entries)
    {
    }

    ~EventNew()
    {
        for (struct event *event : events) {
            event_free(event);
        }
    }

    void Add(uint32_t entry, uint32_t distance)
    {
        AddAfter(entry, Seconds(distance));
    }

    void Refresh(uint32_t entry, uint32_t distance)
    {
        struct timeval after = Seconds(distance);
        event_add(events[entry], &after);
    }

    void Cancel(uint32_t entry)
    {
        event_free(events[entry]);
    }

    void AddShort(uint32_t entry, uint32_t distance)
    {
        AddAfter(entry, Short(distance));
    }

private:
    void AddAfter(uint32_t entry, struct timeval after)
    {
        events[entry] = event_new(base, -1, 0, Expired, nullptr);
        event_add(events[entry], &after);
    }

    std::vector<struct event *> events;
};

class EventPlaced : public EventBase
{
public:
    explicit EventPlaced(size_t entries) : events(entries)
    {
        for (struct event &event : events) {
            event_assign(&event, base, -1, 0, Expired, nullptr);
        }
    }

    void Add(uint32_t entry, uint32_t distance)
    {
        struct timeval after = Seconds(distance);
        event_add(&events[entry], &after);
    }

    void Refresh(uint32_t entry, uint32_t distance)
    {
        Add(entry, distance);
    }

    void Cancel(uint32_t entry)
    {
        event_del(&events[entry]);
    }

    void AddShort(uint32_t entry, uint32_t distance)
    {
        struct timeval after = Short(distance);
        event_add(&events[entry], &after);
    }

private:
    std::vector<struct event> events;
};
#endif

#ifdef BENCH_WITH_LIBEV
class Libev
{
public:
    explicit Libev(size_t entries) : loop(ev_loop_new(EVBACKEND_EPOLL)), timers(entries)
    {
    }

    ~Libev()
    {
        ev_loop_destroy(loop);
    }

    void Add(uint32_t entry, uint32_t distance)
    {
        Start(entry, distance + 1.0);
    }

    void Refresh(uint32_t entry, uint32_t distance)
    {
        ev_timer_stop(loop, &timers[entry]);
        Start(entry, distance + 1.0);
    }

    void Cancel(uint32_t entry)
    {
        ev_timer_stop(loop, &timers[entry]);
    }

    void AddShort(uint32_t entry, uint32_t distance)
    {
        longest_us = std::max(longest_us, distance + 1);
        Start(entry, (distance + 1) * 1e-6);
    }

    void MakeDue()
    {
        usleep(longest_us + kClockTick_us);
    }

    void Expire()
    {
        ev_run(loop, EVRUN_NOWAIT);
    }

private:
    static void Expired(struct ev_loop *, ev_timer *, int)
    {
        ++g_expired;
    }

    void Start(uint32_t entry, double after)
    {
        ev_timer *timer = &timers[entry];
        timer->active = timer->pending = timer->priority = 0;
        timer->data = nullptr;
        timer->cb = Expired;
        timer->repeat = 0;
        timer->at = after;
        ev_timer_start(loop, timer);
    }

    struct ev_loop *loop;
    std::vector<ev_timer> timers;
    uint32_t longest_us = 0;
};
#endif

} // namespace

int main()
{
    std::vector<bench::Contender> contenders = {
        {"ours", Phases<Ours>},
#ifdef BENCH_WITH_LIBEVENT
        {"libevent", Phases<EventNew>},
        {"libevent placed", Phases<EventPlaced>},
#endif
#ifdef BENCH_WITH_LIBEV
        {"libev", Phases<Libev>},
#endif
    };
    bench::Compare("timers", {1 << 10, 32 << 10, 256 << 10}, contenders);
    return 0;
}
