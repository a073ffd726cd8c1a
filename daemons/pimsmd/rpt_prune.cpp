#include "daemons/pimsmd/rpt_prune.h"

namespace pimsmd
{
namespace rpt_downstream
{

void Runner::act(State before, Actions actions, const Asked &asked)
{
    if (act_on_timers(actions, asked) && prunes() != is_prune(before)) {
        owner_.changed(*this);
    }
}

} // namespace rpt_downstream

namespace rpt_upstream
{

void Runner::act(State, Actions actions, const NothingMore &)
{
    if ((actions & STOP_OVERRIDE) != 0) {
        queue_.stop(override_);
    }
    if ((actions & LOWER_OVERRIDE) != 0) {
        const uint32_t delay_ms = owner_.draw_override_ms();

        if (override_.running()) {
            queue_.lower(override_, delay_ms);
        } else {
            start<Event::OverrideOver>(override_, delay_ms);
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
