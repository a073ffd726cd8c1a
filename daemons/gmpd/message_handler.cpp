/*
 * From a checked message to what it changes: a query goes to the querier's side, a report or a leave becomes
 * records of the state tables, those of older versions too.
 */
#include "daemons/gmpd/message_handler.h"

#include <algorithm>
#include <iterator>

#include "daemons/common/memory.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/state_table.h"
#include "daemons/gmpd/trace.h"
#include "mcast/addr.h"

namespace gmpd
{
namespace
{

bool is_routable(Memberships &memberships, const Address &group)
{
    if ((MCAST_GrpAddrCheck(&group) & 0xffff) == MCAST_TRUE) {
        return true;
    }
    ++memberships.counters()[Count::LinkScopeGroup];
    trace(TraceCategory::Group, memberships.link, "%N on %P ignored: it never leaves the link", &group,
          memberships.shown_index());
    return false;
}

// The usable sources of a record, in order and once each.
std::vector<Address> sorted_sources(Memberships &memberships, const SourceList &list)
{
    std::vector<Address> sources;

    sources.reserve(list.count());
    for (size_t i = 0; i < list.count(); ++i) {
        Address source = list.at(i);

        if ((MCAST_SrcAddrCheck(&source) & 0xffff) == MCAST_TRUE) {
            sources.push_back(source);
        } else {
            ++memberships.counters()[Count::BadSource];
        }
    }
    std::sort(sources.begin(), sources.end(), address_less);
    sources.erase(std::unique(sources.begin(), sources.end(), same_address), sources.end());
    return sources;
}

void trace_record(const Memberships &memberships, const Record &record)
{
    static constexpr const char *NAMES[] = {"?",          "IS_INCLUDE", "IS_EXCLUDE", "TO_INCLUDE",
                                            "TO_EXCLUDE", "ALLOW",      "BLOCK"};
    const auto type = static_cast<size_t>(record.type);
    trace(TraceCategory::Group, memberships.link, "record %s of %N on %P, %u sources",
          NAMES[type < std::size(NAMES) ? type : 0], &record.group, memberships.shown_index(),
          static_cast<uint32_t>(record.sources.count()));
}

void handle_records(Memberships &memberships, const Message &report)
{
    const uint16_t family = memberships.link.process->config.family;
    Reader records = report.records;
    Record record;
    bool source_count_lies = false;
    for (unsigned left = report.record_count; left > 0; --left) {
        if (!next_record(records, family, record, source_count_lies)) {
            return;
        }
        if (mcastd::tracing(TraceCategory::Group)) {
            trace_record(memberships, record);
        }
        if (record.type < RecordType::IsInclude || record.type > RecordType::Block) {
            ++memberships.counters()[Count::RecordType];
        } else if (is_routable(memberships, record.group)) {
            apply_record(memberships, record.type, record.group, sorted_sources(memberships, record.sources));
        }
    }
}

// A report of version 1 or 2 says what IS_EX({}) says, and that a host of its version is there.
void handle_old_report(Memberships &memberships, const Message &report)
{
    if (!is_routable(memberships, report.group)) {
        return;
    }
    apply_record(memberships, RecordType::IsExclude, report.group, {});
    GroupState *group = find_group(memberships, report.group);

    // A router that speaks the host's version hears everything that the host can say.
    if (group != nullptr && report.version < memberships.link.process->config.version) {
        mcastd::Timer &host = report.version == 1 ? group->v1_host : group->v2_host;

        if (!host.running() && !mcastd::memory_permits(sizeof(MCAST_TMR_NODE_S))) {
            ++memberships.counters()[Count::NoMemory];
            return;
        }
        timer_start(
            memberships.link.process->timers, host, older_host_interval_ms(memberships.link), [](void *) {},
            nullptr);
        trace(TraceCategory::Group, memberships.link, "%N on %P: hosts of version %u for %u s", &report.group,
              memberships.shown_index(), version_shown(memberships.link, report.version),
              older_host_interval_ms(memberships.link) / 1000);
    }
}

// A leave counts as TO_IN({}). It is ignored in the source-specific range, and while version 1 hosts are
// present: they never say that they leave.
void handle_leave(Memberships &memberships, const Message &leave)
{
    GroupState *group =
        is_routable(memberships, leave.group) ? find_group(memberships, leave.group) : nullptr;
    if (group == nullptr) {
        return;
    }
    if (memberships.link.process->policy->joins_of(memberships.link, leave.group) == Joins::SourcesOnly) {
        ++memberships.counters()[Count::SsmRange];
        trace(TraceCategory::Group, memberships.link, "leave of %N on %P ignored: source-specific",
              &leave.group, memberships.shown_index());
        return;
    }
    apply_record(memberships, RecordType::ToInclude, leave.group, {});
}

void handle_from_host(Memberships &memberships, const Message &message)
{
    if (message.kind == MessageKind::Leave) {
        handle_leave(memberships, message);
    } else if (message.version == 3) {
        handle_records(memberships, message);
    } else {
        handle_old_report(memberships, message);
    }
}

// Whose memberships the sender's messages change: the link's or, where authentication is required, those of
// an announced user. NULL when there is none, which is counted.
Memberships *reporter_of(Interface &link, const Address &sender)
{
    if (link.users_union == nullptr) {
        return &link.memberships;
    }
    Memberships *member = link.process->users->member(link, sender);

    if (member == nullptr) {
        ++link.counters[Count::UnknownUser];
        link.process->users->join_refused(link);
    }
    return member;
}

void count_received(Interface &interface, const Message &message)
{
    static constexpr Count QUERIES[] = {Count::QueriesV1, Count::QueriesV2, Count::QueriesV3};
    static constexpr Count REPORTS[] = {Count::ReportsV1, Count::ReportsV2, Count::ReportsV3};
    switch (message.kind) {
    case MessageKind::Query:
        ++interface.counters[QUERIES[message.version - 1]];
        break;
    case MessageKind::Report:
        ++interface.counters[REPORTS[message.version - 1]];
        break;
    case MessageKind::Leave:
        ++interface.counters[Count::Leaves];
        break;
    }
}

// The kind of a message and its sender.
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
        return querier_refused(interface, message.sender);
    }
    return message.version > interface.process->config.version ? Count::NewerVersion : NO_DROP;
}

} // namespace

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
        if (Memberships *memberships = reporter_of(interface, message.sender)) {
            memberships->reporter = &message.sender;
            const bool had_memory =
                mcastd::memory_unit("a report", [&] { handle_from_host(*memberships, message); });
            memberships->reporter = nullptr;
            interface.counters[Count::NoMemory] += had_memory ? 0 : 1;
        }
        break;
    }
}

} // namespace gmpd
