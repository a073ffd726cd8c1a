#include <bit>

#include "addr/bytes.h"
#include "mcast/addr.h"

namespace
{

/* The shortest group mask: the multicast range itself is a /4. */
constexpr uint32_t kShortestGroupMask = 0xf0000000;

bool IsContiguous(uint32_t mask)
{
    uint32_t negated = 0u - mask;
    return (mask & negated) == negated;
}

} // namespace

MCAST_BOOL MCAST_IsNetworkMask(uint32_t mask, uint16_t kind)
{
    if (kind == MCAST_MASK_KIND_GROUP && mask < kShortestGroupMask) {
        return MCAST_FALSE;
    }
    return mcast::Truth(IsContiguous(mask));
}

MCAST_BOOL MCAST_MaskIsContinous(uint32_t mask)
{
    return mcast::Truth(IsContiguous(mask));
}

uint32_t MCAST_Mask2MaskLen(uint32_t mask)
{
    return 32 - static_cast<uint32_t>(std::countr_zero(mask));
}
