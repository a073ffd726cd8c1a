/*
 * Who does what at rest: rule 3. On each link one asks the hosts, whom every router takes for the querier, and one
 * router forwards; every gmpd is registered with mribd, standbys too.
 */
#include <algorithm>

#include "daemons/common/services.h"
#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

constexpr Ns LATE = 2 * SECOND;

} // namespace

class RoleCheck
{
public:
    RoleCheck(const Oracle &oracle, World &world) : oracle_(oracle), world_(world)
    {
    }

    void check()
    {
        for (const auto &machine : world_.machines()) {
            for (const int family : {AF_INET, AF_INET6}) {
                if (oracle_.serves(*machine, family)) {
                    take(*machine, family);
                }
            }
        }
        for (const auto &[name, link] : world_.links()) {
            check_querier(*link, AF_INET);
            check_querier(*link, AF_INET6);
        }
    }

private:
    void broken(const std::string &what)
    {
        world_.kernel.broken(Rule::Roles, what);
    }
    void take(Machine &machine, int family);
    void check_clients(Machine &machine, const MribTables &mrib, int family);
    void check_forwarders(Machine &machine, const MribTables &mrib, int family);
    void check_querier(const Link &link, int family);

    const Oracle &oracle_;
    World &world_;
    std::map<std::pair<Machine *, int>, GmpTables> gmp_;
};

// Whether the daemons answer is another rule.
void RoleCheck::take(Machine &machine, int family)
{
    auto gmp = read_gmp_tables(machine, family);
    const auto mrib = read_mrib_tables(machine);
    if (gmp) {
        gmp_[{&machine, family}] = std::move(*gmp);
    }
    if (mrib) {
        check_clients(machine, *mrib, family);
        check_forwarders(machine, *mrib, family);
    }
}

void RoleCheck::check_clients(Machine &machine, const MribTables &mrib, int family)
{
    const uint64_t component = mcastd::COMPONENT_GMPD_IPV4 + (family == AF_INET6 ? 1u : 0u);
    const auto registered = std::count_if(mrib.clients.begin(), mrib.clients.end(), [&](const auto &client) {
        return client.first.first == family && client.second.component == component &&
               client.second.registered;
    });
    const auto wanted =
        std::count_if(world_.daemons().begin(), world_.daemons().end(), [&](const auto &named) {
            const DaemonPlan &plan = named.second;
            const bool ipv6 =
                std::find(plan.arguments.begin(), plan.arguments.end(), "-6") != plan.arguments.end();
            return plan.daemon == "gmpd" && plan.wanted && &plan.process->machine() == &machine &&
                   ipv6 == (family == AF_INET6);
        });
    if (registered != wanted) {
        broken(machine.name + ": " + std::to_string(registered) + " of " + std::to_string(wanted) +
               " gmpd of " + (family == AF_INET ? "IPv4" : "IPv6") + " are registered with mribd");
    }
}

// mribd forwards where gmpd is the querier.
void RoleCheck::check_forwarders(Machine &machine, const MribTables &mrib, int family)
{
    const auto gmp = gmp_.find({&machine, family});
    for (const auto &[key, vif] : mrib.vifs) {
        if (gmp == gmp_.end() || std::get<0>(key) != family || !vif.protocol) {
            continue;
        }
        const auto querier = gmp->second.queriers.find(std::get<2>(key));
        if (querier != gmp->second.queriers.end() && vif.forwarder != querier->second.is_this) {
            broken(machine.name +
                   (vif.forwarder ? ": mribd forwards to interface "
                                  : ": mribd does not forward to interface ") +
                   std::to_string(std::get<2>(key)) + ", whatever gmpd says");
        }
    }
}

void RoleCheck::check_querier(const Link &link, int family)
{
    std::optional<Address> lowest;
    const auto consider = [&lowest](const Address &address) {
        lowest = lowest ? std::min(*lowest, address) : address;
    };
    for (const auto &[key, gmp] : gmp_) {
        const auto row = gmp.interfaces.find(link.if_index_of(*key.first));
        if (key.second == family && row != gmp.interfaces.end() && row->second.running) {
            consider(row->second.address);
        }
    }
    for (const Querier *querier : link.queriers) {
        // Version 1 knows no election.
        if (querier->is_on() && (family == AF_INET6 || querier->version > 1)) {
            consider(querier->address(family));
        }
    }
    for (const auto &[key, gmp] : gmp_) {
        const uint32_t if_index = link.if_index_of(*key.first);
        const auto row = gmp.queriers.find(if_index);
        if (key.second != family || row == gmp.queriers.end()) {
            continue;
        }
        const bool is_lowest = gmp.interfaces.at(if_index).address == *lowest;
        if (row->second.is_this != is_lowest || row->second.address != *lowest) {
            broken(key.first->name + " takes " + to_text(row->second.address) + " for the querier of " +
                   link.name + ", which is " + to_text(*lowest));
        }
    }
}

// By what is heard on the link.
void Oracle::check_queriers(const Link &link, int family)
{
    const Ns since = world_->kernel.clock.now() - disturbances.timing().query_interval - LATE;
    std::string askers;
    unsigned count = 0;
    for (const auto &[address, when] : link.asked()) {
        if (address.family == family && when >= since) {
            ++count;
            askers += " " + to_text(address);
        }
    }
    const auto &machines = world_->machines();
    const bool is_served = std::any_of(machines.begin(), machines.end(),
                                       [&](const auto &machine) { return forwards(*machine, link, family); });
    if (count > 1 || (is_served && count == 0)) {
        broken(Rule::Roles, link.name + ": there are " + std::to_string(count) + " queriers:" + askers);
    }
}

void Oracle::check_roles()
{
    for (const auto &[name, link] : world_->links()) {
        check_queriers(*link, AF_INET);
        check_queriers(*link, AF_INET6);
    }
    RoleCheck(*this, *world_).check();
}

} // namespace sim
