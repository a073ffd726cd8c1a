/* Interface records of the view: made on demand, deleted when they say nothing any more. */
#include <stdlib.h>

#include "mrib/view.h"

using namespace mcast;

MRIB_GMP_IF_S *mcast::FindInterface(const MRIB_GMP_VRF_S *vrf, uint32_t if_index)
{
    void *data = nullptr;
    if (vrf->if_table == IF_NO_INSTANCE || IF_GetPrivateData(vrf->if_table, if_index, &data) != 0) {
        return nullptr;
    }
    return static_cast<MRIB_GMP_IF_S *>(data);
}

MRIB_GMP_IF_S *mcast::NextInterface(const MRIB_GMP_VRF_S *vrf, InterfaceWalk *walk)
{
    void *data = nullptr;

    if (vrf->if_table == IF_NO_INSTANCE) {
        return nullptr;
    }
    uint32_t result = walk->started
                          ? IF_GetNextPrivateData(vrf->if_table, walk->if_index, &walk->if_index, &data)
                          : IF_GetFirstPrivateData(vrf->if_table, &walk->if_index, &data);

    walk->started = true;
    return result == 0 ? static_cast<MRIB_GMP_IF_S *>(data) : nullptr;
}

void mcast::DeleteIfEmpty(MRIB_GMP_VRF_S *vrf, MRIB_GMP_IF_S *interface)
{
    if (interface->dr_state != 1 && !HasRanges(interface) && !IsMeaningfulScope(interface->scope)) {
        mribGmpDeleteInterface(vrf, interface);
    }
}

void mcast::DeleteAllInterfaces(MRIB_GMP_VRF_S *vrf)
{
    InterfaceWalk walk;
    while (MRIB_GMP_IF_S *interface = NextInterface(vrf, &walk)) {
        mribGmpDeleteInterface(vrf, interface);
    }
}

MRIB_GMP_IF_S *mribGmpCreateInterface(MRIB_GMP_VRF_S *vrf, uint32_t if_index)
{
    MRIB_GMP_IF_S *interface = static_cast<MRIB_GMP_IF_S *>(calloc(1, sizeof(*interface)));
    if (interface == nullptr) {
        return nullptr;
    }
    interface->owner = vrf;
    interface->if_index = if_index;
    interface->tree_index = vrf->key.family == MCAST_FAMILY_IPV4 ? RDX_AFI_IPV4 : RDX_AFI_IPV6;
    if (vrf->if_table == IF_NO_INSTANCE || IF_SetPrivateData(vrf->if_table, if_index, interface, 0) != 0) {
        free(interface);
        return nullptr;
    }
    return interface;
}

void mribGmpDeleteInterface(MRIB_GMP_VRF_S *vrf, MRIB_GMP_IF_S *interface)
{
    IF_DelPrivateData(vrf->if_table, interface->if_index, 0);
    DeleteAllRanges(interface);
    free(interface);
}

void mribGmpDeleteIfAllMBoundry(MRIB_GMP_VRF_S *vrf, uint32_t if_index)
{
    MRIB_GMP_IF_S *interface = FindInterface(vrf, if_index);
    if (interface == nullptr) {
        return;
    }
    DeleteAllRanges(interface);
    interface->flags &= ~uint64_t{MRIB_GMP_IF_SCOPE_STALE};
    interface->scope = 0;
    DeleteIfEmpty(vrf, interface);
}
