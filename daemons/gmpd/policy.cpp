#include "daemons/gmpd/policy.h"

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/interface.h"

namespace gmpd
{
namespace
{

void apply_to_groups(Interface &interface)
{
    const Policy &policy = *interface.router->policy;

    for_each_group(interface, [&](GroupState &group) {
        const Joins joins = policy.joins_of(interface, *group.entry->address);

        if (joins == Joins::None || joins == Joins::Unlisted) {
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

} // namespace

void apply_policy(Interface &interface)
{
    apply_to_groups(interface);
    if (interface.members != nullptr) {
        interface.router->users->visit(interface, apply_to_groups);
    }
}

} // namespace gmpd
