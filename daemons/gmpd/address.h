/*
 * What gmpd asks about addresses, beyond what every daemon does.
 */
#ifndef DAEMONS_GMPD_ADDRESS_H
#define DAEMONS_GMPD_ADDRESS_H

#include <cstdint>

#include "daemons/common/address.h"
#include "daemons/common/prefix.h"
#include "mcast/common.h"

namespace gmpd
{

using Address = MCAST_ADDR_S;

using mcastd::address_bits;
using mcastd::address_less;
using mcastd::address_size;
using mcastd::any_address;
using mcastd::compare_address;
using mcastd::is_multicast;
using mcastd::is_unspecified;
using mcastd::make_address;
using mcastd::Prefix;
using mcastd::same_address;
using mcastd::to_text;

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
