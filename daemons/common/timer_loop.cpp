/*
 * The manager arms its platform timer in whole seconds from the second that it takes for now, so that a timer
 * due at 12.0 s, set at 10.9 s, fires at 12.9 s. Next to it stands a wake-up of this file's own at the very
 * beginning of the second in which the earliest timer is due. Whichever comes first runs what is due, and
 * processing arms the platform timer anew.
 */
#include "daemons/common/timer_loop.h"

#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include "daemons/common/log.h"
#include "mcasthost/loop.h"

namespace mcastd
{

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
    itimerspec when{};
    when.it_value.tv_sec = due_s;
    if (due_s != wake_up_s_ && timerfd_settime(wake_up_.get(), TFD_TIMER_ABSTIME, &when, nullptr) == 0) {
        wake_up_s_ = due_s;
    }
}

void TimerLoop::woken()
{
    uint64_t ticks = 0;
    if (read(wake_up_.get(), &ticks, sizeof(ticks)) > 0) {
        wake_up_s_ = 0;
        MCAST_TMR_ProcExpires(manager_);
    }
}

void TimerLoop::platform_timer_fired(uint64_t parameters[4])
{
    MCAST_TMR_ProcExpires(reinterpret_cast<TimerLoop *>(parameters[0])->manager_);
}

} // namespace mcastd
