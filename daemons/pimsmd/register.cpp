#include "daemons/pimsmd/register.h"

namespace pimsmd::registers
{

void Runner::timer_over(void *self)
{
    static_cast<Runner *>(self)->take(Event::TimerOver);
}

void Runner::take(Event event)
{
    const Actions actions = TABLE.step(state_, event);
    if ((actions & STOP_TIMER) != 0) {
        queue_.stop(timer_);
    }
    if ((actions & START_SUPPRESSION) != 0) {
        queue_.start(timer_, owner_.draw_suppression_ms(), timer_over, this);
    }
    if ((actions & START_PROBE) != 0) {
        queue_.start(timer_, owner_.probe_ms(), timer_over, this);
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
