#include "daemons/pimsmd/downstream.h"

namespace pimsmd::downstream
{

void Runner::act(State before, Actions actions, const Asked &asked)
{
    if ((actions & START_PRUNE_PENDING) != 0) {
        echoes_ = asked.delay_ms != 0;
    }
    if (!act_on_timers(actions, asked)) {
        return;
    }
    if ((actions & ECHO_PRUNE) != 0 && echoes_) {
        owner_.echo_prune(*this);
    }
    if (forwards() != (before != State::NoInfo)) {
        owner_.changed(*this);
    }
}

} // namespace pimsmd::downstream
