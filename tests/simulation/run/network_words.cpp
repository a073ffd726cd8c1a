/*
 * The words of a script about hosts, flows, links and interfaces.
 */
#include <cstdlib>
#include <linux/rtnetlink.h>

#include "tests/simulation/kernel/netlink_socket.h"
#include "tests/simulation/run/run.h"

namespace sim
{
namespace
{

Filter filter_from(bool is_exclude, const Words &words)
{
    Filter filter{is_exclude, {}};
    for (size_t i = 2; i < words.size(); ++i) {
        filter.sources.insert(address_from(words[i]));
    }
    return filter;
}

double fraction_from(const std::string &word)
{
    return strtod(word.c_str(), nullptr);
}

} // namespace

// join HOST GROUP [SOURCE...]: everything, or these sources alone.
void Run::join(const Words &words)
{
    world_.host(words.at(0)).listen(address_from(words.at(1)), filter_from(words.size() == 2, words));
}

// exclude HOST GROUP SOURCE...: everything but these.
void Run::exclude(const Words &words)
{
    world_.host(words.at(0)).listen(address_from(words.at(1)), filter_from(true, words));
}

// leave HOST GROUP
void Run::leave(const Words &words)
{
    world_.host(words.at(0)).listen(address_from(words.at(1)), {});
}

// vanish HOST: it is gone without a word.
void Run::vanish(const Words &words)
{
    disturb_all();
    world_.host(words.at(0)).vanish();
}

// querier-on NAME: it begins to ask.
void Run::querier_on(const Words &words)
{
    disturb_all();
    world_.querier(words.at(0)).switch_on(true);
}

// querier-off NAME: it is gone without a word.
void Run::querier_off(const Words &words)
{
    disturb_all();
    world_.querier(words.at(0)).switch_on(false);
}

void Run::flow_on(const Words &words)
{
    world_.switch_flow(world_.flow(words.at(0)), true);
}

void Run::flow_off(const Words &words)
{
    world_.switch_flow(world_.flow(words.at(0)), false);
}

// lose LINK FRACTION: of the packets of hosts and queriers, not of those that are routed.
void Run::lose(const Words &words)
{
    disturb_all();
    world_.link(words.at(0)).loss = fraction_from(words.at(1));
}

// duplicate LINK FRACTION
void Run::duplicate(const Words &words)
{
    disturb_all();
    world_.link(words.at(0)).duplication = fraction_from(words.at(1));
}

// damage LINK FRACTION: a bit of the packet is another one, or its end is missing.
void Run::damage(const Words &words)
{
    disturb_all();
    world_.link(words.at(0)).damage = fraction_from(words.at(1));
}

// delay LINK SECONDS: at most; packets overtake each other.
void Run::delay(const Words &words)
{
    disturb_all();
    world_.link(words.at(0)).delay = time_from(words.at(1));
}

Interface *Run::interface_of(const Words &words)
{
    disturb_all();
    Machine &machine = world_.machine(words.at(0));
    return machine.find(world_.link(words.at(1)).if_index_of(machine));
}

// link-down ROUTER LINK
void Run::link_down(const Words &words)
{
    if (const Interface *interface = interface_of(words)) {
        world_.machine(words.at(0)).set_up(interface->index, false);
    }
}

void Run::link_up(const Words &words)
{
    if (const Interface *interface = interface_of(words)) {
        world_.machine(words.at(0)).set_up(interface->index, true);
    }
}

// link-delete ROUTER LINK: the router's interface is gone.
void Run::link_delete(const Words &words)
{
    if (const Interface *interface = interface_of(words)) {
        Machine &machine = world_.machine(words.at(0));
        machine.remove_interface(interface->index);
        world_.link(words.at(1)).detach(machine);
    }
}

// link-create ROUTER LINK: it is back, as another interface of the same name.
void Run::link_create(const Words &words)
{
    if (interface_of(words) == nullptr) {
        world_.connect(world_.machine(words.at(0)), words.at(1));
    }
}

// rename ROUTER LINK NAME: down, renamed, up, as the kernel wants it.
void Run::rename(const Words &words)
{
    Machine &machine = world_.machine(words.at(0));
    if (const Interface *interface = interface_of(words)) {
        const uint32_t if_index = interface->index;
        machine.set_up(if_index, false);
        machine.rename(if_index, words.at(2));
        machine.set_up(if_index, true);
    }
}

// address-remove ROUTER LINK ADDRESS
void Run::remove_address(const Words &words)
{
    if (const Interface *interface = interface_of(words)) {
        world_.machine(words.at(0)).remove_address(interface->index, address_from(words.at(2)));
    }
}

// address-add ROUTER LINK ADDRESS LENGTH
void Run::add_address(const Words &words)
{
    if (const Interface *interface = interface_of(words)) {
        const auto length = static_cast<unsigned>(strtoul(words.at(3).c_str(), nullptr, 10));
        world_.machine(words.at(0)).add_address(interface->index, {address_from(words.at(2)), length});
    }
}

// overrun ROUTER: every netlink socket of the router that listens is told that notifications were lost.
void Run::overrun(const Words &words)
{
    disturb_all();
    for (const auto &each : world_.machine(words.at(0)).netlink_sockets) {
        if (const auto socket = each.lock(); socket != nullptr && socket->listens()) {
            socket->overrun();
        }
    }
}

// vrf-port ROUTER LINK DEVICE: the router's interface becomes a port of the device, of none with a minus sign.
void Run::vrf_port(const Words &words)
{
    Machine &machine = world_.machine(words.at(0));
    if (const Interface *interface = interface_of(words)) {
        const Interface *device = machine.find(words.at(2));
        machine.set_master(interface->index, device == nullptr ? 0 : device->index);
    }
}

} // namespace sim
