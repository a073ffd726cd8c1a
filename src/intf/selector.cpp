/*
 * Tables of interface types, and the selectors made of them. The platform walks a selector's types in the
 * order in which they were added, so the rows of g_astMcastL3If stand in the order of use, not of their
 * codes.
 */
#include <iterator>

#include "mcast/interface_registry.h"

const MCAST_IF_TYPE_ROW_S g_astMcastL3If[29] = {
    {1, "analogmodem"},
    {2, "async"},
    {4, "atm"},
    {6, "bri"},
    {10, "dialer"},
    {16, "loopback"},
    {22, "ethernet_l3"},
    {23, "gigabitethernet_l3"},
    {24, "virtual-ethernet_l3"},
    {25, "ten-gigabitethernet_l3"},
    {27, "mfr"},
    {29, "mp-group"},
    {31, "pos"},
    {35, "serial"},
    {41, "vlan-interface"},
    {42, "virtual-template"},
    {47, "wlan-ethernet"},
    {55, "rpr-router"},
    {67, "route-aggregation"},
    {70, "fortygige_l3"},
    {71, "hundredgige_l3"},
    {39, "tunnel"},
    {89, "twentygige_l3"},
    {97, "efm"},
    {86, "hdlc-bundle"},
    {105, "ve-l3vpn"},
    {110, "reth"},
    {111, "vsi-interface"},
    {0, nullptr},
};

const MCAST_IF_TYPE_ROW_S g_astMcastL3EthernetIf[11] = {
    {22, "ethernet_l3"},
    {23, "gigabitethernet_l3"},
    {24, "virtual-ethernet_l3"},
    {25, "ten-gigabitethernet_l3"},
    {67, "route-aggregation"},
    {70, "fortygige_l3"},
    {71, "hundredgige_l3"},
    {89, "twentygige_l3"},
    {105, "ve-l3vpn"},
    {110, "reth"},
    {0, nullptr},
};

const MCAST_IF_TYPE_ROW_S g_astMcastL3EthVsiIf[12] = {
    {22, "ethernet_l3"},         {23, "gigabitethernet_l3"},
    {24, "virtual-ethernet_l3"}, {25, "ten-gigabitethernet_l3"},
    {67, "route-aggregation"},   {70, "fortygige_l3"},
    {71, "hundredgige_l3"},      {89, "twentygige_l3"},
    {105, "ve-l3vpn"},           {110, "reth"},
    {111, "vsi-interface"},      {0, nullptr},
};

const MCAST_IF_TYPE_ROW_S g_astAuthL3If[13] = {
    {22, "ethernet_l3"},
    {23, "gigabitethernet_l3"},
    {24, "virtual-ethernet_l3"},
    {25, "ten-gigabitethernet_l3"},
    {42, "virtual-template"},
    {67, "route-aggregation"},
    {70, "fortygige_l3"},
    {71, "hundredgige_l3"},
    {89, "twentygige_l3"},
    {105, "ve-l3vpn"},
    {110, "reth"},
    {111, "vsi-interface"},
    {0, nullptr},
};

namespace
{

/* Types that a selector takes after those of the table. */
constexpr uint32_t kMoreForConfiguration[] = {3};
constexpr uint32_t kMoreForQuery[] = {57, 51, 3, 11, 40};

/* The type that the platform may hide. */
constexpr uint32_t kHideableType = 5;

uint64_t Fill(IF_SELECTOR_S *selector, const uint32_t *more, size_t more_count)
{
    uint32_t hidden = 0;

    (void)IF_Select_Init(IF_SELECTOR_LAYER3, selector);
    (void)IF_SelectProperty_Set(IF_PROPERTY_LAYER3, selector);
    for (const MCAST_IF_TYPE_ROW_S *row = g_astMcastL3If; row->name != nullptr; ++row) {
        (void)IF_SelectType_Set(static_cast<uint32_t>(row->type), selector);
    }
    for (size_t i = 0; i < more_count; ++i) {
        (void)IF_SelectType_Set(more[i], selector);
    }

    uint64_t result = IF_GetDataByIfType(kHideableType, IF_TYPE_ITEM_HIDDEN, &hidden);

    return hidden == 0 ? IF_SelectType_Set(kHideableType, selector) : result;
}

} // namespace

uint64_t MCAST_IF_HookForCfg(IF_SELECTOR_S *selector)
{
    return Fill(selector, kMoreForConfiguration, std::size(kMoreForConfiguration));
}

uint64_t MCAST_IF_HookForQuery(IF_SELECTOR_S *selector)
{
    return Fill(selector, kMoreForQuery, std::size(kMoreForQuery));
}
