#include "tests/simulation/network/world.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace sim
{
namespace
{

// What addresses end in: below the routers' are other queriers', above the hosts' are sources and queriers.
constexpr unsigned FIRST_ROUTER = 5;
constexpr unsigned FIRST_HOST = 10;
constexpr unsigned PREFIX_LENGTH = 24;
constexpr unsigned PREFIX_LENGTH_IPV6 = 64;

[[noreturn]] void unknown(const char *what, const std::string &name)
{
    fprintf(stderr, "there is no %s %s\n", what, name.c_str());
    exit(2);
}

std::string hexadecimal(size_t number)
{
    char text[16];
    snprintf(text, sizeof(text), "%zx", number);
    return text;
}

template <typename Things> auto &by_name(Things &things, const char *what, const std::string &name)
{
    const auto found = std::find_if(things.begin(), things.end(),
                                    [&name](const auto &thing) { return thing->name == name; });
    if (found == things.end()) {
        unknown(what, name);
    }
    return **found;
}

} // namespace

// Daemons end before what their descriptors stand for.
World::~World()
{
    daemons_.clear();
}

Link &World::add_link(const std::string &name, const std::string &ipv4_prefix, const std::string &ipv6_prefix)
{
    prefixes_[name] = {ipv4_prefix.substr(0, ipv4_prefix.rfind('.') + 1),
                       ipv6_prefix.substr(0, ipv6_prefix.find('/'))};
    auto &place = links_[name];
    place = std::make_unique<Link>(kernel, name, links_.size(), observer_);
    return *place;
}

Machine &World::add_router(const std::string &name, const std::vector<std::string> &links)
{
    machines_.push_back(std::make_unique<Machine>(kernel, name));
    for (const std::string &each : links) {
        connect(*machines_.back(), each);
    }
    return *machines_.back();
}

Interface &World::connect(Machine &machine, const std::string &name)
{
    Link &wire = link(name);
    const Prefixes &prefixes = prefixes_.at(name);
    const auto place = std::find_if(machines_.begin(), machines_.end(),
                                    [&machine](const auto &each) { return each.get() == &machine; });
    const size_t number = static_cast<size_t>(place - machines_.begin()) + FIRST_ROUTER;
    std::vector<InterfaceAddress> addresses = {
        {address_from(prefixes.ipv4 + std::to_string(number)), PREFIX_LENGTH},
        {address_from("fe80::" + hexadecimal(number)), PREFIX_LENGTH_IPV6},
        {address_from(prefixes.ipv6 + hexadecimal(number)), PREFIX_LENGTH_IPV6}};
    wire.detach(machine);
    Interface &interface = machine.add_interface(name, &wire, std::move(addresses));
    wire.attach(machine, interface.index);
    return interface;
}

void World::add_daemon(const std::string &name, const std::string &daemon, std::vector<std::string> arguments)
{
    Machine &home = machine(name.substr(0, name.find('.')));
    DaemonPlan &plan = daemons_[name];
    plan.daemon = daemon;
    plan.arguments = std::move(arguments);
    plan.arguments.insert(plan.arguments.begin(), daemon);
    const auto user_auth = std::find(plan.arguments.begin(), plan.arguments.end(), "--user-auth");
    if (user_auth != plan.arguments.end() && user_auth + 1 != plan.arguments.end()) {
        plan.user_auth = *(user_auth + 1);
        agent(home);
    }
    plan.process = std::make_unique<Process>(kernel, home, name, daemon);
}

Host &World::add_host(const std::string &name, const std::string &link_name, unsigned version)
{
    const Prefixes &prefixes = prefixes_.at(link_name);
    const size_t number = hosts_.size() + 1;
    const size_t last = FIRST_HOST + number;
    const Host::Addresses addresses = {address_from(prefixes.ipv4 + std::to_string(last)),
                                       address_from("fe80::" + hexadecimal(0x100 + number))};
    hosts_.push_back(std::make_unique<Host>(kernel, link(link_name), name, number, addresses, version));
    return *hosts_.back();
}

Querier &World::add_querier(const std::string &name, const std::string &link_name, unsigned version,
                            unsigned number)
{
    const Host::Addresses addresses = {
        address_from(prefixes_.at(link_name).ipv4 + std::to_string(number)),
        address_from("fe80::" + hexadecimal(number < FIRST_ROUTER ? number : 0x1000 + number))};
    queriers_.push_back(std::make_unique<Querier>(kernel, link(link_name), name, addresses, version));
    return *queriers_.back();
}

Flow &World::add_flow(const std::string &name, const std::string &link_name, const std::string &source,
                      const std::string &group, Ns interval)
{
    flows_.push_back(std::make_unique<Flow>(Flow{name, flows_.size() + 1, &link(link_name),
                                                 address_from(source), address_from(group), interval}));
    return *flows_.back();
}

Link &World::link(const std::string &name)
{
    const auto found = links_.find(name);
    return found != links_.end() ? *found->second : (unknown("link", name), *links_.begin()->second);
}

Machine &World::machine(const std::string &name)
{
    return by_name(machines_, "router", name);
}

DaemonPlan &World::daemon(const std::string &name)
{
    const auto found = daemons_.find(name);
    return found != daemons_.end() ? found->second : (unknown("daemon", name), daemons_.begin()->second);
}

Agent &World::agent(Machine &machine)
{
    auto &place = agents_[&machine];
    if (place == nullptr) {
        place = std::make_unique<Agent>(kernel, machine);
    }
    return *place;
}

Host &World::host(const std::string &name)
{
    return by_name(hosts_, "host", name);
}

Querier &World::querier(const std::string &name)
{
    return by_name(queriers_, "querier", name);
}

Flow &World::flow(const std::string &name)
{
    return by_name(flows_, "flow", name);
}

ForeignPeer &World::add_foreign_peer(Machine &machine, const Address &other, const Address &own)
{
    foreign_peers_.emplace_back(&machine, std::make_shared<ForeignPeer>(machine, other, own));
    return *foreign_peers_.back().second;
}

ForeignPeer &World::foreign_peer(const Machine &machine)
{
    const auto found = std::find_if(foreign_peers_.rbegin(), foreign_peers_.rend(),
                                    [&machine](const auto &each) { return each.first == &machine; });
    if (found == foreign_peers_.rend()) {
        unknown("foreign peer on", machine.name);
    }
    return *found->second;
}

void World::start(DaemonPlan &plan)
{
    plan.wanted = true;
    plan.process->start(plan.arguments);
}

void World::revive()
{
    for (auto &[name, plan] : daemons_) {
        if (plan.wanted && !plan.process->is_running()) {
            start(plan);
        }
    }
}

void World::switch_flow(Flow &flow, bool on)
{
    if (on && !std::exchange(flow.on, true)) {
        kernel.clock.after(kernel.draw.below(Stream::Delivery, 1000 + flow.number, flow.interval),
                           [this, &flow] { tick(flow); });
    }
    flow.on = on;
}

void World::tick(Flow &flow)
{
    if (!flow.on) {
        return;
    }
    flow.last = kernel.clock.now();
    const Datum datum{flow.source, flow.group, flow.number, ++flow.sent, 16};
    observer_.sent(*flow.link, datum);
    flow.link->send(datum);
    kernel.clock.after(flow.interval, [this, &flow] { tick(flow); });
}

bool World::is_wanted(const Link &link, const Address &source, const Address &group) const
{
    return std::any_of(link.hosts.begin(), link.hosts.end(),
                       [&](const Host *host) { return host->wants(source, group); });
}

const Agent *World::agent_for(const Machine &machine, const Link &link) const
{
    const auto agent = agents_.find(&machine);
    const auto interface = machine.interfaces().find(link.if_index_of(machine));
    if (agent == agents_.end() || interface == machine.interfaces().end()) {
        return nullptr;
    }
    const bool asks = std::any_of(daemons_.begin(), daemons_.end(), [&](const auto &named) {
        return &named.second.process->machine() == &machine &&
               named.second.user_auth == interface->second.name;
    });
    return asks ? agent->second.get() : nullptr;
}

bool World::is_wanted(const Machine &machine, const Link &link, const Address &source,
                      const Address &group) const
{
    const Agent *agent = agent_for(machine, link);
    return std::any_of(link.hosts.begin(), link.hosts.end(), [&](const Host *host) {
        return host->wants(source, group) && (agent == nullptr || agent->permits(*host, source, group));
    });
}

} // namespace sim
