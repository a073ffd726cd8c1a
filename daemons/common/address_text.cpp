#include "daemons/common/address_text.h"

#include <arpa/inet.h>
#include <cstring>

#include "mcast/addr.h"

namespace mcastd
{

std::optional<MCAST_ADDR_S> parse_address(const std::string &text)
{
    MCAST_ADDR_S address{};
    uint32_t ipv4 = 0;

    if (text.find('\0') != std::string::npos) { // the library would read up to it
        return std::nullopt;
    }
    if (MCAST_StrToIP4(text.c_str(), &ipv4) == MCAST_OK) {
        const uint32_t ipv4_be = htonl(ipv4);

        address.family = MCAST_FAMILY_IPV4;
        memcpy(address.address, &ipv4_be, sizeof(ipv4_be));
        return address;
    }
    return MCAST_StrToInet6Addr(text.c_str(), &address) == 1 ? std::optional(address) : std::nullopt;
}

} // namespace mcastd
