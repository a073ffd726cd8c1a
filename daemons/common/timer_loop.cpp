/*
 * The manager arms its platform timer in whole seconds from the second that it takes for now, so that a timer
 * due at 12.0 s, set at 10.9 s, fires at 12.9 s. Next to it stands a wake-up of this file's own at the very
 * beginning of the second in which the earliest timer is due. Whichever comes first runs what is due.
 *
 * A host can make a hundred thousand timers due in one second. So what is due runs for some milliseconds at most;
 * the wake-up is then set to a second that has come, and everything else in the loop has its turn before the rest.
 * What a timer causes another process may have to read: should that one be behind, the next turn waits for it a
 * little, or whatever else is to be said would stand behind all of it. A turn that has waited in vain is a short one,
 * so that what it adds is little too.
 */
#include "daemons/common/timer_loop.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <utility>
#include <vector>

#include "daemons/common/log.h"
#include "daemons/common/timer.h"
#include "mcast/heap.h"
#include "mcasthost/loop.h"

namespace mcastd
{

// The manager puts what would be due later to this second; the one after it is 0.
constexpr uint32_t LAST_SECOND = UINT32_MAX;

int64_t moment_of(uint32_t boot_s, int64_t now_s)
{
    return now_s + static_cast<int32_t>(boot_s - static_cast<uint32_t>(now_s));
}

TimerLoop::~TimerLoop()
{
    if (wake_up_.valid()) {
        reactor_.remove(wake_up_.get());
    }
    MCAST_TMR_Destroy(manager_);
}

bool TimerLoop::open()
{
    const uint64_t parameters[4] = {reinterpret_cast<uint64_t>(this), 0, 0, 0};
    manager_ =
        MCAST_TMR_Create(HOST_LoopTimerService(reactor_.descriptor()), platform_timer_fired, parameters);
    last_s_ = boot_time_s();
    wake_up_ = Descriptor(timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    if (manager_ == nullptr || !wake_up_.valid() ||
        !reactor_.add(wake_up_.get(), EPOLLIN, [this](uint32_t) { woken(); })) {
        log_error("cannot set up timers: %s", strerror(errno));
        return false;
    }
    return true;
}

void TimerLoop::set_wake_up()
{
    const auto *top = static_cast<const MCAST_TMR_NODE_S *>(MCAST_MinHeapTop(manager_->heap));
    const uint32_t due_s = top != nullptr ? top->expiry : 0;
    timespec now{};
    if (due_s == wake_up_s_) {
        return;
    }
    clock_gettime(CLOCK_BOOTTIME, &now);
    set_wake_up_to({due_s != 0 ? moment_of(due_s, now.tv_sec) + (due_s == LAST_SECOND ? 1 : 0) : 0, 0},
                   due_s);
}

bool TimerLoop::set_wake_up_to(const timespec &moment, uint32_t due_s)
{
    const itimerspec when = {{0, 0}, moment};
    if (timerfd_settime(wake_up_.get(), TFD_TIMER_ABSTIME, &when, nullptr) != 0) {
        return false;
    }
    wake_up_s_ = due_s;
    return true;
}

bool TimerLoop::is_behind() const
{
    return behind_ && behind_();
}

// Looks again in a moment. False when that could not be set.
bool TimerLoop::put_off(uint32_t due_s)
{
    timespec look{};
    clock_gettime(CLOCK_BOOTTIME, &look);
    look.tv_nsec += TIMER_LOOK_MS * 1'000'000L;
    if (look.tv_nsec >= 1'000'000'000) {
        look.tv_nsec -= 1'000'000'000;
        ++look.tv_sec;
    }
    return set_wake_up_to(look, due_s);
}

// The seconds have begun again at 0: what was to be due before then, or then at the latest, is due.
void TimerLoop::begin_anew()
{
    std::vector<MCAST_TMR_NODE_S *> old;
    MCAST_HeapWalk(
        manager_->heap,
        [](void *node, void *all) {
            auto *timer = static_cast<MCAST_TMR_NODE_S *>(node);
            if (timer->expiry > INT32_MAX) {
                static_cast<std::vector<MCAST_TMR_NODE_S *> *>(all)->push_back(timer);
            }
        },
        &old);
    for (MCAST_TMR_NODE_S *timer : old) {
        MCAST_TMR_RefreshNode(manager_, timer, 0);
    }
}

// The timer that is due now, NULL for none.
MCAST_TMR_NODE_S *TimerLoop::due_timer()
{
    const uint32_t now_s = boot_time_s();
    if (now_s < std::exchange(last_s_, now_s)) {
        begin_anew();
    }
    auto *node = static_cast<MCAST_TMR_NODE_S *>(MCAST_MinHeapTop(manager_->heap));
    return node != nullptr && node->expiry <= now_s && node->expiry != LAST_SECOND ? node : nullptr;
}

// As MCAST_TMR_ProcExpires, but not without end.
void TimerLoop::run_due()
{
    const auto now = Clock::now();
    MCAST_TMR_NODE_S *node = due_timer();
    wake_up_s_ = 0; // what is left is due already, and must wake the loop again
    if (!put_off_) {
        patience_ends_ = now + std::chrono::milliseconds(TIMER_PATIENCE_MS);
    }
    const bool patient = now < patience_ends_;
    put_off_ = node != nullptr && patient && is_behind() && put_off(node->expiry);
    if (put_off_) {
        return;
    }
    const int turn_ms = !patient && is_behind() ? TIMER_SHORT_TURN_MS : TIMER_TURN_MS;
    const auto end = now + std::chrono::milliseconds(turn_ms);
    while (node != nullptr) {
        const MCAST_TMR_NODE_S due = *node;
        uint64_t data[] = {due.data[0], due.data[1], due.data[2], due.data[3]};

        MCAST_TMR_DeleteNode(manager_, node);
        if (due.callback != nullptr) {
            due.callback(data);
        }
        if (Clock::now() >= end || (patient && is_behind())) {
            return;
        }
        node = due_timer();
    }
}

void TimerLoop::woken()
{
    uint64_t ticks = 0;
    if (read(wake_up_.get(), &ticks, sizeof(ticks)) > 0) {
        run_due();
    }
}

void TimerLoop::platform_timer_fired(uint64_t parameters[4])
{
    reinterpret_cast<TimerLoop *>(parameters[0])->run_due();
}

} // namespace mcastd
