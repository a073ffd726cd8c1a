/*
 * The milliseconds for which new sources wait for the answer of PIM: the timers of daemons count seconds.
 */
#ifndef DAEMONS_MRIBD_ANSWER_CLOCK_H
#define DAEMONS_MRIBD_ANSWER_CLOCK_H

#include <functional>

#include "daemons/common/descriptor.h"
#include "daemons/common/reactor.h"

namespace mribd
{

class AnswerClock
{
public:
    // due is called ANSWER_TICK_MS after each start. reactor must outlive the clock.
    AnswerClock(mcastd::Reactor &reactor, std::function<void()> due);
    ~AnswerClock();
    AnswerClock(const AnswerClock &) = delete;
    AnswerClock &operator=(const AnswerClock &) = delete;

    // Starts unless it runs. False when it cannot, for want of a descriptor.
    bool start();

private:
    bool open();
    void ring();

    mcastd::Reactor &reactor_;
    std::function<void()> due_;
    mcastd::Descriptor timer_; // made when it is needed first
    bool running_ = false;
};

} // namespace mribd

#endif
