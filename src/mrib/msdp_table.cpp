/*
 * The local sources that the MRIB has told of, per instance and in three levels.
 *
 *   vrf->msdp_local_source --> RpNode 10.0.0.1 --> SourceGroup 239.1.1.1 --> GroupSource 192.0.2.1
 *                          |                   |                         +-> GroupSource 192.0.2.7
 *                          |                   +-> SourceGroup 239.1.1.2 --> ...
 *                          +-> RpNode 10.0.0.2 --> ...
 *
 * A node exists only while something hangs below it, so whatever removes the last source removes its group
 * and then its RP, and an addition that fails half-way takes back the levels that it had made. Every node
 * carries a stale mark: a replay clears it on the way down to the sources that it names, and the sweep at its
 * end takes what is still marked, whole branches at once.
 *
 * Everything here runs under the instance's lock.
 */
#include "mrib/msdp_table.h"

#include <endian.h>
#include <stdlib.h>
#include <string.h>

namespace mcast
{
namespace
{

int32_t CompareAddresses(uint32_t first_be, uint32_t second_be)
{
    uint32_t first = be32toh(first_be);
    uint32_t second = be32toh(second_be);
    return (first > second) - (first < second);
}

int32_t CompareRpWithKey(const void *record, const void *key)
{
    return CompareAddresses(static_cast<const RpNode *>(record)->rp_be, *static_cast<const uint32_t *>(key));
}

SourceGroup *GroupOf(MTABLE_GROUP_S *head)
{
    return reinterpret_cast<SourceGroup *>(head);
}

GroupSource *SourceOf(MTABLE_SOURCE_S *head)
{
    return reinterpret_cast<GroupSource *>(head);
}

/* Walks the sources of a group; the current one may be removed once the next is known. */
GroupSource *FirstSource(const SourceGroup *group)
{
    return static_cast<GroupSource *>(AVL_GetLeftMost(group->head.sources));
}

GroupSource *NextSource(const SourceGroup *group, const GroupSource *source)
{
    return static_cast<GroupSource *>(AVL_GetNext(group->head.sources, source));
}

SourceGroup *NextGroup(const RpNode *rp, const SourceGroup *group)
{
    return GroupOf(MTable_GetNextGroup(&rp->table, group == nullptr ? nullptr : &group->head.address));
}

void DeleteSource(SourceGroup *group, GroupSource *source)
{
    MTable_RemoveSource(&group->head, &source->head);
    free(source);
}

/* With all its sources. */
void DeleteGroup(RpNode *rp, SourceGroup *group)
{
    MTable_RemoveGroup(&rp->table, &group->head);
    MTable_FiniGroup(&group->head);
    free(group);
}

/* With all its groups. */
void DeleteRp(MRIB_GMP_VRF_S *vrf, RpNode *rp) MCAST_REQUIRES(vrf->lock)
{
    AVL_Remove(vrf->msdp_local_source, rp);
    FreeRpNode(rp);
}

void DeleteGroupIfEmpty(RpNode *rp, SourceGroup *group)
{
    if (AVL_Count(group->head.sources) == 0) {
        DeleteGroup(rp, group);
    }
}

void DeleteRpIfEmpty(MRIB_GMP_VRF_S *vrf, RpNode *rp) MCAST_REQUIRES(vrf->lock)
{
    if (rp->table.group_count == 0) {
        DeleteRp(vrf, rp);
    }
}

RpNode *CreateRp(MRIB_GMP_VRF_S *vrf, uint32_t rp_be) MCAST_REQUIRES(vrf->lock)
{
    RpNode *rp = static_cast<RpNode *>(calloc(1, sizeof(*rp)));
    if (rp == nullptr) {
        return nullptr;
    }
    rp->rp_be = rp_be;
    if (MTable_Init(&rp->table, MCAST_FreeFunc) != MCAST_OK || vrf->msdp_local_source == 0 ||
        AVL_Insert(vrf->msdp_local_source, rp) != 0) {
        FreeRpNode(rp);
        return nullptr;
    }
    return rp;
}

SourceGroup *CreateGroup(RpNode *rp, const MCAST_ADDR_S &address)
{
    SourceGroup *group = static_cast<SourceGroup *>(calloc(1, sizeof(*group)));
    if (group == nullptr) {
        return nullptr;
    }
    if (MTable_InitGroup(&group->head, &address, MCAST_FreeFunc) != MCAST_OK ||
        MTable_InsertGroup(&rp->table, &group->head) != MCAST_OK) {
        MTable_FiniGroup(&group->head);
        free(group);
        return nullptr;
    }
    return group;
}

GroupSource *CreateSource(SourceGroup *group, const MCAST_ADDR_S &address)
{
    GroupSource *source = static_cast<GroupSource *>(calloc(1, sizeof(*source)));
    if (source == nullptr) {
        return nullptr;
    }
    source->head.address = address;
    if (MTable_InsertSource(&group->head, &source->head) != MCAST_OK) {
        free(source);
        return nullptr;
    }
    return source;
}

/* Finds or creates the source under the group. */
bool ConfirmSource(SourceGroup *group, const MCAST_ADDR_S &address)
{
    GroupSource *source = SourceOf(MTable_SearchSourceInGroup(&group->head, &address));
    if (source == nullptr) {
        source = CreateSource(group, address);
    }
    if (source == nullptr) {
        return false;
    }
    source->flags &= ~kStale;
    return true;
}

/* Finds or creates the group under the RP, and the source under it. */
bool ConfirmGroup(RpNode *rp, const MCAST_ADDR_S &address, const MCAST_ADDR_S &source)
{
    SourceGroup *group = GroupOf(MTable_SearchGroup(&rp->table, &address));

    if (group == nullptr) {
        group = CreateGroup(rp, address);
    }
    if (group == nullptr) {
        return false;
    }
    group->flags &= ~kStale;
    bool done = ConfirmSource(group, source);

    DeleteGroupIfEmpty(rp, group);
    return done;
}

void SweepGroup(RpNode *rp, SourceGroup *group)
{
    GroupSource *next = nullptr;
    if ((group->flags & kStale) != 0) {
        DeleteGroup(rp, group);
        return;
    }
    for (GroupSource *source = FirstSource(group); source != nullptr; source = next) {
        next = NextSource(group, source);
        if ((source->flags & kStale) != 0) {
            DeleteSource(group, source);
        }
    }
    DeleteGroupIfEmpty(rp, group);
}

void SweepRp(MRIB_GMP_VRF_S *vrf, RpNode *rp) MCAST_REQUIRES(vrf->lock)
{
    SourceGroup *next = nullptr;
    if ((rp->flags & kStale) != 0) {
        DeleteRp(vrf, rp);
        return;
    }
    for (SourceGroup *group = NextGroup(rp, nullptr); group != nullptr; group = next) {
        next = NextGroup(rp, group);
        SweepGroup(rp, group);
    }
    DeleteRpIfEmpty(vrf, rp);
}

void MarkGroup(SourceGroup *group)
{
    group->flags |= kStale;
    for (GroupSource *source = FirstSource(group); source != nullptr; source = NextSource(group, source)) {
        source->flags |= kStale;
    }
}

} // namespace

int32_t CompareRpNodes(const void *first, const void *second)
{
    return CompareAddresses(static_cast<const RpNode *>(first)->rp_be,
                            static_cast<const RpNode *>(second)->rp_be);
}

void FreeRpNode(void *node)
{
    MTable_Fini(&static_cast<RpNode *>(node)->table);
    free(node);
}

RpNode *FindRp(const MRIB_GMP_VRF_S *vrf, uint32_t rp_be)
{
    if (vrf->msdp_local_source == 0) {
        return nullptr;
    }
    return static_cast<RpNode *>(AVL_Get(vrf->msdp_local_source, &rp_be, CompareRpWithKey));
}

RpNode *FirstRp(const MRIB_GMP_VRF_S *vrf)
{
    return vrf->msdp_local_source == 0 ? nullptr
                                       : static_cast<RpNode *>(AVL_GetLeftMost(vrf->msdp_local_source));
}

RpNode *RpAfter(const MRIB_GMP_VRF_S *vrf, uint32_t rp_be)
{
    RpNode probe = {};
    probe.rp_be = rp_be;
    return vrf->msdp_local_source == 0 ? nullptr
                                       : static_cast<RpNode *>(AVL_GetNext(vrf->msdp_local_source, &probe));
}

bool AddLocalSource(MRIB_GMP_VRF_S *vrf, uint32_t rp_be, uint32_t group_be, uint32_t source_be)
{
    RpNode *rp = FindRp(vrf, rp_be);

    if (rp == nullptr) {
        rp = CreateRp(vrf, rp_be);
    }
    if (rp == nullptr) {
        return false;
    }
    rp->flags &= ~kStale;
    bool done = ConfirmGroup(rp, AddressOf(group_be), AddressOf(source_be));

    DeleteRpIfEmpty(vrf, rp);
    return done;
}

void RemoveLocalSource(MRIB_GMP_VRF_S *vrf, uint32_t group_be, uint32_t source_be)
{
    const MCAST_ADDR_S group_address = AddressOf(group_be);
    const MCAST_ADDR_S source_address = AddressOf(source_be);

    for (RpNode *rp = FirstRp(vrf); rp != nullptr; rp = RpAfter(vrf, rp->rp_be)) {
        GroupSource *source = SourceOf(MTable_SearchSource(&rp->table, &group_address, &source_address));

        if (source != nullptr) {
            SourceGroup *group = GroupOf(source->head.group);

            DeleteSource(group, source);
            DeleteGroupIfEmpty(rp, group);
            DeleteRpIfEmpty(vrf, rp);
            return;
        }
    }
}

void MarkLocalSourcesStale(MRIB_GMP_VRF_S *vrf)
{
    for (RpNode *rp = FirstRp(vrf); rp != nullptr; rp = RpAfter(vrf, rp->rp_be)) {
        rp->flags |= kStale;
        for (SourceGroup *group = NextGroup(rp, nullptr); group != nullptr; group = NextGroup(rp, group)) {
            MarkGroup(group);
        }
    }
}

void SweepLocalSources(MRIB_GMP_VRF_S *vrf)
{
    RpNode *next = nullptr;
    for (RpNode *rp = FirstRp(vrf); rp != nullptr; rp = next) {
        next = RpAfter(vrf, rp->rp_be);
        SweepRp(vrf, rp);
    }
}

MCAST_ADDR_S AddressOf(uint32_t address_be)
{
    MCAST_ADDR_S address = {};
    address.family = MCAST_FAMILY_IPV4;
    memcpy(address.address, &address_be, sizeof(address_be));
    return address;
}

uint32_t AddressBits(const MCAST_ADDR_S &address)
{
    uint32_t address_be = 0;
    memcpy(&address_be, address.address, sizeof(address_be));
    return address_be;
}

} // namespace mcast
