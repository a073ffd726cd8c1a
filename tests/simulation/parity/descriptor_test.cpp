#include <ctime>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include "tests/simulation/parity/both_kernels.h"

using namespace parity;

namespace
{

TEST(DescriptorParity, EpollRefusesWhatIsWatchedAlreadyOrNot)
{
    compare([](const Calls &calls, Diary &diary) {
        const int epoll = calls.epoll_create1(0);
        const int counter = calls.eventfd(0, EFD_NONBLOCK);
        epoll_event event{EPOLLIN, {}};
        diary.note("modify", calls.epoll_ctl(epoll, EPOLL_CTL_MOD, counter, &event));
        diary.note("delete", calls.epoll_ctl(epoll, EPOLL_CTL_DEL, counter, &event));
        diary.note("add", calls.epoll_ctl(epoll, EPOLL_CTL_ADD, counter, &event));
        diary.note("add again", calls.epoll_ctl(epoll, EPOLL_CTL_ADD, counter, &event));
        diary.note("nothing", events_of(calls, epoll));
        const uint64_t two = 2;
        uint64_t read = 0;
        diary.note("nothing to read", calls.read(counter, &read, sizeof(read)));
        diary.note("write", calls.write(counter, &two, sizeof(two)));
        diary.note("write", calls.write(counter, &two, sizeof(two)));
        diary.note("ready", events_of(calls, epoll));
        diary.note("still ready", events_of(calls, epoll));
        diary.note("read", calls.read(counter, &read, sizeof(read)));
        diary.note("the sum", static_cast<long>(read));
        diary.note("no more", events_of(calls, epoll));
        calls.write(counter, &two, sizeof(two));
        diary.note("close", calls.close(counter));
        diary.note("closed is forgotten", events_of(calls, epoll));
    });
}

TEST(DescriptorParity, TimerIsReadyOnceItIsDue)
{
    compare([](const Calls &calls, Diary &diary) {
        const int timer = calls.timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK);
        uint64_t ticks = 0;
        itimerspec when{};
        diary.note("not set", calls.read(timer, &ticks, sizeof(ticks)));
        when.it_value.tv_nsec = 1;
        diary.note("set to the past", calls.timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr));
        diary.note("due", calls.read(timer, &ticks, sizeof(ticks)));
        diary.note("once", static_cast<long>(ticks));
        diary.note("and no more", calls.read(timer, &ticks, sizeof(ticks)));
    });
}

TEST(DescriptorParity, LowestFreeDescriptorIsGivenOut)
{
    compare([](const Calls &calls, Diary &diary) {
        const int one = calls.eventfd(0, 0);
        const int two = calls.eventfd(0, 0);
        calls.close(one);
        diary.note("the same again", calls.eventfd(0, 0) == one);
        diary.note("then above", calls.eventfd(0, 0) > two);
    });
}

} // namespace
