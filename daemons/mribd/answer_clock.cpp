#include "daemons/mribd/answer_clock.h"

#include <cstdint>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <utility>

#include "daemons/mribd/forwarding.h"
#include "mcast/event.h"

namespace mribd
{

AnswerClock::AnswerClock(mcastd::Reactor &reactor, std::function<void()> due)
    : reactor_(reactor), due_(std::move(due))
{
}

AnswerClock::~AnswerClock()
{
    if (timer_.valid()) {
        reactor_.remove(timer_.get());
    }
}

bool AnswerClock::open()
{
    const uint32_t made = MCAST_CreateTimerFd(0);
    if (made == MCAST_NONE) {
        return false;
    }
    mcastd::Descriptor timer(static_cast<int>(made));
    if (!reactor_.add(timer.get(), EPOLLIN, [this](uint32_t) { ring(); })) {
        return false;
    }
    timer_ = std::move(timer);
    return true;
}

bool AnswerClock::start()
{
    if (!running_ && (timer_.valid() || open())) {
        itimerspec when{};
        when.it_value.tv_nsec = Forwarding::ANSWER_TICK_MS * 1000000L;
        running_ = timerfd_settime(timer_.get(), 0, &when, nullptr) == 0;
    }
    return running_;
}

// The descriptor is readable, and its read never waits.
void AnswerClock::ring()
{
    uint64_t times = 0;
    running_ = read(timer_.get(), &times, sizeof(times)) != sizeof(times);
    if (!running_) {
        due_();
    }
}

} // namespace mribd
