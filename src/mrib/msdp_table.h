/*
 * The local-source table of an instance: the nodes that hang from its MSDP tree.
 */
#ifndef SRC_MRIB_MSDP_TABLE_H
#define SRC_MRIB_MSDP_TABLE_H

#include "mcast/mrib.h"

namespace mcast
{

/* One rendezvous point with local sources. Allocated with malloc, owned by its instance's tree. */
struct RpNode {
    AVL_NODE_S tree;
    uint32_t rp_be;
};

/* Orders RP nodes by address as an unsigned number. */
int32_t CompareRpNodes(const void *first, const void *second);

/* Frees an RP node with all it holds. */
void FreeRpNode(void *node);

/* Empties the instance's local-source table. */
void DeleteLocalSources(MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES(vrf->lock);

} // namespace mcast

#endif
