#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "mcast/event.h"
#include "support/descriptors.h"
#include "support/scripted_libc.h"

namespace
{

timer_t Timer(uintptr_t handle)
{
    return reinterpret_cast<timer_t>(handle);
}

struct Scripted : testing::Test {
    void TearDown() override
    {
        scripted::Reset();
    }
};

using TimerDescriptor = Scripted;
using SignalTimer = Scripted;

TEST_F(TimerDescriptor, FiresAfterOnePeriodAndThenEveryPeriod)
{
    uint32_t fd = MCAST_CreateTimerFd(1500);
    struct itimerspec set;
    ASSERT_NE(fd, MCAST_NONE);
    ASSERT_EQ(timerfd_gettime(static_cast<int>(fd), &set), 0);
    EXPECT_EQ(set.it_interval.tv_sec, 1);
    EXPECT_EQ(set.it_interval.tv_nsec, 500000000);
    EXPECT_TRUE(set.it_value.tv_sec < 1 || set.it_value.tv_nsec <= 500000000);
    EXPECT_TRUE(set.it_value.tv_sec != 0 || set.it_value.tv_nsec != 0);
    EXPECT_EQ(fcntl(static_cast<int>(fd), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(static_cast<int>(fd), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(MCAST_DeleteTimerFd(fd), 0);
}

TEST_F(TimerDescriptor, TicksForReal)
{
    uint32_t fd = MCAST_CreateTimerFd(1);
    uint64_t ticks = 0;
    ASSERT_NE(fd, MCAST_NONE);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(read(static_cast<int>(fd), &ticks, sizeof(ticks)), static_cast<ssize_t>(sizeof(ticks)));
        EXPECT_GE(ticks, 1u);
    }
    EXPECT_EQ(MCAST_DeleteTimerFd(fd), 0);
}

TEST_F(TimerDescriptor, OfPeriodZeroIsDisarmedAndStillReturned)
{
    uint32_t fd = MCAST_CreateTimerFd(0);
    struct itimerspec set;
    ASSERT_NE(fd, MCAST_NONE);
    ASSERT_EQ(timerfd_gettime(static_cast<int>(fd), &set), 0);
    EXPECT_EQ(set.it_interval.tv_sec + set.it_interval.tv_nsec, 0);
    EXPECT_EQ(set.it_value.tv_sec + set.it_value.tv_nsec, 0);
    EXPECT_EQ(MCAST_DeleteTimerFd(fd), 0);
}

TEST_F(TimerDescriptor, SplitsThePeriodWithSignedDivision)
{
    const struct {
        int32_t period_ms;
        long seconds;
        long nanoseconds;
    } rows[] = {
        {1, 0, 1000000},
        {999, 0, 999000000},
        {1000, 1, 0},
        {-1, 0, -1000000},
        {-1500, -1, -500000000},
        {INT_MAX, 2147483, 647000000},
        {INT_MIN, -2147483, -648000000},
    };

    for (const auto &row : rows) {
        struct itimerspec set = {};
        int flags = -1;

        scripted::timerfd_settime = [&](int, int wanted, const struct itimerspec *value,
                                        struct itimerspec *old) {
            flags = wanted;
            set = *value;
            EXPECT_EQ(old, nullptr);
            return 0;
        };
        uint32_t fd = MCAST_CreateTimerFd(row.period_ms);

        EXPECT_EQ(flags, 0);
        EXPECT_EQ(set.it_value.tv_sec, row.seconds) << row.period_ms;
        EXPECT_EQ(set.it_value.tv_nsec, row.nanoseconds) << row.period_ms;
        EXPECT_EQ(set.it_interval.tv_sec, row.seconds) << row.period_ms;
        EXPECT_EQ(set.it_interval.tv_nsec, row.nanoseconds) << row.period_ms;
        EXPECT_EQ(MCAST_DeleteTimerFd(fd), 0);
    }
}

TEST_F(TimerDescriptor, RunsOnTheMonotonicClockWithoutFlags)
{
    int clock = -1, flags = -1;
    scripted::timerfd_create = [&](int wanted_clock, int wanted_flags) {
        clock = wanted_clock;
        flags = wanted_flags;
        errno = EMFILE;
        return -1;
    };
    EXPECT_EQ(MCAST_CreateTimerFd(10), MCAST_NONE);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    EXPECT_EQ(flags, 0);
}

TEST_F(TimerDescriptor, IsClosedWhenItCannotBeSet)
{
    int before = OpenDescriptors();

    scripted::close = [](int fd) {
        int result = scripted::real::close(fd);

        errno = EIO;
        return result;
    };
    EXPECT_EQ(MCAST_CreateTimerFd(-1), MCAST_NONE);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(TimerDescriptor, DeletedTwiceReportsTheSecondTime)
{
    EXPECT_EQ(MCAST_DeleteTimerFd(MCAST_NONE), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(SignalTimer, SendsTheSignalToTheThreadThatMadeIt)
{
    sigset_t set, old;
    siginfo_t info;

    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, &old);
    MCAST_TIMER_HANDLE handle = MCAST_CreateTimer(10, SIGUSR1);

    ASSERT_NE(handle, 0u);
    ASSERT_EQ(sigwaitinfo(&set, &info), SIGUSR1);
    EXPECT_EQ(info.si_code, SI_TIMER);
    EXPECT_EQ(info.si_value.sival_int, 10);
    ASSERT_EQ(sigwaitinfo(&set, &info), SIGUSR1);
    EXPECT_EQ(MCAST_DeleteTimer(handle), 0);

    const struct timespec now = {0, 0};

    while (sigtimedwait(&set, nullptr, &now) == SIGUSR1) {
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

TEST_F(SignalTimer, ExistsForThreePeriodsOnly)
{
    int created = 0;

    scripted::timer_create = [&](clockid_t clock, struct sigevent *event, timer_t *timer) {
        ++created;
        return scripted::real::timer_create(clock, event, timer);
    };
    for (uint32_t period_ms : {0u, 1u, 9u, 11u, 50u, 99u, 101u, 999u, 1001u, 10000u, 0xffffffffu}) {
        EXPECT_EQ(MCAST_CreateTimer(period_ms, SIGUSR1), 0u) << period_ms;
    }
    EXPECT_EQ(created, 0);
    scripted::timer_settime = [](auto...) { return 0; };
    for (uint32_t period_ms : {10u, 100u, 1000u}) {
        MCAST_TIMER_HANDLE handle = MCAST_CreateTimer(period_ms, SIGUSR1);

        EXPECT_NE(handle, 0u) << period_ms;
        EXPECT_EQ(MCAST_DeleteTimer(handle), 0) << period_ms;
    }
}

TEST_F(SignalTimer, AsksForTheSignalItsThreadAndItsPeriod)
{
    const struct {
        uint32_t period_ms;
        long seconds;
        long nanoseconds;
    } rows[] = {{10, 0, 10000000}, {100, 0, 100000000}, {1000, 1, 0}};

    for (const auto &row : rows) {
        struct sigevent event;
        struct sigevent expected;
        clockid_t clock = -1;
        struct itimerspec set = {};
        timer_t armed = nullptr;
        int flags = -1;

        scripted::timer_create = [&](clockid_t wanted, struct sigevent *given, timer_t *timer) {
            clock = wanted;
            event = *given;
            *timer = Timer(0x77);
            return 0;
        };
        scripted::timer_settime = [&](timer_t timer, int wanted, const struct itimerspec *value,
                                      struct itimerspec *old) {
            armed = timer;
            flags = wanted;
            set = *value;
            EXPECT_EQ(old, nullptr);
            return 0;
        };
        EXPECT_EQ(MCAST_CreateTimer(row.period_ms, SIGUSR1), 0x77u);
        std::memset(&expected, 0, sizeof(expected));
        expected.sigev_value.sival_int = static_cast<int>(row.period_ms);
        expected.sigev_signo = SIGUSR1;
        expected.sigev_notify = 4;
        expected._sigev_un._tid = gettid();
        EXPECT_EQ(std::memcmp(&event, &expected, sizeof(expected)), 0) << row.period_ms;
        EXPECT_EQ(clock, CLOCK_REALTIME);
        EXPECT_EQ(armed, Timer(0x77));
        EXPECT_EQ(flags, 0);
        EXPECT_EQ(set.it_value.tv_sec, row.seconds);
        EXPECT_EQ(set.it_value.tv_nsec, row.nanoseconds);
        EXPECT_EQ(set.it_interval.tv_sec, row.seconds);
        EXPECT_EQ(set.it_interval.tv_nsec, row.nanoseconds);
    }
}

TEST_F(SignalTimer, ReportsThatItCannotBeMade)
{
    scripted::timer_create = scripted::Failing(EAGAIN);
    EXPECT_EQ(MCAST_CreateTimer(10, SIGUSR1), 0u);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(SignalTimer, FailsForANumberThatIsNoSignal)
{
    EXPECT_EQ(MCAST_CreateTimer(10, 1000), 0u);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(SignalTimer, IsDeletedWhenItCannotBeSet)
{
    std::vector<timer_t> deleted;
    scripted::timer_create = [](clockid_t, struct sigevent *, timer_t *timer) {
        *timer = Timer(0x55);
        return 0;
    };
    scripted::timer_settime = scripted::Failing(EINVAL);
    scripted::timer_delete = [&](timer_t timer) {
        deleted.push_back(timer);
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(MCAST_CreateTimer(10, SIGUSR1), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(deleted, std::vector<timer_t>{Timer(0x55)});
}

TEST_F(SignalTimer, NumberedZeroByTheKernelIsExchangedForAnother)
{
    std::vector<timer_t> deleted;
    uintptr_t next = 0;
    scripted::timer_create = [&](clockid_t, struct sigevent *, timer_t *timer) {
        *timer = Timer(next++);
        return 0;
    };
    scripted::timer_settime = [](timer_t timer, auto...) {
        EXPECT_EQ(timer, Timer(1));
        return 0;
    };
    scripted::timer_delete = [&](timer_t timer) {
        deleted.push_back(timer);
        return 0;
    };
    EXPECT_EQ(MCAST_CreateTimer(100, SIGUSR1), 1u);
    EXPECT_EQ(deleted, std::vector<timer_t>{Timer(0)});
}

TEST_F(SignalTimer, NumberedZeroIsDeletedWhenThereIsNoOther)
{
    std::vector<timer_t> deleted;
    int created = 0;
    scripted::timer_create = [&](clockid_t, struct sigevent *, timer_t *timer) {
        if (++created == 1) {
            *timer = Timer(0);
            return 0;
        }
        errno = EAGAIN;
        return -1;
    };
    scripted::timer_delete = [&](timer_t timer) {
        deleted.push_back(timer);
        errno = EIO;
        return 0;
    };
    EXPECT_EQ(MCAST_CreateTimer(100, SIGUSR1), 0u);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(deleted, std::vector<timer_t>{Timer(0)});
}

TEST_F(SignalTimer, IsNeverZeroAsTheFirstOfAProcess)
{
    pid_t child = fork();

    if (child == 0) {
        MCAST_TIMER_HANDLE handle = MCAST_CreateTimer(1000, SIGUSR1);

        _exit(handle != 0 && MCAST_DeleteTimer(handle) == 0 ? 0 : 1);
    }

    int status = -1;

    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(SignalTimer, DeletePassesTheHandleAndTheResult)
{
    timer_t deleted = nullptr;
    scripted::timer_delete = [&](timer_t timer) {
        deleted = timer;
        return -1;
    };
    EXPECT_EQ(MCAST_DeleteTimer(0x123456789), -1);
    EXPECT_EQ(deleted, Timer(0x123456789));
}

} // namespace
