#include "daemons/pimsmd/status.h"

#include "daemons/common/json.h"

namespace pimsmd
{
namespace
{

using mcastd::Json;

void write_neighbour(Json &json, const Neighbour &neighbour, const Address &dr)
{
    json.open(nullptr, '{', true);
    json.text("address", to_text(neighbour.address));
    json.truth("designated", same_address(neighbour.address, dr));
    if (neighbour.dr_priority) {
        json.number("dr_priority", *neighbour.dr_priority);
    }
    if (neighbour.lan_delay) {
        json.number("propagation_ms", neighbour.lan_delay->propagation_ms);
        json.number("override_ms", neighbour.lan_delay->override_ms);
    }
    if (neighbour.generation) {
        json.number("generation", *neighbour.generation);
    }
    json.open("addresses", '[');
    for (const Address &address : neighbour.addresses) {
        json.text(nullptr, to_text(address));
    }
    json.close(']');
    json.close('}');
}

void write_link(Json &json, const Link &link)
{
    const Neighbours &neighbours = link.neighbours();
    json.open(nullptr, '{');
    json.text("interface", link.state().name);
    json.text("address", to_text(link.state().address));
    json.text("designated_router", to_text(neighbours.dr()));
    json.truth("designated", neighbours.is_dr());
    json.number("dr_priority", link.settings().dr_priority);
    json.number("hello_interval", link.settings().hello_s);
    json.number("generation", link.generation());
    json.number("prune_delay_ms", neighbours.join_prune_override_ms());
    json.open("neighbors", '[');
    neighbours.visit([&](const Neighbour &neighbour) { write_neighbour(json, neighbour, neighbours.dr()); });
    json.close(']');
    mcastd::write_counters(json, link.counters());
    json.close('}');
}

void write_learnt(Json &json, const RpSet &set)
{
    json.open("learnt_rps", '[');
    for (const auto &[range, rps] : set.learnt().ranges()) {
        for (const auto &[address, rp] : rps) {
            json.open(nullptr, '{', true);
            json.text("range", range.text());
            json.text("rp", to_text(address));
            json.number("priority", rp.priority);
            json.close('}');
        }
    }
    json.close(']');
}

} // namespace

std::string status_text(Router &router, const Sockets &sockets)
{
    Json json;
    json.open(nullptr, '{');
    json.text("daemon", "pimsmd");
    json.text("family", mcastd::family_name(router.family()));
    json.open("links", '[');
    for (unsigned number = 0; number < MOST_PIM_LINKS; ++number) {
        if (const Link *link = router.link(number)) {
            write_link(json, *link);
        }
    }
    json.close(']');
    json.number("entries", router.trees().entries());
    json.text("bsr_state", router.bsr().state_name());
    if (const auto bsr = router.bsr().elected()) {
        json.text("bsr", to_text(bsr->address));
    } else {
        json.null("bsr");
    }
    write_learnt(json, router.rp_set());
    Counters counters = router.counters();
    for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
        counters.values[i] += sockets.counters().values[i];
    }
    mcastd::write_counters(json, counters);
    json.close('}');
    return json.take();
}

} // namespace pimsmd
