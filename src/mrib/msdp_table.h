/*
 * The local-source table of an instance: its layout, and the changes that keep its levels free of empty
 * nodes.
 */
#ifndef SRC_MRIB_MSDP_TABLE_H
#define SRC_MRIB_MSDP_TABLE_H

#include "mcast/mrib.h"
#include "mcast/mtable.h"

namespace mcast
{

/* Flag of an RP node, a group and a source: the replay that is awaited has not confirmed it yet. */
inline constexpr uint64_t kStale = 1;

/* One rendezvous point with local sources. */
struct RpNode {
    AVL_NODE_S tree;
    uint32_t rp_be;
    MTABLE_S table; /* SourceGroup and GroupSource records */
    uint64_t flags;
};

struct SourceGroup {
    MTABLE_GROUP_S head;
    uint64_t flags;
};

struct GroupSource {
    MTABLE_SOURCE_S head;
    uint64_t flags;
};

/*
 * For the instance's tree: orders RP nodes by address as an unsigned number, and frees one with all it holds.
 */
int32_t CompareRpNodes(const void *first, const void *second);
void FreeRpNode(void *node);

/* The RP's node, or nullptr. */
RpNode *FindRp(const MRIB_GMP_VRF_S *vrf, uint32_t rp_be) MCAST_REQUIRES_SHARED(vrf->lock);

/* The first node, and the first after an address that need not be present; or nullptr. */
RpNode *FirstRp(const MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES_SHARED(vrf->lock);
RpNode *RpAfter(const MRIB_GMP_VRF_S *vrf, uint32_t rp_be) MCAST_REQUIRES_SHARED(vrf->lock);

/* Adds the pair under the RP, or confirms it. False, and nothing was added, when memory was short. */
bool AddLocalSource(MRIB_GMP_VRF_S *vrf, uint32_t rp_be, uint32_t group_be, uint32_t source_be)
    MCAST_REQUIRES(vrf->lock);

/* Removes the pair from the first RP that has it. */
void RemoveLocalSource(MRIB_GMP_VRF_S *vrf, uint32_t group_be, uint32_t source_be) MCAST_REQUIRES(vrf->lock);

/* Marks every RP, group and source, and removes those still marked. */
void MarkLocalSourcesStale(MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES(vrf->lock);
void SweepLocalSources(MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES(vrf->lock);

/* Addresses of 32 bits in network order as address records, and back. */
MCAST_ADDR_S AddressOf(uint32_t address_be);
uint32_t AddressBits(const MCAST_ADDR_S &address);

} // namespace mcast

#endif
