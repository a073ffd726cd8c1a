/*
 * What the multicast trees ask of the rest of the router, and what they tell it.
 */
#ifndef DAEMONS_PIMSMD_SURROUNDINGS_H
#define DAEMONS_PIMSMD_SURROUNDINGS_H

#include <cstdint>
#include <optional>
#include <span>

#include "daemons/pimsmd/assert_machine.h"
#include "daemons/pimsmd/packer.h"

namespace pimsmd
{

constexpr int NO_LINK = -1;

// The way to a source or an RP.
struct Route {
    int link = NO_LINK; // below MOST_LINKS; NO_LINK for this router itself, and where there is no way
    Address
        neighbour{}; // the next hop's primary address; unspecified when there is none, or it speaks no PIM
    // For asserts: of the route, 0 where this router is meant; without a way the worst, for its packets are not to be had.
    uint32_t preference = asserts::INFINITE_PREFERENCE;
    uint32_t metric = asserts::INFINITE_METRIC;
    bool connected = false; // the address is on the link

    bool operator==(const Route &other) const
    {
        return link == other.link && same_address(neighbour, other.neighbour) &&
               preference == other.preference && metric == other.metric && connected == other.connected;
    }
};

// What holds on a link now.
struct LinkFacts {
    Address own;                 // this router's primary address
    uint32_t prune_delay_ms = 0; // how long a Prune waits; 0 where there is but one neighbour
    uint32_t override_ms = 0;    // within which one is overridden
    bool suppresses = true;      // a Join of another router counts as one's own
};

class Surroundings
{
public:
    // The RP of the group; nothing when there is none, and for source-specific groups.
    virtual std::optional<Address> rp_of(const Address &group) = 0;
    virtual Route route_to(const Address &address) = 0;
    virtual LinkFacts facts_of(unsigned link) = 0;

    // Whether the address is one of this router's own.
    virtual bool is_own(const Address &address) = 0;

    // Whether packets of the source that come over the shared tree are wanted over its own: at once, never, or by list.
    virtual bool switches_to_spt(const Address &group, const Address &source) = 0;

    // A random number from 0 to most.
    virtual uint32_t random(uint32_t most) = 0;

    // Wishes of one group to a neighbour on a link, which go out together.
    virtual void send(unsigned link, const Address &neighbour, const Address &group,
                      std::span<const Wish> wishes) = 0;

    // An Assert about a source or, unspecified, the group; with infinite terms an AssertCancel.
    virtual void send_assert(unsigned link, const Address &group, const Address &source,
                             const asserts::Metric &metric) = 0;

    // A null Register to the RP; a Register-Stop from the address to which the Register came to the router that sent it.
    virtual void send_null_register(const Address &rp, const Address &group, const Address &source) = 0;
    virtual void send_register_stop(const Address &from, const Address &to, const Address &group,
                                    const Address &source) = 0;

    // The outputs of a group's shared tree, or of a source of it, are others now, or where its packets come from, or to whom
    // they go in Registers; or the entry is gone.
    virtual void outputs_changed(const Address &group, const Address &source) = 0;

protected:
    ~Surroundings() = default;
};

} // namespace pimsmd

#endif
