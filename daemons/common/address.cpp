#include "daemons/common/address.h"

#include <arpa/inet.h>

#include "daemons/common/line_format.h"
#include "mcast/addr.h"

namespace mcastd
{

bool shares_prefix(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second, unsigned bits)
{
    const unsigned whole = bits / 8;
    const unsigned rest = bits % 8;
    if (std::memcmp(first.address, second.address, whole) != 0) {
        return false;
    }
    return rest == 0 || (first.address[whole] ^ second.address[whole]) >> (8 - rest) == 0;
}

std::string to_text(const MCAST_ADDR_S &address)
{
    return formatted("%A", &address);
}

std::string text_or_star(const MCAST_ADDR_S &address)
{
    return is_unspecified(address) ? "*" : to_text(address);
}

std::optional<MCAST_ADDR_S> parse_address(const std::string &text)
{
    if (text.find('\0') != std::string::npos) { // the library would read up to it
        return std::nullopt;
    }
    uint32_t ipv4 = 0;
    if (MCAST_StrToIP4(text.c_str(), &ipv4) == MCAST_OK) {
        const uint32_t ipv4_be = htonl(ipv4);
        return make_address(MCAST_FAMILY_IPV4, &ipv4_be);
    }
    MCAST_ADDR_S ipv6{};
    return MCAST_StrToInet6Addr(text.c_str(), &ipv6) == 1 ? std::optional(ipv6) : std::nullopt;
}

} // namespace mcastd
