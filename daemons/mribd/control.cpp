/*
 * Tables whose rows are many begin where the request says; the others name all of their rows and leave it to
 * the reply to pass over those before the position.
 */
#include "daemons/mribd/control.h"

#include "daemons/mribd/address.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace mribd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;

using Families = std::vector<ControlFamily>;

const Router &router_of(const ControlFamily &family)
{
    return family.server.backend().router;
}

// The position's address at the place, when it is of the family; otherwise NULL: the family's rows are wanted
// from the first, or not at all, in which case none of them is taken.
const MCAST_ADDR_S *address_at(const ControlFields &key, size_t place, uint8_t family)
{
    return key.size() > place && key[place].as_address().family == family ? &key[place].as_address()
                                                                          : nullptr;
}

// Whether the family's addresses come before the position.
bool is_passed(const ControlFields &key, uint8_t family)
{
    return !key.empty() && key[0].as_address().family > family;
}

// Calls list(router, group, source) for each family of which rows are wanted, with the position in it.
template <typename List> void from_position(const Families &families, const ControlRows &rows, List list)
{
    for (const ControlFamily &each : families) {
        const Router &router = router_of(each);
        if (is_passed(rows.key(), router.family()) || rows.full()) {
            continue;
        }
        const MCAST_ADDR_S *group = address_at(rows.key(), 0, router.family());
        list(router, group, group == nullptr ? nullptr : address_at(rows.key(), 1, router.family()));
    }
}

ControlFields route_row(const Router &router, const Entry &entry)
{
    std::vector<uint32_t> outgoing;
    for (unsigned vif = 0; vif < MAX_VIFS; vif++) {
        if ((entry.outgoing >> vif & 1) != 0) {
            outgoing.push_back(router.vifs().if_index(vif));
        }
    }
    std::sort(outgoing.begin(), outgoing.end());
    const auto counters =
        entry.installed ? router.kernel().counters(entry.source(), entry.group()) : std::nullopt;
    const auto counter = [&counters](uint64_t EntryCounters::*member) {
        return counters ? ControlField::counter((*counters).*member) : ControlField();
    };
    return {
        ControlField::address(entry.group()),
        ControlField::address(entry.source()),
        entry.upstream == 0 ? ControlField() : ControlField::interface(entry.upstream),
        ControlField::interfaces(std::move(outgoing)),
        counter(&EntryCounters::packets),
        counter(&EntryCounters::bytes),
        counter(&EntryCounters::wrong_interface),
    };
}

void list_routes(const Families &families, ControlRows &rows)
{
    from_position(families, rows,
                  [&rows](const Router &router, const MCAST_ADDR_S *group, const MCAST_ADDR_S *source) {
                      router.forwarding().visit_from(group, source, [&](const Entry &entry) {
                          return rows.add(route_row(router, entry));
                      });
                  });
}

void list_members(const Families &families, ControlRows &rows)
{
    const auto add = [&rows](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                             const std::vector<Wish> &wishes) {
        return std::all_of(wishes.begin(), wishes.end(), [&](const Wish &wish) {
            return rows.add({ControlField::address(group), ControlField::address(source),
                             ControlField::interface(wish.if_index), ControlField::number(wish.client),
                             ControlField::truth(wish.joined), ControlField::truth(wish.blocked)});
        });
    };
    from_position(families, rows,
                  [&add](const Router &router, const MCAST_ADDR_S *group, const MCAST_ADDR_S *source) {
                      router.members().visit_from(group, source, add);
                  });
}

void list_vifs(const Families &families, ControlRows &rows)
{
    for (const ControlFamily &each : families) {
        const Router &router = router_of(each);
        for (unsigned vif = 0; vif < MAX_VIFS; vif++) {
            if (const uint32_t if_index = router.vifs().if_index(vif)) {
                rows.add({ControlField::family(router.family()), ControlField::number(vif),
                          ControlField::interface(if_index),
                          ControlField::truth(router.gmp().is_enabled(if_index)),
                          ControlField::truth(router.gmp().is_forwarder(if_index))});
            }
        }
    }
}

void list_clients(const Families &families, ControlRows &rows)
{
    for (const ControlFamily &each : families) {
        std::map<ClientId, const Session *> sessions;
        each.server.visit([&sessions](const Session &session) { sessions[session.id()] = &session; });
        for (const auto &[id, session] : sessions) {
            rows.add({ControlField::family(router_of(each).family()), ControlField::number(id),
                      ControlField::number(session->component()),
                      ControlField::truth(session->is_registered()),
                      ControlField::counter(session->outbox().sent()),
                      ControlField::number(session->outbox().message_count())});
        }
    }
}

using Counters = std::map<std::string, uint64_t>;

void count_channel(Counters *counters, const ChannelCounters &channel)
{
    (*counters)["channel_clients"] = channel.clients;
    (*counters)["channel_messages"] = channel.messages;
    (*counters)["channel_records"] = channel.records;
    (*counters)["channel_malformed_messages"] = channel.malformed_messages;
    (*counters)["channel_restarts_of_slow_clients"] = channel.overflows;
    for (size_t fault = 0; fault < channel.faults.size(); fault++) {
        std::string name = std::string("channel_ignored_") + fault_name(static_cast<Fault>(fault));
        std::replace(name.begin(), name.end(), ' ', '_');
        (*counters)[name] = channel.faults[fault];
    }
}

void count_forwarding(Counters *counters, const Router &router, uint64_t lost_upcalls)
{
    const ForwardingCounters &forwarding = router.forwarding().counters();
    (*counters)["upcalls"] = forwarding.upcalls;
    (*counters)["upcalls_lost"] = lost_upcalls;
    (*counters)["upcalls_stray"] = forwarding.stray_upcalls;
    (*counters)["upcalls_wrong_interface"] = forwarding.wrong_interface;
    (*counters)["entries_expired"] = forwarding.expired;
    (*counters)["entries_without_route"] = forwarding.no_route;
    (*counters)["entries_refused_by_kernel"] = forwarding.kernel_failures;
    (*counters)["entries_refused_by_limit"] = forwarding.refused_by_limit;
    (*counters)["entries_refused_by_memory"] = forwarding.refused_by_memory;
    (*counters)["vifs_failed"] = router.vifs().failures();
    (*counters)["vifs_refused"] = router.vifs().refusals();
}

// The endpoint serves both families; its counters stand with the first.
void list_counters(const mcastd::ControlServer &control, const Families &families, ControlRows &rows)
{
    for (const ControlFamily &each : families) {
        Counters counters;
        count_channel(&counters, each.server.counters());
        count_forwarding(&counters, router_of(each), each.lost_upcalls());
        if (&each == &families.front()) {
            control.visit_counters([&](const char *name, uint64_t value) { counters[name] = value; });
        }
        for (const auto &[name, value] : counters) {
            rows.add({ControlField::family(router_of(each).family()), ControlField::interface(0),
                      ControlField::text(name), ControlField::counter(value)});
        }
    }
}

} // namespace

void offer_control(mcastd::ControlServer &control, std::vector<ControlFamily> families)
{
    using List = void (*)(const Families &, ControlRows &);
    constexpr std::pair<const mcastd::ControlSchema *, List> TABLES[] = {
        {&mcastd::ROUTE_TABLE, list_routes},
        {&mcastd::MEMBER_TABLE, list_members},
        {&mcastd::VIF_TABLE, list_vifs},
        {&mcastd::CLIENT_TABLE, list_clients},
    };
    const auto shared = std::make_shared<const Families>(std::move(families));
    for (const auto &[schema, list] : TABLES) {
        control.registry().add_table(*schema,
                                     [shared, list = list](ControlRows &rows) { list(*shared, rows); });
    }
    control.registry().add_table(mcastd::COUNTER_TABLE, [&control, shared](ControlRows &rows) {
        list_counters(control, *shared, rows);
    });
}

} // namespace mribd
