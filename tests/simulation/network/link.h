/*
 * A link: it carries packets between the routers and the hosts on it, late, twice, damaged or not at all as its
 * settings say, and routed packets to the hosts and to other routers, at once.
 *
 *      r1 ──┬────┬────┬────┬── r2
 *           h1   h2   h3   q1
 */
#ifndef TESTS_SIMULATION_NETWORK_LINK_H
#define TESTS_SIMULATION_NETWORK_LINK_H

#include <map>
#include <string>
#include <vector>

#include "tests/simulation/kernel/machine.h"

namespace sim
{

class Host;
class Link;
class Querier;

// Told of every packet that a source sends, before it goes, and of every one that a router puts on a link.
class DatumObserver
{
public:
    virtual ~DatumObserver() = default;
    virtual void sent(const Link &link, const Datum &datum) = 0;
    virtual void delivered(const Link &link, const Machine &by, const Datum &datum) = 0;
};

class Link : public Wire
{
public:
    Link(Kernel &kernel, std::string its_name, uint64_t number, DatumObserver &observer)
        : name(std::move(its_name)), kernel_(kernel), number_(number), observer_(observer)
    {
    }

    const std::string name;
    double loss = 0;
    double duplication = 0;
    double damage = 0; // one bit of the packet, or its end
    Ns delay = 0;      // at most; each packet has its own
    std::vector<Host *> hosts;
    std::vector<Querier *> queriers; // besides the routers that run daemons

    void attach(Machine &machine, uint32_t if_index)
    {
        attached_.push_back({&machine, if_index});
    }
    void detach(const Machine &machine);
    struct Attachment {
        Machine *machine;
        uint32_t if_index;
    };
    const std::vector<Attachment> &attached() const
    {
        return attached_;
    }
    // The machine's interface on this link; 0 when it has none.
    uint32_t if_index_of(const Machine &machine) const;

    // Who sent a general query, and when last.
    const std::map<Address, Ns> &asked() const
    {
        return asked_;
    }

    // From a router.
    void carry(Machine &from, uint32_t if_index, const Packet &packet) override;
    void carry(Machine &from, uint32_t if_index, const Datum &datum) override;
    Machine *neighbour(const Machine &from, const Address &address) override;
    // From a host, from a querier.
    void send(const Host &from, Bytes packet);
    void send(const Querier &from, Bytes packet);
    void send(const Datum &datum);

private:
    void deliver(const void *from, const Packet &packet);
    void later(std::function<void()> act);
    Packet damaged(Packet packet);

    Kernel &kernel_;
    uint64_t number_;
    DatumObserver &observer_;
    std::vector<Attachment> attached_;
    std::map<Address, Ns> asked_;
};

} // namespace sim

#endif
