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
#include "daemons/gmpd/membership.h"

#include <algorithm>
#include <iterator>

#include "daemons/gmpd/group_query.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/trace.h"
#include "mcast/addr.h"

namespace gmpd
{

namespace
{

bool address_less(const Address &first, const Address &second)
{
    return compare_address(first, second) < 0;
}

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
            source_wanted(*source, membership_interval_ms(*group.interface));
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
    const uint32_t interval_ms = membership_interval_ms(*group.interface);

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
bool is_stopped(Interface &interface, RecordType type, const Address &group,
                const std::vector<Address> &sources)
{
    const Joins joins = interface.router->policy->joins_of(interface, group);

    if (joins == Joins::None && creates_group(type, sources)) {
        ++interface.counters[Count::Boundary];
        trace(TraceCategory::Group, interface, "%N on %P refused: behind a boundary", &group,
              interface.index);
        return true;
    }
    if (joins == Joins::SourcesOnly && joins_any_source(type)) {
        ++interface.counters[Count::SsmRange];
        trace(TraceCategory::Group, interface, "%N on %P: any source of the source-specific range ignored",
              &group, interface.index);
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
// the record is to be ignored; list_counts is false when its sources are.
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

bool is_routable(Interface &interface, const Address &group)
{
    if ((MCAST_GrpAddrCheck(&group) & 0xffff) == MCAST_TRUE) {
        return true;
    }
    ++interface.counters[Count::LinkScopeGroup];
    trace(TraceCategory::Group, interface, "%N on %P ignored: it never leaves the link", &group,
          interface.index);
    return false;
}

// The usable sources of a record, in order and once each.
std::vector<Address> sorted_sources(Interface &interface, const SourceList &list)
{
    std::vector<Address> sources;

    sources.reserve(list.count());
    for (size_t i = 0; i < list.count(); ++i) {
        Address source = list.at(i);

        if ((MCAST_SrcAddrCheck(&source) & 0xffff) == MCAST_TRUE) {
            sources.push_back(source);
        } else {
            ++interface.counters[Count::BadSource];
        }
    }
    std::sort(sources.begin(), sources.end(), address_less);
    sources.erase(std::unique(sources.begin(), sources.end(), same_address), sources.end());
    return sources;
}

void trace_record(const Interface &interface, const Record &record)
{
    static constexpr const char *NAMES[] = {"?",          "IS_INCLUDE", "IS_EXCLUDE", "TO_INCLUDE",
                                            "TO_EXCLUDE", "ALLOW",      "BLOCK"};
    const auto type = static_cast<size_t>(record.type);

    trace(TraceCategory::Group, interface, "record %s of %N on %P, %u sources",
          NAMES[type < std::size(NAMES) ? type : 0], &record.group, interface.index,
          static_cast<uint32_t>(record.sources.count()));
}

void handle_records(Interface &interface, const Message &report)
{
    const uint16_t family = interface.router->config.family;
    Reader records = report.records;
    Record record;
    bool source_count_lies = false;

    for (unsigned left = report.record_count; left > 0; --left) {
        if (!next_record(records, family, record, source_count_lies)) {
            return;
        }
        if (mcastd::tracing(TraceCategory::Group)) {
            trace_record(interface, record);
        }
        if (record.type < RecordType::IsInclude || record.type > RecordType::Block) {
            ++interface.counters[Count::RecordType];
        } else if (is_routable(interface, record.group)) {
            apply_record(interface, record.type, record.group, sorted_sources(interface, record.sources));
        }
    }
}

// A report of version 1 or 2 says what IS_EX({}) says, and that a host of its version is there.
void handle_old_report(Interface &interface, const Message &report)
{
    if (!is_routable(interface, report.group)) {
        return;
    }
    apply_record(interface, RecordType::IsExclude, report.group, {});
    GroupState *group = find_group(interface, report.group);

    // A router that speaks the host's version hears everything that the host can say.
    if (group != nullptr && report.version < interface.router->config.version) {
        mcastd::Timer &host = report.version == 1 ? group->v1_host : group->v2_host;

        timer_start(
            interface.router->timers, host, older_host_interval_ms(interface), [](void *) {}, nullptr);
        trace(TraceCategory::Group, interface, "%N on %P: hosts of version %u for %u s", &report.group,
              interface.index, version_shown(interface, report.version),
              older_host_interval_ms(interface) / 1000);
    }
}

// A leave says what TO_IN({}) says, of a join that is not listened to in the source-specific range; where
// version 1 hosts are present nobody can know who is left.
void handle_leave(Interface &interface, const Message &leave)
{
    GroupState *group = is_routable(interface, leave.group) ? find_group(interface, leave.group) : nullptr;

    if (group == nullptr) {
        return;
    }
    if (interface.router->policy->joins_of(interface, leave.group) == Joins::SourcesOnly) {
        ++interface.counters[Count::SsmRange];
        trace(TraceCategory::Group, interface, "leave of %N on %P ignored: source-specific", &leave.group,
              interface.index);
        return;
    }
    apply_record(interface, RecordType::ToInclude, leave.group, {});
}

void handle_from_host(Interface &interface, const Message &message)
{
    if (message.kind == MessageKind::Leave) {
        handle_leave(interface, message);
    } else if (message.version == 3) {
        handle_records(interface, message);
    } else {
        handle_old_report(interface, message);
    }
}

// Whose memberships the sender's messages change: the link's or, where authentication is required, those of
// an announced user. NULL when there is none, which is counted.
Interface *reporter_of(Interface &link, const Address &sender)
{
    if (link.members == nullptr) {
        return &link;
    }
    Interface *member = link.router->users->member(link, sender);

    if (member == nullptr) {
        ++link.counters[Count::UnknownUser];
        link.router->users->join_refused(link);
    }
    return member;
}

void count_received(Interface &interface, const Message &message)
{
    static constexpr Count queries[] = {Count::QueriesV1, Count::QueriesV2, Count::QueriesV3};
    static constexpr Count reports[] = {Count::ReportsV1, Count::ReportsV2, Count::ReportsV3};

    switch (message.kind) {
    case MessageKind::Query:
        ++interface.counters[queries[message.version - 1]];
        break;
    case MessageKind::Report:
        ++interface.counters[reports[message.version - 1]];
        break;
    case MessageKind::Leave:
        ++interface.counters[Count::Leaves];
        break;
    }
}

// What a message is, and from whom.
void trace_message(const Interface &interface, const Message &message)
{
    const uint32_t version = version_shown(interface, message.version);

    if (message.kind == MessageKind::Query && is_unspecified(message.group)) {
        trace(TraceCategory::Packet, interface, "general query of version %u from %A on %P", version,
              &message.sender, interface.index);
    } else if (message.kind == MessageKind::Query) {
        trace(TraceCategory::Packet, interface, "query of version %u from %A about %N on %P, %u sources",
              version, &message.sender, &message.group, interface.index,
              static_cast<uint32_t>(message.sources.count()));
    } else if (message.kind == MessageKind::Leave) {
        trace(TraceCategory::Packet, interface, "leave from %A of %N on %P", &message.sender, &message.group,
              interface.index);
    } else if (message.version == 3) {
        trace(TraceCategory::Packet, interface, "report of version %u from %A on %P, %u records", version,
              &message.sender, interface.index, message.record_count);
    } else {
        trace(TraceCategory::Packet, interface, "report of version %u from %A of %N on %P", version,
              &message.sender, &message.group, interface.index);
    }
}

// Why the message must not be acted on, or NO_DROP.
Count refuse(const Interface &interface, const Message &message)
{
    if (!interface_is_neighbour(interface, message.sender)) {
        return Count::NotNeighbour;
    }
    if (same_address(message.sender, interface.address)) {
        return Count::OwnAddress;
    }
    if (message.kind == MessageKind::Query) {
        return is_unspecified(message.sender) ? Count::QueryNoSource : NO_DROP;
    }
    return message.version > interface.router->config.version ? Count::NewerVersion : NO_DROP;
}

// Counts a refusal for the user and for his link.
void count_refused(Interface &member, Count reason)
{
    ++member.counters[reason];
    ++member.link->counters[reason];
    member.router->users->join_refused(*member.link);
}

// The sources that the user may join; the others are counted.
std::vector<Address> permitted_sources(Interface &member, const Address &group,
                                       const std::vector<Address> &sources)
{
    std::vector<Address> permitted;

    for (const Address &source : sources) {
        if (member.router->users->permits(member, group, &source)) {
            permitted.push_back(source);
        } else {
            count_refused(member, Count::UserSource);
        }
    }
    return permitted;
}

void apply_permitted(Interface &interface, RecordType type, const Address &address,
                     const std::vector<Address> &sources)
{
    if (is_stopped(interface, type, address, sources)) {
        return;
    }
    GroupState *group = find_group(interface, address);

    if (group == nullptr && creates_group(type, sources)) {
        group = ensure_group(interface, address);
    }
    if (group == nullptr) {
        return;
    }
    bool list_counts = true;

    if (ignored_for_older_hosts(*group, type, list_counts)) {
        ++interface.counters[Count::OldHostPresent];
        trace(TraceCategory::Group, interface, "record of %N on %P ignored while older hosts are present",
              &address, interface.index);
        return;
    }
    apply_row(*group, type, list_counts ? sources : std::vector<Address>());
    // A group that was made for sources which the limit then refused.
    group->dirty = group->dirty || (!group->exclude && MRT_CountTable(group->entry->sources) == 0);
    settle_group(*group);
}

} // namespace

void apply_record(Interface &interface, RecordType type, const Address &group,
                  const std::vector<Address> &sources)
{
    if (interface.link == nullptr || type == RecordType::Block) {
        apply_permitted(interface, type, group, sources);
    } else if (!joins_any_source(type)) {
        apply_permitted(interface, type, group, permitted_sources(interface, group, sources));
    } else if (interface.router->users->permits(interface, group, nullptr)) {
        apply_permitted(interface, type, group, sources);
    } else {
        count_refused(interface, Count::UserGroup);
    }
}

void handle_message(Interface &interface, const Message &message)
{
    const Count reason = refuse(interface, message);

    if (mcastd::tracing(TraceCategory::Packet)) {
        trace_message(interface, message);
    }
    if (reason != NO_DROP) {
        ++interface.counters[reason];
        trace(TraceCategory::Packet, interface, "message from %A on %P: %s", &message.sender, interface.index,
              count_name(reason));
        return;
    }
    count_received(interface, message);
    switch (message.kind) {
    case MessageKind::Query:
        querier_heard(interface, message);
        break;
    case MessageKind::Leave:
    case MessageKind::Report:
        if (Interface *reporter = reporter_of(interface, message.sender)) {
            handle_from_host(*reporter, message);
        }
        break;
    }
}

} // namespace gmpd
