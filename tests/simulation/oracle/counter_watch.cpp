#include "tests/simulation/oracle/counter_watch.h"

#include <algorithm>

#include "daemons/common/services.h"
#include "tests/simulation/kernel/local_socket.h"
#include "tests/simulation/kernel/packet_socket.h"
#include "tests/simulation/kernel/routing_socket.h"

namespace sim
{
namespace
{

void broken(Machine &machine, const Process &process, const std::string &what)
{
    machine.kernel.broken(Rule::Counters, process.name() + ": " + what);
}

const Process *listener_on(Machine &machine, uint16_t port)
{
    const auto place = machine.local_ports.find(port);
    const auto listener = place == machine.local_ports.end() ? nullptr : place->second.lock();
    const auto &processes = machine.kernel.processes;
    const auto found = std::find_if(processes.begin(), processes.end(), [&listener](const Process *process) {
        return listener != nullptr && process->number() == listener->owner;
    });
    return found == processes.end() ? nullptr : *found;
}

// The sum of an interface's counters whose names a test accepts.
template <typename Accept> uint64_t sum(const NamedCounters &counters, uint32_t if_index, Accept accept)
{
    uint64_t total = 0;
    for (const auto &[key, value] : counters) {
        total += std::get<1>(key) == if_index && accept(std::get<2>(key)) ? value : 0;
    }
    return total;
}

bool tells_of_heard(const std::string &name)
{
    return name.starts_with("dropped_") || name.starts_with("received_queries") ||
           name.starts_with("received_reports") || name == "received_leaves";
}

bool tells_of_sent(const std::string &name)
{
    return name == "sent_general_queries" || name == "sent_group_queries" || name == "sent_source_queries";
}

bool tells_of_failures(const std::string &name)
{
    return name == "send_failures";
}

using Ears = std::map<uint32_t, std::weak_ptr<File>>;

bool is_heard_alike(const Ears &before, const Ears &now, uint32_t if_index)
{
    const auto was = before.find(if_index);
    const auto is = now.find(if_index);
    return was != before.end() && is != now.end() && !was->second.owner_before(is->second) &&
           !is->second.owner_before(was->second);
}

uint64_t value_of(const NamedCounters &counters, int family, const char *name)
{
    const auto found = counters.find({family, 0, name});
    return found == counters.end() ? 0 : found->second;
}

Process::Traffic traffic_of(const std::map<uint32_t, Process::Traffic> &traffic, uint32_t if_index)
{
    const auto found = traffic.find(if_index);
    return found == traffic.end() ? Process::Traffic{} : found->second;
}

} // namespace

std::optional<std::string> first_fall(const NamedCounters &before, const NamedCounters &now)
{
    for (const auto &[key, value] : before) {
        const auto later = now.find(key);
        if (later == now.end() || later->second < value) {
            return std::get<2>(key) + " fell from " + std::to_string(value) + " to " +
                   (later == now.end() ? "nothing" : std::to_string(later->second));
        }
    }
    return std::nullopt;
}

void CounterWatch::check_growth(Machine &machine, const Process &process, const Seen &before, const Seen &now)
{
    NamedCounters comparable;
    for (const auto &[key, value] : before.counters) {
        if (std::get<2>(key) == "members") {
            continue; // how many there are now
        }
        if (std::get<1>(key) == 0 || is_heard_alike(before.ears, now.ears, std::get<1>(key))) {
            comparable[key] = value;
        }
    }
    compared_ += comparable.size();
    if (const auto fall = first_fall(comparable, now.counters)) {
        broken(machine, process, *fall);
    }
}

void CounterWatch::check_packets(Machine &machine, const Process &process, const Seen &before,
                                 const Seen &now)
{
    for (const auto &[if_index, ear] : before.ears) {
        if (!is_heard_alike(before.ears, now.ears, if_index)) {
            continue;
        }
        const auto grown = [&, index = if_index](auto accept) {
            return sum(now.counters, index, accept) - sum(before.counters, index, accept);
        };
        const Process::Traffic old = traffic_of(before.traffic, if_index);
        const Process::Traffic traffic = traffic_of(now.traffic, if_index);
        const uint64_t heard = traffic.heard - old.heard;
        const uint64_t sent = traffic.sent - old.sent;
        ++compared_;
        if (heard != grown(tells_of_heard)) {
            broken(machine, process,
                   "heard " + std::to_string(heard) + " packets on interface " + std::to_string(if_index) +
                       " and counted " + std::to_string(grown(tells_of_heard)));
        }
        if (sent + grown(tells_of_failures) != grown(tells_of_sent)) {
            broken(machine, process,
                   "sent " + std::to_string(sent) + " queries on interface " + std::to_string(if_index) +
                       " and counted " + std::to_string(grown(tells_of_sent)) + ", of them failed " +
                       std::to_string(grown(tells_of_failures)));
        }
    }
}

void CounterWatch::check_reports(Machine &machine, const Process &process, const Seen &before,
                                 const Seen &now, int family)
{
    if (before.reports.size() != now.reports.size() || before.routing_sockets != now.routing_sockets) {
        return; // an instance came or went, or both, and what it was told is not known
    }
    uint64_t told = 0;
    for (const auto &[socket, reports] : now.reports) {
        told += reports.first == family ? reports.second - before.reports.at(socket).second : 0;
    }
    const auto grown = [&](const char *name) {
        return value_of(now.counters, family, name) - value_of(before.counters, family, name);
    };
    ++compared_;
    if (told != grown("upcalls") + grown("upcalls_lost")) {
        broken(machine, process,
               "was told of " + std::to_string(told) + " new sources and counted " +
                   std::to_string(grown("upcalls")) + ", and " + std::to_string(grown("upcalls_lost")) +
                   " as lost");
    }
}

void CounterWatch::check_port(Machine &machine, uint16_t port)
{
    const Process *process = listener_on(machine, port);
    auto counters = process == nullptr ? std::nullopt : read_counters(machine, port);
    if (!counters) {
        return; // whether it has to answer is another rule
    }
    Seen now;
    now.process = process;
    now.life = process->lives();
    now.counters = std::move(*counters);
    now.traffic = process->traffic;
    now.routing_sockets = process->routing_sockets;
    for (const auto &file : process->files()) {
        if (const auto *socket = dynamic_cast<const RoutingSocket *>(file.get())) {
            now.reports[file] = {socket->family(), socket->told()};
        }
        if (const auto *socket = dynamic_cast<const PacketSocket *>(file.get())) {
            now.ears[socket->bound_to()] = file;
        }
    }
    Seen &before = seen_[{machine.name, port}];
    if (before.process == now.process && before.life == now.life) {
        check_growth(machine, *process, before, now);
        if (port == mcastd::CONTROL_PORT_MRIBD) {
            check_reports(machine, *process, before, now, AF_INET);
            check_reports(machine, *process, before, now, AF_INET6);
        } else {
            check_packets(machine, *process, before, now);
        }
    }
    before = std::move(now);
}

uint64_t CounterWatch::check(World &world)
{
    compared_ = 0;
    for (const auto &machine : world.machines()) {
        for (const uint16_t port :
             {mcastd::CONTROL_PORT_MRIBD, mcastd::CONTROL_PORT_GMPD_IPV4, mcastd::CONTROL_PORT_GMPD_IPV6}) {
            check_port(*machine, port);
        }
    }
    return compared_;
}

} // namespace sim
