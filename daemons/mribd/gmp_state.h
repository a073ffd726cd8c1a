/*
 * What the clients of one family say of their protocol on each interface: whether it runs, and whether this
 * router is the link's querier.
 */
#ifndef DAEMONS_MRIBD_GMP_STATE_H
#define DAEMONS_MRIBD_GMP_STATE_H

#include <cstdint>
#include <map>
#include <vector>

#include "daemons/mribd/member_table.h"

namespace mribd
{

class GmpState
{
public:
    // Of how many interfaces something is kept: more than any router has, and what clients make up ends there.
    static constexpr size_t MOST_INTERFACES = 16384;

    // Whether something of the interface may be kept.
    bool has_room(uint32_t if_index) const
    {
        return interfaces_.contains(if_index) || interfaces_.size() < MOST_INTERFACES;
    }

    // Each answers whether anything changed. What takes back, as drop, needs no memory.
    bool set_enabled(ClientId client, uint32_t if_index, bool enabled);
    bool set_querier(ClientId client, uint32_t if_index, bool this_router);
    bool drop_client(ClientId client);
    bool drop_interface(uint32_t if_index);

    // Whether the client runs its protocol anywhere.
    bool knows_client(ClientId client) const;

    // Whether a client runs its protocol on the interface.
    bool is_enabled(uint32_t if_index) const;

    // Whether this router forwards on to the link whoever else does: no client reports another querier there. Where
    // one does, this router gives way to one that forwards (forwarding_yield.cpp).
    bool is_forwarder(uint32_t if_index) const;

    // Every interface on which a protocol runs, ascending.
    std::vector<uint32_t> enabled_interfaces() const;

private:
    struct Report {
        bool enabled = false;
        bool other_querier = false;
    };
    using Reports = std::map<ClientId, Report>;

    template <typename Change>
    bool change(ClientId client, uint32_t if_index, bool adds, const Change &change);

    std::map<uint32_t, Reports> interfaces_;
};

} // namespace mribd

#endif
