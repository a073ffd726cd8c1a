#include "daemons/gmpd/policy.h"

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/interface.h"

namespace gmpd
{

void apply_policy(Interface &interface)
{
    const Policy &policy = *interface.router->policy;

    for_each_group(interface, [&](GroupState &group) {
        const Joins joins = policy.joins_of(interface, *group.entry->address);

        if (joins == Joins::None) {
            remove_group(group);
            return;
        }
        if (joins == Joins::SourcesOnly) {
            // Hosts of older versions have no say in this range.
            timer_stop(interface.router->timers, group.v1_host);
            timer_stop(interface.router->timers, group.v2_host);
            if (group.exclude) {
                group_include(group);
            }
        }
        group.dirty = true;
        settle_group(group);
    });
}

} // namespace gmpd
