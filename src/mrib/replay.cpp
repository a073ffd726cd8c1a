/*
 * Re-synchronisation with the MRIB. After a new connection the client's view may say what is no longer true.
 * It is not emptied, which would tell the daemon of changes that did not happen, but marked and swept:
 *
 *     SMOOTH_START   everything in the view is marked stale, and each kind of state is asked for again
 *     records        what they confirm loses its mark (records.cpp)
 *     ..._END        what still has its mark is removed, and the daemon is told of exactly that
 *
 * State of the instances and the SSM policy are asked for with the connection itself and marked then; a
 * policy that was not confirmed is given up at SMOOTH_START.
 *
 * The sweep holds an instance's write lock and callbacks may not run under it. So it notes which interfaces
 * changed, and the daemon is told from the notes when all locks are free. When memory for a note is short
 * the view is right all the same and only the callback is missing.
 */
#include <stdlib.h>

#include "event/guards.h"
#include "mcast/msdp.h"
#include "mrib/channel.h"
#include "mrib/view.h"

using namespace mcast;

namespace
{

/* One interface about which the client is to be told once all locks are free. */
struct Notice {
    Notice *next;
    MRIB_GMP_VRF_KEY_S key;
    uint32_t if_index;
};

struct NoticeList {
    Notice *head = nullptr;
    Notice **tail = &head;
};

/* Notes the interface at the end of the list; short memory loses the notice only. */
void Note(NoticeList *list, MRIB_GMP_VRF_KEY_S key, uint32_t if_index)
{
    Notice *notice = static_cast<Notice *>(malloc(sizeof(*notice)));
    if (notice == nullptr) {
        return;
    }
    *notice = {nullptr, key, if_index};
    *list->tail = notice;
    list->tail = &notice->next;
}

using InterfaceCallback = void (*)(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t value);

/* Tells the client about each noted interface, in order, with value 0, and frees the list. */
void TellAndFree(NoticeList *list, InterfaceCallback callback)
{
    while (list->head != nullptr) {
        Notice *notice = list->head;

        list->head = notice->next;
        if (callback != nullptr) {
            callback(&notice->key, notice->if_index, 0);
        }
        free(notice);
    }
}

/* Removes what the DR replay has not confirmed. True when that changed the interface; it may be gone then. */
bool SweepDr(MRIB_GMP_VRF_S *vrf, MRIB_GMP_IF_S *interface) MCAST_REQUIRES(vrf->lock)
{
    if ((interface->flags & MRIB_GMP_IF_DR_STALE) == 0) {
        return false;
    }
    interface->flags &= ~uint64_t{MRIB_GMP_IF_DR_STALE};
    interface->dr_state = 0;
    DeleteIfEmpty(vrf, interface);
    return true;
}

/* Removes what the boundary replay has not confirmed. Result as for SweepDr. */
bool SweepBoundary(MRIB_GMP_VRF_S *vrf, MRIB_GMP_IF_S *interface) MCAST_REQUIRES(vrf->lock)
{
    bool changed = DeleteStaleRanges(interface);
    if ((interface->flags & MRIB_GMP_IF_SCOPE_STALE) != 0) {
        interface->flags &= ~uint64_t{MRIB_GMP_IF_SCOPE_STALE};
        interface->scope = 0;
        changed = true;
    }
    if (changed) {
        DeleteIfEmpty(vrf, interface);
    }
    return changed;
}

void MarkInterfaceStale(MRIB_GMP_IF_S *interface)
{
    if (interface->dr_state == 1) {
        interface->flags |= MRIB_GMP_IF_DR_STALE;
    }
    if (IsMeaningfulScope(interface->scope)) {
        interface->flags |= MRIB_GMP_IF_SCOPE_STALE;
    }
    MarkRangesStale(interface);
}

/* Sweeps every interface of every instance, tells the client, and ends the replay of the smooth bit. */
uint64_t EndReplay(bool (*sweep)(MRIB_GMP_VRF_S *, MRIB_GMP_IF_S *), InterfaceCallback callback,
                   uint64_t smooth)
    MCAST_NO_LOCK_ANALYSIS // sweep expects vrf->lock, which a function pointer cannot say
{
    NoticeList notices;

    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        WriteGuard guard(vrf->lock);
        InterfaceWalk walk;

        while (MRIB_GMP_IF_S *interface = NextInterface(vrf, &walk)) {
            if (sweep(vrf, interface)) {
                Note(&notices, vrf->key, walk.if_index);
            }
        }
    }
    TellAndFree(&notices, callback);
    return MRIB_GMP_ClearSmoothFlag(smooth);
}

/* Forgets an ACL that the policy request of the connection has not confirmed. True when there was one. */
bool ForgetStaleAcl(MRIB_GMP_VRF_S *vrf) MCAST_EXCLUDES(vrf->lock)
{
    WriteGuard guard(vrf->lock);
    if ((vrf->flags & MRIB_GMP_VRF_ACL_STALE) == 0) {
        return false;
    }
    vrf->ssm_acl = MCAST_NONE;
    vrf->flags &= ~uint64_t{MRIB_GMP_VRF_ACL_STALE};
    return true;
}

void MarkViewStale()
{
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        WriteGuard guard(vrf->lock);
        InterfaceWalk walk;

        while (MRIB_GMP_IF_S *interface = NextInterface(vrf, &walk)) {
            MarkInterfaceStale(interface);
        }
    }
}

/*
 * Asks for one replay when the client has the capability, and notes in the smooth flags that it is awaited.
 */
uint64_t RequestReplay(MRIB_GMP_CONNECT_S *connection, uint64_t capability, uint16_t type, uint64_t smooth)
    MCAST_REQUIRES(connection->lock)
{
    if ((g_stMRIBComponent.capability_flags & capability) == 0) {
        return MCAST_OK;
    }
    uint64_t result = MRIB_GMP_SendSmoothRequire(connection, type);

    if (result == MCAST_OK) {
        SetSmoothFlag(smooth);
    }
    return result;
}

} // namespace

uint64_t mcast::ApplyVrfStateEnd(uint16_t, const void *)
{
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        bool unconfirmed = false;

        {
            WriteGuard guard(vrf->lock);

            unconfirmed = (vrf->flags & MRIB_GMP_VRF_STATE_STALE) != 0;
            if (unconfirmed) {
                vrf->l3mc_state = 0;
                vrf->flags &= ~uint64_t{MRIB_GMP_VRF_STATE_STALE};
            }
        }
        if (unconfirmed && g_stMRIBComponent.callbacks.vrf_disabled != nullptr) {
            g_stMRIBComponent.callbacks.vrf_disabled(&vrf->key);
        }
    }
    return MCAST_OK;
}

uint64_t mcast::ApplyPimDrEnd(uint16_t, const void *)
{
    if ((g_stMRIBComponent.capability_flags & MRIB_CAP_DR) == 0) {
        return MCAST_ERR_GENERAL;
    }
    return EndReplay(SweepDr, g_stMRIBComponent.callbacks.dr_changed, MRIB_GMP_SMOOTH_DR);
}

uint64_t mcast::ApplyBoundaryEnd(uint16_t, const void *)
{
    if ((g_stMRIBComponent.capability_flags & MRIB_CAP_BOUNDARY) == 0) {
        return MCAST_ERR_GENERAL;
    }
    return EndReplay(SweepBoundary, g_stMRIBComponent.callbacks.boundary_changed, MRIB_GMP_SMOOTH_BOUNDARY);
}

uint64_t mcast::ApplySmoothStart(uint16_t, const void *)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;

    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];

        if (ForgetStaleAcl(vrf) && g_stMRIBComponent.callbacks.ssm_policy_changed != nullptr) {
            g_stMRIBComponent.callbacks.ssm_policy_changed(&vrf->key, MCAST_NONE);
        }
    }
    MarkViewStale();
    uint64_t result = MCAST_OK;

    {
        MutexGuard guard(connection->lock);

        result = RequestReplay(connection, MRIB_CAP_DR, MRIB_TLV_REQ_PIM_DR, MRIB_GMP_SMOOTH_DR);
        result |=
            RequestReplay(connection, MRIB_CAP_BOUNDARY, MRIB_TLV_REQ_BOUNDARY, MRIB_GMP_SMOOTH_BOUNDARY);
    }
    return result | MRIB_MSDP_SendSmoothLocalSrcRequest();
}
