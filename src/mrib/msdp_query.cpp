/*
 * Reading the local sources. A walk over them is paged in batches: one call reads one RP, and stops in it
 * when the batch is full. The cursor holds addresses, not nodes, so the table may change between two calls.
 */
#include <endian.h>

#include "event/guards.h"
#include "mcast/acl_filter.h"
#include "mcast/msdp.h"
#include "mrib/msdp_table.h"
#include "mrib/view.h"

using namespace mcast;

namespace
{

/* The first byte of the groups that are source-specific without a policy. */
constexpr uint32_t kSsmFirstByte = 232;

bool IsTrue(MCAST_BOOL value)
{
    return static_cast<uint16_t>(value) == 1;
}

bool IsSsmGroup(uint32_t vrf_index, uint32_t acl_number, uint32_t group_be)
{
    if (acl_number != MCAST_NONE) {
        return IsTrue(MCAST4_IsAclPermit(vrf_index, acl_number, 0, be32toh(group_be)));
    }
    return be32toh(group_be) >> 24 == kSsmFirstByte;
}

/* What the callbacks of one walk need. */
struct Reading {
    const MRIB_MSDP_FILTER_S *filter;
    MRIB_MSDP_BATCH_S *batch;
    uint64_t limit;
    uint32_t vrf_index;
    uint32_t ssm_acl;
};

uint32_t VisitGroup(MTABLE_GROUP_S *group, void *argument)
{
    const Reading *reading = static_cast<const Reading *>(argument);
    if (reading->batch->count >= reading->limit) {
        return MCAST_WALK_AGAIN;
    }
    return IsSsmGroup(reading->vrf_index, reading->ssm_acl, AddressBits(group->address))
               ? MCAST_WALK_SKIP_GROUP
               : MCAST_OK;
}

uint32_t VisitSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *argument)
{
    const Reading *reading = static_cast<const Reading *>(argument);
    MRIB_MSDP_BATCH_S *batch = reading->batch;
    const MRIB_MSDP_SG_S pair = {AddressBits(group->address), AddressBits(source->address)};
    if (batch->count >= reading->limit) {
        return MCAST_WALK_AGAIN;
    }
    if (IsTrue(MCAST4_IsAclPermit(reading->filter->acl_vrf_index, reading->filter->acl_number,
                                  be32toh(pair.source_be), be32toh(pair.group_be)))) {
        batch->pairs[batch->count++] = pair;
    }
    return MCAST_OK;
}

/* Reads the RP's sources from the cursor on; MCAST_WALK_AGAIN leaves the cursor where to go on. */
uint32_t ReadRp(const RpNode *rp, Reading *reading, MRIB_MSDP_CURSOR_S *cursor)
{
    const uint32_t only_group_be = reading->filter->group_be;
    MCAST_ADDR_S group = AddressOf(only_group_be != 0 ? only_group_be : cursor->group_be);
    MCAST_ADDR_S source = AddressOf(cursor->source_be);
    MTABLE_WALK_S walk = {&group, &source,
                          uint64_t{only_group_be != 0 ? MTABLE_WALK_GROUP : MTABLE_WALK_ALL}};

    reading->batch->rp_be = rp->rp_be;
    uint32_t result = MTable_Walk(&rp->table, &walk, VisitGroup, reading, VisitSource, reading);

    *cursor = {rp->rp_be, AddressBits(group), AddressBits(source)};
    return result;
}

/*
 * The RP at which the walk goes on: the cursor's. When that is gone, the next RP, which is read from its
 * start, because the cursor's group and source lay in the one that is gone.
 */
const RpNode *RpAtCursor(const MRIB_GMP_VRF_S *vrf, MRIB_MSDP_CURSOR_S *cursor)
    MCAST_REQUIRES_SHARED(vrf->lock)
{
    const RpNode *rp = cursor->rp_be == 0 ? FirstRp(vrf) : FindRp(vrf, cursor->rp_be);
    if (rp == nullptr) {
        rp = RpAfter(vrf, cursor->rp_be);
        cursor->group_be = 0;
        cursor->source_be = 0;
    }
    return rp;
}

} // namespace

uint32_t MRIB_MSDP_IsSSMGroup(uint32_t vrf_index, uint32_t group_be)
{
    MRIB_GMP_VRF_S *vrf = VrfAt(static_cast<uint16_t>(vrf_index));

    if (vrf == nullptr) {
        return IsSsmGroup(vrf_index, MCAST_NONE, group_be) ? 1 : 0;
    }
    ReadGuard guard(vrf->lock);

    return IsSsmGroup(vrf_index, vrf->ssm_acl, group_be) ? 1 : 0;
}

uint64_t MRIB_MSDP_GetSGCntOfOneRP(uint32_t vrf_index, uint32_t rp_be, uint32_t *count)
{
    MRIB_GMP_VRF_S *vrf = VrfAt(static_cast<uint16_t>(vrf_index));

    if (vrf == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    ReadGuard guard(vrf->lock);
    const RpNode *rp = rp_be == 0 ? FirstRp(vrf) : FindRp(vrf, rp_be);

    if (rp == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    *count = rp->table.source_count;
    return MCAST_OK;
}

uint64_t MRIB_MSDP_GetLocalSrc(uint32_t vrf_index, const MRIB_MSDP_FILTER_S *filter,
                               MRIB_MSDP_CURSOR_S *cursor, MRIB_MSDP_BATCH_S *batch)
{
    MRIB_GMP_VRF_S *vrf = VrfAt(static_cast<uint16_t>(vrf_index));

    batch->count = 0;
    if (vrf == nullptr) {
        *cursor = {0, filter->group_be, 0};
        return MCAST_OK;
    }
    ReadGuard guard(vrf->lock);
    const RpNode *rp = RpAtCursor(vrf, cursor);

    if (rp == nullptr) {
        *cursor = {0, filter->group_be, 0};
        return MCAST_OK;
    }
    Reading reading = {filter, batch,
                       filter->limit < MRIB_MSDP_BATCH_MAX ? filter->limit : MRIB_MSDP_BATCH_MAX, vrf_index,
                       vrf->ssm_acl};
    uint32_t result = ReadRp(rp, &reading, cursor);

    if (result != MCAST_OK) {
        return result;
    }
    const RpNode *next = RpAfter(vrf, rp->rp_be);

    *cursor = {next == nullptr ? 0 : next->rp_be, filter->group_be, 0};
    return MCAST_OK;
}

uint64_t MRIB_MSDP_DeleteVrfData(MRIB_GMP_VRF_S *vrf)
{
    if (vrf->msdp_local_source != 0) {
        AVL_FreeAll(vrf->msdp_local_source);
    }
    return MCAST_OK;
}
