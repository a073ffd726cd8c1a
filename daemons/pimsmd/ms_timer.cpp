/*
 * Timers wait in a heap by the time of their end, those of one time in the order of their starts. The heap tells each
 * timer its position, so that stopping or moving one costs no search.
 *
 *      heap ──► timer of a neighbour    position 1, due first
 *               timer of a prune        position 2
 *               ...
 *
 * A turn reads the clock once and ends at the first timer that was started during it: a handler that starts its timer
 * again with no delay cannot keep the daemon from its other work.
 *
 * A queue has one descriptor, whatever runs in it. It is set for the first end; that a later one was stopped meanwhile
 * does not matter, and when the first one was stopped the descriptor is set anew after the round.
 */
#include "daemons/pimsmd/ms_timer.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <sys/timerfd.h>
#include <utility>

#include "daemons/common/memory.h"
#include "mcast/event.h"

namespace pimsmd
{
namespace
{

constexpr uint64_t MS_PER_S = 1000;
constexpr long NS_PER_MS = 1000000;

// As long as a timer descriptor takes on every machine.
constexpr uint64_t LONGEST_MS = uint64_t{365} * 24 * 3600 * MS_PER_S;

} // namespace

MsTimer::~MsTimer()
{
    if (queue_ != nullptr) {
        queue_->stop(*this);
    }
}

MsQueue::MsQueue(Clock clock) : clock_(std::move(clock))
{
    const auto compare = [](const void *first, const void *second) -> int64_t {
        const auto *one = static_cast<const MsTimer *>(first);
        const auto *other = static_cast<const MsTimer *>(second);
        const uint64_t left = one->due_ms_ != other->due_ms_ ? one->due_ms_ : one->start_;
        const uint64_t right = one->due_ms_ != other->due_ms_ ? other->due_ms_ : other->start_;
        return left < right ? -1 : left > right;
    };
    const auto set_index = [](void *timer, const uint64_t *position) {
        static_cast<MsTimer *>(timer)->position_ = *position;
    };
    heap_ = mcastd::must_have([&] { return MCAST_MinHeapCreate(0, compare, set_index); });
}

MsQueue::~MsQueue()
{
    while (auto *timer = static_cast<MsTimer *>(MCAST_MinHeapExtract(heap_))) {
        timer->queue_ = nullptr;
    }
    MCAST_MinHeapDestory(heap_);
}

void MsQueue::start(MsTimer &timer, uint64_t delay_ms, MsTimer::Handler handler, void *owner)
{
    const uint64_t due_ms = now_ms() + delay_ms;
    timer.handler_ = handler;
    timer.owner_ = owner;
    if (timer.running()) {
        move_to(timer, due_ms);
        return;
    }
    timer.due_ms_ = due_ms;
    timer.start_ = starts_;
    mcastd::must_have([&] { return MCAST_MinHeapInsert(heap_, &timer) == MCAST_OK ? &timer : nullptr; });
    ++starts_;
    timer.queue_ = this;
}

void MsQueue::stop(MsTimer &timer)
{
    if (timer.running()) {
        MCAST_MinHeapRemove(heap_, timer.position_);
        timer.queue_ = nullptr;
    }
}

void MsQueue::move_to(MsTimer &timer, uint64_t due_ms)
{
    const bool is_earlier = due_ms < timer.due_ms_;
    timer.due_ms_ = due_ms;
    timer.start_ = starts_;
    ++starts_;
    if (is_earlier) {
        MCAST_MinHeapMoveUp(heap_, timer.position_);
    } else {
        MCAST_MinHeapMoveDown(heap_, timer.position_);
    }
}

void MsQueue::lower(MsTimer &timer, uint64_t delay_ms)
{
    if (remaining_ms(timer) > delay_ms) {
        move_to(timer, now_ms() + delay_ms);
    }
}

void MsQueue::raise(MsTimer &timer, uint64_t delay_ms)
{
    if (timer.running() && remaining_ms(timer) < delay_ms) {
        move_to(timer, now_ms() + delay_ms);
    }
}

uint64_t MsQueue::remaining_ms(const MsTimer &timer) const
{
    const uint64_t now = now_ms();
    return timer.running() && timer.due_ms_ > now ? timer.due_ms_ - now : 0;
}

std::optional<uint64_t> MsQueue::next_ms() const
{
    const auto *first = static_cast<const MsTimer *>(MCAST_MinHeapTop(heap_));
    return first != nullptr ? std::optional(first->due_ms_) : std::nullopt;
}

bool MsQueue::run_due(size_t most)
{
    const uint64_t now = now_ms();
    const uint64_t first_new = starts_;
    while (auto *timer = static_cast<MsTimer *>(MCAST_MinHeapTop(heap_))) {
        if (timer->due_ms_ > now || timer->start_ >= first_new) {
            break;
        }
        if (most == 0) {
            return true;
        }
        --most;
        stop(*timer);
        timer->handler_(timer->owner_);
    }
    const std::optional<uint64_t> next = next_ms();
    return next.has_value() && *next <= now;
}

uint64_t monotonic_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * MS_PER_S + static_cast<uint64_t>(now.tv_nsec / NS_PER_MS);
}

MsWakeup::MsWakeup()
{
    const uint32_t made = MCAST_CreateTimerFd(0);
    descriptor_ = made == MCAST_NONE ? -1 : static_cast<int>(made);
}

MsWakeup::~MsWakeup()
{
    if (descriptor_ >= 0) {
        MCAST_DeleteTimerFd(static_cast<uint32_t>(descriptor_));
    }
}

void MsWakeup::arm(const MsQueue &queue)
{
    const std::optional<uint64_t> next = queue.next_ms();
    if (next == armed_ms_ || descriptor_ < 0) {
        return;
    }
    itimerspec setting{};
    if (next) {
        const uint64_t now = queue.now_ms();
        const uint64_t wait = *next > now ? std::min(*next - now, LONGEST_MS) : 0;

        setting.it_value.tv_sec = static_cast<time_t>(wait / MS_PER_S);
        // Nothing at all would switch it off.
        setting.it_value.tv_nsec = wait == 0 ? 1 : static_cast<long>(wait % MS_PER_S) * NS_PER_MS;
    }
    if (timerfd_settime(descriptor_, 0, &setting, nullptr) == 0) {
        armed_ms_ = next;
    }
}

} // namespace pimsmd
