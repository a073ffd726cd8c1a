/*
 * A multicast forwarding table of the kernel, as the forwarding logic sees it: virtual interfaces,
 * entries and their counters. KernelMroute is the real one; tests put a recorder in its place.
 */
#ifndef DAEMONS_MRIBD_KERNEL_TABLE_H
#define DAEMONS_MRIBD_KERNEL_TABLE_H

#include <cstdint>
#include <optional>

#include "mcast/common.h"

namespace mribd
{

// Virtual interfaces that one table holds, for both families: a constant of the kernel.
constexpr unsigned MAX_VIFS = 32;

struct EntryCounters {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t wrong_interface = 0;
};

class KernelTable
{
public:
    virtual ~KernelTable() = default;

    // Its number, 0 for the default one, and whether it is this process's now.
    virtual uint32_t table() const
    {
        return 0;
    }
    virtual bool is_open() const
    {
        return true;
    }

    // Each answers 0 or an errno value. PIM_REGISTER_INTERFACE in place of an interface is the register interface, of which a
    // table has one; while it is there packets on a wrong interface are reported for every entry.
    virtual int add_vif(unsigned vif, uint32_t if_index) = 0;
    virtual int delete_vif(unsigned vif) = 0;

    // Installs or replaces the entry of (source, group): packets that arrive on the virtual interface parent
    // go out on those whose bits are set in outgoing.
    virtual int set_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                          uint32_t outgoing) = 0;
    virtual int delete_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group) = 0;

    // The entry's counters; nothing when the kernel has no such entry.
    virtual std::optional<EntryCounters> counters(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group) = 0;

    // Reports of new sources that were lost on the way.
    virtual uint64_t lost_upcalls() const = 0;
};

} // namespace mribd

#endif
