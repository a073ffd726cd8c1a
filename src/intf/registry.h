/*
 * The registry's state, one record for the process.
 */
#ifndef SRC_INTF_REGISTRY_H
#define SRC_INTF_REGISTRY_H

#include "intf/index_pool.h"
#include "mcast/lock.h"

namespace mcast
{

struct Registry {
    IndexPool interfaces;
    IndexPool simple_interfaces;
    MCAST_MUTEX_S lock;
    bool open; /* the mutex exists; changes only while no other call runs */
    AVL_HANDLE join_parents MCAST_GUARDED_BY(lock); /* tree of MCAST_IF_JOIN_PARENT_S; 0 while closed */
};

extern Registry g_registry;

/* Creates and ends the tree of parents, before the mutex exists and after it is gone. */
bool OpenJoinGroups();
void CloseJoinGroups();

} // namespace mcast

#endif
