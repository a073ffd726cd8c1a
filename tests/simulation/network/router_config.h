/*
 * The configuration file of a router as its operator thinks of it, the text that the daemons read, and what it means
 * for what is forwarded.
 */
#ifndef TESTS_SIMULATION_NETWORK_ROUTER_CONFIG_H
#define TESTS_SIMULATION_NETWORK_ROUTER_CONFIG_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/simulation/kernel/machine.h"

namespace sim
{

// The path under which daemons are given the file, and the list that a gmpd is given with --group-list.
constexpr const char *CONFIG_PATH = "/etc/router.toml";
constexpr unsigned GROUP_LIST = 2001;
// What makes a file wrong that ends with it.
constexpr const char *WRONG_LINE = "[[acl]\n";

struct RouterConfig {
    using Prefixes = std::vector<std::string>; // of either family, as text

    // Interfaces are meant by their names.
    std::map<std::string, Prefixes> boundaries;
    Prefixes denied;                    // groups that no host may join
    std::set<std::string> undesignated; // interfaces that another router is to serve
    struct Instance {
        std::string name;
        std::set<std::string> interfaces;
    };
    std::string rendezvous; // for which mribd tells msdpd the local sources; empty: it does not
    std::map<std::string, std::string> peers; // of msdpd: our own address by theirs
    std::map<uint16_t, Instance> instances;   // besides the public one; mribd serves all of them
    std::set<uint16_t> disabled;

    std::string text() const;

    // Whether a host behind the machine's interface may have packets of the group. Boundaries are those of an instance
    // that is not disabled.
    bool permits(Machine &machine, const Interface &interface, const Address &group) const;
    // The instance of the interface, by its device when it is a port of one; nothing when mribd does not serve it.
    std::optional<uint16_t> instance_of(Machine &machine, const Interface &interface) const;
    // Whether the router forwards to the interface at all, as far as the file says.
    bool serves(Machine &machine, const Interface &interface) const;
};

} // namespace sim

#endif
