/*
 * What routers tell each other of their sources: rules 2 and 3 of msdpd. Two that are each other's peers and between
 * whom there is a way are connected; what the one announces the other one has in its cache, and has told its mribd;
 * what nobody announces any more is forgotten in time. A connection that a foreign peer has ended on its side ends.
 *
 *     local sources of r1 ──► r1.msdpd ══► cache of r2.msdpd ──► remote sources of r2.mribd
 */
#include <algorithm>
#include <csignal>

#include "tests/simulation/kernel/tcp_socket.h"
#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

// What is announced once a minute is forgotten after two and a half without a word.
constexpr Ns FORGOTTEN_AFTER = 60 * SECOND + 150 * SECOND + 5 * SECOND;

std::string describe(const std::pair<Address, Address> &pair)
{
    return "(" + to_text(pair.first) + ", " + to_text(pair.second) + ")";
}

} // namespace

class MsdpCheck
{
public:
    MsdpCheck(const Oracle &oracle, World &world) : oracle_(oracle), world_(world)
    {
    }

    // How much was compared.
    uint64_t check()
    {
        for (const auto &machine : world_.machines()) {
            if (has_msdpd(*machine)) {
                check_router(*machine);
            }
        }
        check_foreign();
        return compared_;
    }

private:
    void broken(Rule rule, const Machine &machine, const std::string &what)
    {
        world_.kernel.broken(rule, machine.name + ": " + what);
    }
    bool has(const Machine &machine, const char *daemon) const
    {
        const auto &daemons = world_.daemons();
        return std::any_of(daemons.begin(), daemons.end(), [&](const auto &named) {
            return named.second.daemon == daemon && named.second.wanted &&
                   &named.second.process->machine() == &machine;
        });
    }
    bool has_msdpd(const Machine &machine) const
    {
        return has(machine, "msdpd");
    }
    Machine *peer_at(const Address &address, Machine &other) const;
    void check_router(Machine &machine);
    void check_peer(Machine &machine, const MsdpTables &tables, const Address &address);
    void check_cache(Machine &machine, const MsdpTables &tables);
    void check_told(Machine &machine, const MsdpTables &tables);
    void check_foreign();

    const Oracle &oracle_;
    World &world_;
    uint64_t compared_ = 0;
};

// Who has the address and takes that of the other one for a peer's.
Machine *MsdpCheck::peer_at(const Address &address, Machine &other) const
{
    const auto &own = world_.config(other).peers.at(to_text(address));
    for (const auto &machine : world_.machines()) {
        const auto &peers = world_.config(*machine).peers;
        const auto back = peers.find(own);
        if (machine.get() != &other && back != peers.end() && back->second == to_text(address) &&
            has_msdpd(*machine)) {
            return machine.get();
        }
    }
    return nullptr;
}

void MsdpCheck::check_router(Machine &machine)
{
    const auto tables = read_msdp_tables(machine);
    if (!tables) {
        broken(Rule::Tables, machine, "msdpd does not answer on its control port");
        return;
    }
    for (const auto &[address, own] : world_.config(machine).peers) {
        check_peer(machine, *tables, address_from(address));
    }
    check_cache(machine, *tables);
    check_told(machine, *tables);
}

void MsdpCheck::check_peer(Machine &machine, const MsdpTables &tables, const Address &address)
{
    const Address own = address_from(world_.config(machine).peers.at(to_text(address)));
    Machine *peer = peer_at(address, machine);
    const auto row = tables.peers.find(address);
    ++compared_;
    if (row == tables.peers.end()) {
        broken(Rule::Tables, machine, "msdpd does not know its peer " + to_text(address));
        return;
    }
    if (peer == nullptr || !has_way(machine, own, address)) {
        return;
    }
    if (!row->second.established) {
        broken(Rule::Roles, machine, "msdpd is not connected with " + to_text(address));
        return;
    }
    for (const auto &flow : world_.flows()) {
        if (flow->on && oracle_.announces(*peer, *flow)) {
            ++compared_;
            if (!tables.cache.contains({flow->source, flow->group})) {
                broken(Rule::Tables, machine,
                       "msdpd does not know " + describe({flow->source, flow->group}) + " of " + peer->name);
            }
        }
    }
}

// Every entry is of a source that sends or has sent lately, and of a peer.
void MsdpCheck::check_cache(Machine &machine, const MsdpTables &tables)
{
    const Ns now = world_.kernel.clock.now();
    const Ns lately = 2 * oracle_.disturbances.timing().idle + FORGOTTEN_AFTER;
    for (const auto &[pair, peer] : tables.cache) {
        const bool is_its = std::any_of(world_.flows().begin(), world_.flows().end(),
                                        [&pair = pair, now, lately](const auto &flow) {
                                            return flow->source == pair.first && flow->group == pair.second &&
                                                   (flow->on || now - flow->last < lately);
                                        });
        ++compared_;
        if (!is_its || is_source_specific(pair.second) ||
            !world_.config(machine).peers.contains(to_text(peer))) {
            broken(Rule::Tables, machine,
                   "msdpd knows " + describe(pair) + " of " + to_text(peer) + ", which nobody announces");
        }
    }
}

// What mribd shows to its operator.
void MsdpCheck::check_told(Machine &machine, const MsdpTables &tables)
{
    for (auto &[name, plan] : world_.daemons()) {
        if (plan.daemon != "mribd" || !plan.wanted || &plan.process->machine() != &machine) {
            continue;
        }
        const std::string status = ask_for_status(*plan.process);
        size_t told = 0;
        for (size_t at = 0; (at = status.find("remote source (", at)) != std::string::npos; ++at) {
            ++told;
        }
        for (const auto &[pair, peer] : tables.cache) {
            ++compared_;
            if (status.find("remote source " + describe(pair) + ": instance 0") == std::string::npos) {
                broken(Rule::Tables, machine, "mribd was not told of the remote source " + describe(pair));
            }
        }
        if (told > tables.cache.size()) {
            broken(Rule::Tables, machine, "mribd knows of remote sources that msdpd does not know");
        }
    }
}

// A peer that has stopped sending is one that has closed: the connection ends on this side too.
void MsdpCheck::check_foreign()
{
    for (const auto &[machine, peer] : world_.foreign_peers()) {
        ++compared_;
        if (peer->was_kept_waiting()) {
            broken(Rule::Roles, *machine,
                   "the router at " + to_text(peer->other) + " kept a connection that its peer had ended");
        }
    }
}

// Whether the machine's msdpd has the source of the flow to announce: it is on a link of the machine, which serves it.
bool Oracle::announces(Machine &machine, const Flow &flow) const
{
    const RouterConfig &config = world_->config(machine);
    const Interface *interface = machine.find(flow.link->if_index_of(machine));
    const bool is_served = interface != nullptr && interface->is_up &&
                           config.instance_of(machine, *interface) == std::optional<uint16_t>(0) &&
                           !config.disabled.contains(0);
    return is_served && flow.group.family == AF_INET && !is_source_specific(flow.group) &&
           !config.rendezvous.empty() &&
           std::any_of(interface->addresses.begin(), interface->addresses.end(), [&flow](const auto &each) {
               return each.address.family == AF_INET &&
                      shares_prefix(each.address, flow.source, each.prefix_length);
           });
}

void Oracle::check_msdp()
{
    counts_.rows += MsdpCheck(*this, *world_).check();
}

} // namespace sim
