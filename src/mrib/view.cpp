/*
 * The client's view of the MRIB's state: one record an instance, from which interface records hang on demand.
 *
 *   g_stMribGmpVrfInfo
 *     vrfs[i]  lock, state, SSM ACL
 *       if_table --> interface index --> MRIB_GMP_IF_S  DR state, scope
 *                                          boundaries --> MRIB_GMP_BOUNDARY_S ...
 *       msdp_local_source --> RP nodes
 *
 * The lock of an instance guards everything below its record. An interface record exists exactly while it
 * says something: this router is the designated router, a range, or a scope that means something. So the
 * interface table lists only interfaces that matter, and a query that finds no record has its answer at once.
 *
 * Re-synchronisation is by mark and sweep. A new connection or the MRIB's request marks what is known as
 * stale; each replayed record clears the marks of what it confirms; the record that ends a replay removes
 * what is still marked. Notices of removals are collected under the locks and given to the client after the
 * last one is free.
 */
#include "mrib/view.h"

#include "event/guards.h"
#include "mcast/msdp.h"
#include "mrib/msdp_table.h"

MRIB_GMP_VRF_INFO_S g_stMribGmpVrfInfo = {0, nullptr};

using namespace mcast;

namespace
{

void ResetVrf(MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES(vrf->lock)
{
    vrf->l3mc_state = 0;
    vrf->flags = 0;
    vrf->ssm_acl = MCAST_NONE;
    DeleteAllInterfaces(vrf);
    MRIB_MSDP_DeleteVrfData(vrf);
}

} // namespace

bool mcast::InitVrf(MRIB_GMP_VRF_S *vrf, uint8_t family,
                    uint16_t index) MCAST_NO_LOCK_ANALYSIS // nobody has it yet
{
    vrf->key.family = family;
    vrf->key.vrf_index = index;
    vrf->ssm_acl = MCAST_NONE;
    vrf->if_table = IF_CreatePDInstance(2, 0);
    vrf->msdp_local_source = AVL_Init(CompareRpNodes, 0, FreeRpNode);
    pthread_rwlock_init(&vrf->lock.posix, nullptr);
    return vrf->if_table != IF_NO_INSTANCE && vrf->msdp_local_source != 0;
}

void mcast::FiniVrf(MRIB_GMP_VRF_S *vrf)
{
    {
        WriteGuard guard(vrf->lock);

        ResetVrf(vrf);
        if (vrf->if_table != IF_NO_INSTANCE) {
            IF_DestroyPDInstance(vrf->if_table);
        }
        if (vrf->msdp_local_source != 0) {
            AVL_Fini(vrf->msdp_local_source);
        }
    }
    pthread_rwlock_destroy(&vrf->lock.posix);
}

uint64_t MRIB_GMP_DelData(void)
{
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        WriteGuard guard(vrf->lock);

        ResetVrf(vrf);
    }
    return MCAST_OK;
}
