#include "daemons/mribd/address.h"

#include <cstring>

#include "daemons/common/line_format.h"
#include "mcast/addr.h"

namespace mribd
{

MCAST_ADDR_S make_address(uint8_t family, const void *bytes)
{
    MCAST_ADDR_S address{};
    address.family = family;
    std::memcpy(address.address, bytes, full_length(family) / 8);
    return address;
}

MCAST_ADDR_S any_address(uint8_t family)
{
    return family == MCAST_FAMILY_IPV4 ? g_stMcastDefSrcAddr4 : g_stMcastDefSrcAddr6;
}

bool is_any(const MCAST_ADDR_S &address)
{
    static constexpr uint8_t ZERO[sizeof(address.address)] = {};
    return std::memcmp(address.address, ZERO, sizeof(ZERO)) == 0;
}

unsigned full_length(uint8_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 32 : 128;
}

bool is_routable_source(const MCAST_ADDR_S &source)
{
    const bool is_link_local4 =
        source.family == MCAST_FAMILY_IPV4 && source.address[0] == 169 && source.address[1] == 254;
    return MCAST_SrcAddrCheck(&source) == MCAST_TRUE && !is_link_local4;
}

std::string text(const MCAST_ADDR_S &address)
{
    if (is_any(address)) {
        return "*";
    }
    return mcastd::formatted("%A", &address);
}

const char *family_name(uint8_t family)
{
    return family == MCAST_FAMILY_IPV4 ? "ipv4" : "ipv6";
}

std::string instance_name(const MRIB_GMP_VRF_KEY_S &key)
{
    char bracket[MCAST_VRF_BRACKET_SIZE];
    const std::string family = family_name(key.family);
    return key.vrf_index == 0 ? family : family + " " + MCAST_GetVrfBracketStr(key.vrf_index, bracket);
}

} // namespace mribd
