/*
 * What happened to the router that it may need time to get over. A disturbance lasts while its cause does (a link
 * that loses packets, a daemon that is gone), and has a time of recovery behind it, in which wanted packets may be
 * missed. The bounds on unwanted packets are tight only when nothing of that kind happened for long.
 */
#ifndef TESTS_SIMULATION_ORACLE_DISTURBANCES_H
#define TESTS_SIMULATION_ORACLE_DISTURBANCES_H

#include <algorithm>

#include "tests/simulation/network/world.h"

namespace sim
{

// The times of the protocol that are in force, from the daemons' arguments.
struct Timing {
    Ns query_interval = 125 * SECOND;
    Ns response = 10 * SECOND;
    Ns last_member = SECOND;
    uint64_t robustness = 2;
    Ns hold = 0;
    Ns idle = 210 * SECOND;

    static Timing of(World &world);

    // How long a membership lasts without a report.
    Ns membership() const
    {
        return robustness * query_interval + response;
    }
    // How long the hosts are asked after a leave.
    Ns leave() const
    {
        return robustness * last_member;
    }
    Ns other_querier() const
    {
        return robustness * query_interval + response / 2;
    }
    // After which everything is as it ought to be, whatever was.
    Ns rest() const
    {
        return membership() + std::max(other_querier(), hold) + 5 * SECOND;
    }
};

class Disturbances
{
public:
    void watch(World &world);

    // Something happened; the router needs that long.
    void note(Ns recovery);
    // A gmpd begins, and takes itself for the querier until it hears another one.
    void note_election();
    // Until when two routers of a link may both forward.
    Ns elected_at() const
    {
        return elected_at_;
    }
    // Another gmpd takes over, which asks the hosts; what was wanted goes on meanwhile.
    void note_takeover();
    // Whether the daemon is a gmpd that may be missing, because a standby of it runs and mribd keeps what it wanted.
    bool has_standby(const DaemonPlan &plan) const;
    // All that lasts is over: links carry, daemons run, nothing is refused.
    bool is_calm() const;
    // Since when nothing has happened; now while something lasts.
    Ns quiet_since() const;
    // The same, and no gmpd took over.
    Ns steady_since() const
    {
        return std::max(quiet_since(), takeover_);
    }
    // Whether what a host wanted from then on may still be unknown, because a gmpd took over just then.
    bool may_be_unheard(Ns changed) const;
    // Whether what hosts answered to a question of then may be unknown, because a gmpd took over meanwhile.
    bool may_be_unanswered(Ns asked) const;
    // Until when wanted packets may be missed; for ever while something lasts.
    Ns excused_until() const;
    // The time that daemons could not run.
    void note_stopped(Ns time)
    {
        stopped_ += time;
    }
    Ns stopped() const
    {
        return stopped_;
    }
    const Timing &timing() const
    {
        return timing_;
    }

private:
    World *world_ = nullptr;
    Timing timing_;
    Ns last_ = 0;
    Ns excused_until_ = 0;
    Ns stopped_ = 0;
    Ns takeover_ = 0;
    Ns elected_at_ = 0;
};

} // namespace sim

#endif
