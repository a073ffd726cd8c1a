/*
 * Which addresses may be a routed group, a source, a route.
 *
 * A group must reach beyond its link: 224.0.0.0/24 and the IPv6 scopes up to link-local (2) never leave it,
 * so a router has nothing to forward for them. In IPv6 the group bytes are
 *
 *      byte 0   byte 1            bytes 2 to 15
 *     +--------+-------+-------+----------------+
 *     |  0xff  | flags | scope | group          |
 *     +--------+-------+-------+----------------+
 *
 * and an address with neither flags nor group, ff0S::, is reserved in every scope.
 *
 * The source rules differ in one point: configuration and data sources exclude IPv6 link-local addresses,
 * which cannot be routed back to, while the packets of the protocols themselves are sent from them.
 */
#include "addr/bytes.h"
#include "mcast/addr.h"

namespace
{

using mcast::AllZero;
using mcast::Ipv4HostOrder;
using mcast::Truth;

constexpr uint32_t kLastLinkLocalGroup = 0xe00000ff;
constexpr unsigned kLinkLocalScope = 2;

bool IsIpv4(const MCAST_ADDR_S *addr)
{
    return addr->family == MCAST_FAMILY_IPV4;
}

bool IsIpv6Multicast(const uint8_t *bytes)
{
    return bytes[0] == 0xff;
}

bool IsIpv6LinkLocal(const uint8_t *bytes)
{
    return bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80;
}

bool IsUnspecifiedOrLoopback(const uint8_t *bytes)
{
    return AllZero(bytes, 15) && bytes[15] <= 1;
}

/* Flags zero and nothing behind the scope. */
bool IsBareScope(const uint8_t *bytes)
{
    return (bytes[1] & 0xf0) == 0 && AllZero(bytes + 2, 14);
}

bool IsIpv4Source(uint32_t addr)
{
    uint32_t network = addr >> 24;
    return network != 0 && network != 127 && network < 224;
}

bool IsIpv6ProtocolSource(const uint8_t *bytes)
{
    return !IsUnspecifiedOrLoopback(bytes) && !IsIpv6Multicast(bytes);
}

} // namespace

MCAST_BOOL MCAST_GrpAddrCheck(const MCAST_ADDR_S *addr)
{
    if (IsIpv4(addr)) {
        uint32_t group = Ipv4HostOrder(addr);

        return Truth(group >> 28 == 0xe && group > kLastLinkLocalGroup);
    }
    if (!IsIpv6Multicast(addr->address) || (addr->address[1] & 0x0f) <= kLinkLocalScope) {
        return MCAST_FALSE;
    }
    return Truth(!IsBareScope(addr->address));
}

MCAST_BOOL MCAST_IPv4SrcAddrCheck(uint32_t addr)
{
    return Truth(IsIpv4Source(addr));
}

MCAST_BOOL MCAST_SrcAddrCheck(const MCAST_ADDR_S *addr)
{
    if (IsIpv4(addr)) {
        return Truth(IsIpv4Source(Ipv4HostOrder(addr)));
    }
    return Truth(IsIpv6ProtocolSource(addr->address) && !IsIpv6LinkLocal(addr->address));
}

MCAST_STATUS MCAST_ProtoSrcAddrCheck(const MCAST_ADDR_S *addr)
{
    bool usable = IsIpv4(addr) ? IsIpv4Source(Ipv4HostOrder(addr)) : IsIpv6ProtocolSource(addr->address);
    return usable ? MCAST_OK : MCAST_ERR_GENERAL;
}

MCAST_BOOL MCAST_IsIPv6AddrRoutable(const MCAST_ADDR_S *addr)
{
    if (AllZero(addr->address, IsIpv4(addr) ? 4 : 16)) {
        return MCAST_FALSE;
    }
    /* Records of both families take the byte tests: callers rely on it for IPv4 records too. */
    return Truth(!IsIpv6LinkLocal(addr->address) && !IsIpv6Multicast(addr->address));
}

MCAST_BOOL MCAST_IsReservedGroupAddr(const uint8_t addr[16])
{
    return Truth(IsIpv6Multicast(addr) && IsBareScope(addr));
}
