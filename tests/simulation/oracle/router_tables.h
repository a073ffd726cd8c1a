/*
 * The tables of a router's daemons, read from their control ports, as records.
 */
#ifndef TESTS_SIMULATION_ORACLE_ROUTER_TABLES_H
#define TESTS_SIMULATION_ORACLE_ROUTER_TABLES_H

#include <map>
#include <set>

#include "tests/simulation/oracle/control_client.h"

namespace sim
{

// What a gmpd says of one family.
struct GmpTables {
    struct Interface {
        bool running = false;
        Address address;
        bool reported = false; // to mribd
        uint64_t groups = 0;
    };
    struct Group {
        bool exclude = false;
        std::map<Address, bool> sources; // whether they are wanted

        bool wants(const Address &source) const
        {
            const auto found = sources.find(source);
            return found == sources.end() ? exclude : found->second;
        }
    };
    struct Querier {
        Address address;
        bool is_this = false;
    };
    std::map<uint32_t, Interface> interfaces;
    std::map<std::pair<uint32_t, Address>, Group> groups; // by interface and address
    std::map<uint32_t, Querier> queriers;
};

// What an mribd says of both families.
struct MribTables {
    struct Route {
        uint64_t instance;
        Address group;
        Address source;
        uint32_t upstream;
        std::set<uint32_t> outgoing;
        bool installed;
    };
    // What the clients of a family want on an interface of a group: any source but the blocked, and some by name.
    struct Member {
        bool any = false;
        std::set<Address> joined;
        std::set<Address> blocked;

        bool wants(const Address &source) const
        {
            return joined.contains(source) || (any && !blocked.contains(source));
        }
    };
    struct Vif {
        uint64_t instance;
        bool protocol;
        bool forwarder;
    };
    struct Client {
        uint64_t component;
        bool registered;
        uint64_t waiting;
    };
    std::vector<Route> routes;
    std::map<std::pair<uint32_t, Address>, Member> members;  // by interface and group
    std::map<std::tuple<int, unsigned, uint32_t>, Vif> vifs; // by family, number and interface
    std::map<std::pair<int, uint64_t>, Client> clients;
};

// What an msdpd says.
struct MsdpTables {
    struct Peer {
        Address own;
        bool established;
    };
    std::map<Address, Peer> peers;
    std::map<std::pair<Address, Address>, Address> cache; // the peer, by source and group
};

// What a gmpd says of the users of one family.
struct UserTables {
    struct User {
        uint64_t number;
        Address address; // of no family when it is not served
    };
    std::map<uint32_t, User> users; // by their interfaces
    std::map<std::tuple<uint32_t, Address, Address>, bool>
        rights; // interface, group, source: whether it is joined
};

// Nothing when the daemon does not answer.
std::optional<UserTables> read_users(Machine &machine, int family);
std::optional<MsdpTables> read_msdp_tables(Machine &machine);
std::optional<GmpTables> read_gmp_tables(Machine &machine, int family);
std::optional<MribTables> read_mrib_tables(Machine &machine);

// By family, interface (0: of the daemon) and name.
using NamedCounters = std::map<std::tuple<int, uint32_t, std::string>, uint64_t>;
std::optional<NamedCounters> read_counters(Machine &machine, uint16_t port);

// The control port of a gmpd.
uint16_t gmp_port(int family);

} // namespace sim

#endif
