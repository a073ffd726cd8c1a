#include "mcast/service.h"
#include "platform/vpn.h"

MCAST_STATUS MCAST_GetVrfIndexByIfIndex(uint32_t ifIndex, uint16_t *vrfOut)
{
    uint16_t vrf = 0;
    if (vrfOut == nullptr || L3VPN_GetVrfIndexByIfIndex(ifIndex, &vrf) != 0) {
        return MCAST_ERR_GENERAL;
    }
    *vrfOut = vrf;
    return MCAST_OK;
}

MCAST_BOOL MCAST_VrfIsExist(uint32_t vrfIndex)
{
    uint16_t vrf = static_cast<uint16_t>(vrfIndex);
    char name[L3VPN_NAME_SIZE];
    return vrf == 0 || L3VPN_GetNameByVrfIndex(vrf, sizeof(name), name) == 0 ? MCAST_TRUE : MCAST_FALSE;
}
