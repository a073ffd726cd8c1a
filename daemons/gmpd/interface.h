/*
 * One link as the protocol sees it.
 *
 *      Process ── interfaces by index ── Interface ── Memberships: groups and sources (memberships.h)
 *                                           ├── UsersUnion, in their place where users are authenticated
 *                                           └── Querier
 *
 * All of it belongs to the thread that runs the event loop.
 */
#ifndef DAEMONS_GMPD_INTERFACE_H
#define DAEMONS_GMPD_INTERFACE_H

#include <boost/intrusive/list.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "daemons/common/timer.h"
#include "daemons/gmpd/address.h"
#include "daemons/gmpd/counters.h"
#include "daemons/gmpd/memberships.h"
#include "daemons/gmpd/users_union.h"
#include "mcast/mrib.h"

namespace gmpd
{

struct Process;

// The election of the querier and its queries, RFC 3376 section 6.6.2 and RFC 3810 section 7.6.2.
struct Querier {
    bool elected = false;
    Address other{};               // the querier when this router is not
    uint32_t startup_left = 0;     // general queries left of the start
    uint32_t robustness = 0;       // in force: configured, or the querier's
    uint32_t query_interval_s = 0; // likewise
    uint32_t response_ms = 0;      // likewise
    mcastd::Timer general;
    mcastd::Timer other_present;
    mcastd::Timer warned; // runs while a warning about older routers is not repeated
};

// A round of general queries that this router sends though another is the querier (own_question.h).
struct OwnQuestion {
    uint32_t left = 0;             // queries of the round
    uint32_t began_s = 0;          // since boot
    uint32_t end_s = 0;            // since boot: until then hosts may answer
    uint32_t doubtful_until_s = 0; // since boot: until then what runs out is asked about by the querier too
    mcastd::Timer next;            // runs while queries are left
};

// What a group is while it waits for the turn of its queries: so that waiting needs no memory.
struct GroupTurn : boost::intrusive::list_base_hook<> {
};

// The queries about groups of a link: at most so many a second (Config::group_queries_per_s), in the order in which
// the questions came up.
struct QueryPace {
    boost::intrusive::list<GroupTurn> waiting; // GroupStates
    mcastd::Timer next;                        // runs while groups wait
    uint32_t second = 0;                       // since boot, of which sent counts
    uint32_t sent = 0;                         // queries about groups in that second
};

// One interface on which the protocol runs, or will run once it has an address.
struct Interface {
    Process *process = nullptr;
    uint32_t index = 0;
    std::string name;
    uint16_t vrf_index = 0; // the instance that it is in
    uint32_t mtu = 1500;
    uint32_t query_interval_s = 0; // as configured for it; 0: as for all interfaces
    bool running = false;
    Address address{};            // what queries are sent from, while running
    std::vector<Prefix> prefixes; // that are on the link
    Querier querier;
    OwnQuestion own_question;
    bool ends_missed = false; // some group has no timer, for want of memory (group_expiry.h)
    QueryPace pace;
    LinkUse use;
    Counters counters;
    Memberships memberships;                 // of all hosts, unless users are authenticated
    std::unique_ptr<UsersUnion> users_union; // where users are authenticated: what theirs come to

    Interface(Process &owner, uint32_t if_index, const std::string &if_name);
    ~Interface();
    Interface(const Interface &) = delete;
    Interface &operator=(const Interface &) = delete;
};

// A version as the protocols of the family number it.
uint32_t version_shown(const Interface &interface, uint32_t version);

// The instance that the interface belongs to, for the MRIB process and for trace lines.
MRIB_GMP_VRF_KEY_S key_of(const Interface &interface);

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
