#include "tests/simulation/oracle/disturbances.h"

#include <algorithm>
#include <cstdlib>

namespace sim
{

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

bool Disturbances::is_calm() const
{
    for (const auto &[name, link] : world_->links()) {
        if (link->loss > 0 || link->duplication > 0 || link->delay > 0) {
            return false;
        }
    }
    for (const auto &[name, plan] : world_->daemons()) {
        const Process &process = *plan.process;
        if (plan.wanted != process.is_running() || process.refusals.count != 0 ||
            process.account.refuse != 0) {
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
