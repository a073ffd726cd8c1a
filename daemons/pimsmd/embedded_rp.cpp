#include "daemons/pimsmd/embedded_rp.h"

#include <cstring>

namespace pimsmd
{
namespace
{

constexpr uint8_t FLAGS_RPT = 0x70;
constexpr uint8_t LOW_NIBBLE = 0x0f;
constexpr uint8_t SCOPE_LINK = 2;
constexpr uint8_t MOST_PREFIX_BITS = 64;

constexpr size_t AT_FLAGS = 1;
constexpr size_t AT_RIID = 2;
constexpr size_t AT_PREFIX_LENGTH = 3;
constexpr size_t AT_PREFIX = 4;

bool is_link_local(const Address &address)
{
    return address.address[0] == 0xfe && (address.address[1] & 0xc0) == 0x80;
}

} // namespace

bool embeds_rp(const Address &group)
{
    return group.family == MCAST_FAMILY_IPV6 && is_multicast(group) &&
           (group.address[AT_FLAGS] & FLAGS_RPT) == FLAGS_RPT;
}

std::optional<Address> embedded_rp(const Address &group)
{
    if (!embeds_rp(group)) {
        return std::nullopt;
    }
    const uint8_t scope = group.address[AT_FLAGS] & LOW_NIBBLE;
    const uint8_t interface_id = group.address[AT_RIID] & LOW_NIBBLE;
    const uint8_t length = group.address[AT_PREFIX_LENGTH];
    if (scope <= SCOPE_LINK || interface_id == 0 || length == 0 || length > MOST_PREFIX_BITS) {
        return std::nullopt;
    }
    uint8_t bytes[16] = {};

    std::memcpy(bytes, group.address + AT_PREFIX, MOST_PREFIX_BITS / 8);
    Address rp = Prefix::of(make_address(MCAST_FAMILY_IPV6, bytes), length).address;
    rp.address[15] = interface_id;
    if (!is_unicast(rp) || is_link_local(rp)) {
        return std::nullopt;
    }
    return rp;
}

} // namespace pimsmd
