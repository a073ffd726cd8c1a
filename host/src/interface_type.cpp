#include "interface_type.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace
{

constexpr uint32_t LOOPBACK = 16;
constexpr uint32_t ETHERNET = 22;
constexpr uint32_t VIRTUAL_ETHERNET = 24;
constexpr uint32_t SERIAL = 35;
constexpr uint32_t TUNNEL = 39;
constexpr uint32_t VLAN = 41;
constexpr uint32_t AGGREGATION = 67;
constexpr uint32_t REDUNDANT_ETHERNET = 110;
constexpr uint32_t SWITCHED_DOMAIN = 111;

constexpr struct {
    const char *kind;
    uint32_t type;
} KINDS[] = {
    {"bareudp", TUNNEL},
    {"bond", AGGREGATION},
    {"bridge", SWITCHED_DOMAIN},
    {"dummy", LOOPBACK},
    {"erspan", TUNNEL},
    {"geneve", TUNNEL},
    {"gre", TUNNEL},
    {"gretap", TUNNEL},
    {"hsr", REDUNDANT_ETHERNET},
    {"ifb", host::TYPE_OTHER},
    {"ip6erspan", TUNNEL},
    {"ip6gre", TUNNEL},
    {"ip6gretap", TUNNEL},
    {"ip6tnl", TUNNEL},
    {"ipip", TUNNEL},
    {"ipvlan", VIRTUAL_ETHERNET},
    {"ipvtap", VIRTUAL_ETHERNET},
    {"macsec", ETHERNET},
    {"macvlan", VIRTUAL_ETHERNET},
    {"macvtap", VIRTUAL_ETHERNET},
    {"nlmon", host::TYPE_OTHER},
    {"ppp", SERIAL},
    {"sit", TUNNEL},
    {"team", AGGREGATION},
    {"tun", TUNNEL},
    {"veth", VIRTUAL_ETHERNET},
    {"virt_wifi", ETHERNET},
    {"vlan", VLAN},
    {"vrf", host::TYPE_OTHER},
    {"vti", TUNNEL},
    {"vti6", TUNNEL},
    {"vxlan", TUNNEL},
    {"wireguard", TUNNEL},
    {"xfrm", TUNNEL},
};

constexpr host::TypeName NAMES[] = {
    {LOOPBACK, "loopback", "loop"},
    {ETHERNET, "ethernet_l3", "eth"},
    {VIRTUAL_ETHERNET, "virtual-ethernet_l3", "veth"},
    {SERIAL, "serial", "ser"},
    {TUNNEL, "tunnel", "tun"},
    {VLAN, "vlan-interface", "vlan"},
    {AGGREGATION, "route-aggregation", "ragg"},
    {REDUNDANT_ETHERNET, "reth", "reth"},
    {SWITCHED_DOMAIN, "vsi-interface", "vsi"},
};

} // namespace

const host::TypeName *host::type_name(uint32_t type)
{
    const auto found = std::find_if(std::begin(NAMES), std::end(NAMES),
                                    [type](const TypeName &name) { return name.type == type; });
    return found == std::end(NAMES) ? nullptr : found;
}

uint32_t host::interface_type(const HOST_LINK_S &link)
{
    for (const auto &row : KINDS) {
        if (strcmp(row.kind, link.kind) == 0) {
            return row.type;
        }
    }
    if ((link.flags & HOST_LINK_LOOPBACK) != 0) {
        return LOOPBACK;
    }
    if ((link.flags & HOST_LINK_POINTTOPOINT) != 0) {
        return SERIAL;
    }
    return (link.flags & HOST_LINK_BROADCAST) != 0 ? ETHERNET : TYPE_OTHER;
}
