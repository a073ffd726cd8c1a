#include "addr/bytes.h"
#include "mcast/argument_check.h"

namespace
{

using mcast::Ipv4HostOrder;
using mcast::Truth;

/* 224.0.0.0/24, whose groups never leave their link. */
constexpr uint32_t kLinkLocalBlock = 0xe0000000;
constexpr uint8_t kLinkLocalPrefix = 24;

/* The IPv6 prefix that covers the whole scope but for its last bit, and the one that covers all of it. */
constexpr uint8_t kScopeAlmostCovered = 15;
constexpr uint8_t kScopeCovered = 16;

bool LiesInLinkLocalBlock(const MCAST_ADDR_S *group)
{
    constexpr uint32_t kMask = 0xffffffffu << (32 - kLinkLocalPrefix);
    return (Ipv4HostOrder(group) & kMask) == kLinkLocalBlock;
}

bool ScopePasses(uint8_t scope, uint8_t prefix_len)
{
    if (prefix_len < kScopeAlmostCovered) {
        return true;
    }
    return prefix_len < kScopeCovered ? scope >= 2 : scope >= 3;
}

} // namespace

MCAST_BOOL MCAST_GrpRangeCheck(const MCAST_ADDR_S *group, uint8_t prefix_len)
{
    if (group->family == MCAST_FAMILY_IPV4) {
        if (Ipv4HostOrder(group) >> 28 != 0xe) {
            return MCAST_FALSE;
        }
    } else {
        if (group->address[0] != 0xff) {
            return MCAST_FALSE;
        }
        if (group->family == MCAST_FAMILY_IPV6) {
            return Truth(ScopePasses(group->address[1] & 0x0f, prefix_len));
        }
    }
    return Truth(prefix_len < kLinkLocalPrefix || !LiesInLinkLocalBlock(group));
}
