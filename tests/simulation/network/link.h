/*
 * A link: it carries packets between the routers and the hosts on it, late, twice or not at all as its settings
 * say, and routed packets to the hosts and to other routers, at once.
 *
 *      r1 ──┬────┬────┬── r2
 *           h1   h2   h3
 */
#ifndef TESTS_SIMULATION_NETWORK_LINK_H
#define TESTS_SIMULATION_NETWORK_LINK_H

#include <string>
#include <vector>

#include "tests/simulation/kernel/machine.h"

namespace sim
{

class Host;
class Link;

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
    Ns delay = 0; // at most; each packet has its own
    std::vector<Host *> hosts;

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

    // From a router.
    void carry(Machine &from, uint32_t if_index, const Packet &packet) override;
    void carry(Machine &from, uint32_t if_index, const Datum &datum) override;
    // From a host.
    void send(const Host &from, Bytes packet);
    void send(const Datum &datum);

    // Packets of hosts that reach the routers, and queries that reach the hosts.
    uint64_t reports() const
    {
        return reports_;
    }
    uint64_t queries() const
    {
        return queries_;
    }

private:
    void deliver(const Machine *except, const Host *except_host, const Packet &packet);
    void later(std::function<void()> act);

    Kernel &kernel_;
    uint64_t number_;
    DatumObserver &observer_;
    std::vector<Attachment> attached_;
    uint64_t reports_ = 0;
    uint64_t queries_ = 0;
};

} // namespace sim

#endif
