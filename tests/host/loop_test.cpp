// The event loop: registration through epoll_ctl, the life of handlers and descriptors, stopping.
#include "mcasthost/loop.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

// What handler() does for each descriptor, and whom it was called for.
std::map<int, std::function<void(uint32_t)>> g_actions;
std::vector<int> g_calls;

uint64_t handler(uint32_t events, int32_t fd)
{
    g_calls.push_back(fd);
    if (g_actions.count(fd) != 0) {
        auto action = g_actions[fd];
        action(events);
    }
    return 0;
}

uint64_t other_handler(uint32_t, int32_t fd)
{
    g_calls.push_back(-fd);
    return 0;
}

class EventLoop : public testing::Test
{
protected:
    void SetUp() override
    {
        g_actions.clear();
        g_calls.clear();
        loop_ = HOST_LoopCreate();
        ASSERT_GE(loop_, 0);
    }
    void TearDown() override
    {
        EXPECT_EQ(HOST_LoopDestroy(loop_), 0u);
    }
    // Runs until nothing is ready.
    int drain(int limit = 1000)
    {
        int served = 0;
        while (served < limit && HOST_LoopRunOnce(loop_, 0) == 1) {
            ++served;
        }
        return served;
    }
    static int ready_descriptor()
    {
        return eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    static void consume(int fd)
    {
        uint64_t count;
        EXPECT_EQ(read(fd, &count, sizeof(count)), 8);
    }
    int loop_ = -1;
};

TEST_F(EventLoop, PackedRecordThroughEpollCtlCallsTheContextAsHandler)
{
    int fd = ready_descriptor();
    HOST_LOOP_RECORD_S record{EPOLLIN, static_cast<uint64_t>(fd), reinterpret_cast<uint64_t>(&handler)};
    uint32_t seen = 0;
    g_actions[fd] = [&](uint32_t events) {
        seen = events;
        consume(fd);
    };
    ASSERT_EQ(epoll_ctl(loop_, EPOLL_CTL_ADD, fd, reinterpret_cast<epoll_event *>(&record)), 0);
    EXPECT_EQ(drain(), 1);
    EXPECT_EQ(seen, static_cast<uint32_t>(EPOLLIN));
    EXPECT_EQ(g_calls, std::vector<int>{fd});

    record.context = reinterpret_cast<uint64_t>(&other_handler);
    record.events = EPOLLOUT;
    ASSERT_EQ(epoll_ctl(loop_, EPOLL_CTL_MOD, fd, reinterpret_cast<epoll_event *>(&record)), 0);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), 1);
    EXPECT_EQ(g_calls.back(), -fd);

    ASSERT_EQ(epoll_ctl(loop_, EPOLL_CTL_DEL, fd, nullptr), 0);
    EXPECT_EQ(drain(), 0);
    close(fd);
}

TEST_F(EventLoop, BadRegistrationsAreRefusedAndLeaveNothingBehind)
{
    int fd = ready_descriptor();
    EXPECT_EQ(HOST_LoopAdd(loop_, fd, EPOLLIN, nullptr), HOST_FAILED);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(HOST_LoopModify(loop_, fd, EPOLLIN, handler), HOST_FAILED);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(HOST_LoopRemove(loop_, fd), HOST_FAILED);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(HOST_LoopAdd(loop_, -1, EPOLLIN, handler), HOST_FAILED);
    EXPECT_EQ(errno, EBADF);
    epoll_event *none = nullptr;
    EXPECT_EQ(epoll_ctl(loop_, EPOLL_CTL_ADD, fd, none), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(HOST_LoopAdd(loop_, fd, EPOLLIN, handler), 0u);
    EXPECT_EQ(HOST_LoopAdd(loop_, fd, EPOLLIN, other_handler), HOST_FAILED);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), 1);
    EXPECT_EQ(g_calls, std::vector<int>{fd}); // the refused second registration changed nothing
    close(fd);
}

TEST_F(EventLoop, OtherEpollInstancesTakeTheKernelsRecord)
{
    int plain = epoll_create1(EPOLL_CLOEXEC);
    int fd = ready_descriptor();
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = 0x1122334455667788;
    ASSERT_EQ(epoll_ctl(plain, EPOLL_CTL_ADD, fd, &event), 0);
    epoll_event got{};
    EXPECT_EQ(epoll_wait(plain, &got, 1, 0), 1);
    uint64_t data = got.data.u64; // the record is packed
    EXPECT_EQ(data, 0x1122334455667788u);
    close(fd);
    close(plain);
}

TEST_F(EventLoop, HandlerMayRemoveAndCloseItself)
{
    int fd = ready_descriptor();
    g_actions[fd] = [&](uint32_t) {
        EXPECT_EQ(HOST_LoopRemove(loop_, fd), 0u);
        close(fd);
    };
    HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    EXPECT_EQ(drain(), 1);
}

TEST_F(EventLoop, DescriptorClosedByAnotherHandlerIsNotReportedAnyMore)
{
    int first = ready_descriptor();
    int second = ready_descriptor();
    auto close_the_other = [&](int other) { return [other](uint32_t) { close(other); }; };
    g_actions[first] = close_the_other(second);
    g_actions[second] = close_the_other(first);
    HOST_LoopAdd(loop_, first, EPOLLIN, handler);
    HOST_LoopAdd(loop_, second, EPOLLIN, handler);
    EXPECT_EQ(drain(10), 10); // the survivor, again and again
    for (int fd : g_calls) {
        EXPECT_EQ(fd, g_calls[0]);
    }
    close(g_calls[0]);
}

TEST_F(EventLoop, NumberReusedWhileItsPredecessorWasReadyGetsNoOldEvent)
{
    int first = ready_descriptor();
    int second = ready_descriptor();
    int replacement = -1;
    // Whichever comes first closes the other, takes its number for something idle and registers that.
    auto replace = [&](int self, int other) {
        return [&, self, other](uint32_t) {
            consume(self);
            close(other);
            replacement = eventfd(0, EFD_CLOEXEC);
            ASSERT_EQ(replacement, other);
            ASSERT_EQ(HOST_LoopAdd(loop_, replacement, EPOLLIN, other_handler), 0u);
        };
    };
    g_actions[first] = replace(first, second);
    g_actions[second] = replace(second, first);
    HOST_LoopAdd(loop_, first, EPOLLIN, handler);
    HOST_LoopAdd(loop_, second, EPOLLIN, handler);
    EXPECT_EQ(drain(), 1);
    uint64_t one = 1;
    EXPECT_EQ(write(replacement, &one, sizeof(one)), 8);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), 1);
    EXPECT_EQ(g_calls.back(), -replacement);
    close(first);
    close(second);
}

TEST_F(EventLoop, RegistrationThatOutlivesItsDescriptorCallsNoHandler)
{
    int fd = ready_descriptor();
    HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    EXPECT_EQ(HOST_LoopRemove(loop_, fd), 0u);
    EXPECT_EQ(HOST_LoopAdd(loop_, fd, EPOLLIN, handler), 0u);
    close(fd);
    EXPECT_EQ(drain(), 0);
    EXPECT_EQ(HOST_LoopRemove(loop_, fd), HOST_FAILED);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(EventLoop, RemovalCountsAlsoWhenADuplicateKeepsTheKernelsRegistration)
{
    int fd = ready_descriptor();
    int copy = dup(fd);
    HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    close(fd);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), 1); // the kernel still reports the number
    EXPECT_EQ(HOST_LoopRemove(loop_, fd), HOST_FAILED);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), 0);
    close(copy);
}

TEST_F(EventLoop, ReadyDescriptorsAreServedInTurn)
{
    int fds[5];
    for (int &fd : fds) {
        fd = ready_descriptor(); // never read: always ready
        HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    }
    EXPECT_EQ(drain(50), 50);
    for (int fd : fds) {
        EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), fd), 10);
        close(fd);
    }
}

TEST_F(EventLoop, StopEndsTheRunAfterTheHandlerInProgress)
{
    int fd = ready_descriptor();
    int calls = 0;
    g_actions[fd] = [&](uint32_t) {
        if (++calls == 3) {
            HOST_LoopStop(loop_);
        }
    };
    HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    EXPECT_EQ(HOST_LoopRun(loop_), 0u);
    EXPECT_EQ(calls, 3);
    calls = 0;
    EXPECT_EQ(HOST_LoopRun(loop_), 0u); // the stop ended one run only
    EXPECT_EQ(calls, 3);
    close(fd);
}

TEST_F(EventLoop, StopBeforeTheRunEndsItBeforeAnyHandler)
{
    int fd = ready_descriptor();
    HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    HOST_LoopStop(loop_);
    EXPECT_EQ(HOST_LoopRunOnce(loop_, -1), 0);
    EXPECT_EQ(HOST_LoopRun(loop_), 0u);
    EXPECT_TRUE(g_calls.empty());
    EXPECT_EQ(HOST_LoopRunOnce(loop_, 0) + HOST_LoopRunOnce(loop_, 0), 1); // one turn may go to the wake-up
    close(fd);
}

TEST_F(EventLoop, StopFromAnotherThreadAndFromASignalHandlerWakesAWaitingLoop)
{
    std::thread other([&] { HOST_LoopStop(loop_); });
    EXPECT_EQ(HOST_LoopRun(loop_), 0u);
    other.join();

    static int stopped_loop;
    stopped_loop = loop_;
    struct sigaction action {
    };
    action.sa_handler = [](int) { HOST_LoopStop(stopped_loop); };
    struct sigaction old;
    sigaction(SIGALRM, &action, &old);
    itimerval soon{};
    soon.it_value.tv_usec = 1000;
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(HOST_LoopRun(loop_), 0u);
    sigaction(SIGALRM, &old, nullptr);
}

TEST_F(EventLoop, InterruptedWaitIsResumed)
{
    static int signals;
    signals = 0;
    static int stopped_loop;
    stopped_loop = loop_;
    struct sigaction action {
    };
    action.sa_handler = [](int) {
        if (++signals == 3) {
            HOST_LoopStop(stopped_loop);
        }
    };
    struct sigaction old;
    sigaction(SIGALRM, &action, &old);
    itimerval often{};
    often.it_value.tv_usec = often.it_interval.tv_usec = 1000;
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(HOST_LoopRun(loop_), 0u);
    itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(signals, 3);
    sigaction(SIGALRM, &old, nullptr);
}

TEST_F(EventLoop, RunningLoopIsNeitherRunAgainNorDestroyed)
{
    int fd = ready_descriptor();
    g_actions[fd] = [&](uint32_t) {
        EXPECT_EQ(HOST_LoopRun(loop_), HOST_FAILED);
        EXPECT_EQ(errno, EBUSY);
        EXPECT_EQ(HOST_LoopRunOnce(loop_, 0), -1);
        EXPECT_EQ(HOST_LoopDestroy(loop_), HOST_FAILED);
        consume(fd);
    };
    HOST_LoopAdd(loop_, fd, EPOLLIN, handler);
    EXPECT_EQ(drain(), 1);
    close(fd);
}

TEST(EventLoopMisuse, WhatIsNotALoopIsRefused)
{
    int plain = epoll_create1(EPOLL_CLOEXEC);
    for (int32_t loop : {-1, plain}) {
        EXPECT_EQ(HOST_LoopRun(loop), HOST_FAILED);
        EXPECT_EQ(HOST_LoopRunOnce(loop, 0), -1);
        EXPECT_EQ(HOST_LoopStop(loop), HOST_FAILED);
        EXPECT_EQ(HOST_LoopDestroy(loop), HOST_FAILED);
        EXPECT_EQ(HOST_LoopAdd(loop, 0, EPOLLIN, handler), HOST_FAILED);
        EXPECT_EQ(HOST_LoopModify(loop, 0, EPOLLIN, handler), HOST_FAILED);
        EXPECT_EQ(HOST_LoopRemove(loop, 0), HOST_FAILED);
        EXPECT_EQ(HOST_LoopTimerService(loop), nullptr);
    }
    close(plain);
}

TEST(EventLoopMisuse, NumberOfLoopsIsLimitedAndAPlaceIsFreeAgainAfterwards)
{
    std::vector<int32_t> loops;
    int32_t loop;
    while ((loop = HOST_LoopCreate()) >= 0 && loops.size() < 100) {
        loops.push_back(loop);
    }
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(loops.size(), 64u);
    HOST_LoopDestroy(loops.back());
    loops.back() = HOST_LoopCreate();
    EXPECT_GE(loops.back(), 0);
    for (int32_t each : loops) {
        EXPECT_EQ(HOST_LoopDestroy(each), 0u);
    }
}

} // namespace
