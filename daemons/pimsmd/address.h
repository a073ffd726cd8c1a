/*
 * Addresses as this daemon calls them, and what PIM asks of them.
 */
#ifndef DAEMONS_PIMSMD_ADDRESS_H
#define DAEMONS_PIMSMD_ADDRESS_H

#include "daemons/common/address.h"
#include "daemons/common/prefix.h"

namespace pimsmd
{

using Address = MCAST_ADDR_S;
using mcastd::address_bits;
using mcastd::address_less;
using mcastd::address_size;
using mcastd::any_address;
using mcastd::is_multicast;
using mcastd::is_unspecified;
using mcastd::make_address;
using mcastd::Prefix;
using mcastd::same_address;
using mcastd::to_text;

// Whether the address may be a router's or a source's.
inline bool is_unicast(const Address &address)
{
    return address.family == MCAST_FAMILY_IPV4 ? address.address[0] != 0 && address.address[0] < 0xe0
                                               : address.address[0] != 0xff && !is_unspecified(address);
}

// All groups of the family.
inline Prefix whole_range(uint16_t family)
{
    return Prefix::parse(family == MCAST_FAMILY_IPV4 ? "224.0.0.0/4" : "ff00::/8").value();
}

} // namespace pimsmd

#endif
