#include "daemons/gmpd/policy.h"

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{
namespace
{

void apply_to_groups(Memberships &memberships)
{
    const Interface &link = memberships.link;
    const Policy &policy = *link.process->policy;

    for_each_group(memberships, [&](GroupState &group) {
        const Joins joins = policy.joins_of(link, *group.entry->address);

        if (joins == Joins::None || joins == Joins::Unlisted) {
            remove_group(group);
            return;
        }
        if (joins == Joins::SourcesOnly) {
            // Hosts of older versions have no say in this range.
            timer_stop(link.process->timers, group.v1_host);
            timer_stop(link.process->timers, group.v2_host);
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
    apply_to_groups(interface.memberships);
    if (interface.users_union != nullptr) {
        interface.process->users->visit(interface, apply_to_groups);
    }
}

} // namespace gmpd
