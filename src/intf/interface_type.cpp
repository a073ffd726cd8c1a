#include "mcast/interface_registry.h"

namespace
{

/* Platform types that the MIB may not configure. */
constexpr uint32_t kNotSettable[] = {40, 11};

constexpr uint32_t kPrivateTypeMask = 0x1f;

/* Whether the index is private and of one of two types. */
MCAST_BOOL IsOfType(uint32_t if_index, uint32_t first, uint32_t second)
{
    uint32_t type = if_index >> MCAST_IF_TYPE_SHIFT & kPrivateTypeMask;
    return if_index >= MCAST_IF_PRIVATE_FIRST && (type == first || type == second) ? MCAST_TRUE : MCAST_FALSE;
}

} // namespace

MCAST_BOOL MCAST_IsPrivateIfIndex(uint32_t if_index)
{
    return if_index >= MCAST_IF_PRIVATE_FIRST ? MCAST_TRUE : MCAST_FALSE;
}

MCAST_BOOL MCAST_IsMUAIntf(uint32_t if_index)
{
    return IsOfType(if_index, MCAST_IF_TYPE_MUA_IPV4, MCAST_IF_TYPE_MUA_IPV6);
}

MCAST_BOOL MCAST_IsNBMALinkIntf(uint32_t if_index)
{
    return IsOfType(if_index, MCAST_IF_TYPE_NBMA_FIRST, MCAST_IF_TYPE_NBMA_SECOND);
}

uint32_t MCAST_GetIfTypeByIfIndex(uint32_t if_index)
{
    uint32_t type = MCAST_IF_PLATFORM_TYPE_UNKNOWN;
    if (MCAST_IsMUAIntf(if_index) || MCAST_IsNBMALinkIntf(if_index)) {
        return MCAST_IF_PLATFORM_TYPE_PRIVATE;
    }
    (void)IF_GetDataByIfIndex(if_index, IF_ITEM_TYPE, &type);
    return type;
}

uint64_t MCAST_IF_CanMibSet(uint32_t if_index)
{
    uint32_t type = MCAST_IF_PLATFORM_TYPE_UNKNOWN;
    if (MCAST_IsPrivateIfIndex(if_index) || IF_GetDataByIfIndex(if_index, IF_ITEM_TYPE, &type) != 0) {
        return MCAST_MIB_NOT_SETTABLE;
    }
    for (uint32_t refused : kNotSettable) {
        if (type == refused) {
            return MCAST_MIB_NOT_SETTABLE;
        }
    }
    return MCAST_OK;
}
