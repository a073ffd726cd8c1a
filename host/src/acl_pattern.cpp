#include "acl_pattern.h"

#include <arpa/inet.h>
#include <charconv>

namespace host
{
namespace
{

constexpr uint64_t ALL = UINT64_MAX;

unsigned bits_of(AclFamily family)
{
    return family == AclFamily::Ipv4 ? 32 : 128;
}

AclAddress every_bit(AclFamily family)
{
    return family == AclFamily::Ipv4 ? AclAddress{{0, UINT32_MAX}} : AclAddress{{ALL, ALL}};
}

// inet_pton stops at a zero byte, which text from the file may hold.
std::optional<AclAddress> parse_address(AclFamily family, const std::string &text)
{
    if (text.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    if (family == AclFamily::Ipv4) {
        in_addr address;
        return inet_pton(AF_INET, text.c_str(), &address) == 1
                   ? std::optional(acl_address(ntohl(address.s_addr)))
                   : std::nullopt;
    }
    in6_addr address;
    return inet_pton(AF_INET6, text.c_str(), &address) == 1 ? std::optional(acl_address(address.s6_addr))
                                                            : std::nullopt;
}

std::optional<AclAddress> parse_length(AclFamily family, const std::string &text)
{
    const unsigned bits = bits_of(family);
    unsigned length = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (failure != std::errc() || end != text.data() + text.size() || length > bits) {
        return std::nullopt;
    }
    AclAddress care;
    for (unsigned bit = 128 - bits; bit < 128 - bits + length; ++bit) {
        care.words[bit / 64] |= uint64_t{1} << (63 - bit % 64);
    }
    return care;
}

std::optional<AclAddress> parse_wildcard(AclFamily family, const std::string &text)
{
    std::optional<AclAddress> care = parse_address(family, text);
    if (care) {
        const AclAddress every = every_bit(family);
        care->words[0] ^= every.words[0];
        care->words[1] ^= every.words[1];
    }
    return care;
}

} // namespace

std::optional<AclPattern> parse_acl_pattern(AclFamily family, const std::string &text)
{
    if (text == "any") {
        return AclPattern{};
    }
    const size_t separator = text.find_first_of("/ ");
    const std::optional<AclAddress> value = parse_address(family, text.substr(0, separator));
    std::optional<AclAddress> care = every_bit(family);
    if (separator != std::string::npos) {
        const std::string rest = text.substr(separator + 1);
        care = text[separator] == '/' ? parse_length(family, rest) : parse_wildcard(family, rest);
    }
    return value && care ? std::optional(AclPattern{*value, *care}) : std::nullopt;
}

const char *acl_pattern_forms(AclFamily family)
{
    return family == AclFamily::Ipv4
               ? "any, an IPv4 address, ADDRESS/LENGTH (0 to 32), ADDRESS WILDCARD (10.0.0.0 0.255.255.255)"
               : "any, an IPv6 address, ADDRESS/LENGTH (0 to 128), ADDRESS WILDCARD (ff30:: "
                 "f:ffff:ffff:ffff:ffff:ffff:ffff:ffff)";
}

} // namespace host
