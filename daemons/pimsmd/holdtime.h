/*
 * Timers of holdtimes: seconds of a message, of which the highest number never ends.
 */
#ifndef DAEMONS_PIMSMD_HOLDTIME_H
#define DAEMONS_PIMSMD_HOLDTIME_H

#include "daemons/pimsmd/ms_timer.h"
#include "daemons/pimsmd/wire.h"

namespace pimsmd
{

constexpr uint64_t holdtime_ms(uint16_t holdtime_s)
{
    return uint64_t{1000} * holdtime_s;
}

// Starts a stopped timer, or leaves it so for a holdtime without end.
inline void hold(MsQueue &queue, MsTimer &timer, uint16_t holdtime_s, MsTimer::Handler handler, void *owner)
{
    queue.stop(timer);
    if (holdtime_s != HOLDTIME_FOREVER) {
        queue.start(timer, holdtime_ms(holdtime_s), handler, owner);
    }
}

// Puts the end of what is held off when the holdtime is longer. A timer that does not run has none.
inline void hold_longer(MsQueue &queue, MsTimer &timer, uint16_t holdtime_s)
{
    if (holdtime_s == HOLDTIME_FOREVER) {
        queue.stop(timer);
    } else {
        queue.raise(timer, holdtime_ms(holdtime_s));
    }
}

} // namespace pimsmd

#endif
