/*
 * IPv4 addresses and (source, group) pairs. MSDP knows no other family. An address is a number in host order
 * here; the channel takes numbers in network order, the library's tables take records.
 */
#ifndef DAEMONS_MSDPD_IPV4_H
#define DAEMONS_MSDPD_IPV4_H

#include <arpa/inet.h>
#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "daemons/common/address.h"
#include "mcast/addr.h"
#include "mcast/common.h"

namespace msdpd
{

struct Ipv4 {
    uint32_t number = 0; // host order

    auto operator<=>(const Ipv4 &) const = default;
};

struct Pair {
    Ipv4 group;
    Ipv4 source;

    auto operator<=>(const Pair &) const = default;
};

inline Ipv4 from_network(uint32_t address_be)
{
    return {ntohl(address_be)};
}

inline uint32_t to_network(Ipv4 address)
{
    return htonl(address.number);
}

inline MCAST_ADDR_S to_record(Ipv4 address)
{
    const uint32_t address_be = to_network(address);
    return mcastd::make_address(MCAST_FAMILY_IPV4, &address_be);
}

inline Ipv4 from_record(const MCAST_ADDR_S &record)
{
    uint32_t address_be;
    memcpy(&address_be, record.address, sizeof(address_be));
    return from_network(address_be);
}

inline std::string to_text(Ipv4 address)
{
    return mcastd::to_text(to_record(address));
}

// As logs show it: (10.1.0.2, 239.1.1.1).
inline std::string to_text(const Pair &pair)
{
    return "(" + to_text(pair.source) + ", " + to_text(pair.group) + ")";
}

inline std::optional<Ipv4> parse_ipv4(const std::string &text)
{
    const auto record = mcastd::parse_address(text);
    return record && record->family == MCAST_FAMILY_IPV4 ? std::optional(from_record(*record)) : std::nullopt;
}

// What a host or router can have: no group, loopback or unspecified address, and no link-local one, which
// means nothing beyond its link.
inline bool is_routable(Ipv4 address)
{
    return MCAST_IPv4SrcAddrCheck(address.number) == MCAST_TRUE && address.number >> 16 != 0xa9fe;
}

// A group that may leave its link.
inline bool is_routable_group(Ipv4 group)
{
    const MCAST_ADDR_S record = to_record(group);
    return group.number >> 28 == 0xe && MCAST_GrpAddrCheck(&record) == MCAST_TRUE;
}

} // namespace msdpd

#endif
