/*
 * Small operations on address records that both families share. Everything is header-only and allocates
 * nothing except to_text.
 */
#ifndef DAEMONS_GMPD_ADDRESS_H
#define DAEMONS_GMPD_ADDRESS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "daemons/common/address_text.h"
#include "daemons/common/line_format.h"
#include "mcast/common.h"

namespace gmpd
{

using Address = MCAST_ADDR_S;

// Bytes of an address of the family.
constexpr size_t address_size(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 4 : 16;
}

// Length in bits of a full-length prefix of the family.
constexpr uint8_t address_bits(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 32 : 128;
}

// The unspecified address of the family.
constexpr Address any_address(uint16_t family)
{
    return Address{family, 0, {}};
}

// The record for address bytes in network order; bytes holds address_size(family) of them.
inline Address make_address(uint16_t family, std::span<const uint8_t> bytes)
{
    Address address = any_address(family);
    memcpy(address.address, bytes.data(), std::min(bytes.size(), address_size(family)));
    return address;
}

// Orders addresses of one family as unsigned numbers: negative, 0 or positive.
inline int compare_address(const Address &first, const Address &second)
{
    return memcmp(first.address, second.address, sizeof(first.address));
}

inline bool address_less(const Address &first, const Address &second)
{
    return compare_address(first, second) < 0;
}

inline bool same_address(const Address &first, const Address &second)
{
    return compare_address(first, second) == 0;
}

inline bool is_unspecified(const Address &address)
{
    return same_address(address, any_address(address.family));
}

inline bool is_multicast(const Address &address)
{
    return address.family == MCAST_FAMILY_IPV4 ? (address.address[0] & 0xf0) == 0xe0
                                               : address.address[0] == 0xff;
}

// 224.0.0.0/24 or ff02::/16: addresses that never leave a link.
inline bool is_link_scope_group(const Address &address)
{
    const uint8_t *bytes = address.address;
    if (address.family == MCAST_FAMILY_IPV4) {
        return bytes[0] == 224 && bytes[1] == 0 && bytes[2] == 0;
    }
    return bytes[0] == 0xff && (bytes[1] & 0x0f) == 2;
}

// fe80::/10. False for every IPv4 address.
inline bool is_link_local6(const Address &address)
{
    return address.family == MCAST_FAMILY_IPV6 && address.address[0] == 0xfe &&
           (address.address[1] & 0xc0) == 0x80;
}

// True when the first bits of both addresses agree.
inline bool shares_prefix(const Address &first, const Address &second, uint8_t bits)
{
    size_t whole = bits / 8;
    uint8_t rest = static_cast<uint8_t>(bits % 8);
    if (memcmp(first.address, second.address, whole) != 0) {
        return false;
    }
    return rest == 0 || ((first.address[whole] ^ second.address[whole]) >> (8 - rest)) == 0;
}

// The usual text form.
inline std::string to_text(const Address &address)
{
    return mcastd::formatted("%A", &address);
}

// An address from its text form; the unspecified IPv4 address when the text is not one.
inline Address from_text(const char *text)
{
    return mcastd::parse_address(text).value_or(any_address(MCAST_FAMILY_IPV4));
}

// 224.0.0.1 or ff02::1, where general queries go.
inline Address all_systems(uint16_t family)
{
    return from_text(family == MCAST_FAMILY_IPV4 ? "224.0.0.1" : "ff02::1");
}

} // namespace gmpd

#endif
