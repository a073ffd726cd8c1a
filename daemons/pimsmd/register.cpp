#include "daemons/pimsmd/register.h"

namespace pimsmd::registers
{

void Runner::act(State, Actions actions, const NothingMore &)
{
    if ((actions & STOP_TIMER) != 0) {
        queue_.stop(timer_);
    }
    if ((actions & START_SUPPRESSION) != 0) {
        start<Event::TimerOver>(timer_, owner_.draw_suppression_ms());
    }
    if ((actions & START_PROBE) != 0) {
        start<Event::TimerOver>(timer_, owner_.probe_ms());
    }
    if ((actions & (ADD_TUNNEL | REMOVE_TUNNEL)) != 0) {
        owner_.set_tunnel((actions & ADD_TUNNEL) != 0);
    }
    if ((actions & UPDATE_TUNNEL) != 0) {
        owner_.update_tunnel();
    }
    if ((actions & SEND_NULL_REGISTER) != 0) {
        owner_.send_null_register();
    }
}

} // namespace pimsmd::registers
