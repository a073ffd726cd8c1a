/*
 * The router's view of one interface, and of the process as a whole.
 *
 *      Router ── interfaces by index ── Interface ── groups: MRT_TABLE_S of GroupState
 *                                          │                     └── sources: MRT_TABLE_S of SourceState
 *                                          └── Querier
 *
 * All of it belongs to the thread that runs the event loop.
 */
#ifndef DAEMONS_GMPD_INTERFACE_H
#define DAEMONS_GMPD_INTERFACE_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "daemons/common/timer.h"
#include "daemons/gmpd/address.h"
#include "daemons/gmpd/config.h"
#include "daemons/gmpd/counters.h"
#include "daemons/gmpd/link_members.h"
#include "daemons/gmpd/packet_build.h"
#include "daemons/gmpd/policy.h"
#include "daemons/gmpd/users.h"
#include "mcast/route_table.h"

namespace gmpd
{

struct Interface;
struct GroupState;

// What the state machine causes outside. Calls come from the event loop; implementations must not call back.
class Outputs
{
public:
    virtual ~Outputs() = default;

    // A query is to leave through the interface.
    virtual void send_query(Interface &interface, const Query &query) = 0;

    // The protocol began or ended to run on the interface. Its end takes every membership with it.
    virtual void tell_running(const Interface &interface, bool running) = 0;

    // This router became, or is no longer, the querier on the interface.
    virtual void tell_querier(const Interface &interface, bool elected) = 0;

    // The state that forwarding depends on has changed by one step. source NULL: any source. blocked: it is
    // the exclusion of source from the group that is set (join) or removed.
    virtual void tell_member(const Interface &interface, const Address &group, const Address *source,
                             bool join, bool blocked) = 0;
};

// The election of the querier and its queries, RFC 3376 section 6.6.2 and RFC 3810 section 7.6.2.
struct Querier {
    bool elected = false;
    Address other{};               // who is it when this router is not
    uint32_t startup_left = 0;     // general queries left of the start
    uint32_t robustness = 0;       // in force: configured, or the querier's
    uint32_t query_interval_s = 0; // likewise
    uint32_t response_ms = 0;      // likewise
    mcastd::Timer general;
    mcastd::Timer other_present;
    mcastd::Timer warned; // runs while a warning about older routers is not repeated
};

struct Router;

// One interface on which the protocol runs or will run once it has an address; or, with link set, what one
// user of that interface asks for, which never runs itself: it has groups and counters, and takes the rest
// from the link.
struct Interface {
    Router *router = nullptr;
    uint32_t index = 0;
    std::string name;
    uint16_t vrf_index = 0; // of a link: the instance that it is in
    uint32_t mtu = 1500;
    uint32_t query_interval_s = 0; // as configured for it; 0: as for all interfaces
    bool running = false;
    Address address{};            // what queries are sent from, while running
    std::vector<Prefix> prefixes; // that are on the link
    Querier querier;
    MRT_TABLE_S *groups = nullptr;
    bool near_group_limit = false; // the operator has been warned
    Interface *link = nullptr;
    std::unique_ptr<LinkMembers> members; // of a link that requires authentication, in place of groups
    Counters counters;

    Interface(Router &owner, uint32_t if_index, const std::string &if_name);
    ~Interface();
    Interface(const Interface &) = delete;
    Interface &operator=(const Interface &) = delete;
};

// The policy of a router that nobody has given one.
inline const Policy EVERYTHING_MAY{};

// The process.
struct Router {
    Config config;
    MCAST_TMR_S *timers = nullptr;          // not owned; outlives the interfaces
    Outputs *outputs = nullptr;             // not owned
    const Policy *policy = &EVERYTHING_MAY; // not owned
    Users *users = nullptr;                 // not owned; NULL without authentication
    std::map<uint32_t, std::unique_ptr<Interface>> interfaces;
};

// A version as the protocols of the family number it.
inline uint32_t version_shown(const Interface &interface, uint32_t version)
{
    return interface.router->config.family == MCAST_FAMILY_IPV4 ? version : version - 1;
}

// The link itself, of a user's memberships as of a link.
inline const Interface &link_of(const Interface &interface)
{
    return interface.link != nullptr ? *interface.link : interface;
}
inline Interface &link_of(Interface &interface)
{
    return interface.link != nullptr ? *interface.link : interface;
}

// The instance that the interface belongs to, for the MRIB process and for trace lines.
inline MRIB_GMP_VRF_KEY_S key_of(const Interface &interface)
{
    return MRIB_GMP_VRF_KEY_S{interface.router->config.family, link_of(interface).vrf_index};
}

// Moves the link to the instance; a running one stops when that is another.
void interface_move(Interface &interface, uint16_t vrf_index);

// Makes reports on the link count for announced users alone, or for everybody. A running link stops when that
// changes.
void interface_authenticate(Interface &interface, bool required);

// Starts the protocol on the interface with the given source address, or moves a running one to it: a changed
// address does not disturb the memberships.
void interface_start(Interface &interface, const Address &address);

// Ends the protocol on the interface: every membership goes, every timer stops.
void interface_stop(Interface &interface);

// Whether a packet from sender can come from a neighbour on this link.
bool interface_is_neighbour(const Interface &interface, const Address &sender);

// Seconds between general queries that this router, as the querier, is to keep.
uint32_t configured_query_interval_s(const Interface &interface);

// How long a membership lasts without being confirmed.
uint32_t membership_interval_ms(const Interface &interface);

// How long a host of an older version is taken to be present.
uint32_t older_host_interval_ms(const Interface &interface);

// How long hosts have to answer the queries that follow a leave.
uint32_t last_member_time_ms(const Interface &interface);

// The time between these queries, which is also what they allow for an answer.
uint32_t last_member_interval_ms(const Interface &interface);

} // namespace gmpd

#endif
