/*
 * What the processes of one machine share: its interfaces with their addresses, its routes and rules, its local
 * ports, its tables of multicast routing, its settings and files.
 *
 *     wire ── packets ──► Machine ──► packet sockets (group membership daemon)
 *                            └──────► multicast tables ──► wires
 *
 * A wire is whatever carries what leaves through an interface.
 */
#ifndef TESTS_SIMULATION_KERNEL_MACHINE_H
#define TESTS_SIMULATION_KERNEL_MACHINE_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/simulation/kernel/kernel.h"
#include "tests/simulation/kernel/multicast_table.h"

namespace sim
{

class LocalListener;
class NetlinkSocket;
class PacketSocket;
class TcpListener;

// A whole packet with its IP header.
struct Packet {
    int family;
    Bytes bytes;
};

class Machine;

class Wire
{
public:
    virtual ~Wire() = default;
    virtual void carry(Machine &from, uint32_t if_index, const Packet &packet) = 0;
    virtual void carry(Machine &from, uint32_t if_index, const Datum &datum) = 0;
    // The other machine that has the address on it and hears a packet now; nullptr when there is none.
    virtual Machine *neighbour(const Machine &from, const Address &address) = 0;
};

struct InterfaceAddress {
    Address address;
    unsigned prefix_length;
    bool tentative = false;
};

struct Interface {
    uint32_t index;
    std::string name;
    bool is_up = true;
    bool is_loopback = false;
    uint32_t mtu = 1500;
    uint32_t master = 0;    // index of the VRF device that it is a port of
    uint32_t vrf_table = 0; // not 0: it is a VRF device
    Wire *wire = nullptr;
    std::vector<InterfaceAddress> addresses = {};
};

struct Route {
    Address destination;
    unsigned prefix_length;
    Address gateway; // of no family when the destination is on the link
    uint32_t if_index;
};

// Leads packets of an interface to a multicast table.
struct MulticastRule {
    int family;
    uint16_t direction; // FRA_IIFNAME or FRA_OIFNAME
    std::string if_name;
    uint32_t table;
    uint32_t priority;
    uint8_t protocol;
};

class Machine
{
public:
    Machine(Kernel &kernel, std::string name);

    Kernel &kernel;
    const std::string name;

    // Each change is told to the netlink sockets that listen.
    Interface &add_interface(const std::string &interface_name, Wire *wire,
                             std::vector<InterfaceAddress> addresses);
    Interface &add_vrf(const std::string &device_name, uint32_t table);
    void remove_interface(uint32_t if_index);
    void set_up(uint32_t if_index, bool up);
    void rename(uint32_t if_index, const std::string &to);
    void add_address(uint32_t if_index, const InterfaceAddress &address);
    void remove_address(uint32_t if_index, const Address &address);
    void set_master(uint32_t if_index, uint32_t master);

    Interface *find(uint32_t if_index);
    Interface *find(const std::string &interface_name);
    const std::map<uint32_t, Interface> &interfaces() const
    {
        return interfaces_;
    }

    // Whether a packet may have that source: an address of the machine that nobody else has, a link-local one of
    // that very interface.
    bool may_send_from(const Address &source, uint32_t if_index) const;

    // A packet arrives from the wire. Nothing when the interface is down.
    void arrive(uint32_t if_index, const Packet &packet);
    void arrive(uint32_t if_index, const Datum &datum);

    // The answer of the unicast routing: the interface and the route, nullptr when there is none.
    struct Lookup {
        uint32_t if_index = 0;
        unsigned prefix_length = 0;
        bool is_local = false;
        Address gateway;
    };
    Lookup look_up(const Address &destination, uint32_t out_if_index) const;

    // The first address of the family that the interface has; of no family without one.
    Address address_on(uint32_t if_index, int family) const;
    // Who listens there; nullptr when nobody does.
    std::shared_ptr<TcpListener> tcp_listener(const Address &address, uint16_t port);

    // 0 is the kernel's default table.
    MulticastTable &multicast_table(int family, uint32_t table);
    uint32_t multicast_table_of(int family, uint32_t if_index) const;
    const std::map<std::pair<int, uint32_t>, MulticastTable> &multicast_tables() const
    {
        return tables_;
    }

    std::map<uint16_t, std::weak_ptr<LocalListener>> local_ports;
    std::vector<std::weak_ptr<TcpListener>> tcp_listeners;
    uint16_t next_tcp_port = 0; // of those that connects take
    std::vector<std::weak_ptr<NetlinkSocket>> netlink_sockets;
    std::vector<std::weak_ptr<PacketSocket>> packet_sockets;
    std::vector<Route> routes;
    std::vector<MulticastRule> rules;
    std::map<std::string, std::string> files; // texts by path

private:
    void tell_packet_sockets(uint32_t if_index, bool removed);
    void tell_link(const Interface &interface, bool removed);
    void tell_address(const Interface &interface, const InterfaceAddress &address, bool removed);

    std::map<uint32_t, Interface> interfaces_;
    std::map<std::pair<int, uint32_t>, MulticastTable> tables_;
    uint32_t next_index_ = 1; // an index never comes back
};

} // namespace sim

#endif
