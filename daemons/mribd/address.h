/*
 * What mribd asks about addresses, beyond what every daemon does.
 */
#ifndef DAEMONS_MRIBD_ADDRESS_H
#define DAEMONS_MRIBD_ADDRESS_H

#include <cstdint>
#include <string>

#include "daemons/common/address.h"
#include "daemons/common/prefix.h"
#include "mcast/common.h"

namespace mribd
{

using mcastd::address_bits;
using mcastd::any_address;
using mcastd::family_name;
using mcastd::is_unspecified;
using mcastd::make_address;
using mcastd::Prefix;
using mcastd::text_or_star;

// A source whose packets routers forward: what the library accepts as a source, and no link-local address of
// IPv4 either.
bool is_routable_source(const MCAST_ADDR_S &source);

// The key of an instance, for trace lines.
constexpr MRIB_GMP_VRF_KEY_S instance_key(uint8_t family, uint16_t vrf_index = 0)
{
    return MRIB_GMP_VRF_KEY_S{family, vrf_index};
}

// The family, and in parentheses the name of an instance other than the public one: "ipv4 (red)".
std::string instance_name(const MRIB_GMP_VRF_KEY_S &key);

} // namespace mribd

#endif
