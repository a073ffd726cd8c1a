#include "daemons/pimsmd/downstream.h"

#include "daemons/pimsmd/holdtime.h"

namespace pimsmd::downstream
{

void Runner::join(uint16_t holdtime_s)
{
    take(Event::Join, holdtime_s, 0);
}

void Runner::prune(uint32_t delay_ms)
{
    take(Event::Prune, 0, delay_ms);
}

void Runner::expired(void *self)
{
    static_cast<Runner *>(self)->take(Event::Expired, 0, 0);
}

void Runner::pending_over(void *self)
{
    static_cast<Runner *>(self)->take(Event::PrunePendingOver, 0, 0);
}

void Runner::take(Event event, uint16_t holdtime_s, uint32_t delay_ms)
{
    const bool forwarded = forwards();
    const Actions actions = TABLE.step(state_, event);
    if ((actions & START_EXPIRY) != 0) {
        hold(queue_, expiry_, holdtime_s, expired, this);
    }
    if ((actions & PROLONG_EXPIRY) != 0) {
        hold_longer(queue_, expiry_, holdtime_s);
    }
    if ((actions & STOP_EXPIRY) != 0) {
        queue_.stop(expiry_);
    }
    if ((actions & STOP_PRUNE_PENDING) != 0) {
        queue_.stop(pending_);
    }
    if ((actions & START_PRUNE_PENDING) != 0) {
        echoes_ = delay_ms != 0;
        if (!echoes_) {
            take(Event::PrunePendingOver, 0, 0);
            return;
        }
        queue_.start(pending_, delay_ms, pending_over, this);
    }
    if ((actions & ECHO_PRUNE) != 0 && echoes_) {
        owner_.echo_prune(*this);
    }
    if (forwards() != forwarded) {
        owner_.changed(*this);
    }
}

} // namespace pimsmd::downstream
