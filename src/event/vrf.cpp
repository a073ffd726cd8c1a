#include "mcast/service.h"
#include "platform/vpn.h"

MCAST_STATUS MCAST_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_out)
{
    uint16_t vrf = 0;
    if (vrf_out == nullptr || L3VPN_GetVrfIndexByIfIndex(if_index, &vrf) != 0) {
        return MCAST_ERR_GENERAL;
    }
    *vrf_out = vrf;
    return MCAST_OK;
}

MCAST_BOOL MCAST_VrfIsExist(uint32_t vrf_index)
{
    uint16_t vrf = static_cast<uint16_t>(vrf_index);
    char name[L3VPN_NAME_SIZE];
    return vrf == 0 || L3VPN_GetNameByVrfIndex(vrf, sizeof(name), name) == 0 ? MCAST_TRUE : MCAST_FALSE;
}
