/*
 * The cache begins where the request says; the other tables are short, and the reply passes over the rows
 * before the position.
 */
#include "daemons/msdpd/control.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "daemons/msdpd/rpf.h"

namespace msdpd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;

using NamedValues = std::vector<std::pair<std::string, uint64_t>>;

ControlField address_field(Ipv4 address)
{
    return ControlField::address(to_record(address));
}

// None for what the operator left out.
ControlField text_field(const std::string &text)
{
    return text.empty() ? ControlField() : ControlField::text(text);
}

void list_peers(const Speaker &speaker, ControlRows &rows)
{
    const uint32_t now_s = mcastd::boot_time_s();
    for (const auto &[address, peer] : speaker.peers) {
        if (!rows.add({
                address_field(address),
                address_field(peer->config.local_address),
                ControlField::text(state_name(peer->state)),
                ControlField::seconds(now_s - peer->state_since_s),
                ControlField::number(speaker.cache.peers().of(address)),
                ControlField::number(peer->config.sa_limit),
                text_field(peer->config.mesh_group),
                text_field(peer->config.description),
            })) {
            return;
        }
    }
}

void list_peer_counters(const Speaker &speaker, ControlRows &rows)
{
    for (const auto &[address, peer] : speaker.peers) {
        NamedValues counters;

        for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
            const Count count = static_cast<Count>(i);

            if (peer->counters[count] != 0) {
                counters.emplace_back(count_name(count), peer->counters[count]);
            }
        }
        std::sort(counters.begin(), counters.end());
        for (const auto &[name, value] : counters) {
            if (!rows.add({address_field(address), ControlField::text(name), ControlField::counter(value)})) {
                return;
            }
        }
    }
}

void list_cache(const Speaker &speaker, ControlRows &rows)
{
    const ControlFields &key = rows.key();
    const uint32_t now_s = mcastd::boot_time_s();
    SaCache::Cursor cursor;

    if (!key.empty()) {
        cursor.group = key[0].as_address();
    }
    if (key.size() > 1) {
        cursor.source = key[1].as_address();
    }
    if (cursor.group.family != MCAST_FAMILY_IPV4) {
        return; // after every row of this table
    }
    if (cursor.source.family != MCAST_FAMILY_IPV4) {
        cursor.source = to_record(Ipv4{});
    }
    speaker.cache.visit(&cursor, [&](const SaEntry &entry) {
        const Pair pair = entry.pair();

        return rows.add({address_field(pair.group), address_field(pair.source), address_field(entry.rp),
                         address_field(entry.peer), ControlField::seconds(now_s - entry.learned_s),
                         ControlField::seconds(mcastd::timer_remaining_s(entry.expiry))});
    });
}

void list_rpf(const Speaker &speaker, ControlRows &rows)
{
    const ControlFields &key = rows.key();

    if (!key.empty() && key[0].as_address().family != MCAST_FAMILY_IPV4) {
        return; // after every row of this table
    }
    const Ipv4 first = key.empty() ? Ipv4{} : from_record(key[0].as_address());

    speaker.cache.originators().visit(first, [&](Ipv4 originator, uint32_t entries) {
        const RpfChoice choice = rpf_peer(speaker, originator);

        return rows.add({address_field(originator),
                         choice.peer != nullptr ? address_field(choice.peer->config.address) : ControlField(),
                         ControlField::text(rule_name(choice.rule)), ControlField::number(entries)});
    });
}

// The counters of all peers together, and those of the process.
void list_counters(const mcastd::ControlServer &server, const Speaker &speaker, const ProcessStatus &process,
                   ControlRows &rows)
{
    NamedValues counters = {{"mrib_connects", process.mrib_connects},
                            {"refused_connections", speaker.refused_connections},
                            {"postponed_accepts", speaker.postponed_accepts}};

    for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
        const Count count = static_cast<Count>(i);
        uint64_t sum = 0;

        for (const auto &[address, peer] : speaker.peers) {
            sum += peer->counters[count];
        }
        counters.emplace_back(count_name(count), sum);
    }
    server.visit_counters(
        [&counters](const char *name, uint64_t value) { counters.emplace_back(name, value); });
    std::sort(counters.begin(), counters.end());
    for (const auto &[name, value] : counters) {
        if (!rows.add({ControlField::family(MCAST_FAMILY_IPV4), ControlField::interface(0),
                       ControlField::text(name), ControlField::counter(value)})) {
            return;
        }
    }
}

mcastd::ControlOutcome clear_cache(Speaker &speaker, const ControlFields &arguments)
{
    Ipv4 group;

    if (!arguments.empty()) {
        const bool is_ipv4 = arguments.size() == 1 && arguments[0].is(mcastd::FieldType::Address) &&
                             arguments[0].as_address().family == MCAST_FAMILY_IPV4;

        group = is_ipv4 ? from_record(arguments[0].as_address()) : group;
        if (!is_routable_group(group)) {
            return {mcastd::ControlStatus::BadValue, 0, "the argument is an IPv4 group that is routed"};
        }
    }
    speaker.cache.forget(group);
    return {};
}

} // namespace

void offer_control(mcastd::ControlServer &server, Speaker &speaker, std::function<ProcessStatus()> process)
{
    mcastd::ControlRegistry &registry = server.registry();
    registry.add_table(mcastd::MSDP_PEER_TABLE, [&speaker](ControlRows &rows) { list_peers(speaker, rows); });
    registry.add_table(mcastd::MSDP_CACHE_TABLE,
                       [&speaker](ControlRows &rows) { list_cache(speaker, rows); });
    registry.add_table(mcastd::MSDP_RPF_TABLE, [&speaker](ControlRows &rows) { list_rpf(speaker, rows); });
    registry.add_command(mcastd::COMMAND_CLEAR_MSDP_CACHE, [&speaker](const ControlFields &arguments) {
        return clear_cache(speaker, arguments);
    });
    registry.add_table(mcastd::MSDP_COUNTER_TABLE,
                       [&speaker](ControlRows &rows) { list_peer_counters(speaker, rows); });
    registry.add_table(mcastd::COUNTER_TABLE,
                       [&server, &speaker, process = std::move(process)](ControlRows &rows) {
                           list_counters(server, speaker, process(), rows);
                       });
}

} // namespace msdpd
