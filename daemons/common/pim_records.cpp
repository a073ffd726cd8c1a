#include "daemons/common/pim_records.h"

#include "daemons/common/address.h"
#include "mcast/addr.h"

namespace mcastd
{
namespace
{

bool is_group(uint8_t family, const uint8_t *bytes)
{
    const MCAST_ADDR_S group = make_address(family, bytes);
    return MCAST_GrpAddrCheck(&group) == MCAST_TRUE;
}

bool is_source(uint8_t family, const uint8_t *bytes)
{
    const MCAST_ADDR_S source = make_address(family, bytes);
    return MCAST_SrcAddrCheck(&source) == MCAST_TRUE;
}

bool is_any(uint8_t family, const uint8_t *bytes)
{
    return is_unspecified(make_address(family, bytes));
}

// Ranges lie within 224.0.0.0/4 or ff00::/8 and have no bits after their length.
bool is_range(uint8_t family, const uint8_t *bytes, unsigned length)
{
    const bool is_v4 = family == MCAST_FAMILY_IPV4;
    if (length < (is_v4 ? 4u : 8u) || (is_v4 ? (bytes[0] & 0xf0) != 0xe0 : bytes[0] != 0xff)) {
        return false;
    }
    for (unsigned bit = length; bit < address_bits(family); ++bit) {
        if ((bytes[bit / 8] >> (7 - bit % 8) & 1) != 0) {
            return false;
        }
    }
    return true;
}

// Of (S,G), or with any source as well when that is allowed.
PimFault check_addresses(uint8_t family, const uint8_t *source, const uint8_t *group, bool any_allowed)
{
    if (!is_group(family, group)) {
        return PimFault::Group;
    }
    const bool is_usable = is_source(family, source) || (any_allowed && is_any(family, source));
    return is_usable ? PimFault::None : PimFault::Source;
}

} // namespace

PimFault check_pim(uint8_t family, const PimInterface &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    if (value.if_index == 0) {
        return PimFault::Interface;
    }
    return value.state <= PIM_DESIGNATED ? PimFault::None : PimFault::Flags;
}

PimFault check_pim(uint8_t family, const PimTree &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    if (value.from > PIM_FROM_REGISTER || (value.flags & ~PIM_TREE_FLAGS) != 0 ||
        value.group_length > address_bits(family)) {
        return PimFault::Flags;
    }
    if ((value.from == PIM_FROM_INTERFACE) != (value.if_index != 0)) {
        return PimFault::Interface;
    }
    if (value.group_length == address_bits(family)) {
        return check_addresses(family, value.source, value.group, true);
    }
    if (!is_range(family, value.group, value.group_length)) {
        return PimFault::Group;
    }
    return is_any(family, value.source) ? PimFault::None : PimFault::Source;
}

PimFault check_pim(uint8_t family, const PimAssert &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    if (value.if_index == 0) {
        return PimFault::Interface;
    }
    if (value.state > PIM_ASSERT_WON) {
        return PimFault::Flags;
    }
    return check_addresses(family, value.source, value.group, true);
}

PimFault check_pim(uint8_t family, const PimRegistered &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    if (value.present > 1 || is_any(family, value.rp)) {
        return PimFault::Flags;
    }
    return check_addresses(family, value.source, value.group, false);
}

PimFault check_pim(uint8_t family, const PimReplay &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    return (value.events & ~PIM_EVENTS) == 0 ? PimFault::None : PimFault::Flags;
}

PimFault check_pim(uint8_t family, const MRIB_JOIN_PRUNE_S &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    if (value.if_index == 0) {
        return PimFault::Interface;
    }
    if (value.flag1 > MRIB_JOIN_PRUNE_FLAG_JOIN || value.flag2 > MRIB_JOIN_PRUNE_FLAG_EXCLUDE) {
        return PimFault::Flags;
    }
    return check_addresses(family, value.source, value.group, value.flag2 == MRIB_JOIN_PRUNE_FLAG_PLAIN);
}

PimFault check_pim(uint8_t family, const PimSource &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    if (value.state < PIM_SOURCE_NEW || value.state > PIM_SOURCE_GONE || value.connected > 1) {
        return PimFault::Flags;
    }
    return check_addresses(family, value.source, value.group, false);
}

PimFault check_pim(uint8_t family, const PimRemote &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    return value.present > 1 ? PimFault::Flags : check_addresses(family, value.source, value.group, false);
}

PimFault check_pim(uint8_t family, const PimInstance &value)
{
    if (value.family != family) {
        return PimFault::Family;
    }
    constexpr int32_t MOST_VIFS = 32;
    return value.served > 1 || value.register_vif < PIM_NO_VIF || value.register_vif >= MOST_VIFS
               ? PimFault::Flags
               : PimFault::None;
}

} // namespace mcastd
