/*
 * Internals of the client's view that more than one file of the room needs.
 */
#ifndef SRC_MRIB_VIEW_H
#define SRC_MRIB_VIEW_H

#include "mcast/mrib.h"

namespace mcast
{

/* The instance record of that index, or nullptr when there is none. */
inline MRIB_GMP_VRF_S *VrfAt(uint32_t index)
{
    return index < g_stMribGmpVrfInfo.count ? &g_stMribGmpVrfInfo.vrfs[index] : nullptr;
}

/* What callbacks get for an instance: the client's family and the index. */
inline MRIB_GMP_VRF_KEY_S KeyOf(uint16_t vrf_index)
{
    MRIB_GMP_VRF_KEY_S key = {};
    key.family = g_ucMribGmpFamily;
    key.vrf_index = vrf_index;
    return key;
}

inline bool IsMeaningfulScope(uint8_t scope)
{
    return scope >= MRIB_GMP_SCOPE_MIN && scope <= MRIB_GMP_SCOPE_MAX;
}

/* ---- view.cpp: instance records ---- */

/* Sets a zeroed instance record up. False when the platform failed to create one of its tables. */
bool InitVrf(MRIB_GMP_VRF_S *vrf, uint8_t family, uint16_t index);

/* Frees what InitVrf made, also when InitVrf failed half-way. */
void FiniVrf(MRIB_GMP_VRF_S *vrf);

/* ---- if_record.cpp: interface records ---- */

/* The instance's record of the interface, or nullptr. */
MRIB_GMP_IF_S *FindInterface(const MRIB_GMP_VRF_S *vrf, uint32_t if_index) MCAST_REQUIRES_SHARED(vrf->lock);

/*
 * Walks the instance's interface records in order of index: starts with *if_index at 0 and *started false,
 * which the walk keeps. The record returned may be deleted before the next call. nullptr at the end.
 */
struct InterfaceWalk {
    uint32_t if_index = 0;
    bool started = false;
};
MRIB_GMP_IF_S *NextInterface(const MRIB_GMP_VRF_S *vrf, InterfaceWalk *walk) MCAST_REQUIRES_SHARED(vrf->lock);

/* Deletes the record when it says nothing any more. */
void DeleteIfEmpty(MRIB_GMP_VRF_S *vrf, MRIB_GMP_IF_S *interface) MCAST_REQUIRES(vrf->lock);

/* Deletes every interface record of the instance. */
void DeleteAllInterfaces(MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES(vrf->lock);

/* ---- boundary.cpp: the boundary ranges of one interface; its instance is locked ---- */

/* Adds the range in place of all within it. False, with nothing changed, when that failed. */
bool AddRange(MRIB_GMP_IF_S *interface, const RDX_PREFIX_S &range);

/* Deletes the ranges that lie within the given one. */
void DeleteRangesWithin(MRIB_GMP_IF_S *interface, const RDX_PREFIX_S &range);

void DeleteAllRanges(MRIB_GMP_IF_S *interface);

/* Marks every range as not yet confirmed by the coming replay. */
void MarkRangesStale(MRIB_GMP_IF_S *interface);

/* Deletes the ranges that were not confirmed. True when there were any. */
bool DeleteStaleRanges(MRIB_GMP_IF_S *interface);

bool HasRanges(const MRIB_GMP_IF_S *interface);

/* Whether the address lies within a range. */
bool IsInRange(const MRIB_GMP_IF_S *interface, const MCAST_ADDR_S &address);

/* ---- records.cpp and replay.cpp: what received records do; value holds at least the type's minimum ---- */

uint64_t ApplyVrfState(uint16_t length, const void *value);
uint64_t ApplyBoundary(uint16_t length, const void *value);
uint64_t ApplyPimDr(uint16_t length, const void *value);
uint64_t ApplyFlowControl(uint16_t length, const void *value);
uint64_t ApplySsmPolicy(uint16_t length, const void *value);
uint64_t ApplyVrfStateEnd(uint16_t length, const void *value);
uint64_t ApplyPimDrEnd(uint16_t length, const void *value);
uint64_t ApplyBoundaryEnd(uint16_t length, const void *value);
uint64_t ApplySmoothStart(uint16_t length, const void *value);

} // namespace mcast

#endif
