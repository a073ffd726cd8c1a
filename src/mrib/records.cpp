/*
 * Received records that change one thing of the view each.
 *
 * Every one of them goes the same way: find the instance, change it under its write lock, release the lock,
 * tell the client. So a callback finds the change made and may ask for the view itself. A record of an
 * instance that the view does not hold changes nothing and tells nothing.
 *
 * An interface's record exists only while it says something (designated router, scope, ranges); each change
 * that takes something away ends with the question whether it still does. Each change also takes the stale
 * mark from what it confirms: a re-synchronisation marks everything stale and its end removes what is still
 * marked (replay.cpp).
 */
#include <string.h>

#include "event/guards.h"
#include "mcast/msdp.h"
#include "mrib/view.h"

using namespace mcast;

namespace
{

/* The range that a boundary record names, as the interface's tree keeps it. */
RDX_PREFIX_S RangeOf(const MRIB_BOUNDARY_S &record, uint8_t tree_index)
{
    const uint32_t longest = tree_index == RDX_AFI_IPV4 ? 32 : 128;
    RDX_PREFIX_S range = {};
    memcpy(range.address, record.address, record.family == MCAST_FAMILY_IPV4 ? 4 : sizeof(range.address));
    range.length = record.prefix_length < longest ? record.prefix_length : longest;
    return range;
}

/*
 * Applies an added boundary and sets the operation that the client is told. False when it could not be made.
 */
bool AddBoundary(MRIB_GMP_VRF_S *vrf, const MRIB_BOUNDARY_S &record, uint32_t *operation)
    MCAST_REQUIRES(vrf->lock)
{
    MRIB_GMP_IF_S *interface = FindInterface(vrf, record.if_index);
    const bool created = interface == nullptr;
    if (created) {
        interface = mribGmpCreateInterface(vrf, record.if_index);
    }
    if (interface == nullptr) {
        return false;
    }
    if (record.scope_flag == 1) {
        *operation = record.scope >= interface->scope ? 1 : 0;
        interface->scope = record.scope;
        interface->flags &= ~uint64_t{MRIB_GMP_IF_SCOPE_STALE};
        DeleteIfEmpty(vrf, interface);
        return true;
    }
    if (!AddRange(interface, RangeOf(record, interface->tree_index))) {
        if (created) {
            mribGmpDeleteInterface(vrf, interface);
        }
        return false;
    }
    return true;
}

void RemoveBoundary(MRIB_GMP_VRF_S *vrf, const MRIB_BOUNDARY_S &record) MCAST_REQUIRES(vrf->lock)
{
    if (record.remove_all == 1) {
        mribGmpDeleteIfAllMBoundry(vrf, record.if_index);
        return;
    }
    MRIB_GMP_IF_S *interface = FindInterface(vrf, record.if_index);

    if (interface == nullptr) {
        return;
    }
    if (record.scope_flag == 1) {
        interface->flags &= ~uint64_t{MRIB_GMP_IF_SCOPE_STALE};
        interface->scope = 0;
    } else {
        DeleteRangesWithin(interface, RangeOf(record, interface->tree_index));
    }
    DeleteIfEmpty(vrf, interface);
}

bool SetDesignatedRouter(MRIB_GMP_VRF_S *vrf, uint32_t if_index, bool is_dr) MCAST_REQUIRES(vrf->lock)
{
    MRIB_GMP_IF_S *interface = FindInterface(vrf, if_index);
    if (interface == nullptr && is_dr) {
        interface = mribGmpCreateInterface(vrf, if_index);
    }
    if (interface == nullptr) {
        return !is_dr;
    }
    interface->flags &= ~uint64_t{MRIB_GMP_IF_DR_STALE};
    interface->dr_state = is_dr ? 1 : 0;
    DeleteIfEmpty(vrf, interface);
    return true;
}

} // namespace

uint64_t mcast::ApplyVrfState(uint16_t, const void *value)
{
    const MRIB_VRF_STATE_S &record = *static_cast<const MRIB_VRF_STATE_S *>(value);
    const MRIB_GMP_CALLBACKS_S &callbacks = g_stMRIBComponent.callbacks;
    MRIB_GMP_VRF_S *vrf = VrfAt(record.vrf_index);

    if (vrf == nullptr) {
        return MCAST_OK;
    }
    {
        WriteGuard guard(vrf->lock);
        vrf->flags &= ~uint64_t{MRIB_GMP_VRF_STATE_STALE};
        vrf->l3mc_state = record.state;
        if (record.state != 1) {
            DeleteAllInterfaces(vrf);
            MRIB_MSDP_DeleteVrfData(vrf);
        }
    }
    const MRIB_GMP_VRF_KEY_S key = KeyOf(record.vrf_index);
    auto callback = record.state == 1 ? callbacks.vrf_enabled : callbacks.vrf_disabled;

    if (callback != nullptr) {
        callback(&key);
    }
    return MCAST_OK;
}

uint64_t mcast::ApplyBoundary(uint16_t, const void *value)
{
    const MRIB_BOUNDARY_S &record = *static_cast<const MRIB_BOUNDARY_S *>(value);
    MRIB_GMP_VRF_S *vrf = VrfAt(record.vrf_index);
    uint32_t operation = record.operation;

    if (vrf == nullptr) {
        return MCAST_OK;
    }
    {
        WriteGuard guard(vrf->lock);
        if (record.operation != 1) {
            RemoveBoundary(vrf, record);
        } else if (!AddBoundary(vrf, record, &operation)) {
            return MCAST_ERR_GENERAL;
        }
    }
    if (g_stMRIBComponent.callbacks.boundary_changed != nullptr) {
        const MRIB_GMP_VRF_KEY_S key = KeyOf(record.vrf_index);

        g_stMRIBComponent.callbacks.boundary_changed(&key, record.if_index, operation);
    }
    return MCAST_OK;
}

uint64_t mcast::ApplyPimDr(uint16_t, const void *value)
{
    const MRIB_PIM_DR_S &record = *static_cast<const MRIB_PIM_DR_S *>(value);
    MRIB_GMP_VRF_S *vrf = VrfAt(record.vrf_index);
    bool done = false;

    if (vrf == nullptr) {
        return MCAST_OK;
    }
    {
        WriteGuard guard(vrf->lock);
        done = SetDesignatedRouter(vrf, record.if_index, record.state == 1);
    }
    if (g_stMRIBComponent.callbacks.dr_changed != nullptr) {
        const MRIB_GMP_VRF_KEY_S key = KeyOf(record.vrf_index);

        g_stMRIBComponent.callbacks.dr_changed(&key, record.if_index, record.state);
    }
    return done ? MCAST_OK : MCAST_ERR_GENERAL;
}

uint64_t mcast::ApplyFlowControl(uint16_t, const void *value)
{
    MutexGuard guard(g_stMribConnectInfo.lock);
    g_stMribConnectInfo.busy = static_cast<const MRIB_FLOW_CONTROL_S *>(value)->busy;
    return MCAST_OK;
}

uint64_t mcast::ApplySsmPolicy(uint16_t, const void *value)
{
    const MRIB_SSM_POLICY_S &record = *static_cast<const MRIB_SSM_POLICY_S *>(value);
    MRIB_GMP_VRF_S *vrf = VrfAt(record.vrf_index);

    if (vrf == nullptr) {
        return MCAST_OK;
    }
    {
        WriteGuard guard(vrf->lock);
        vrf->flags &= ~uint64_t{MRIB_GMP_VRF_ACL_STALE};
        vrf->ssm_acl = record.acl_number;
    }
    if (g_stMRIBComponent.callbacks.ssm_policy_changed != nullptr) {
        const MRIB_GMP_VRF_KEY_S key = KeyOf(record.vrf_index);

        g_stMRIBComponent.callbacks.ssm_policy_changed(&key, record.acl_number);
    }
    return MCAST_OK;
}
