#include "daemons/common/timer.h"

#include "daemons/common/memory.h"
#include "platform/timer.h"

namespace mcastd
{
namespace
{

constexpr uint32_t NS_PER_S = 1000000000;

// Data words of a timer: the Timer itself, its handler, its owner.
constexpr size_t WORD_TIMER = 0;
constexpr size_t WORD_HANDLER = 1;
constexpr size_t WORD_OWNER = 2;

// The seconds to give to the library so that it calls when timeout_ms have passed: in full when nearly a
// second is added before the rest is cut off, to the nearest second when half of one is.
uint32_t whole_seconds(uint32_t timeout_ms, uint32_t round_up_ns = NS_PER_S - 1)
{
    uint32_t seconds = 0;
    uint32_t sub_seconds = 0;

    TIME_GetSystemBootTime(&seconds, &sub_seconds);
    const uint64_t rest_ns = uint64_t{timeout_ms % MS_PER_S} * (NS_PER_S / MS_PER_S) + sub_seconds;

    return timeout_ms / MS_PER_S + static_cast<uint32_t>((rest_ns + round_up_ns) / NS_PER_S);
}

void expired(uint64_t data[4])
{
    reinterpret_cast<Timer *>(data[WORD_TIMER])->node = nullptr;
    memory_unit("a timer", [data] {
        reinterpret_cast<TimerHandler>(data[WORD_HANDLER])(reinterpret_cast<void *>(data[WORD_OWNER]));
    });
}

// False when there is no memory for the timer.
bool try_start_for(MCAST_TMR_S *manager, Timer &timer, uint32_t seconds, TimerHandler handler, void *owner)
{
    if (timer.node != nullptr) {
        MCAST_TMR_RefreshNode(manager, timer.node, seconds);
        return true;
    }
    const uint64_t data[4] = {reinterpret_cast<uint64_t>(&timer), reinterpret_cast<uint64_t>(handler),
                              reinterpret_cast<uint64_t>(owner), 0};

    timer.node = MCAST_TMR_AddNode(manager, seconds, expired, data);
    return timer.node != nullptr;
}

void start_for(MCAST_TMR_S *manager, Timer &timer, uint32_t seconds, TimerHandler handler, void *owner)
{
    if (!try_start_for(manager, timer, seconds, handler, owner) &&
        !(memory_lend() && try_start_for(manager, timer, seconds, handler, owner))) {
        throw std::bad_alloc();
    }
}

} // namespace

uint32_t boot_time_s()
{
    uint32_t seconds = 0;
    uint32_t sub_seconds = 0;
    TIME_GetSystemBootTime(&seconds, &sub_seconds);
    return seconds;
}

void timer_start(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms, TimerHandler handler, void *owner)
{
    start_for(manager, timer, whole_seconds(timeout_ms), handler, owner);
}

bool timer_try_start(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms, TimerHandler handler,
                     void *owner)
{
    return try_start_for(manager, timer, whole_seconds(timeout_ms), handler, owner);
}

void timer_start_near(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms, TimerHandler handler,
                      void *owner)
{
    start_for(manager, timer, whole_seconds(timeout_ms, NS_PER_S / 2), handler, owner);
}

void timer_start_at(MCAST_TMR_S *manager, Timer &timer, uint32_t end_s, TimerHandler handler, void *owner)
{
    const uint32_t now_s = boot_time_s();
    start_for(manager, timer, end_s > now_s ? end_s - now_s : 0, handler, owner);
}

void timer_stop(MCAST_TMR_S *manager, Timer &timer)
{
    if (timer.node != nullptr) {
        MCAST_TMR_DeleteNode(manager, timer.node);
        timer.node = nullptr;
    }
}

void timer_lower(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms)
{
    if (timer_beyond(timer, timeout_ms)) {
        MCAST_TMR_RefreshNode(manager, timer.node, whole_seconds(timeout_ms));
    }
}

void timer_raise(MCAST_TMR_S *manager, Timer &timer, uint32_t timeout_ms)
{
    if (timer.node != nullptr && timer.node->expiry < timer_end_s(timeout_ms)) {
        MCAST_TMR_RefreshNode(manager, timer.node, whole_seconds(timeout_ms));
    }
}

uint32_t timer_end_s(uint32_t timeout_ms)
{
    return boot_time_s() + whole_seconds(timeout_ms);
}

bool timer_beyond(const Timer &timer, uint32_t timeout_ms)
{
    return timer.node != nullptr && timer.node->expiry > timer_end_s(timeout_ms);
}

bool timer_is_due(const Timer &timer)
{
    return timer.node != nullptr && timer.node->expiry <= boot_time_s();
}

uint32_t timer_remaining_s(const Timer &timer)
{
    uint32_t now = boot_time_s();
    return timer.node != nullptr && timer.node->expiry > now ? timer.node->expiry - now : 0;
}

} // namespace mcastd
