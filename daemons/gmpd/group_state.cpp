/*
 * What the MRIB is told about a group, in bits that change one by one:
 *
 *      INCLUDE           every source in the table is joined
 *      EXCLUDE           any source is joined; sources whose timer does not run are blocked
 *
 * Where the policy says that this router does not forward, no bit is set.
 *
 * A change of mode turns several bits. They are sent in three steps, each skipped when there is nothing to
 * do: first what adds (joins of sources, blocks), then the join or prune of any source, then what takes away
 * (prunes of sources, unblocks). Going to EXCLUDE the blocks stand before any source is let through and the
 * joins of single sources fall only afterwards; going to INCLUDE the wanted sources are joined before the
 * rest is cut off.
 *
 * Records to be removed are marked first and removed in the last step, so that their bits fall in order too.
 */
#include "daemons/gmpd/group_state.h"

#include <memory>
#include <new>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/gmpd/group_expiry.h"
#include "daemons/gmpd/group_query.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

// A link's change goes to the MRIB, a user's to the union of its link's users.
void tell_member(const GroupState &group, const Address *source, bool join, bool blocked)
{
    Interface &link = link_of(group);
    if (group.memberships->of_user()) {
        link.users_union->note(*group.entry->address, source, join, blocked);
    } else {
        link.process->mrib->tell_member(link, *group.entry->address, source, join, blocked);
    }
}

void settle_link(const Memberships &memberships, const Address &group)
{
    if (memberships.of_user()) {
        memberships.link.users_union->settle(group);
    }
}

void tell_source(const SourceState &source, bool join, bool blocked)
{
    tell_member(*source.group, source.entry->address, join, blocked);
}

bool reports(const GroupState &group)
{
    return group.memberships->link.process->policy->reports(link_of(group));
}

void tell_any(GroupState &group, bool join)
{
    if (group.told_any != join) {
        group.told_any = join;
        tell_member(group, nullptr, join, false);
    }
}

bool wants_join(const SourceState &source, bool reported)
{
    return reported && !source.doomed && !source.group->exclude && source.timer.running();
}

bool wants_block(const SourceState &source, bool reported)
{
    return reported && !source.doomed && source.group->exclude && !source.timer.running();
}

void tell_additions(SourceState &source, bool reported)
{
    if (!source.told_joined && wants_join(source, reported)) {
        source.told_joined = true;
        tell_source(source, true, false);
    }
    if (!source.told_blocked && wants_block(source, reported)) {
        source.told_blocked = true;
        tell_source(source, true, true);
    }
}

void tell_removals(SourceState &source, bool reported)
{
    if (source.told_joined && !wants_join(source, reported)) {
        source.told_joined = false;
        tell_source(source, false, false);
    }
    if (source.told_blocked && !wants_block(source, reported)) {
        source.told_blocked = false;
        tell_source(source, false, true);
    }
}

} // namespace

MCAST_TMR_S *timers_of(const GroupState &group)
{
    return group.memberships->link.process->timers;
}

Interface &link_of(const GroupState &group)
{
    return group.memberships->link;
}

void release_group(void **user_data)
{
    std::unique_ptr<GroupState> group(static_cast<GroupState *>(*user_data));
    MCAST_TMR_S *timers = timers_of(*group);
    leave_queue(*group);
    uncount_group(*group);
    for (mcastd::Timer *timer :
         {&group->timer, &group->sources_timer, &group->retransmit, &group->v1_host, &group->v2_host}) {
        timer_stop(timers, *timer);
    }
}

void release_source(void **user_data)
{
    const std::unique_ptr<SourceState> source(static_cast<SourceState *>(*user_data));
    uncount_source(*source);
}

GroupState *find_group(const Memberships &memberships, const Address &group)
{
    return state_of(static_cast<MRT_GROUP_S *>(MRT_Locate(memberships.groups, &group)));
}

SourceState *find_source(const GroupState &group, const Address &source)
{
    SourceState *state = state_of(static_cast<MRT_SOURCE_S *>(MRT_Locate(group.entry->sources, &source)));
    return state != nullptr && !state->doomed ? state : nullptr;
}

GroupState *ensure_group(Memberships &memberships, const Address &group)
{
    GroupState *found = find_group(memberships, group);
    if (found != nullptr) {
        return found;
    }
    const Count refused = group_refused(memberships, group);
    if (refused != NO_DROP) {
        ++memberships.counters()[refused];
        trace(TraceCategory::Group, memberships.link, "%N on %P: %s", &group, memberships.shown_index(),
              count_name(refused));
        return nullptr;
    }
    auto state = std::make_unique<GroupState>();
    state->memberships = &memberships;
    state->entry = mcastd::must_have(
        [&] { return MRT_CreateGroupMask(memberships.groups, &group, address_bits(group.family)); });
    try {
        count_group(*state);
    } catch (const std::bad_alloc &) {
        MRT_DeleteGroup(state->entry);
        throw;
    }
    state->entry->user_data = state.get();
    warn_group_limit(memberships);
    trace(TraceCategory::Group, memberships.link, "%N on %P begins", &group, memberships.shown_index());
    return state.release();
}

SourceState *ensure_source(GroupState &group, const Address &source)
{
    SourceState *found = state_of(static_cast<MRT_SOURCE_S *>(MRT_Locate(group.entry->sources, &source)));

    if (found != nullptr) {
        group.dirty = group.dirty || found->doomed;
        found->doomed = false;
        return found;
    }
    const Count refused = source_refused(group);
    if (refused != NO_DROP) {
        ++group.memberships->counters()[refused];
        trace(TraceCategory::Group, link_of(group), "(%M, %N) on %P: %s", &source, group.entry->address,
              group.memberships->shown_index(), count_name(refused));
        return nullptr;
    }
    auto state = std::make_unique<SourceState>();

    state->group = &group;
    state->entry = mcastd::must_have(
        [&] { return MRT_CreateSourceMask(group.entry, &source, address_bits(source.family)); });
    try {
        count_source(*state);
    } catch (const std::bad_alloc &) {
        MRT_DeleteSource(state->entry);
        throw;
    }
    state->entry->user_data = state.get();
    group.dirty = true;
    warn_source_limit(group);
    return state.release();
}

void source_wanted(SourceState &source, uint32_t timeout_ms)
{
    source.group->dirty = source.group->dirty || !source.timer.running();
    source.timer.start(timeout_ms);
    source.asked = false;
    source.doubted = false;
    watch_end(source);
    trace(TraceCategory::Group, link_of(*source.group), "(%M, %N) on %P wanted for %u s",
          source.entry->address, source.group->entry->address, source.group->memberships->shown_index(),
          timeout_ms / 1000);
}

void source_wanted_with_group(SourceState &source)
{
    source.group->dirty = source.group->dirty || !source.timer.running();
    source.timer.start_at(source.group->timer.node->expiry);
    source.asked = source.group->asked;
    watch_end(source);
}

void source_lower(SourceState &source, uint32_t timeout_ms)
{
    if (source.timer.is_beyond(timeout_ms)) {
        source.timer.start(timeout_ms);
        source.asked = true;
        watch_end(source);
    }
}

void source_raise(SourceState &source, uint32_t timeout_ms)
{
    source.timer.raise(timeout_ms);
}

void source_unwanted(SourceState &source)
{
    source.group->dirty = source.group->dirty || source.timer.running();
    source.queries_left = 0;
    source.doubted = false;
    source.timer.stop();
}

void group_exclude(GroupState &group, uint32_t timeout_ms)
{
    group.dirty = group.dirty || !group.exclude;
    start_group_timer(group, timeout_ms);
    trace(TraceCategory::Group, link_of(group), "(*, %N) on %P wanted for %u s", group.entry->address,
          group.memberships->shown_index(), timeout_ms / 1000);
    group.exclude = true;
    group.asked = false;
    group.doubted = false;
}

void group_lower(GroupState &group, uint32_t timeout_ms)
{
    if (timer_beyond(group.timer, timeout_ms)) {
        timer_lower(timers_of(group), group.timer, timeout_ms);
        group.asked = true;
    }
}

void group_include(GroupState &group)
{
    timer_stop(timers_of(group), group.timer);
    group.queries_left = 0;
    group.doubted = false;
    group.exclude = false;
    group.dirty = true;
}

void settle_group(GroupState &group)
{
    if (!group.dirty) {
        return;
    }
    group.dirty = false;
    const bool reported = reports(group);

    for_each_source(group, [=](SourceState &source) { tell_additions(source, reported); });
    tell_any(group, reported && group.exclude);
    for_each_source(group, [=](SourceState &source) {
        tell_removals(source, reported);
        if (source.doomed || (!source.group->exclude && !source.timer.running())) {
            MRT_DeleteSource(source.entry);
        }
    });
    if (!group.exclude && MRT_CountTable(group.entry->sources) == 0) {
        remove_group(group);
    } else {
        settle_link(*group.memberships, *group.entry->address);
        warn_source_limit(group);
    }
}

void remove_group(GroupState &group)
{
    Memberships &memberships = *group.memberships;
    const Address address = *group.entry->address;
    for_each_source(group, [](SourceState &source) { source.doomed = true; });
    group.exclude = false;
    tell_any(group, false);
    for_each_source(group, [](SourceState &source) { tell_removals(source, true); });
    trace(TraceCategory::Group, memberships.link, "%N on %P ends", group.entry->address,
          memberships.shown_index());
    MRT_DeleteGroup(group.entry);
    settle_link(memberships, address);
    warn_group_limit(memberships);
}

void forget_groups(Memberships &memberships)
{
    MRT_ClearTable(memberships.groups);
}

void tell_everything(Interface &interface)
{
    if (interface.users_union != nullptr) {
        interface.users_union->tell_everything();
        return;
    }
    for_each_group(interface.memberships, [](GroupState &group) {
        group.told_any = false;
        for_each_source(group, [](SourceState &source) {
            source.told_joined = false;
            source.told_blocked = false;
        });
        group.dirty = true;
        settle_group(group);
    });
}

} // namespace gmpd
