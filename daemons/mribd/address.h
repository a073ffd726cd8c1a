/*
 * Small helpers on the address record for mribd.
 */
#ifndef DAEMONS_MRIBD_ADDRESS_H
#define DAEMONS_MRIBD_ADDRESS_H

#include <cstdint>
#include <string>

#include "mcast/common.h"

namespace mribd
{

// The record for an address of the family: 4 or 16 bytes in network order, the rest zero.
MCAST_ADDR_S make_address(uint8_t family, const void *bytes);

// The family's all-zero address: any source.
MCAST_ADDR_S any_address(uint8_t family);

bool is_any(const MCAST_ADDR_S &address);

// 32 or 128.
unsigned full_length(uint8_t family);

// A source whose packets routers forward: what the library accepts as a source, and no link-local address of
// IPv4 either.
bool is_routable_source(const MCAST_ADDR_S &source);

// The usual text of the address; "*" for any source.
std::string text(const MCAST_ADDR_S &address);

// The key of an instance, for trace lines.
constexpr MRIB_GMP_VRF_KEY_S instance_key(uint8_t family, uint16_t vrf_index = 0)
{
    return MRIB_GMP_VRF_KEY_S{family, vrf_index};
}

// "ipv4" or "ipv6".
const char *family_name(uint8_t family);

// The family, and in parentheses the name of an instance other than the public one: "ipv4 (red)".
std::string instance_name(const MRIB_GMP_VRF_KEY_S &key);

} // namespace mribd

#endif
