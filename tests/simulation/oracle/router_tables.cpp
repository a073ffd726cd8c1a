#include "tests/simulation/oracle/router_tables.h"

#include "daemons/common/services.h"

namespace sim
{
namespace
{

// Calls visit(row) for each row of the table; false when the daemon does not answer.
template <typename Visit>
bool for_each(Machine &machine, uint16_t port, const mcastd::ControlSchema &schema, Visit visit)
{
    const auto rows = read_table(machine, port, schema);
    if (!rows) {
        return false;
    }
    for (const Row &row : *rows) {
        visit(row);
    }
    return true;
}

int family_in(const mcastd::ControlField &field)
{
    return field.as_number() == MCAST_FAMILY_IPV4 ? AF_INET : AF_INET6;
}

bool is_any(const Address &source)
{
    return source == Address{source.family, {}};
}

} // namespace

uint16_t gmp_port(int family)
{
    return family == AF_INET ? mcastd::CONTROL_PORT_GMPD_IPV4 : mcastd::CONTROL_PORT_GMPD_IPV6;
}

std::optional<GmpTables> read_gmp_tables(Machine &machine, int family)
{
    GmpTables tables;
    const uint16_t port = gmp_port(family);
    const bool answered =
        for_each(machine, port, mcastd::INTERFACE_TABLE,
                 [&](const Row &row) {
                     const bool running = row.at(2).as_number() != 0;
                     tables.interfaces[row.at(0).as_interface()] = {
                         running, running ? address_in(row.at(3)) : Address{}, row.at(6).as_number() != 0,
                         row.at(5).as_number()};
                 }) &&
        for_each(machine, port, mcastd::GROUP_TABLE,
                 [&](const Row &row) {
                     tables.groups[{row.at(0).as_interface(), address_in(row.at(1))}].exclude =
                         row.at(2).as_text() == "exclude";
                 }) &&
        for_each(machine, port, mcastd::SOURCE_TABLE,
                 [&](const Row &row) {
                     tables.groups[{row.at(0).as_interface(), address_in(row.at(1))}]
                         .sources[address_in(row.at(2))] = row.at(3).as_number() != 0;
                 }) &&
        for_each(machine, port, mcastd::QUERIER_TABLE, [&](const Row &row) {
            tables.queriers[row.at(0).as_interface()] = {address_in(row.at(2)), row.at(3).as_number() != 0};
        });
    return answered ? std::optional(std::move(tables)) : std::nullopt;
}

std::optional<MribTables> read_mrib_tables(Machine &machine)
{
    MribTables tables;
    constexpr uint16_t PORT = mcastd::CONTROL_PORT_MRIBD;
    const auto route = [&](const Row &row) {
        const auto &outgoing = row.at(4).as_interfaces();
        tables.routes.push_back({row.at(0).as_number(),
                                 address_in(row.at(1)),
                                 address_in(row.at(2)),
                                 row.at(3).as_interface(),
                                 {outgoing.begin(), outgoing.end()},
                                 !row.at(5).is(mcastd::FieldType::None)});
    };
    const auto member = [&](const Row &row) {
        const Address source = address_in(row.at(2));
        MribTables::Member &of = tables.members[{row.at(3).as_interface(), address_in(row.at(1))}];
        of.any |= is_any(source) && row.at(5).as_number() != 0;
        if (!is_any(source) && row.at(5).as_number() != 0) {
            of.joined.insert(source);
        }
        if (row.at(6).as_number() != 0) {
            of.blocked.insert(source);
        }
    };
    const auto vif = [&](const Row &row) {
        tables.vifs[{family_in(row.at(0)), static_cast<unsigned>(row.at(2).as_number()),
                     row.at(3).as_interface()}] = {row.at(1).as_number(), row.at(4).as_number() != 0,
                                                   row.at(5).as_number() != 0};
    };
    const auto client = [&](const Row &row) {
        tables.clients[{family_in(row.at(0)), row.at(1).as_number()}] = {
            row.at(2).as_number(), row.at(3).as_number() != 0, row.at(5).as_number()};
    };
    const bool answered = for_each(machine, PORT, mcastd::ROUTE_TABLE, route) &&
                          for_each(machine, PORT, mcastd::MEMBER_TABLE, member) &&
                          for_each(machine, PORT, mcastd::VIF_TABLE, vif) &&
                          for_each(machine, PORT, mcastd::CLIENT_TABLE, client);
    return answered ? std::optional(std::move(tables)) : std::nullopt;
}

std::optional<UserTables> read_users(Machine &machine, int family)
{
    UserTables tables;
    const uint16_t port = gmp_port(family);
    const bool answered =
        for_each(machine, port, mcastd::USER_TABLE,
                 [&](const Row &row) {
                     const mcastd::ControlField &address = row.at(6);
                     tables.users[row.at(0).as_interface()] = {
                         row.at(2).as_number(),
                         address.is(mcastd::FieldType::None) ? Address{} : address_in(address)};
                 }) &&
        for_each(machine, port, mcastd::USER_RIGHT_TABLE, [&](const Row &row) {
            tables.rights[{row.at(0).as_interface(), address_in(row.at(1)), address_in(row.at(2))}] =
                row.at(3).as_number() != 0;
        });
    return answered ? std::optional(std::move(tables)) : std::nullopt;
}

std::optional<MsdpTables> read_msdp_tables(Machine &machine)
{
    MsdpTables tables;
    constexpr uint16_t PORT = mcastd::CONTROL_PORT_MSDPD;
    const bool answered =
        for_each(machine, PORT, mcastd::MSDP_PEER_TABLE,
                 [&](const Row &row) {
                     tables.peers[address_in(row.at(0))] = {address_in(row.at(1)),
                                                            row.at(2).as_text() == "established"};
                 }) &&
        for_each(machine, PORT, mcastd::MSDP_CACHE_TABLE, [&](const Row &row) {
            tables.cache[{address_in(row.at(1)), address_in(row.at(0))}] = address_in(row.at(3));
        });
    return answered ? std::optional(std::move(tables)) : std::nullopt;
}

std::optional<NamedCounters> read_counters(Machine &machine, uint16_t port)
{
    NamedCounters counters;
    const bool answered = for_each(machine, port, mcastd::COUNTER_TABLE, [&](const Row &row) {
        counters[{family_in(row.at(0)), row.at(1).as_interface(), row.at(2).as_text()}] =
            row.at(3).as_number();
    });
    return answered ? std::optional(std::move(counters)) : std::nullopt;
}

} // namespace sim
