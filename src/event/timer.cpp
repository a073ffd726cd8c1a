/*
 * Periodic timers of two kinds: a descriptor that becomes readable, and a POSIX timer that sends a signal to
 * the thread that made it.
 *
 * The handle of a POSIX timer is the kernel's number for it, and the kernel counts a process's timers from 0.
 * Since 0 is how a caller learns that there is no timer, a timer that comes out as number 0 is exchanged for
 * another one.
 */
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include "event/descriptor.h"
#include "mcast/event.h"

namespace
{

/* First expiry and interval both one period. */
struct itimerspec EveryPeriod(int32_t period_ms)
{
    struct timespec period = {period_ms / 1000, period_ms % 1000 * 1000000L};

    return {period, period};
}

bool IsTickPeriod(uint32_t period_ms)
{
    return period_ms == 10 || period_ms == 100 || period_ms == 1000;
}

/* The notification of a timer: signo to the calling thread, with the period as its value. */
struct sigevent SignalToThisThread(uint32_t period_ms, uint32_t signo)
{
    struct sigevent event;

    memset(&event, 0, sizeof(event));
    event.sigev_value.sival_int = static_cast<int>(period_ms);
    event.sigev_signo = static_cast<int>(signo);
    event.sigev_notify = SIGEV_THREAD_ID;
    event._sigev_un._tid = static_cast<pid_t>(MCAST_Gettid());
    return event;
}

void DeleteAfterFailure(timer_t timer)
{
    int error = errno;
    timer_delete(timer);
    errno = error;
}

/* A timer whose handle is not 0. */
bool CreateNonZero(struct sigevent *event, timer_t *timer)
{
    if (timer_create(CLOCK_REALTIME, event, timer) != 0) {
        return false;
    }
    if (*timer != nullptr) {
        return true;
    }

    bool created = timer_create(CLOCK_REALTIME, event, timer) == 0;

    DeleteAfterFailure(nullptr);
    return created;
}

} // namespace

uint32_t MCAST_CreateTimerFd(int32_t period_ms)
{
    struct itimerspec when = EveryPeriod(period_ms);
    int fd = timerfd_create(CLOCK_MONOTONIC, 0);
    if (fd < 0) {
        return MCAST_NONE;
    }
    if (timerfd_settime(fd, 0, &when, nullptr) != 0) {
        mcast::CloseAfterFailure(fd);
        return MCAST_NONE;
    }
    return static_cast<uint32_t>(fd);
}

int MCAST_DeleteTimerFd(uint32_t fd)
{
    return close(static_cast<int>(fd));
}

MCAST_TIMER_HANDLE MCAST_CreateTimer(uint32_t period_ms, uint32_t signo)
{
    timer_t timer = nullptr;

    if (!IsTickPeriod(period_ms)) {
        return 0;
    }

    struct sigevent event = SignalToThisThread(period_ms, signo);
    struct itimerspec when = EveryPeriod(static_cast<int32_t>(period_ms));

    if (!CreateNonZero(&event, &timer)) {
        return 0;
    }
    if (timer_settime(timer, 0, &when, nullptr) != 0) {
        DeleteAfterFailure(timer);
        return 0;
    }
    return reinterpret_cast<MCAST_TIMER_HANDLE>(timer);
}

int MCAST_DeleteTimer(MCAST_TIMER_HANDLE handle)
{
    return timer_delete(reinterpret_cast<timer_t>(handle));
}
