/*
 * The state tables of RFC 3376 section 6.4 and RFC 3810 section 7.4, which are one. A group is
 *
 *      INCLUDE (A)       A: sources with running timers
 *      EXCLUDE (X, Y)    X: sources with running timers, wanted by somebody; Y: the others, wanted by nobody
 *
 * and a record of sources B changes it so, with T the membership interval, GT the group's timer and Q(...)
 * the queries that follow:
 *
 *      record        INCLUDE (A)                           EXCLUDE (X, Y)
 *      IS_IN, ALLOW  INCLUDE (A+B), B=T                    EXCLUDE (X+B, Y-B), B=T
 *      TO_IN         the same, Q(A-B)                      the same, Q(X-B), Q(group)
 *      IS_EX         EXCLUDE (A*B, B-A), GT=T              EXCLUDE (B-Y, Y*B), B-X-Y=T, GT=T
 *      TO_EX         the same, Q(A*B)                      the same but B-X-Y=GT, Q(B-Y)
 *      BLOCK         Q(A*B)                                EXCLUDE (X+(B-Y), Y), B-X-Y=GT, Q(B-Y)
 *
 * Both columns of a row are one piece of code below: "wanted" means a running timer, which in INCLUDE mode
 * every source has.
 */
#include "daemons/gmpd/state_table.h"

#include <algorithm>
#include <new>

#include "daemons/common/memory.h"
#include "daemons/gmpd/group_query.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

// What a timer takes, roughly.
constexpr size_t TIMER_BYTES = 96;

bool contains(const std::vector<Address> &sources, const Address &source)
{
    return std::binary_search(sources.begin(), sources.end(), source, address_less);
}

// The group's wanted sources that are among sources, or those that are not.
std::vector<SourceState *> wanted_sources(GroupState &group, const std::vector<Address> &sources, bool among)
{
    std::vector<SourceState *> found;
    for_each_source(group, [&](SourceState &source) {
        if (!source.doomed && source.timer.running() && contains(sources, *source.entry->address) == among) {
            found.push_back(&source);
        }
    });
    return found;
}

// B=T
void allow(GroupState &group, const std::vector<Address> &sources)
{
    for (const Address &address : sources) {
        SourceState *source = ensure_source(group, address);

        if (source != nullptr) {
            source_wanted(*source, membership_interval_ms(group.memberships->link));
        }
    }
}

void to_include(GroupState &group, const std::vector<Address> &sources)
{
    allow(group, sources);
    ask(group, wanted_sources(group, sources, false), group.exclude);
}

// B-A or B-X-Y: calls begin(SourceState &) for each source that the group does not have yet.
template <typename Begin> void begin_new(GroupState &group, const std::vector<Address> &sources, Begin begin)
{
    for (const Address &address : sources) {
        if (find_source(group, address) == nullptr) {
            SourceState *source = ensure_source(group, address);

            if (source != nullptr) {
                begin(*source);
            }
        }
    }
}

// A-B or X-B and Y-B: everything that the record does not name goes.
void keep_only(GroupState &group, const std::vector<Address> &sources)
{
    for_each_source(group, [&](SourceState &source) {
        if (!contains(sources, *source.entry->address)) {
            source.doomed = true;
            group.dirty = true;
        }
    });
}

void become_exclude(GroupState &group, const std::vector<Address> &sources, bool change)
{
    const uint32_t interval_ms = membership_interval_ms(group.memberships->link);
    keep_only(group, sources);
    if (!group.exclude) {
        begin_new(group, sources, source_unwanted);
    } else if (change) {
        begin_new(group, sources, source_wanted_with_group);
    } else {
        begin_new(group, sources, [&](SourceState &source) { source_wanted(source, interval_ms); });
    }
    group_exclude(group, interval_ms);
    if (change) {
        ask(group, wanted_sources(group, sources, true), false);
    }
}

void block(GroupState &group, const std::vector<Address> &sources)
{
    if (group.exclude) {
        begin_new(group, sources, source_wanted_with_group);
    }
    ask(group, wanted_sources(group, sources, true), false);
}

// Whether a record makes something of a group that is not there.
bool creates_group(RecordType type, const std::vector<Address> &sources)
{
    switch (type) {
    case RecordType::IsExclude:
    case RecordType::ToExclude:
        return true;
    case RecordType::IsInclude:
    case RecordType::ToInclude:
    case RecordType::Allow:
        return !sources.empty();
    case RecordType::Block:
        break;
    }
    return false;
}

// Whether a record asks for every source but those it names.
bool joins_any_source(RecordType type)
{
    return type == RecordType::IsExclude || type == RecordType::ToExclude;
}

// Whether the policy stops the record, which is counted.
bool is_stopped(Memberships &memberships, RecordType type, const Address &group,
                const std::vector<Address> &sources)
{
    const Interface &link = memberships.link;
    const Joins joins = link.process->policy->joins_of(link, group);
    if (joins == Joins::None && creates_group(type, sources)) {
        ++memberships.counters()[Count::Boundary];
        trace(TraceCategory::Group, link, "%N on %P refused: behind a boundary", &group,
              memberships.shown_index());
        return true;
    }
    if (joins == Joins::Unlisted && creates_group(type, sources)) {
        ++memberships.counters()[Count::GroupList];
        trace(TraceCategory::Group, link, "%N on %P refused: not in the list of groups", &group,
              memberships.shown_index());
        return true;
    }
    if (joins == Joins::SourcesOnly && joins_any_source(type)) {
        ++memberships.counters()[Count::SsmRange];
        trace(TraceCategory::Group, link, "%N on %P: any source of the source-specific range ignored", &group,
              memberships.shown_index());
        return true;
    }
    return false;
}

void apply_row(GroupState &group, RecordType type, const std::vector<Address> &sources)
{
    switch (type) {
    case RecordType::IsInclude:
    case RecordType::Allow:
        allow(group, sources);
        break;
    case RecordType::ToInclude:
        to_include(group, sources);
        break;
    case RecordType::IsExclude:
        become_exclude(group, sources, false);
        break;
    case RecordType::ToExclude:
        become_exclude(group, sources, true);
        break;
    case RecordType::Block:
        block(group, sources);
        break;
    }
}

// While older hosts are present, what they cannot say is not listened to (RFC 3376 section 7.3.2). True when
// the record is to be ignored; list_counts becomes false when only its sources are to be ignored.
bool ignored_for_older_hosts(const GroupState &group, RecordType type, bool &list_counts)
{
    list_counts = true;
    if (!group.v1_host.running() && !group.v2_host.running()) {
        return false;
    }
    if (type == RecordType::ToExclude) {
        list_counts = false;
    }
    return type == RecordType::Block || (type == RecordType::ToInclude && group.v1_host.running());
}

// Counts a refusal for the user and for its link.
void count_refused(Memberships &user, Count reason)
{
    ++user.counters()[reason];
    ++user.link.counters[reason];
    user.link.process->users->join_refused(user.link);
}

// The sources that the user may join; the others are counted.
std::vector<Address> permitted_sources(Memberships &user, const Address &group,
                                       const std::vector<Address> &sources)
{
    std::vector<Address> permitted;
    for (const Address &source : sources) {
        if (user.link.process->users->permits(user, group, &source)) {
            permitted.push_back(source);
        } else {
            count_refused(user, Count::UserSource);
        }
    }
    return permitted;
}

// Tells what the row changed. A group that was made for sources which were then refused goes.
void settle_after(GroupState &group)
{
    group.dirty = group.dirty || (!group.exclude && MRT_CountTable(group.entry->sources) == 0);
    settle_group(group);
}

// Applies the row as far as there is memory; what it did counts.
void take_row(GroupState &group, RecordType type, const std::vector<Address> &sources)
{
    try {
        apply_row(group, type, sources);
    } catch (const std::bad_alloc &) {
        ++group.memberships->counters()[Count::NoMemory];
    }
}

void apply_permitted(Memberships &memberships, RecordType type, const Address &address,
                     const std::vector<Address> &sources)
{
    if (is_stopped(memberships, type, address, sources)) {
        return;
    }
    GroupState *group = find_group(memberships, address);

    if (group == nullptr && creates_group(type, sources)) {
        group = ensure_group(memberships, address);
    }
    if (group == nullptr) {
        return;
    }
    bool list_counts = true;

    if (ignored_for_older_hosts(*group, type, list_counts)) {
        ++memberships.counters()[Count::OldHostPresent];
        trace(TraceCategory::Group, memberships.link,
              "record of %N on %P ignored while older hosts are present", &address,
              memberships.shown_index());
        return;
    }
    // The step to EXCLUDE takes a timer, which a host could have for each of its groups.
    if (joins_any_source(type) && !group->timer.running() && !mcastd::memory_permits(TIMER_BYTES)) {
        ++memberships.counters()[Count::NoMemory];
    } else {
        take_row(*group, type, list_counts ? sources : std::vector<Address>());
    }
    settle_after(*group);
    ask_waiting(memberships.link);
}

} // namespace

void apply_record(Memberships &memberships, RecordType type, const Address &group,
                  const std::vector<Address> &sources)
{
    if (!memberships.of_user() || type == RecordType::Block) {
        apply_permitted(memberships, type, group, sources);
    } else if (!joins_any_source(type)) {
        apply_permitted(memberships, type, group, permitted_sources(memberships, group, sources));
    } else if (memberships.link.process->users->permits(memberships, group, nullptr)) {
        apply_permitted(memberships, type, group, sources);
    } else {
        count_refused(memberships, Count::UserGroup);
    }
}

} // namespace gmpd
