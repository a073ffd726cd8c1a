/*
 * Links, neighbours, RPs and routes are few enough that every request goes through all of them.
 */
#include "daemons/pimsmd/control.h"

#include <algorithm>

#include "daemons/common/counters.h"

namespace pimsmd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlOutcome;
using mcastd::ControlRows;
using mcastd::ControlStatus;

constexpr uint64_t MS_PER_S = 1000;

// Calls visit(const Link &) in the order of the links' interfaces.
template <typename Visit> void visit_links(const Router &router, Visit visit)
{
    std::map<uint32_t, const Link *> links;
    for (unsigned number = 0; number < MOST_PIM_LINKS; ++number) {
        if (const Link *link = router.link(number)) {
            links.emplace(link->state().if_index, link);
        }
    }
    for (const auto &[if_index, link] : links) {
        visit(*link);
    }
}

ControlField optional_number(const std::optional<uint32_t> &value)
{
    return value ? ControlField::number(*value) : ControlField();
}

ControlField remaining(Router &router, const MsTimer &timer)
{
    return timer.running()
               ? ControlField::seconds((router.trees().queue().remaining_ms(timer) + MS_PER_S - 1) / MS_PER_S)
               : ControlField();
}

void list_interfaces(const Router &router, ControlRows &rows)
{
    visit_links(router, [&](const Link &link) {
        const Neighbours &neighbours = link.neighbours();

        rows.add({ControlField::interface(link.state().if_index), ControlField::family(router.family()),
                  ControlField::address(link.state().address), ControlField::address(neighbours.dr()),
                  ControlField::truth(neighbours.is_dr()), ControlField::number(link.settings().dr_priority),
                  ControlField::number(neighbours.size()), ControlField::number(link.settings().hello_s),
                  ControlField::number(neighbours.join_prune_override_ms()),
                  ControlField::number(link.generation())});
    });
}

void list_neighbours(Router &router, ControlRows &rows)
{
    visit_links(router, [&](const Link &link) {
        const ControlField interface = ControlField::interface(link.state().if_index);

        if (!rows.wants({interface}) || rows.full()) {
            return;
        }
        link.neighbours().visit([&](const Neighbour &neighbour) {
            rows.add({interface, ControlField::address(neighbour.address),
                      ControlField::truth(same_address(neighbour.address, link.neighbours().dr())),
                      optional_number(neighbour.dr_priority), optional_number(neighbour.generation),
                      remaining(router, neighbour.expiry), ControlField::number(neighbour.addresses.size())});
        });
    });
}

void list_rps(Router &router, ControlRows &rows)
{
    std::vector<ControlFields> all;
    const auto add = [&](const Prefix &range, const Address &rp, const char *origin, ControlField priority,
                         ControlField expires) {
        all.push_back({ControlField::address(range.address), ControlField::number(range.length),
                       ControlField::address(rp), ControlField::text(origin), std::move(priority),
                       std::move(expires)});
    };
    for (const StaticRp &one : router.rp_set().configured()) {
        add(one.range, one.rp, "configured", ControlField(), ControlField());
    }
    for (const auto &[range, rps] : router.rp_set().learnt().ranges()) {
        for (const auto &[address, rp] : rps) {
            add(range, address, "learnt", ControlField::number(rp.priority), remaining(router, rp.expiry));
        }
    }
    std::sort(all.begin(), all.end(), [](const ControlFields &first, const ControlFields &second) {
        return mcastd::compare_keys(first, second, mcastd::RP_TABLE.key_size) < 0;
    });
    for (const ControlFields &row : all) {
        if (!rows.add(row)) {
            return;
        }
    }
}

void list_bsr(const Router &router, ControlRows &rows)
{
    const auto elected = router.bsr().elected();
    rows.add({ControlField::family(router.family()), ControlField::text(router.bsr().state_name()),
              elected ? ControlField::address(elected->address) : ControlField(),
              elected ? ControlField::number(elected->priority) : ControlField(),
              ControlField::number(router.rp_set().hash_mask_length()),
              ControlField::truth(router.bsr().is_elected()),
              ControlField::number(router.bsr().candidates().rps())});
}

// The row of one address is asked for anew; those of the table are what the trees asked for.
void list_rpf(Router &router, ControlRows &rows)
{
    const auto add = [&](const Address &address) {
        const Route route = router.route_to(address);
        const Link *link = route.link != NO_LINK ? router.link(static_cast<unsigned>(route.link)) : nullptr;
        const bool is_known = route.preference != asserts::INFINITE_PREFERENCE;
        const bool has_neighbour = route.neighbour.family != 0 && !is_unspecified(route.neighbour);

        rows.add({ControlField::address(address),
                  link != nullptr ? ControlField::interface(link->state().if_index) : ControlField(),
                  has_neighbour ? ControlField::address(route.neighbour) : ControlField(),
                  ControlField::truth(route.connected),
                  is_known ? ControlField::number(route.preference) : ControlField(),
                  is_known ? ControlField::number(route.metric) : ControlField()});
    };
    const ControlFields &key = rows.key();
    const bool has_position = !key.empty() && key[0].as_address().family == router.family();

    if (has_position) {
        add(key[0].as_address());
    }
    std::optional<Address> next = router.rpf().next_known(has_position ? &key[0].as_address() : nullptr);
    while (next && !rows.full()) {
        add(*next);
        next = router.rpf().next_known(&*next);
    }
}

using NamedValues = std::vector<std::pair<std::string, uint64_t>>;

void add_counters(ControlRows &rows, const Router &router, uint32_t if_index, NamedValues counters)
{
    std::sort(counters.begin(), counters.end());
    for (const auto &[name, value] : counters) {
        if (!rows.add({ControlField::family(router.family()), ControlField::interface(if_index),
                       ControlField::text(name), ControlField::counter(value)})) {
            return;
        }
    }
}

template <typename Count> void append(NamedValues *values, const mcastd::CounterSet<Count> &counters)
{
    for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
        const auto count = static_cast<Count>(i);

        values->emplace_back(count_name(count), counters[count]);
    }
}

NamedValues daemon_counters(const mcastd::ControlServer &server, const Shown &shown)
{
    NamedValues values;
    Counters counters = shown.router.counters();
    for (size_t i = 0; shown.sockets != nullptr && i < static_cast<size_t>(Count::Total); ++i) {
        counters.values[i] += shown.sockets->counters().values[i];
    }
    append(&values, counters);
    if (shown.registers != nullptr) {
        append(&values, shown.registers->counts());
    }
    if (shown.mrib != nullptr) {
        const ListenerCounts &heard = shown.mrib->listener().counts();
        values.emplace_back("mrib_connects", shown.mrib->channel().connects());
        values.emplace_back("listener_records", heard.records);
        values.emplace_back("listener_wrong", heard.wrong);
        values.emplace_back("listener_other_instance", heard.other_instance);
        values.emplace_back("listener_refused", heard.refused);
    }
    server.visit_counters([&values](const char *name, uint64_t value) { values.emplace_back(name, value); });
    return values;
}

void list_counters(const mcastd::ControlServer &server, const Shown &shown, ControlRows &rows)
{
    if (!rows.wants({ControlField::family(shown.router.family())})) {
        return;
    }
    if (rows.key().size() < 2 || rows.key()[1].as_interface() == 0) {
        add_counters(rows, shown.router, 0, daemon_counters(server, shown));
    }
    visit_links(shown.router, [&](const Link &link) {
        NamedValues values;

        if (!rows.full()) {
            append(&values, link.counters());
            add_counters(rows, shown.router, link.state().if_index, std::move(values));
        }
    });
}

std::string check_priority(const Router &router, const ControlFields &key, const ControlField &value)
{
    if (value.as_number() > UINT32_MAX) {
        return "a priority is at most 4294967295";
    }
    return key.empty() || router.link_of(key[0].as_interface()) ? "" : "PIM does not run on the interface";
}

// In force until the configuration file is read again.
void apply_priority(Router &router, const ControlFields &key, const ControlField &value)
{
    const auto priority = static_cast<uint32_t>(value.as_number());
    if (key.empty()) {
        Config config = router.config();
        config.dr_priority = priority;
        router.configure(config);
        return;
    }
    if (const auto number = router.link_of(key[0].as_interface())) {
        router.set_dr_priority(*number, priority);
    }
}

} // namespace

void offer_control(mcastd::ControlServer &server, const Shown &shown)
{
    mcastd::ControlRegistry &registry = server.registry();
    Router &router = shown.router;
    registry.add_table(mcastd::PIM_INTERFACE_TABLE,
                       [&router](ControlRows &rows) { list_interfaces(router, rows); });
    registry.add_table(mcastd::PIM_NEIGHBOR_TABLE,
                       [&router](ControlRows &rows) { list_neighbours(router, rows); });
    registry.add_table(mcastd::RP_TABLE, [&router](ControlRows &rows) { list_rps(router, rows); });
    registry.add_table(mcastd::BSR_TABLE, [&router](ControlRows &rows) { list_bsr(router, rows); });
    registry.add_table(mcastd::RPF_TABLE, [&router](ControlRows &rows) { list_rpf(router, rows); });
    registry.add_table(mcastd::COUNTER_TABLE,
                       [&server, shown](ControlRows &rows) { list_counters(server, shown, rows); });
    offer_trees(registry, router);
    registry.add_setting(mcastd::PIM_INTERFACE_TABLE,
                         {mcastd::SETTING_DR_PRIORITY, mcastd::FieldType::Number,
                          [&router](const ControlFields &key, const ControlField &value) {
                              return check_priority(router, key, value);
                          },
                          [&router](const ControlFields &key, const ControlField &value) {
                              apply_priority(router, key, value);
                          }});
    registry.add_command(mcastd::COMMAND_CLEAR_RPS, [&router](const ControlFields &arguments) {
        if (!arguments.empty()) {
            return ControlOutcome{ControlStatus::BadValue, 0, "this command takes no arguments"};
        }
        router.forget_learnt_rps();
        return ControlOutcome{};
    });
}

} // namespace pimsmd
