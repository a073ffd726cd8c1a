#include "daemons/pimsmd/upstream.h"

#include <algorithm>

namespace pimsmd::upstream
{

void Runner::act(State, Actions actions, const Seen &seen)
{
    if ((actions & START_PERIOD) != 0) {
        start<Event::TimerOver>(timer_, owner_.period_ms());
    }
    if ((actions & STOP_TIMER) != 0) {
        queue_.stop(timer_);
    }
    if ((actions & SUPPRESS) != 0) {
        // No longer than the other router's Join lasts.
        queue_.raise(timer_, std::min<uint64_t>(owner_.draw_suppression_ms(), holdtime_ms(seen.holdtime_s)));
    }
    if ((actions & LOWER_TO_OVERRIDE) != 0) {
        queue_.lower(timer_, owner_.draw_override_ms());
    }
    if ((actions & CLEAR_SPT_BIT) != 0) {
        owner_.clear_spt_bit();
    }
    if ((actions & SEND_PRUNE_TO_OLD) != 0) {
        owner_.send_prune_to_old();
    }
    if ((actions & SEND_JOIN) != 0) {
        owner_.send_join();
    }
    if ((actions & SEND_PRUNE) != 0) {
        owner_.send_prune();
    }
}

} // namespace pimsmd::upstream
