/*
 * Everything there is in a run, by name: machines with their processes, links, hosts, flows.
 *
 *     flow ──► lan1 ──┬── r1 (mribd, gmpd) ──┬── lan2 ── h1 h2
 *                     └── r2 (mribd, gmpd) ──┴── lan3 ── h3
 */
#ifndef TESTS_SIMULATION_NETWORK_WORLD_H
#define TESTS_SIMULATION_NETWORK_WORLD_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/simulation/network/agent.h"
#include "tests/simulation/network/foreign_peer.h"
#include "tests/simulation/network/host.h"
#include "tests/simulation/network/querier.h"
#include "tests/simulation/network/router_config.h"

namespace sim
{

// A source that sends packets to a group, one each interval.
struct Flow {
    std::string name;
    uint64_t number;
    Link *link;
    Address source;
    Address group;
    Ns interval;
    bool on = false;
    uint64_t sent = 0;
    Ns last = 0; // when it last sent
};

// How a daemon is started.
struct DaemonPlan {
    std::unique_ptr<Process> process;
    std::string daemon; // the program's name
    std::vector<std::string> arguments;
    bool wanted = false;   // started, and not told to end
    std::string user_auth; // the interface where only users count; empty: none
};

class World
{
public:
    World(uint64_t seed, DatumObserver &observer) : kernel(seed), observer_(observer)
    {
    }
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    Kernel kernel;

    // Setting up; each ends the program when a name is not known.
    Link &add_link(const std::string &name, const std::string &ipv4_prefix, const std::string &ipv6_prefix);
    Machine &add_router(const std::string &name, const std::vector<std::string> &links);
    void add_daemon(const std::string &name, const std::string &daemon, std::vector<std::string> arguments);
    Host &add_host(const std::string &name, const std::string &link, unsigned version);
    // Its addresses end in the number: below 5 it is lower than every router.
    Querier &add_querier(const std::string &name, const std::string &link, unsigned version, unsigned number);
    Flow &add_flow(const std::string &name, const std::string &link, const std::string &source,
                   const std::string &group, Ns interval);
    // Gives the router an interface on the link, with its addresses.
    Interface &connect(Machine &machine, const std::string &link);

    Link &link(const std::string &name);
    Machine &machine(const std::string &name);
    DaemonPlan &daemon(const std::string &name); // "r1.gmpd4"
    // What its daemons are to do; without a file what they do by themselves.
    RouterConfig &config(const Machine &machine)
    {
        return configs_[&machine];
    }
    Agent &agent(Machine &machine);
    ForeignPeer &add_foreign_peer(Machine &machine, const Address &other, const Address &own);
    // The one that came last; ends the program without one.
    ForeignPeer &foreign_peer(const Machine &machine);
    Host &host(const std::string &name);
    Querier &querier(const std::string &name);
    Flow &flow(const std::string &name);

    const std::vector<std::pair<const Machine *, std::shared_ptr<ForeignPeer>>> &foreign_peers() const
    {
        return foreign_peers_;
    }
    std::map<std::string, DaemonPlan> &daemons()
    {
        return daemons_;
    }
    const std::map<std::string, std::unique_ptr<Link>> &links() const
    {
        return links_;
    }
    std::vector<std::unique_ptr<Machine>> &machines()
    {
        return machines_;
    }
    const std::vector<std::unique_ptr<Host>> &hosts() const
    {
        return hosts_;
    }
    std::vector<std::unique_ptr<Flow>> &flows()
    {
        return flows_;
    }

    void start(DaemonPlan &plan);
    // Starts whoever ought to run and does not.
    void revive();
    void switch_flow(Flow &flow, bool on);

    // Whether any host of the link wants packets of that source and group.
    bool is_wanted(const Link &link, const Address &source, const Address &group) const;
    // Where the machine asks who a host is, its agent; nullptr elsewhere.
    const Agent *agent_for(const Machine &machine, const Link &link) const;
    // Whether any host of the link wants them that the machine listens to.
    bool is_wanted(const Machine &machine, const Link &link, const Address &source,
                   const Address &group) const;

private:
    struct Prefixes {
        std::string ipv4; // "10.0.1."
        std::string ipv6; // "2001:db8:1::"
    };
    void tick(Flow &flow);

    DatumObserver &observer_;
    std::map<std::string, std::unique_ptr<Link>> links_;
    std::map<std::string, Prefixes> prefixes_;
    std::vector<std::unique_ptr<Machine>> machines_;
    std::map<std::string, DaemonPlan> daemons_;
    std::map<const Machine *, RouterConfig> configs_;
    std::map<const Machine *, std::unique_ptr<Agent>> agents_;
    std::vector<std::pair<const Machine *, std::shared_ptr<ForeignPeer>>> foreign_peers_; // where they are
    std::vector<std::unique_ptr<Host>> hosts_;
    std::vector<std::unique_ptr<Querier>> queriers_;
    std::vector<std::unique_ptr<Flow>> flows_;
};

} // namespace sim

#endif
