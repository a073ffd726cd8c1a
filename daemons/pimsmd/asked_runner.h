/*
 * What the machines of a downstream router's wish on a link have in common, those of downstream.h and of rpt_prune.h: the
 * wish ends with its holdtime, and a Prune waits until other routers of the link could override it.
 */
#ifndef DAEMONS_PIMSMD_ASKED_RUNNER_H
#define DAEMONS_PIMSMD_ASKED_RUNNER_H

#include "daemons/pimsmd/machine.h"
#include "daemons/pimsmd/ms_timer.h"

namespace pimsmd
{

// Of timers: expiry, with the holdtime of the message when that is later, and prune-pending. A machine's other actions
// begin at OTHER_ACTION.
enum AskedAction : Actions {
    START_EXPIRY = 1,
    PROLONG_EXPIRY = 2,
    STOP_EXPIRY = 4,
    START_PRUNE_PENDING = 8,
    STOP_PRUNE_PENDING = 16,
    OTHER_ACTION = 32,
};

// What a message says, and how long a Prune of it waits, in milliseconds.
struct Asked {
    uint16_t holdtime_s = 0;
    uint32_t delay_ms = 0;
};

// The machine's events Expired and PrunePendingOver are the ends of its timers.
template <typename Table, typename Owner> class AskedRunner : public Runner<Table, Owner, Asked>
{
public:
    using typename Runner<Table, Owner, Asked>::Event;
    using Runner<Table, Owner, Asked>::Runner;

protected:
    ~AskedRunner() = default;

    // Does what is to be done with the timers. False when the Prune waits for nobody: then the event of its end came in
    // the call, and nothing of this one is left to do.
    bool act_on_timers(Actions actions, const Asked &asked)
    {
        if ((actions & START_EXPIRY) != 0) {
            this->template hold<Event::Expired>(expiry_, asked.holdtime_s);
        }
        if ((actions & PROLONG_EXPIRY) != 0) {
            hold_longer(this->queue_, expiry_, asked.holdtime_s);
        }
        if ((actions & STOP_EXPIRY) != 0) {
            this->queue_.stop(expiry_);
        }
        if ((actions & STOP_PRUNE_PENDING) != 0) {
            this->queue_.stop(pending_);
        }
        if ((actions & START_PRUNE_PENDING) != 0) {
            if (asked.delay_ms == 0) {
                this->happen(Event::PrunePendingOver);
                return false;
            }
            this->template start<Event::PrunePendingOver>(pending_, asked.delay_ms);
        }
        return true;
    }

private:
    MsTimer expiry_;
    MsTimer pending_;
};

} // namespace pimsmd

#endif
