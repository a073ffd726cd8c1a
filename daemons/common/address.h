/*
 * Small operations on address records of either family. Addresses are bytes in network order; of an IPv4
 * address the bytes behind the first four are zero.
 */
#ifndef DAEMONS_COMMON_ADDRESS_H
#define DAEMONS_COMMON_ADDRESS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "mcast/addr.h"
#include "mcast/common.h"

namespace mcastd
{

// Bytes of an address of the family.
constexpr size_t address_size(uint64_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 4 : 16;
}

// Length in bits of a full-length prefix of the family.
constexpr uint8_t address_bits(uint64_t family)
{
    return static_cast<uint8_t>(8 * address_size(family));
}

// "ipv4" or "ipv6".
constexpr const char *family_name(uint64_t family)
{
    return family == MCAST_FAMILY_IPV4 ? "ipv4" : "ipv6";
}

// The unspecified address of the family; as a source it is any source.
inline MCAST_ADDR_S any_address(uint16_t family)
{
    MCAST_ADDR_S address = family == MCAST_FAMILY_IPV4 ? g_stMcastDefSrcAddr4 : g_stMcastDefSrcAddr6;
    address.family = family; // that of a record received may be neither
    return address;
}

// The record for an address of the family; bytes holds address_size(family) of them.
inline MCAST_ADDR_S make_address(uint16_t family, const void *bytes)
{
    MCAST_ADDR_S address = any_address(family);
    std::memcpy(address.address, bytes, address_size(family));
    return address;
}

inline bool is_multicast(const MCAST_ADDR_S &address)
{
    return address.family == MCAST_FAMILY_IPV4 ? (address.address[0] & 0xf0) == 0xe0
                                               : address.address[0] == 0xff;
}

// Orders addresses of one family as unsigned numbers: negative, 0 or positive.
inline int compare_address(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second)
{
    return std::memcmp(first.address, second.address, sizeof(first.address));
}

inline bool address_less(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second)
{
    return compare_address(first, second) < 0;
}

// Whether two addresses of one family are the same.
inline bool same_address(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second)
{
    return compare_address(first, second) == 0;
}

inline bool is_unspecified(const MCAST_ADDR_S &address)
{
    return same_address(address, any_address(address.family));
}

// Whether the first bits of two addresses of one family agree.
bool shares_prefix(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second, unsigned bits);

// The usual text.
std::string to_text(const MCAST_ADDR_S &address);

// The usual text; "*" for the unspecified address.
std::string text_or_star(const MCAST_ADDR_S &address);

// The address that the whole text is, of either family; nothing when it is none.
std::optional<MCAST_ADDR_S> parse_address(const std::string &text);

} // namespace mcastd

#endif
