/*
 * The calls of a multicast routing socket, in which the families differ in option names and records alone.
 */
#ifndef DAEMONS_MRIBD_KERNEL_CALLS_H
#define DAEMONS_MRIBD_KERNEL_CALLS_H

#include <cstddef>
#include <cstdint>

#include "daemons/mribd/kernel_table.h"

namespace mribd
{

// 0 or an errno value.
int set_option(int fd, int level, int option, const void *value, size_t size);

// All that differs between the families: option names, and the records that the options take.
struct FamilyCalls {
    int domain;
    int protocol;
    int level;
    int init;
    int done;
    int assert;
    int pim; // reports packets on a wrong interface for every entry, and takes Registers apart
    int table;
    const char *kernel_option;
    // PIM_REGISTER_INTERFACE makes the table's register interface.
    int (*add_vif)(int fd, unsigned vif, uint32_t if_index);
    int (*delete_vif)(int fd, unsigned vif);
    int (*change_entry)(int fd, bool add, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group,
                        unsigned parent, uint32_t outgoing);
    int (*counters)(int fd, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, EntryCounters *counters);
    void (*quieten)(int fd);
    const char *register_device; // of the default table; others have their number behind it
};

extern const FamilyCalls CALLS_IPV4;
extern const FamilyCalls CALLS_IPV6;

} // namespace mribd

#endif
