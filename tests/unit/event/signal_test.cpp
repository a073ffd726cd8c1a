#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "mcast/event.h"
#include "support/descriptors.h"
#include "support/scripted_libc.h"

namespace
{

constexpr uint64_t kContext = 0x1122334455667788;
#if defined(SYS_signalfd)
constexpr long kSignalfd = SYS_signalfd;
#else
constexpr long kSignalfd = SYS_signalfd4;
#endif

class SignalDescriptor : public testing::Test
{
protected:
    void SetUp() override
    {
        before_ = OpenDescriptors();
        epfd_ = MCAST_CreateEpoll();
        ASSERT_NE(epfd_, MCAST_NONE);
        pthread_sigmask(SIG_SETMASK, nullptr, &mask_);
        ASSERT_FALSE(sigismember(&mask_, SIGUSR2));
    }

    void TearDown() override
    {
        scripted::Reset();
        pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
        close(static_cast<int>(epfd_));
        EXPECT_EQ(OpenDescriptors(), before_);
    }

    static bool IsBlocked(int signo)
    {
        sigset_t now;
        pthread_sigmask(SIG_SETMASK, nullptr, &now);
        return sigismember(&now, signo) == 1;
    }

    /* The call fails, leaves the output alone and no descriptor behind. */
    void ExpectFailure(uint32_t signo = SIGUSR2)
    {
        uint32_t fd = 0xabcd;
        int before = OpenDescriptors();

        EXPECT_EQ(MCAST_SigToEpoll(epfd_, signo, kContext, &fd), MCAST_ERR_GENERAL);
        int error = errno;

        EXPECT_EQ(fd, 0xabcdu);
        EXPECT_EQ(OpenDescriptors(), before);
        errno = error;
    }

    static void MakeCloseClobberErrno()
    {
        scripted::close = [](int fd) {
            int result = scripted::real::close(fd);

            errno = EIO;
            return result;
        };
    }

    uint32_t epfd_ = MCAST_NONE;
    int before_ = 0;
    sigset_t mask_;
};

TEST_F(SignalDescriptor, BecomesReadableWhenTheSignalArrives)
{
    uint32_t fd = MCAST_NONE;
    struct epoll_event event;
    struct signalfd_siginfo info;
    ASSERT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, &fd), MCAST_OK);
    EXPECT_TRUE(IsBlocked(SIGUSR2));
    EXPECT_EQ(epoll_wait(static_cast<int>(epfd_), &event, 1, 0), 0);
    ASSERT_EQ(pthread_kill(pthread_self(), SIGUSR2), 0);
    ASSERT_EQ(epoll_wait(static_cast<int>(epfd_), &event, 1, 0), 1);
    EXPECT_EQ(uint64_t{event.data.u64}, fd);
    EXPECT_EQ(uint32_t{event.events}, static_cast<uint32_t>(EPOLLIN));
    ASSERT_EQ(read(static_cast<int>(fd), &info, sizeof(info)), static_cast<ssize_t>(sizeof(info)));
    EXPECT_EQ(info.ssi_signo, static_cast<uint32_t>(SIGUSR2));
    close(static_cast<int>(fd));
}

TEST_F(SignalDescriptor, BlocksThatSignalAloneAndOnlyInTheCallingThread)
{
    uint32_t fd = MCAST_NONE;
    bool other_blocked = true;

    pthread_t thread;
    struct Other {
        pthread_barrier_t barrier;
        bool *blocked;
    } other = {{}, &other_blocked};

    pthread_barrier_init(&other.barrier, nullptr, 2);
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *argument) -> void * {
                      Other *self = static_cast<Other *>(argument);

                      pthread_barrier_wait(&self->barrier);
                      *self->blocked = IsBlocked(SIGUSR2);
                      return nullptr;
                  },
                  &other),
              0);
    ASSERT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, &fd), MCAST_OK);
    pthread_barrier_wait(&other.barrier);
    pthread_join(thread, nullptr);
    pthread_barrier_destroy(&other.barrier);
    EXPECT_FALSE(other_blocked);
    EXPECT_TRUE(IsBlocked(SIGUSR2));
    EXPECT_FALSE(IsBlocked(SIGUSR1));
    close(static_cast<int>(fd));
}

TEST_F(SignalDescriptor, IsMadeByTheRawCallWithAnEightByteSet)
{
    long number = 0, fd_argument = 0, set_size = 0;
    uint64_t set = 0;
    uint32_t fd = MCAST_NONE;
    scripted::syscall = [&](long call, long a, long b, long c, long d, long e, long f) {
        number = call;
        fd_argument = a;
        set_size = c;
        std::memcpy(&set, reinterpret_cast<const void *>(b), sizeof(set));
        return scripted::real::syscall(call, a, b, c, d, e, f);
    };
    ASSERT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, &fd), MCAST_OK);
    EXPECT_EQ(number, kSignalfd);
    EXPECT_EQ(static_cast<int>(fd_argument), -1);
    EXPECT_EQ(set_size, 8);
    EXPECT_EQ(set, uint64_t{1} << (SIGUSR2 - 1));
    close(static_cast<int>(fd));
}

TEST_F(SignalDescriptor, RegistersTheContextForReading)
{
    MCAST_EPOLL_RECORD_S record = {};
    int operation = 0;
    uint32_t fd = MCAST_NONE;
    scripted::epoll_ctl = [&](int, int wanted, int, struct epoll_event *event) {
        operation = wanted;
        std::memcpy(&record, static_cast<void *>(event), sizeof(record));
        return 0;
    };
    ASSERT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, &fd), MCAST_OK);
    EXPECT_EQ(operation, EPOLL_CTL_ADD);
    EXPECT_EQ(uint32_t{record.events}, static_cast<uint32_t>(EPOLLIN));
    EXPECT_EQ(uint64_t{record.fd}, fd);
    EXPECT_EQ(uint64_t{record.context}, kContext);
    close(static_cast<int>(fd));
}

TEST_F(SignalDescriptor, NeedsAContextASetAndAnOutput)
{
    uint32_t fd = 0xabcd;
    int calls = 0;
    scripted::syscall = [&](auto...) {
        ++calls;
        return -1L;
    };
    EXPECT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, 0, &fd), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_SigToEpoll(MCAST_NONE, SIGUSR2, kContext, &fd), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(fd, 0xabcdu);
    EXPECT_FALSE(IsBlocked(SIGUSR2));
}

TEST_F(SignalDescriptor, FailsForANumberThatIsNoSignal)
{
    for (uint32_t signo : {0u, 65u, 1000u, 0xffffffffu}) {
        ExpectFailure(signo);
        EXPECT_EQ(errno, EINVAL) << signo;
    }
}

TEST_F(SignalDescriptor, ReportsThatItCannotBeMade)
{
    scripted::syscall = scripted::Failing<long>(EMFILE);
    ExpectFailure();
    EXPECT_EQ(errno, EMFILE);
    EXPECT_FALSE(IsBlocked(SIGUSR2));
}

TEST_F(SignalDescriptor, RefusesNumberZeroAndClosesIt)
{
    int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
    bool was_open = saved != -1;
    uint32_t fd = 0xabcd;

    if (was_open) {
        close(0);
    }
    MCAST_STATUS status = MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, &fd);
    bool left_open = fcntl(0, F_GETFD) != -1;

    if (was_open) {
        dup2(saved, 0);
        close(saved);
    }
    EXPECT_EQ(status, MCAST_ERR_GENERAL);
    EXPECT_EQ(fd, 0xabcdu);
    EXPECT_FALSE(left_open);
    EXPECT_FALSE(IsBlocked(SIGUSR2));
}

TEST_F(SignalDescriptor, IsClosedWhenTheMaskCannotBeSet)
{
    MakeCloseClobberErrno();
    scripted::pthread_sigmask = [](int how, const sigset_t *set, sigset_t *old) {
        EXPECT_EQ(how, SIG_BLOCK);
        EXPECT_EQ(sigismember(set, SIGUSR2), 1);
        EXPECT_EQ(old, nullptr);
        errno = EPERM;
        return -1;
    };
    ExpectFailure();
    EXPECT_EQ(errno, EPERM);
}

TEST_F(SignalDescriptor, TakesOnlyMinusOneOfTheMaskCallForAFailure)
{
    uint32_t fd = MCAST_NONE;
    scripted::pthread_sigmask = [](auto...) { return EINVAL; };
    EXPECT_EQ(MCAST_SigToEpoll(epfd_, SIGUSR2, kContext, &fd), MCAST_OK);
    EXPECT_NE(fd, MCAST_NONE);
    close(static_cast<int>(fd));
}

TEST_F(SignalDescriptor, IsClosedWhenItCannotBeRegistered)
{
    MakeCloseClobberErrno();
    scripted::epoll_ctl = scripted::Failing(ENOMEM);
    ExpectFailure();
    EXPECT_EQ(errno, ENOMEM);
}

} // namespace
