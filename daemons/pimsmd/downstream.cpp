#include "daemons/pimsmd/downstream.h"

namespace pimsmd::downstream
{

void Runner::act(State before, Actions actions, const Asked &asked)
{
    if ((actions & START_EXPIRY) != 0) {
        hold<Event::Expired>(expiry_, asked.holdtime_s);
    }
    if ((actions & PROLONG_EXPIRY) != 0) {
        hold_longer(queue_, expiry_, asked.holdtime_s);
    }
    if ((actions & STOP_EXPIRY) != 0) {
        queue_.stop(expiry_);
    }
    if ((actions & STOP_PRUNE_PENDING) != 0) {
        queue_.stop(pending_);
    }
    if ((actions & START_PRUNE_PENDING) != 0) {
        echoes_ = asked.delay_ms != 0;
        if (!echoes_) {
            happen(Event::PrunePendingOver);
            return;
        }
        start<Event::PrunePendingOver>(pending_, asked.delay_ms);
    }
    if ((actions & ECHO_PRUNE) != 0 && echoes_) {
        owner_.echo_prune(*this);
    }
    if (forwards() != (before != State::NoInfo)) {
        owner_.changed(*this);
    }
}

} // namespace pimsmd::downstream
