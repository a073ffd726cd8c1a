#include "tests/simulation/oracle/disturbances.h"

#include <algorithm>
#include <cstdlib>

namespace sim
{
namespace
{

// A report that was not heard is repeated in that time, or the hosts are asked.
constexpr Ns UNREPEATED = 4 * SECOND;

} // namespace

Timing Timing::of(World &world)
{
    Timing timing;
    for (const auto &[name, plan] : world.daemons()) {
        for (size_t i = 0; i + 1 < plan.arguments.size(); ++i) {
            const std::string &option = plan.arguments[i];
            const uint64_t value = strtoull(plan.arguments[i + 1].c_str(), nullptr, 10);
            if (option == "--query-interval") {
                timing.query_interval = value * SECOND;
            } else if (option == "--query-response-interval") {
                timing.response = value * SECOND;
            } else if (option == "--last-member-interval") {
                timing.last_member = value * SECOND;
            } else if (option == "--robustness") {
                timing.robustness = value;
            } else if (option == "--hold-time") {
                timing.hold = value * SECOND;
            } else if (option == "--idle-timeout") {
                timing.idle = value * SECOND;
            }
        }
    }
    return timing;
}

void Disturbances::watch(World &world)
{
    world_ = &world;
    timing_ = Timing::of(world);
}

void Disturbances::note(Ns recovery)
{
    last_ = world_->kernel.clock.now();
    excused_until_ = std::max(excused_until_, last_ + recovery);
}

void Disturbances::note_election()
{
    if (world_->machines().size() > 1) {
        elected_at_ = world_->kernel.clock.now() + timing_.query_interval + UNREPEATED;
    }
}

void Disturbances::note_takeover()
{
    note_election();
    takeover_ = world_->kernel.clock.now();
}

bool Disturbances::may_be_unheard(Ns changed) const
{
    return changed + UNREPEATED > takeover_ && takeover_ + UNREPEATED > changed &&
           world_->kernel.clock.now() < takeover_ + timing_.response + UNREPEATED;
}

bool Disturbances::may_be_unanswered(Ns asked) const
{
    return takeover_ >= asked && takeover_ < asked + timing_.response + UNREPEATED &&
           world_->kernel.clock.now() < takeover_ + timing_.response + UNREPEATED;
}

bool Disturbances::has_standby(const DaemonPlan &plan) const
{
    if (plan.daemon != "gmpd" || timing_.hold == 0) {
        return false;
    }
    const auto &daemons = world_->daemons();
    return std::any_of(daemons.begin(), daemons.end(), [&plan](const auto &named) {
        const DaemonPlan &other = named.second;
        return &other != &plan && other.process->is_running() && other.daemon == plan.daemon &&
               &other.process->machine() == &plan.process->machine() &&
               other.arguments == plan.arguments; // they are started alike
    });
}

bool Disturbances::is_calm() const
{
    for (const auto &[name, link] : world_->links()) {
        if (link->loss > 0 || link->damage > 0 || link->duplication > 0 || link->delay > 0) {
            return false;
        }
    }
    for (const auto &[name, plan] : world_->daemons()) {
        const Process &process = *plan.process;
        const bool is_there = plan.wanted == process.is_running() || has_standby(plan);
        if (!is_there || process.refusals.count != 0 || process.account.refuse != 0) {
            return false;
        }
    }
    return true;
}

Ns Disturbances::quiet_since() const
{
    return is_calm() ? last_ : world_->kernel.clock.now();
}

Ns Disturbances::excused_until() const
{
    return is_calm() ? excused_until_ : NEVER;
}

} // namespace sim
