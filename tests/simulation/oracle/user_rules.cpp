/*
 * Where only users count: rule 2 of what a gmpd knows of them. Each user that the agent has announced is there with
 * what it may join, and what it joined of that is what its host wants.
 *
 *     agent's users ──► gmpd's users and rights        hosts ──► which of the rights are joined
 */
#include <algorithm>

#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

using Rights = std::map<std::pair<Address, Address>, bool>; // by group and source: whether it is joined

// Of the permissions those of the family; any source has the address of zeros there.
Rights rights_of(const std::set<Permission> &permissions, const Host &host, int family)
{
    Rights rights;
    for (const auto &[source, group] : permissions) {
        if (group.family != family) {
            continue;
        }
        const bool is_any = source.family == AF_UNSPEC;
        const bool may_have_any = permissions.contains({{}, group});
        const auto wish = host.wants().find(group);
        // A wish for any source of a group of single sources is none.
        const bool is_said =
            wish != host.wants().end() && !(is_source_specific(group) && wish->second.exclude);
        // Who may have single sources joins them by name.
        const bool wants =
            is_said && (is_any || (wish->second.wants(source) && (may_have_any || !wish->second.exclude)));
        rights[{group, is_any ? Address{family, {}} : source}] = wants;
    }
    return rights;
}

} // namespace

// Of one link of a machine.
void Oracle::check_users(Machine &machine, const Link &link, int family)
{
    const Agent *agent = world_->agent_for(machine, link);
    if (agent == nullptr || !may_forward(machine, link, family)) {
        return;
    }
    const auto tables = read_users(machine, family);
    if (!tables) {
        broken(Rule::Tables, machine.name + ": gmpd does not answer about its users");
        return;
    }
    const RouterConfig &config = world_->config(machine);
    const Interface &interface = machine.interfaces().at(link.if_index_of(machine));
    uint64_t announced = 0;
    agent->visit([&](const Host &host, const std::set<Permission> &permissions) {
        const auto row = std::find_if(tables->users.begin(), tables->users.end(), [&host](const auto &user) {
            return user.second.number == host.number();
        });
        ++announced;
        ++counts_.rows;
        if (row == tables->users.end() || row->second.address != host.address(family)) {
            broken(Rule::Tables, machine.name + ": gmpd does not serve " + host.name + ", which is a user");
            return;
        }
        Rights known;
        for (const auto &[key, joined] : tables->rights) {
            if (std::get<0>(key) == row->first) {
                known[{std::get<1>(key), std::get<2>(key)}] = joined;
            }
        }
        const Rights wanted = rights_of(permissions, host, family);
        counts_.rows += wanted.size();
        for (const auto &[pair, joined] : wanted) {
            const auto place = known.find(pair);
            const bool passes = config.permits(machine, interface, pair.first);
            if (place == known.end() || place->second != (joined && passes)) {
                broken(Rule::Tables, machine.name + ": " + host.name + " may join (" + to_text(pair.second) +
                                         ", " + to_text(pair.first) + ") and " +
                                         (joined ? "does" : "does not") + "; gmpd says otherwise");
                return;
            }
        }
        if (known.size() != wanted.size()) {
            broken(Rule::Tables, machine.name + ": gmpd lets " + host.name + " join more than it may");
        }
    });
    if (tables->users.size() != announced) {
        broken(Rule::Tables, machine.name + ": gmpd has " + std::to_string(tables->users.size()) + " of " +
                                 std::to_string(announced) + " users");
    }
}

void Oracle::check_users()
{
    for (const auto &machine : world_->machines()) {
        for (const auto &[name, link] : world_->links()) {
            check_users(*machine, *link, AF_INET);
            check_users(*machine, *link, AF_INET6);
        }
    }
}

} // namespace sim
