#include "daemons/pimsmd/rpt_prune.h"

#include "daemons/pimsmd/holdtime.h"

namespace pimsmd
{
namespace rpt_downstream
{

void Runner::join_star()
{
    take(Event::JoinStar);
}

void Runner::join()
{
    take(Event::JoinRpt);
}

void Runner::prune(uint16_t holdtime_s, uint32_t delay_ms)
{
    take(Event::PruneRpt, holdtime_s, delay_ms);
}

void Runner::end_of_message()
{
    take(Event::EndOfMessage);
}

void Runner::expired(void *self)
{
    static_cast<Runner *>(self)->take(Event::Expired);
}

void Runner::pending_over(void *self)
{
    static_cast<Runner *>(self)->take(Event::PrunePendingOver);
}

void Runner::take(Event event, uint16_t holdtime_s, uint32_t delay_ms)
{
    const bool pruned = prunes();
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
        if (delay_ms == 0) {
            take(Event::PrunePendingOver);
            return;
        }
        queue_.start(pending_, delay_ms, pending_over, this);
    }
    if (prunes() != pruned) {
        owner_.changed(*this);
    }
}

} // namespace rpt_downstream

namespace rpt_upstream
{

void Runner::override_over(void *self)
{
    static_cast<Runner *>(self)->take(Event::OverrideOver);
}

void Runner::take(Event event)
{
    const Actions actions = TABLE.step(state_, event);
    if ((actions & STOP_OVERRIDE) != 0) {
        queue_.stop(override_);
    }
    if ((actions & LOWER_OVERRIDE) != 0) {
        const uint32_t delay_ms = owner_.draw_override_ms();

        if (override_.running()) {
            queue_.lower(override_, delay_ms);
        } else {
            queue_.start(override_, delay_ms, override_over, this);
        }
    }
    if ((actions & SEND_JOIN) != 0) {
        owner_.send_join_rpt();
    }
    if ((actions & SEND_PRUNE) != 0) {
        owner_.send_prune_rpt();
    }
}

} // namespace rpt_upstream
} // namespace pimsmd
