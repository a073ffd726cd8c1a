#include "daemons/common/prefix.h"

#include <algorithm>
#include <charconv>

#include "daemons/common/address.h"
#include "daemons/common/line_format.h"
#include "mcast/addr.h"
#include "mcast/argument_check.h"

namespace mcastd
{

Prefix Prefix::of(const MCAST_ADDR_S &address, uint8_t length)
{
    Prefix prefix{address, length};
    for (unsigned i = 0; i < sizeof(address.address); ++i) {
        const unsigned kept = length > 8 * i ? std::min(length - 8 * i, 8u) : 0;
        prefix.address.address[i] &= static_cast<uint8_t>(0xff00u >> kept);
    }
    return prefix;
}

std::optional<Prefix> Prefix::parse(const std::string &text)
{
    const size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const auto address = parse_address(text.substr(0, slash));
    uint8_t length = 0;
    const char *end = text.data() + text.size();
    const auto number = std::from_chars(text.data() + slash + 1, end, length);
    if (!address || number.ec != std::errc() || number.ptr != end || length > address_bits(address->family)) {
        return std::nullopt;
    }
    return of(*address, length);
}

bool Prefix::covers(const MCAST_ADDR_S &other) const
{
    return address.family == other.family && shares_prefix(address, other, length);
}

bool Prefix::covers(const Prefix &other) const
{
    return length <= other.length && covers(other.address);
}

bool Prefix::is_routable_range() const
{
    const Prefix all_groups = address.family == MCAST_FAMILY_IPV4 ? Prefix{g_stMcastDefGrpAddr4, 4}
                                                                  : Prefix{g_stMcastDefGrpAddr6, 8};
    return all_groups.covers(*this) && MCAST_GrpRangeCheck(&address, length) == MCAST_TRUE;
}

std::string Prefix::text() const
{
    return formatted("%A/%u", &address, length);
}

} // namespace mcastd
