/*
 * What must be true. The rules are those of the enumeration Rule; each is one file here:
 *
 *      every packet sent, every packet on a link ──► packet_rules.cpp     4, 5
 *      every rest                                ──► rest_rules.cpp       1, and 9 as far as it is about rest
 *                                                    table_rules.cpp      2
 *                                                    vif_rules.cpp        2 of virtual interfaces
 *                                                    user_rules.cpp       2 of users
 *                                                    role_rules.cpp       3
 *                                                    msdp_rules.cpp       2 and 3 of msdpd
 *                                                    standby_rules.cpp    3 of standbys
 *                                                    limit_rules.cpp      7, also at every packet
 *                                                    counter_watch.cpp    8
 *      every end of a daemon, too                ──► call_order.cpp       6 of the library's calls
 *      every end of a daemon                     ──► end_rules.cpp        9
 *      every call                                ──► the kernel itself    6
 *
 * What a host wants is known at every moment. How far the router may be from it depends on what happened to it:
 * disturbances.h keeps account of that.
 */
#ifndef TESTS_SIMULATION_ORACLE_ORACLE_H
#define TESTS_SIMULATION_ORACLE_ORACLE_H

#include <deque>
#include <map>
#include <set>

#include "tests/simulation/network/world.h"
#include "tests/simulation/oracle/counter_watch.h"
#include "tests/simulation/oracle/disturbances.h"

namespace sim
{

class Oracle : public DatumObserver
{
public:
    // After the world is set up.
    void watch(World &world);

    void sent(const Link &link, const Datum &datum) override;
    void delivered(const Link &link, const Machine &by, const Datum &datum) override;

    // Everything that must be true at rest.
    void check_rest();
    // Each alone: what the kernel forwards is what the hosts want; so are the daemons' tables; one does each thing;
    // nothing is more than it may be.
    void check_forwarding();
    void check_tables();
    void check_roles();
    void check_limits();
    void check_msdp();
    void check_standbys();
    void check_users();
    void check_vifs();
    void check_call_order(const Process &process);

    Disturbances disturbances;

    // What was looked at, so that a run that looked at nothing is seen.
    struct Counts {
        uint64_t packets = 0; // on links, that somebody wanted
        uint64_t unwanted = 0;
        uint64_t rests = 0;
        uint64_t entries = 0; // compared at rest
        uint64_t rows = 0;    // of the daemons' tables likewise
        uint64_t counters = 0;
        uint64_t ends = 0;
    };
    const Counts &counts() const
    {
        return counts_;
    }

private:
    friend class TableCheck;
    friend class RoleCheck;
    friend class MsdpCheck;

    // The latest packets of a flow, and where they were seen.
    struct Packet {
        uint64_t number;
        Ns when;
        std::set<std::string> expected; // links
        std::set<std::string> seen;
    };

    void broken(Rule rule, const std::string &what);
    void check_missed(uint64_t flow, const Packet &packet);
    bool comes_twice_for_long(const Flow &flow, const Link &link, const Packet &packet);
    bool asks_about(const Link &link, const Address &group) const;
    void check_unwanted(const Machine &by, const Link &link, const Datum &datum);
    bool is_heard(const Machine &machine, const Link &link, const Datum &datum) const;
    void check_queriers(const Link &link, int family);
    void check_flow(const Flow &flow);
    void check_entries(Machine &machine, const MulticastTable &table);
    void check_leftovers();
    void check_standbys(Machine &machine, int family);
    void check_vifs(Machine &machine, int family);
    void check_led(Machine &machine, int family);
    void check_users(Machine &machine, const Link &link, int family);
    void check_bytes(const Process &process, size_t entries);
    void check_most_bytes();
    void process_ended(Process &process);

    bool announces(Machine &machine, const Flow &flow) const;
    std::set<std::string> expected_links(const Datum &datum) const;
    bool serves(const Machine &machine, int family) const;
    bool is_other_querier(Machine &machine, const Link &link, int family) const;
    bool may_forward(Machine &machine, const Link &link, int family) const;
    bool forwards(const Machine &machine, const Link &link, int family) const;
    bool permits(Machine &machine, const Link &from, const Link &to, const Address &group) const;
    std::string link_name(const Machine &machine, uint32_t if_index) const;
    bool is_connected(const Machine &machine, const Link &link) const;

    World *world_ = nullptr;
    std::map<uint64_t, std::deque<Packet>> packets_; // by flow
    // Of those in a row that came twice, by flow and link: the last one, and when the first was sent.
    std::map<std::pair<uint64_t, std::string>, std::pair<uint64_t, Ns>> twice_;
    std::map<std::pair<std::string, uint64_t>, size_t>
        empty_blocks_;                                              // of a process's life, with nothing to do
    std::map<std::pair<std::string, uint64_t>, size_t> base_bytes_; // of a process's life
    CounterWatch counters_;
    Counts counts_;
};

} // namespace sim

#endif
