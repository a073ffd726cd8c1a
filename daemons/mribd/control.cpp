/*
 * Tables whose rows are many begin where the request says; the others name all of their rows and leave it to
 * the reply to pass over those before the position.
 */
#include "daemons/mribd/control.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;

using Families = std::vector<const ChannelServer *>;

// Every router, the families of an instance together.
std::vector<const Router *> routers_of(const Families &families)
{
    std::vector<const Router *> routers;
    for (const ChannelServer *server : families) {
        for (const auto &[vrf_index, router] : server->backend().routers.all()) {
            routers.push_back(router);
        }
    }
    std::stable_sort(routers.begin(), routers.end(), [](const Router *one, const Router *other) {
        return one->vrf_index() < other->vrf_index();
    });
    return routers;
}

ControlField instance_field(const Router &router)
{
    return ControlField::number(router.vrf_index());
}

// The position's address at the place, when it is of the family; otherwise NULL: the router's rows are wanted
// from the first, or not at all, in which case none of them is taken.
const MCAST_ADDR_S *address_at(const ControlFields &key, size_t place, uint8_t family)
{
    return key.size() > place && key[place].as_address().family == family ? &key[place].as_address()
                                                                          : nullptr;
}

// Whether the router's rows come before the position: by instance, then by family.
bool is_passed(const ControlFields &key, const Router &router)
{
    const uint64_t instance = key.empty() ? 0 : key[0].as_number();
    return instance > router.vrf_index() ||
           (instance == router.vrf_index() && key.size() > 1 && key[1].as_address().family > router.family());
}

// Calls list(router, group, source) for each router of which rows are wanted, with the position in it.
template <typename List> void from_position(const Families &families, const ControlRows &rows, List list)
{
    for (const Router *router : routers_of(families)) {
        if (is_passed(rows.key(), *router) || rows.full()) {
            continue;
        }
        const bool is_at = !rows.key().empty() && rows.key()[0].as_number() == router->vrf_index();
        const MCAST_ADDR_S *group = is_at ? address_at(rows.key(), 1, router->family()) : nullptr;
        list(*router, group, group == nullptr ? nullptr : address_at(rows.key(), 2, router->family()));
    }
}

ControlFields route_row(const Router &router, const Entry &entry)
{
    std::vector<uint32_t> outgoing;
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
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
        instance_field(router),
        ControlField::address(entry.group()),
        ControlField::address(entry.source()),
        entry.upstream == 0 ? ControlField() : ControlField::interface(entry.upstream),
        ControlField::interfaces(std::move(outgoing)),
        counter(&EntryCounters::packets),
        counter(&EntryCounters::bytes),
        counter(&EntryCounters::wrong_interface),
    };
}

ControlFields member_row(const Router &router, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                         const Wish &wish)
{
    return {instance_field(router),
            ControlField::address(group),
            ControlField::address(source),
            ControlField::interface(wish.if_index),
            ControlField::number(wish.client),
            ControlField::truth(wish.joined),
            ControlField::truth(wish.blocked)};
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
    from_position(families, rows,
                  [&rows](const Router &router, const MCAST_ADDR_S *group, const MCAST_ADDR_S *source) {
                      const auto add = [&](const MCAST_ADDR_S &of_group, const MCAST_ADDR_S &of_source,
                                           const std::vector<Wish> &wishes) {
                          return std::all_of(wishes.begin(), wishes.end(), [&](const Wish &wish) {
                              return rows.add(member_row(router, of_group, of_source, wish));
                          });
                      };
                      router.members().visit_from(group, source, add);
                  });
}

void list_vifs(const Families &families, ControlRows &rows)
{
    for (const ChannelServer *server : families) {
        for (const auto &[vrf_index, router] : server->backend().routers.all()) {
            for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
                if (const uint32_t if_index = router->vifs().if_index(vif)) {
                    rows.add({ControlField::family(router->family()), instance_field(*router),
                              ControlField::number(vif), ControlField::interface(if_index),
                              ControlField::truth(router->gmp().is_enabled(if_index)),
                              ControlField::truth(router->gmp().is_forwarder(if_index))});
                }
            }
        }
    }
}

void list_clients(const Families &families, ControlRows &rows)
{
    for (const ChannelServer *server : families) {
        std::map<ClientId, const Session *> sessions;
        server->visit([&sessions](const Session &session) { sessions[session.id()] = &session; });
        for (const auto &[id, session] : sessions) {
            rows.add({ControlField::family(server->backend().routers.family()), ControlField::number(id),
                      ControlField::number(session->component()),
                      ControlField::truth(session->is_registered()),
                      ControlField::counter(session->queue().sent()),
                      ControlField::number(session->queue().message_count())});
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
    for (size_t fault = 0; fault < channel.faults.size(); ++fault) {
        (*counters)[std::string("channel_ignored_") + fault_name(static_cast<Fault>(fault))] =
            channel.faults[fault];
    }
}

void count_forwarding(Counters *counters, const RouterCounters &routers)
{
    const ForwardingCounters &forwarding = routers.forwarding;
    (*counters)["upcalls"] = forwarding.upcalls;
    (*counters)["upcalls_lost"] = routers.upcalls_lost;
    (*counters)["upcalls_stray"] = forwarding.stray_upcalls;
    (*counters)["upcalls_wrong_interface"] = forwarding.wrong_interface;
    (*counters)["outputs_given_way"] = forwarding.given_way;
    (*counters)["outputs_taken_up"] = forwarding.taken_up;
    (*counters)["entries_displaced"] = forwarding.displaced;
    (*counters)["entries_ended_with_members"] = forwarding.ended;
    (*counters)["entries_expired"] = forwarding.expired;
    (*counters)["entries_without_route"] = forwarding.no_route;
    (*counters)["entries_refused_by_kernel"] = forwarding.kernel_failures;
    (*counters)["entries_refused_by_limit"] = forwarding.refused_by_limit;
    (*counters)["entries_refused_by_memory"] = forwarding.refused_by_memory;
    (*counters)["vifs_failed"] = routers.vifs_failed;
    (*counters)["vifs_refused"] = routers.vifs_refused;
    (*counters)["new_sources_unanswered"] = forwarding.unanswered;
    (*counters)["new_sources_not_awaited"] = forwarding.not_awaited;
    (*counters)["trees_refused"] = routers.trees_refused;
}

// The endpoint serves both families; its counters stand with the first.
void list_counters(const mcastd::ControlServer &control, const Families &families, ControlRows &rows)
{
    for (const ChannelServer *server : families) {
        Counters counters;
        count_channel(&counters, server->counters());
        count_forwarding(&counters, server->backend().routers.counters());
        counters["members"] = server->backend().budget.taken();
        counters["members_refused"] = server->backend().budget.refused();
        if (server == families.front()) {
            control.visit_counters([&](const char *name, uint64_t value) { counters[name] = value; });
        }
        for (const auto &[name, value] : counters) {
            rows.add({ControlField::family(server->backend().routers.family()), ControlField::interface(0),
                      ControlField::text(name), ControlField::counter(value)});
        }
    }
}

} // namespace

void offer_control(mcastd::ControlServer &control, std::vector<const ChannelServer *> families)
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
