/*
 * A table of the kernel's multicast routing, of either family:
 *
 *     packet ──► virtual interface of the one that it came by ──► entry (source, group) ──► outgoing ones
 *                                                            └─ no entry: it waits, and an upcall tells
 *                                                            └─ another parent: an upcall at most every 3 s
 *
 * As in Linux an entry keeps those of its outgoing interfaces that existed when it was written, a virtual
 * interface goes with its interface, and packets without an entry wait 10 seconds, four of a flow at most.
 */
#ifndef TESTS_SIMULATION_KERNEL_MULTICAST_TABLE_H
#define TESTS_SIMULATION_KERNEL_MULTICAST_TABLE_H

#include <array>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "tests/simulation/kernel/clock.h"

namespace sim
{

class RoutingSocket;

// A routed packet. Its flow and number tell it from every other.
struct Datum {
    Address source;
    Address group;
    uint64_t flow;
    uint64_t number;
    unsigned ttl;
};

class MulticastTable
{
public:
    static constexpr unsigned MOST_VIFS = 32;
    using Key = std::pair<Address, Address>; // source, group

    struct Entry {
        unsigned parent = 0;
        uint32_t outgoing = 0;
        uint64_t packets = 0;
        uint64_t wrong_interface = 0;
        Ns last_wrong = 0;
    };

    explicit MulticastTable(const Clock &clock) : clock_(clock)
    {
    }

    RoutingSocket *owner() const
    {
        return owner_;
    }
    int begin(RoutingSocket *owner);
    void end();

    // Errors are negative, as the kernel's.
    int add_vif(unsigned vif, uint32_t if_index); // index 0: of an interface that is not there
    int delete_vif(unsigned vif);
    int set_entry(const Key &key, unsigned parent, uint32_t outgoing);
    int delete_entry(const Key &key);
    void interface_removed(uint32_t if_index);

    using Send = std::function<void(uint32_t if_index, const Datum &datum)>;
    void arrive(uint32_t if_index, const Datum &datum, const Send &send);

    uint32_t if_index(unsigned vif) const
    {
        return vif < MOST_VIFS ? vifs_[vif] : 0;
    }
    int vif_of(uint32_t if_index) const;
    const std::map<Key, Entry> &entries() const
    {
        return entries_;
    }
    // The interfaces that an entry sends to.
    std::vector<uint32_t> outgoing(const Entry &entry) const;
    uint64_t upcalls() const
    {
        return upcalls_;
    }

    // What is wrong with a change that Linux takes but no router should make; told to the oracle.
    std::function<void(const std::string &what)> on_misuse;
    Send send; // where packets go that waited for an entry

private:
    struct Waiting {
        Ns until;
        uint32_t if_index;
        std::vector<Datum> packets;
    };
    void forward(Entry &entry, const Datum &datum, const Send &send_to);
    void wrong_interface(Entry &entry, const Key &key, unsigned vif);

    const Clock &clock_;
    RoutingSocket *owner_ = nullptr;
    std::array<uint32_t, MOST_VIFS> vifs_{};
    std::map<Key, Entry> entries_;
    std::map<Key, Waiting> unresolved_;
    uint64_t upcalls_ = 0;
};

} // namespace sim

#endif
