#include "daemons/mribd/address.h"

#include "mcast/addr.h"
#include "mcast/format.h"

namespace mribd
{

bool is_routable_source(const MCAST_ADDR_S &source)
{
    const bool is_link_local4 =
        source.family == MCAST_FAMILY_IPV4 && source.address[0] == 169 && source.address[1] == 254;
    return MCAST_SrcAddrCheck(&source) == MCAST_TRUE && !is_link_local4;
}

std::string instance_name(const MRIB_GMP_VRF_KEY_S &key)
{
    char bracket[MCAST_VRF_BRACKET_SIZE];
    const std::string family = family_name(key.family);
    return key.vrf_index == 0 ? family : family + " " + MCAST_GetVrfBracketStr(key.vrf_index, bracket);
}

} // namespace mribd
