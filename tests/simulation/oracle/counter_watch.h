/*
 * The counters of the daemons between two rests: rule 8. Within a daemon's life none falls, and what is counted is what
 * the kernel saw: packets heard on an interface were dropped for a reason or acted on, queries sent came to the wire or
 * are counted as failed, reports about new sources were taken or lost.
 *
 * The counters of an interface are compared while it is heard by the same socket; they begin anew when the daemon
 * begins with the interface anew, as after a change of its instance.
 */
#ifndef TESTS_SIMULATION_ORACLE_COUNTER_WATCH_H
#define TESTS_SIMULATION_ORACLE_COUNTER_WATCH_H

#include "tests/simulation/network/world.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{

// The first counter that is lower than it was, in words; nothing when none is.
std::optional<std::string> first_fall(const NamedCounters &before, const NamedCounters &now);

class CounterWatch
{
public:
    // Compares with the time before. How many counters were looked at.
    uint64_t check(World &world);

private:
    // What was seen the last time of the process behind a port.
    struct Seen {
        const Process *process = nullptr;
        uint64_t life = 0;
        NamedCounters counters;
        std::map<uint32_t, Process::Traffic> traffic;
        std::map<uint32_t, std::weak_ptr<File>> ears; // the sockets that hear the interfaces
        // Of the routing sockets that are open: the family and how many reports they had.
        std::map<std::weak_ptr<File>, std::pair<int, uint64_t>, std::owner_less<>> reports;
        uint64_t routing_sockets = 0;
    };

    void check_port(Machine &machine, uint16_t port);
    void check_growth(Machine &machine, const Process &process, const Seen &before, const Seen &now);
    void check_packets(Machine &machine, const Process &process, const Seen &before, const Seen &now);
    void check_reports(Machine &machine, const Process &process, const Seen &before, const Seen &now,
                       int family);

    std::map<std::pair<std::string, uint16_t>, Seen> seen_;
    uint64_t compared_ = 0;
};

} // namespace sim

#endif
