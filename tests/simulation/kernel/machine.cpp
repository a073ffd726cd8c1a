#include "tests/simulation/kernel/machine.h"

#include <algorithm>
#include <utility>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include "tests/simulation/kernel/local_socket.h"
#include "tests/simulation/kernel/netlink_message.h"
#include "tests/simulation/kernel/netlink_socket.h"
#include "tests/simulation/kernel/packet_socket.h"
#include "tests/simulation/kernel/routing_socket.h"
#include "tests/simulation/kernel/tcp_socket.h"

namespace sim
{
namespace
{

constexpr Ns DUPLICATE_DETECTION = SECOND;

bool is_link_local(const Address &address)
{
    return address.family == AF_INET6 && address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80;
}

} // namespace

Machine::Machine(Kernel &its_kernel, std::string its_name) : kernel(its_kernel), name(std::move(its_name))
{
    Interface loopback{next_index_++, "lo"};
    loopback.is_loopback = true;
    loopback.mtu = 65536;
    loopback.addresses = {{address_from("127.0.0.1"), 8}, {address_from("::1"), 128}};
    interfaces_.emplace(loopback.index, loopback);
}

void Machine::tell_packet_sockets(uint32_t if_index, bool removed)
{
    for (const auto &each : packet_sockets) {
        if (const auto socket = each.lock()) {
            socket->interface_down(if_index, removed);
        }
    }
}

void Machine::tell_link(const Interface &interface, bool removed)
{
    notify_netlink(*this, RTNLGRP_LINK, link_message(interface, {}, removed));
}

void Machine::tell_address(const Interface &interface, const InterfaceAddress &address, bool removed)
{
    notify_netlink(*this, address.address.family == AF_INET ? RTNLGRP_IPV4_IFADDR : RTNLGRP_IPV6_IFADDR,
                   address_message(interface, address, {}, removed));
}

Interface &Machine::add_interface(const std::string &interface_name, Wire *wire,
                                  std::vector<InterfaceAddress> addresses)
{
    Interface interface {
        next_index_++, interface_name
    };
    interface.wire = wire;
    Interface &added = interfaces_.emplace(interface.index, interface).first->second;
    tell_link(added, false);
    for (const InterfaceAddress &address : addresses) {
        add_address(added.index, address);
    }
    return added;
}

Interface &Machine::add_vrf(const std::string &device_name, uint32_t table)
{
    Interface device{next_index_++, device_name};
    device.vrf_table = table;
    Interface &added = interfaces_.emplace(device.index, device).first->second;
    tell_link(added, false);
    return added;
}

void Machine::remove_interface(uint32_t if_index)
{
    const auto found = interfaces_.find(if_index);
    if (found == interfaces_.end()) {
        return;
    }
    const Interface removed = std::move(found->second);
    interfaces_.erase(found);
    tell_packet_sockets(if_index, true);
    for (auto &[key, table] : tables_) {
        table.interface_removed(if_index);
    }
    for (const InterfaceAddress &address : removed.addresses) {
        tell_address(removed, address, true);
    }
    tell_link(removed, true);
}

// IPv6 addresses go with the link: its own comes back by itself, the operator's when they are set again, both
// after it is known that nobody else has them.
void Machine::set_up(uint32_t if_index, bool up)
{
    Interface *interface = find(if_index);
    if (interface == nullptr || interface->is_up == up) {
        return;
    }
    interface->is_up = up;
    if (!up) {
        tell_packet_sockets(if_index, false);
    }
    tell_link(*interface, false);
    for (InterfaceAddress &address : interface->addresses) {
        if (address.address.family != AF_INET6) {
            continue;
        }
        address.tentative = true;
        tell_address(*interface, address, !up);
        if (up) {
            kernel.clock.after(DUPLICATE_DETECTION, [this, if_index, one = address.address] {
                Interface *later = find(if_index);
                if (later != nullptr && later->is_up) {
                    const auto place = std::find_if(later->addresses.begin(), later->addresses.end(),
                                                    [&one](const auto &each) { return each.address == one; });
                    if (place != later->addresses.end()) {
                        place->tentative = false;
                        tell_address(*later, *place, false);
                    }
                }
            });
        }
    }
}

void Machine::rename(uint32_t if_index, const std::string &to)
{
    if (Interface *interface = find(if_index)) {
        interface->name = to;
        tell_link(*interface, false);
    }
}

void Machine::add_address(uint32_t if_index, const InterfaceAddress &address)
{
    if (Interface *interface = find(if_index)) {
        interface->addresses.push_back(address);
        tell_address(*interface, address, false);
    }
}

void Machine::remove_address(uint32_t if_index, const Address &address)
{
    Interface *interface = find(if_index);
    if (interface == nullptr) {
        return;
    }
    const auto place = std::find_if(interface->addresses.begin(), interface->addresses.end(),
                                    [&address](const auto &each) { return each.address == address; });
    if (place != interface->addresses.end()) {
        const InterfaceAddress removed = *place;
        interface->addresses.erase(place);
        tell_address(*interface, removed, true);
    }
}

void Machine::set_master(uint32_t if_index, uint32_t master)
{
    if (Interface *interface = find(if_index)) {
        interface->master = master;
        tell_link(*interface, false);
    }
}

Interface *Machine::find(uint32_t if_index)
{
    const auto found = interfaces_.find(if_index);
    return found == interfaces_.end() ? nullptr : &found->second;
}

Interface *Machine::find(const std::string &interface_name)
{
    for (auto &[if_index, interface] : interfaces_) {
        if (interface.name == interface_name) {
            return &interface;
        }
    }
    return nullptr;
}

bool Machine::may_send_from(const Address &source, uint32_t if_index) const
{
    for (const auto &[index, interface] : interfaces_) {
        for (const InterfaceAddress &each : interface.addresses) {
            if (each.address == source && !each.tentative && (index == if_index || !is_link_local(source))) {
                return true;
            }
        }
    }
    return source == Address{source.family, {}}; // the kernel chooses
}

void Machine::arrive(uint32_t if_index, const Packet &packet)
{
    const Interface *interface = find(if_index);
    if (interface == nullptr || !interface->is_up) {
        return;
    }
    std::erase_if(packet_sockets, [](const auto &socket) { return socket.expired(); });
    for (const auto &socket : packet_sockets) {
        socket.lock()->arrive(if_index, packet);
    }
}

void Machine::arrive(uint32_t if_index, const Datum &datum)
{
    const Interface *interface = find(if_index);
    const int family = datum.group.family;
    if (interface == nullptr || !interface->is_up) {
        return;
    }
    MulticastTable &table = multicast_table(family, multicast_table_of(family, if_index));
    table.arrive(if_index, datum, table.send);
}

Machine::Lookup Machine::look_up(const Address &destination, uint32_t out_if_index) const
{
    Lookup best;
    const auto consider = [&](const Interface &interface, const Address &prefix, unsigned length,
                              const Address &gateway) {
        const bool usable = interface.is_up && (out_if_index == 0 || out_if_index == interface.index ||
                                                out_if_index == interface.master);
        if (usable && shares_prefix(prefix, destination, length) &&
            (best.if_index == 0 || length > best.prefix_length)) {
            best = {interface.index, length, false, gateway};
        }
    };
    for (const auto &[if_index, interface] : interfaces_) {
        for (const InterfaceAddress &address : interface.addresses) {
            if (address.address == destination && !address.tentative && out_if_index == 0) {
                return {1, static_cast<unsigned>(destination.size() * 8), true, {}};
            }
            if (!is_link_local(address.address)) {
                consider(interface, address.address, address.prefix_length, {});
            }
        }
    }
    for (const Route &route : routes) {
        const auto interface = interfaces_.find(route.if_index);
        if (interface != interfaces_.end()) {
            consider(interface->second, route.destination, route.prefix_length, route.gateway);
        }
    }
    return best;
}

Address Machine::address_on(uint32_t if_index, int family) const
{
    for (const InterfaceAddress &each : interfaces_.at(if_index).addresses) {
        if (each.address.family == family) {
            return each.address;
        }
    }
    return {};
}

std::shared_ptr<TcpListener> Machine::tcp_listener(const Address &address, uint16_t port)
{
    std::erase_if(tcp_listeners, [](const auto &each) { return each.expired(); });
    for (const auto &each : tcp_listeners) {
        const auto listener = each.lock();
        const Address &bound = listener->name.address;
        if (listener->name.port == port && (bound == address || bound == Address{AF_INET, {}})) {
            return listener;
        }
    }
    return nullptr;
}

MulticastTable &Machine::multicast_table(int family, uint32_t table)
{
    const auto [place, is_new] = tables_.try_emplace({family, table}, kernel.clock);
    if (is_new) {
        place->second.send = [this](uint32_t if_index, const Datum &datum) {
            const Interface *interface = find(if_index);
            if (interface != nullptr && interface->is_up && interface->wire != nullptr) {
                interface->wire->carry(*this, if_index, datum);
            }
        };
        place->second.on_misuse = [this](const std::string &what) {
            kernel.broken(Rule::KernelContract, name + ": " + what);
        };
    }
    return place->second;
}

uint32_t Machine::multicast_table_of(int family, uint32_t if_index) const
{
    const Interface &interface = interfaces_.at(if_index);
    if (interface.master != 0) {
        return interfaces_.at(interface.master).vrf_table;
    }
    for (const MulticastRule &rule : rules) {
        if (rule.family == family && rule.direction == FRA_IIFNAME && rule.if_name == interface.name) {
            return rule.table;
        }
    }
    return 0;
}

} // namespace sim
