#include "daemons/mribd/prefix.h"

#include "daemons/mribd/address.h"

#include <arpa/inet.h>
#include <charconv>

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
    const std::string head = text.substr(0, slash);
    const bool is_ipv6 = head.find(':') != std::string::npos;
    const uint8_t family = is_ipv6 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    uint8_t bytes[16] = {};
    Prefix result;
    const char *end = text.data() + text.size();
    const auto number = std::from_chars(text.data() + slash + 1, end, result.length);
    if (inet_pton(is_ipv6 ? AF_INET6 : AF_INET, head.c_str(), bytes) != 1 ||
        head.size() != std::strlen(head.c_str()) || number.ec != std::errc() || number.ptr != end ||
        result.length > full_length(family)) {
        return std::nullopt;
    }
    for (unsigned i = 0; i < sizeof(bytes); i++) {
        const unsigned before = 8 * i;
        bytes[i] &= result.length > before ? mask_of(result.length - before) : uint8_t{0};
    }
    result.address = make_address(family, bytes);
    return result;
}

bool Prefix::covers(const Prefix &other) const
{
    if (address.family != other.address.family || length > other.length) {
        return false;
    }
    for (unsigned i = 0; 8 * i < length; i++) {
        if (((address.address[i] ^ other.address.address[i]) & mask_of(length - 8 * i)) != 0) {
            return false;
        }
    }
    return true;
}

bool Prefix::is_multicast() const
{
    return address.family == MCAST_FAMILY_IPV4 ? length >= 4 && (address.address[0] & 0xf0) == 0xe0
                                               : length >= 8 && address.address[0] == 0xff;
}

std::string Prefix::text() const
{
    char head[INET6_ADDRSTRLEN] = "?";
    inet_ntop(address.family == MCAST_FAMILY_IPV4 ? AF_INET : AF_INET6, address.address, head, sizeof(head));
    return std::string(head) + "/" + std::to_string(length);
}

} // namespace mribd
