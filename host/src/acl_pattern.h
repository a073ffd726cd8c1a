// What a rule says about one address: bits to compare, of either family.
#ifndef HOST_SRC_ACL_PATTERN_H
#define HOST_SRC_ACL_PATTERN_H

#include <cstdint>
#include <cstring>
#include <endian.h>
#include <optional>
#include <string>

namespace host
{

enum class AclFamily { Ipv4, Ipv6 };

// An address as two words, the most significant first; IPv4 in the lower half of the second.
struct AclAddress {
    uint64_t words[2] = {0, 0};
};

inline AclAddress acl_address(uint32_t ipv4_host_order)
{
    return {{0, ipv4_host_order}};
}

inline AclAddress acl_address(const uint8_t (&ipv6)[16])
{
    uint64_t words[2];
    memcpy(words, ipv6, sizeof(words));
    return {{be64toh(words[0]), be64toh(words[1])}};
}

struct AclPattern {
    AclAddress value;
    AclAddress care; // the bits that are compared

    // Whether it matches every address.
    bool any() const
    {
        return (care.words[0] | care.words[1]) == 0;
    }

    bool matches(const AclAddress &address) const
    {
        return (((value.words[0] ^ address.words[0]) & care.words[0]) |
                ((value.words[1] ^ address.words[1]) & care.words[1])) == 0;
    }
};

// "any", ADDRESS, ADDRESS/LENGTH or "ADDRESS WILDCARD", where the bits set in WILDCARD are not compared;
// nothing for any other text. Bits of ADDRESS that are not compared may have any value.
std::optional<AclPattern> parse_acl_pattern(AclFamily family, const std::string &text);

// What parse_acl_pattern takes, for errors.
const char *acl_pattern_forms(AclFamily family);

} // namespace host

#endif
