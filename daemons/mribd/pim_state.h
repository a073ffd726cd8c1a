/*
 * Which clients of one instance run PIM, on which links, and where they say that this router is the designated one.
 */
#ifndef DAEMONS_MRIBD_PIM_STATE_H
#define DAEMONS_MRIBD_PIM_STATE_H

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "daemons/common/pim_records.h"
#include "daemons/mribd/member_budget.h"

namespace mribd
{

class PimState
{
public:
    // Of how many interfaces something is kept: more than any router has.
    static constexpr size_t MOST_PIM_INTERFACES = 16384;

    bool has_room(uint32_t if_index) const
    {
        return interfaces_.contains(if_index) || interfaces_.size() < MOST_PIM_INTERFACES;
    }

    // Each answers whether anything changed. What takes back, as drop, needs no memory.
    bool set(ClientId client, uint32_t if_index, mcastd::PimInterfaceState state);
    bool drop_client(ClientId client);
    bool drop_interface(uint32_t if_index);

    // Whether the client ever ran PIM here, until drop_client; and whether it does now.
    bool is_client(ClientId client) const
    {
        return clients_.contains(client);
    }
    bool knows_client(ClientId client) const;

    // Whether PIM runs anywhere, or on the interface; and whether this router is designated there.
    bool runs() const
    {
        return !interfaces_.empty();
    }
    bool runs_on(uint32_t if_index) const
    {
        return interfaces_.contains(if_index);
    }
    bool is_designated(uint32_t if_index) const;

    // Every interface on which PIM runs, ascending.
    std::vector<uint32_t> interfaces() const;

private:
    std::set<ClientId> clients_;
    std::map<uint32_t, std::map<ClientId, bool>>
        interfaces_; // whether the client says designated; none without clients
};

} // namespace mribd

#endif
