#include "tests/simulation/kernel/clock.h"

#include <algorithm>
#include <utility>

namespace sim
{

void Clock::at(Ns when, std::function<void()> act)
{
    events_.push({std::max(when, now_), made_++, std::move(act)});
}

void Clock::advance(Ns to)
{
    now_ = std::max(now_, to);
    while (!events_.empty() && events_.top().when <= now_) {
        const auto act = std::move(const_cast<Event &>(events_.top()).act);
        events_.pop();
        act();
    }
}

} // namespace sim
