/*
 * Who is told what PIM daemons want to know: memberships of hosts, the coming and going of sources, the kernel's tables.
 */
#ifndef DAEMONS_MRIBD_PIM_LISTENER_H
#define DAEMONS_MRIBD_PIM_LISTENER_H

#include <cstdint>

#include "daemons/common/pim_records.h"

namespace mribd
{

class Router;
struct Entry;

// What hosts want of a source, or of any, on an interface, over all GMP clients.
struct HostWish {
    bool joined = false;
    bool blocked = false; // a source only
};

class PimListener
{
public:
    // Whether anybody is told events of these classes, PIM_EVENT_MEMBER and so on.
    virtual bool is_told(uint64_t events) const = 0;

    // exclude: whether it is about the block of the source. wish is what holds now.
    virtual void tell_member(const Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                             const MCAST_ADDR_S &source, bool exclude, const HostWish &wish) = 0;

    // The interface is where a packet came in. Whether somebody was told.
    virtual bool tell_source(const Router &router, const Entry &entry, mcastd::PimSourceState state,
                             uint32_t if_index) = 0;

    virtual void tell_instance(const Router &router, bool served) = 0;

protected:
    ~PimListener() = default;
};

} // namespace mribd

#endif
