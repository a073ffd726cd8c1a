/*
 * Group and source records and their life: creation within limits, expiry, and the report of
 * what changed to the MRIB. What records of reports do to them is in state_table.h, what is asked about them in
 * group_query.h.
 */
#ifndef DAEMONS_GMPD_GROUP_STATE_H
#define DAEMONS_GMPD_GROUP_STATE_H

#include <cstdint>
#include <memory>

#include "daemons/common/limit_watch.h"
#include "daemons/gmpd/deadline.h"
#include "daemons/gmpd/interface.h"

namespace gmpd
{

// A group with members, hanging on its MRT_GROUP_S. exclude: some member wants every source except those
// whose timer does not run; otherwise only the sources in the table are wanted.
// A hundred thousand of them are usual: flags are bits, and what is small lies together.
struct GroupState : GroupTurn {
    Memberships *memberships = nullptr;
    MRT_GROUP_S *entry = nullptr;
    HostUse *maker = nullptr;    // NULL: not known
    mcastd::Timer timer;         // runs while exclude
    mcastd::Timer sources_timer; // runs while some source's does, and ends no later than the first of them
    mcastd::Timer retransmit;    // the next group-specific or source-specific queries
    mcastd::Timer v1_host;       // runs while hosts of version 1 are taken to be present
    mcastd::Timer v2_host;
    uint32_t waits_since_s = 0; // since boot, while it waits
    uint8_t queries_left = 0;   // of the group-specific kind
    mcastd::LimitWatch<90, 80> source_limit_watch;
    bool asked = false; // hosts were asked since they confirmed the group: it ends with its timer
    bool exclude : 1 = false;
    bool told_any : 1 = false; // the MRIB knows the join of any source
    bool dirty : 1 = false;    // what the MRIB knows may be out of date, or records are to go
    bool doubted : 1 = false;  // the group is to be asked about
    bool repeats : 1 = false;  // its queries are to be repeated

    // For the turn of its queries, in QueryPace::waiting.
    bool waits() const
    {
        return is_linked();
    }
};

// A source of a group, hanging on its MRT_SOURCE_S. Some member wants it while its timer runs.
struct SourceState {
    GroupState *group = nullptr;
    MRT_SOURCE_S *entry = nullptr;
    HostUse *maker = nullptr;  // NULL: not known
    bool told_joined = false;  // the MRIB knows the join of this source
    bool told_blocked = false; // the MRIB knows its exclusion
    bool doomed = false;       // to go with the next settle_group
    bool asked = false;        // as the group's
    bool doubted = false;      // to be asked about when the group's turn comes
    uint8_t queries_left = 0;
    Deadline timer;
};

// Release functions for the tables.
void release_group(void **user_data);
void release_source(void **user_data);

// The state of an entry.
inline GroupState *state_of(const MRT_GROUP_S *entry)
{
    return entry != nullptr ? static_cast<GroupState *>(entry->user_data) : nullptr;
}
inline SourceState *state_of(const MRT_SOURCE_S *entry)
{
    return entry != nullptr ? static_cast<SourceState *>(entry->user_data) : nullptr;
}

// The timers of the process, and the link whose hosts the members are.
MCAST_TMR_S *timers_of(const GroupState &group);
Interface &link_of(const GroupState &group);

// The group's state, or NULL.
GroupState *find_group(const Memberships &memberships, const Address &group);

// The source's state in the group, or NULL; doomed ones count as absent.
SourceState *find_source(const GroupState &group, const Address &source);

// The group's state, made when missing: INCLUDE without sources. NULL when there are as many as may be,
// which is counted.
GroupState *ensure_group(Memberships &memberships, const Address &group);

// The source's state, made when missing with its timer stopped. NULL when the group is at its limit, which is
// counted.
SourceState *ensure_source(GroupState &group, const Address &source);

// Starts the source's timer; it is then wanted.
void source_wanted(SourceState &source, uint32_t timeout_ms);

// The same for as long as the group, in EXCLUDE mode, lives when nobody confirms it.
void source_wanted_with_group(SourceState &source);

// Brings the end of the source's running timer forward, as hosts are asked about it, or puts it off, to timeout_ms
// from now.
void source_lower(SourceState &source, uint32_t timeout_ms);
void source_raise(SourceState &source, uint32_t timeout_ms);

// Stops the source's timer; in EXCLUDE mode it is then blocked.
void source_unwanted(SourceState &source);

// Puts the group into EXCLUDE mode, or keeps it there, for timeout_ms.
void group_exclude(GroupState &group, uint32_t timeout_ms);

// Brings the end of the group's running timer forward to timeout_ms from now: hosts are asked about it.
void group_lower(GroupState &group, uint32_t timeout_ms);

// Ends EXCLUDE mode, as the end of the group's timer does: the sources whose timers run remain.
void group_include(GroupState &group);

// Tells the MRIB what changed, in an order in which wanted traffic never stops and unwanted traffic never
// starts, then removes what is of no more use; the group itself when nothing is left of it. Costs nothing
// when nothing changed.
void settle_group(GroupState &group);

// Removes the group from the tables and from the MRIB.
void remove_group(GroupState &group);

// Removes every group without telling the MRIB about each.
void forget_groups(Memberships &memberships);

// Tells a MRIB that knows nothing of the interface all of its memberships.
void tell_everything(Interface &interface);

// A walk over a table; entries may go while it is open. NULL for an empty table and without memory.
struct WalkEnd {
    void operator()(MRT_WALK_S *walk) const
    {
        MRT_DeleteWalk(walk);
    }
};
using Walk = std::unique_ptr<MRT_WALK_S, WalkEnd>;

// Calls visit(Entry *) for every entry of the table in address order; visit may remove the entry. Works without
// memory, from address to address then, which takes longer.
template <typename Entry, typename Visit> void for_each_entry(MRT_TABLE_S *table, Visit visit)
{
    if (MRT_CountTable(table) == 0) {
        return;
    }
    if (const Walk walk{MRT_CreateWalk(table)}) {
        while (auto *entry = static_cast<Entry *>(MRT_WalkNext(walk.get()))) {
            visit(entry);
        }
        return;
    }
    auto *entry = static_cast<Entry *>(MRT_GetNext(table, nullptr, 0));
    while (entry != nullptr) {
        const Address address = *entry->address;
        visit(entry);
        entry = static_cast<Entry *>(MRT_GetNext(table, &address, 0));
    }
}

// Calls visit(SourceState &) for every source of the group in address order; visit may remove the source.
template <typename Visit> void for_each_source(const GroupState &group, Visit visit)
{
    for_each_entry<MRT_SOURCE_S>(group.entry->sources, [&](MRT_SOURCE_S *entry) { visit(*state_of(entry)); });
}

// Calls visit(GroupState &) for every group in address order; visit may remove the group.
template <typename Visit> void for_each_group(const Memberships &memberships, Visit visit)
{
    for_each_entry<MRT_GROUP_S>(memberships.groups, [&](MRT_GROUP_S *entry) { visit(*state_of(entry)); });
}

} // namespace gmpd

#endif
