/*
 * Who has a virtual interface when there are more interfaces than the kernel's 32: rule 2 of mribd. First where known
 * sources are, then where receivers are, then where gmpd runs, then every other one while anybody listens; but two places
 * are not for receivers, so that new sources are heard. And which interfaces' packets are led to another table than the
 * kernel's default one: those that have a virtual one there, lest packets go where nobody forwards.
 */
#include <array>

#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

enum Rank { Upstream, Receiving, Running, Rest, Ranks };

constexpr size_t PLACES_FOR_SOURCES = 2;

struct Places {
    std::array<size_t, Ranks> have{};
    std::array<size_t, Ranks> lack{};
};

Rank rank_of(const MribTables &mrib, const GmpTables &gmp, uint32_t if_index, int family)
{
    for (const MribTables::Route &route : mrib.routes) {
        if (route.instance == 0 && route.group.family == family && route.upstream == if_index) {
            return Upstream;
        }
    }
    for (const auto &[key, member] : mrib.members) {
        if (key.first == if_index && key.second.family == family) {
            return Receiving;
        }
    }
    const auto row = gmp.interfaces.find(if_index);
    return row != gmp.interfaces.end() && row->second.running ? Running : Rest;
}

bool has_members(const MribTables &mrib, int family)
{
    for (const auto &[key, member] : mrib.members) {
        if (key.second.family == family) {
            return true;
        }
    }
    return false;
}

} // namespace

// Of the public instance.
void Oracle::check_vifs(Machine &machine, int family)
{
    const auto mrib = read_mrib_tables(machine);
    const auto gmp = read_gmp_tables(machine, family);
    if (!mrib || !gmp) {
        return; // which is another rule
    }
    std::set<uint32_t> owners;
    for (const auto &[key, vif] : mrib->vifs) {
        if (std::get<0>(key) == family && vif.instance == 0) {
            owners.insert(std::get<2>(key));
        }
    }
    Places places;
    for (const auto &[if_index, interface] : machine.interfaces()) {
        const auto instance = world_->config(machine).instance_of(machine, interface);
        if (!interface.is_up || interface.is_loopback || interface.vrf_table != 0 || instance != 0) {
            continue;
        }
        const Rank rank = rank_of(*mrib, *gmp, if_index, family);
        const bool is_wanted = rank != Rest || has_members(*mrib, family);
        ++counts_.rows;
        ++(owners.contains(if_index) ? places.have : places.lack)[rank];
        if (is_wanted && !owners.contains(if_index) && owners.size() < MulticastTable::MOST_VIFS) {
            broken(Rule::Tables,
                   machine.name + ": " + interface.name + " has no virtual interface although there is room");
        }
    }
    for (int rank = Upstream; rank < Rest; ++rank) {
        size_t after = 0; // places of those that come later
        for (int later = rank + 1; later < Ranks; ++later) {
            after += places.have[static_cast<size_t>(later)];
        }
        const bool is_late = places.lack[static_cast<size_t>(rank)] != 0;
        if (is_late && after > (rank == Receiving ? PLACES_FOR_SOURCES : 0)) {
            broken(Rule::Tables, machine.name + ": " + std::to_string(after) +
                                     " interfaces have virtual ones before others that need them more");
        }
    }
}

// What arrives and what the machine itself sends have a rule each.
void Oracle::check_led(Machine &machine, int family)
{
    std::multiset<std::pair<std::string, uint32_t>> led;
    for (const MulticastRule &rule : machine.rules) {
        if (rule.family == family) {
            led.insert({rule.if_name, rule.table});
        }
    }
    for (const auto &[key, table] : machine.multicast_tables()) {
        for (unsigned vif = 0; vif < MulticastTable::MOST_VIFS && key.first == family && key.second != 0;
             ++vif) {
            const Interface *interface = machine.find(table.if_index(vif));
            if (interface == nullptr) {
                continue;
            }
            ++counts_.rows;
            if (led.erase({interface->name, key.second}) != 2) {
                broken(Rule::Tables, machine.name + ": packets of " + interface->name +
                                         " are not led to table " + std::to_string(key.second) +
                                         ", where its virtual interface is");
                return;
            }
        }
    }
    for (const auto &[name, table] : led) {
        broken(Rule::Tables, machine.name + ": packets of " + name + " are led to table " +
                                 std::to_string(table) + ", where nobody forwards them");
    }
}

void Oracle::check_vifs()
{
    for (const auto &machine : world_->machines()) {
        for (const int family : {AF_INET, AF_INET6}) {
            if (serves(*machine, family)) {
                check_vifs(*machine, family);
                check_led(*machine, family);
            }
        }
    }
}

} // namespace sim
