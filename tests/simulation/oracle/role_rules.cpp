/*
 * Who does what when nothing has happened for long: rule 3. One querier a link and family.
 */
#include <algorithm>

#include "tests/simulation/oracle/oracle.h"

namespace sim
{
namespace
{

constexpr Ns LATE = 2 * SECOND;

} // namespace

void Oracle::check_queriers(const Link &link, int family)
{
    const Ns since = world_->kernel.clock.now() - disturbances.timing().query_interval - LATE;
    std::string askers;
    unsigned count = 0;
    for (const auto &[address, when] : link.asked()) {
        if (address.family == family && when >= since) {
            ++count;
            askers += " " + to_text(address);
        }
    }
    const auto &machines = world_->machines();
    const bool is_served = std::any_of(machines.begin(), machines.end(),
                                       [&](const auto &machine) { return forwards(*machine, link, family); });
    if (count > 1 || (is_served && count == 0)) {
        broken(Rule::Roles, link.name + ": there are " + std::to_string(count) + " queriers:" + askers);
    }
}

} // namespace sim
