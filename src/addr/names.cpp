#include "mcast/addr.h"

namespace
{

/* The IPv4 components have even identifiers; each one's IPv6 twin has the next. */
constexpr uint32_t kFirstMid4 = 2;
constexpr uint32_t kLastMid4 = 6;

} // namespace

const char *MCAST_GetRouteType(uint8_t route_type)
{
    switch (route_type) {
    case 1:
        return "unicast (direct)";
    case 4:
    case 5:
    case 6:
        return "igp";
    case 10:
        return "egp";
    case 17:
        return "multicast static";
    case 200:
        return "mbgp";
    default:
        return "unicast";
    }
}

uint32_t MCAST_Mid4ToMid6(uint32_t mid)
{
    return mid % 2 == 0 && mid >= kFirstMid4 && mid <= kLastMid4 ? mid + 1 : mid;
}

uint32_t MCAST_Mid6ToMid4(uint32_t mid)
{
    return mid % 2 == 1 && mid > kFirstMid4 && mid <= kLastMid4 + 1 ? mid - 1 : mid;
}
