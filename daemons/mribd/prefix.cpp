#include "daemons/mribd/prefix.h"

#include <charconv>

#include "daemons/common/address_text.h"
#include "daemons/common/line_format.h"
#include "daemons/mribd/address.h"
#include "mcast/addr.h"
#include "mcast/argument_check.h"

namespace mribd
{
namespace
{

// The byte's bits that belong to a prefix of which length bits are left from this byte on.
uint8_t mask_of(unsigned length)
{
    return length >= 8 ? uint8_t{0xff} : static_cast<uint8_t>(0xff00u >> length);
}

} // namespace

std::optional<Prefix> Prefix::parse(const std::string &text)
{
    const size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const auto address = mcastd::parse_address(text.substr(0, slash));
    Prefix result;
    const char *end = text.data() + text.size();
    const auto number = std::from_chars(text.data() + slash + 1, end, result.length);
    if (!address || number.ec != std::errc() || number.ptr != end ||
        result.length > full_length(static_cast<uint8_t>(address->family))) {
        return std::nullopt;
    }
    result.address = *address;
    for (unsigned i = 0; i < sizeof(result.address.address); ++i) {
        const unsigned before = 8 * i;
        result.address.address[i] &= result.length > before ? mask_of(result.length - before) : uint8_t{0};
    }
    return result;
}

bool Prefix::covers(const Prefix &other) const
{
    if (address.family != other.address.family || length > other.length) {
        return false;
    }
    for (unsigned i = 0; 8 * i < length; ++i) {
        if (((address.address[i] ^ other.address.address[i]) & mask_of(length - 8 * i)) != 0) {
            return false;
        }
    }
    return true;
}

bool Prefix::is_routable_range() const
{
    const Prefix all_groups = address.family == MCAST_FAMILY_IPV4 ? Prefix{g_stMcastDefGrpAddr4, 4}
                                                                  : Prefix{g_stMcastDefGrpAddr6, 8};
    return all_groups.covers(*this) && MCAST_GrpRangeCheck(&address, length) == MCAST_TRUE;
}

std::string Prefix::text() const
{
    return mcastd::formatted("%A/%u", &address, length);
}

} // namespace mribd
