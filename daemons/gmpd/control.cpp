/*
 * Each table begins where the request says and goes on until the reply is full. What the position names may
 * have gone since the last request; the walk then begins with what follows it.
 */
#include "daemons/gmpd/control.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/querier.h"

namespace gmpd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;

uint32_t first_interface(const ControlRows &rows)
{
    return rows.key().empty() ? 0 : rows.key()[0].as_interface();
}

// Calls visit(Interface &) from the position's interface on until the reply is full.
template <typename Visit> void from_position(const Process &process, const ControlRows &rows, Visit visit)
{
    const auto end = process.interfaces.end();
    for (auto at = process.interfaces.lower_bound(first_interface(rows)); at != end && !rows.full(); ++at) {
        visit(*at->second);
    }
}

// The address at the place of the position, when the position is on this interface and names one of its
// family; otherwise NULL, and the interface's rows are wanted from the first.
const Address *address_in(const ControlRows &rows, const Interface &interface, size_t place)
{
    const ControlFields &key = rows.key();
    if (key.size() <= place || key[0].as_interface() != interface.index ||
        key[place].as_address().family != interface.process->config.family) {
        return nullptr;
    }
    return &key[place].as_address();
}

// Seconds that are left of a running timer.
ControlField remaining(const mcastd::Timer &timer)
{
    return timer.running() ? ControlField::seconds(mcastd::timer_remaining_s(timer)) : ControlField();
}

ControlField remaining(const Deadline &deadline)
{
    return deadline.running() ? ControlField::seconds(deadline.remaining_s()) : ControlField();
}

// The groups of an interface; where users are authenticated, what they come to together, which has no timers.
MRT_TABLE_S *groups_of(const Interface &interface)
{
    return interface.users_union != nullptr ? interface.users_union->table() : interface.memberships.groups;
}

ControlFields group_row(const Interface &interface, const MRT_GROUP_S *entry)
{
    if (interface.users_union != nullptr) {
        return {
            ControlField::interface(interface.index),
            ControlField::address(*entry->address),
            ControlField::text(UsersUnion::wants_any_source(entry) ? "exclude" : "include"),
            ControlField::number(MRT_CountTable(entry->sources)),
            ControlField(),
            ControlField(),
            ControlField(),
        };
    }
    const GroupState &group = *state_of(entry);

    return {
        ControlField::interface(interface.index),
        ControlField::address(*group.entry->address),
        ControlField::text(group.exclude ? "exclude" : "include"),
        ControlField::number(MRT_CountTable(group.entry->sources)),
        group.exclude ? remaining(group.timer) : ControlField(),
        remaining(group.v1_host),
        remaining(group.v2_host),
    };
}

void list_groups(const Process &process, ControlRows &rows)
{
    from_position(process, rows, [&rows](const Interface &interface) {
        const Address *address = address_in(rows, interface, 1);
        MRT_TABLE_S *groups = groups_of(interface);
        auto *entry = static_cast<MRT_GROUP_S *>(MRT_Locate(groups, address));

        if (entry == nullptr) {
            entry = static_cast<MRT_GROUP_S *>(MRT_GetNext(groups, address, 0));
        }
        while (entry != nullptr && rows.add(group_row(interface, entry))) {
            entry = static_cast<MRT_GROUP_S *>(MRT_GetNext(groups, entry->address, 0));
        }
    });
}

ControlFields source_row(const Interface &interface, const MRT_SOURCE_S *entry)
{
    const bool of_users = interface.users_union != nullptr;
    return {
        ControlField::interface(interface.index),
        ControlField::address(*entry->group->address),
        ControlField::address(*entry->address),
        ControlField::truth(of_users ? UsersUnion::wants_source(entry) : state_of(entry)->timer.running()),
        of_users ? ControlField() : remaining(state_of(entry)->timer),
    };
}

void list_sources(const Process &process, ControlRows &rows)
{
    from_position(process, rows, [&rows](const Interface &interface) {
        const Address *group = address_in(rows, interface, 1);
        const Address *address = group != nullptr ? address_in(rows, interface, 2) : nullptr;
        MRT_TABLE_S *groups = groups_of(interface);
        MRT_SOURCE_S *entry = MRT_LocateSource(groups, group, address);

        if (entry == nullptr) {
            entry = MRT_GetNextSourceGroup(groups, group, 0, address, 0);
        }
        while (entry != nullptr && rows.add(source_row(interface, entry))) {
            entry = MRT_GetNextSourceGroup(groups, entry->group->address, 0, entry->address, 0);
        }
    });
}

void list_interfaces(const Process &process, ControlRows &rows)
{
    const bool ipv4 = process.config.family == MCAST_FAMILY_IPV4;
    from_position(process, rows, [&](const Interface &interface) {
        rows.add({
            ControlField::interface(interface.index),
            ControlField::family(process.config.family),
            ControlField::truth(interface.running),
            interface.running ? ControlField::address(interface.address) : ControlField(),
            ControlField::number(ipv4 ? process.config.version : process.config.version - 1u),
            ControlField::number(MRT_CountTable(groups_of(interface))),
            ControlField::truth(interface.running && process.policy->reports(interface)),
            ControlField::number(configured_query_interval_s(interface)),
            ControlField::number(interface.vrf_index),
        });
    });
}

void list_queriers(const Process &process, ControlRows &rows)
{
    from_position(process, rows, [&](const Interface &interface) {
        const Querier &querier = interface.querier;

        if (!interface.running) {
            return;
        }
        rows.add({
            ControlField::interface(interface.index),
            ControlField::family(process.config.family),
            ControlField::address(querier.elected ? interface.address : querier.other),
            ControlField::truth(querier.elected),
            remaining(querier.general),
            remaining(querier.other_present),
            ControlField::number(querier.query_interval_s),
            ControlField::number(querier.robustness),
            ControlField::number(querier.response_ms),
        });
    });
}

using NamedValues = std::vector<std::pair<std::string, uint64_t>>;

void add_counters(ControlRows &rows, const Process &process, uint32_t if_index, NamedValues counters)
{
    std::sort(counters.begin(), counters.end());
    for (const auto &[name, value] : counters) {
        if (!rows.add({ControlField::family(process.config.family), ControlField::interface(if_index),
                       ControlField::text(name), ControlField::counter(value)})) {
            return;
        }
    }
}

NamedValues daemon_counters(const mcastd::ControlServer &server, const DaemonStatus &daemon)
{
    NamedValues counters = {
        {"mrib_connects", daemon.mrib_connects},
        {"packets_lost_in_kernel", daemon.kernel_drops},
    };
    server.visit_counters(
        [&counters](const char *name, uint64_t value) { counters.emplace_back(name, value); });
    return counters;
}

NamedValues interface_counters(const Interface &interface)
{
    NamedValues counters;
    for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
        counters.emplace_back(count_name(static_cast<Count>(i)), interface.counters[static_cast<Count>(i)]);
    }
    return counters;
}

void list_counters(const mcastd::ControlServer &server, const Process &process, const DaemonStatus &daemon,
                   ControlRows &rows)
{
    const ControlFields family = {ControlField::family(process.config.family)};
    const uint32_t first = rows.key().size() > 1 ? rows.key()[1].as_interface() : 0;
    if (!rows.wants(family)) {
        return;
    }
    if (first == 0) {
        add_counters(rows, process, 0, daemon_counters(server, daemon));
    }
    for (auto at = process.interfaces.lower_bound(first); at != process.interfaces.end() && !rows.full();
         ++at) {
        add_counters(rows, process, at->first, interface_counters(*at->second));
    }
}

std::string check_query_interval(const Process &process, const ControlFields &key, const ControlField &value)
{
    if (!key.empty() && !process.interfaces.contains(key[0].as_interface())) {
        return "the protocol is not configured on the interface";
    }
    if (value.as_number() == 0 && !key.empty()) {
        return ""; // back to the value for all interfaces
    }
    if (value.as_number() <= process.config.response_s) {
        return "the query interval must be more than the query response interval of " +
               std::to_string(process.config.response_s) + " seconds";
    }
    if (value.as_number() > MOST_QUERY_INTERVAL_S) {
        return "the query interval is at most " + std::to_string(MOST_QUERY_INTERVAL_S) + " seconds";
    }
    return "";
}

void apply_query_interval(Process &process, const ControlFields &key, const ControlField &value)
{
    const auto seconds = static_cast<uint32_t>(value.as_number());
    if (!key.empty()) {
        querier_set_interval(*process.interfaces.at(key[0].as_interface()), seconds);
        return;
    }
    process.config.query_interval_s = seconds;
    for (const auto &[index, interface] : process.interfaces) {
        if (interface->query_interval_s == 0) {
            querier_set_interval(*interface, 0);
        }
    }
}

} // namespace

void offer_control(mcastd::ControlServer &server, Process &process, std::function<DaemonStatus()> daemon)
{
    mcastd::ControlRegistry &registry = server.registry();
    registry.add_table(mcastd::GROUP_TABLE, [&process](ControlRows &rows) { list_groups(process, rows); });
    registry.add_table(mcastd::SOURCE_TABLE, [&process](ControlRows &rows) { list_sources(process, rows); });
    registry.add_table(mcastd::INTERFACE_TABLE,
                       [&process](ControlRows &rows) { list_interfaces(process, rows); });
    registry.add_table(mcastd::QUERIER_TABLE,
                       [&process](ControlRows &rows) { list_queriers(process, rows); });
    registry.add_table(mcastd::COUNTER_TABLE,
                       [&server, &process, daemon = std::move(daemon)](ControlRows &rows) {
                           list_counters(server, process, daemon(), rows);
                       });
    registry.add_setting(mcastd::INTERFACE_TABLE,
                         {mcastd::SETTING_QUERY_INTERVAL, mcastd::FieldType::Number,
                          [&process](const ControlFields &key, const ControlField &value) {
                              return check_query_interval(process, key, value);
                          },
                          [&process](const ControlFields &key, const ControlField &value) {
                              apply_query_interval(process, key, value);
                          }});
}

void offer_switch_over(mcastd::ControlServer &server, std::function<bool()> hand_over)
{
    server.registry().add_command(
        mcastd::COMMAND_SWITCH_OVER,
        [hand_over = std::move(hand_over)](const ControlFields &arguments) -> mcastd::ControlOutcome {
            if (!arguments.empty()) {
                return {mcastd::ControlStatus::BadValue, 0, "it takes no arguments"};
            }
            if (!hand_over()) {
                return {mcastd::ControlStatus::Failed, mcastd::CONTROL_NO_INDEX,
                        "no synchronised standby; is a gmpd --standby running?"};
            }
            return {};
        });
}

} // namespace gmpd
