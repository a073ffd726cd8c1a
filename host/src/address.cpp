#include "mcasthost/address.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstring>
#include <string_view>

namespace
{

constexpr uint32_t IPV4_BITS = 32;
constexpr uint32_t IPV6_BITS = 128;

static_assert(MCAST_FAMILY_IPV4 == AF_INET && MCAST_FAMILY_IPV6 == AF_INET6);
static_assert(HOST_ADDRESS_TEXT_SIZE == INET6_ADDRSTRLEN);

// Decimal digits and nothing else, at most three, up to limit.
bool read_length(std::string_view text, uint32_t limit, uint32_t *length)
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.size() > 3 || value > limit) {
        return false;
    }
    *length = value;
    return true;
}

} // namespace

uint32_t HOST_AddressFromText(const char *text, MCAST_ADDR_S *address)
{
    if (text == nullptr || address == nullptr) {
        return HOST_FAILED;
    }
    MCAST_ADDR_S parsed = {};
    if (inet_pton(AF_INET, text, parsed.address) == 1) {
        parsed.family = MCAST_FAMILY_IPV4;
    } else if (inet_pton(AF_INET6, text, parsed.address) == 1) {
        parsed.family = MCAST_FAMILY_IPV6;
    } else {
        return HOST_FAILED;
    }
    *address = parsed;
    return 0;
}

uint32_t HOST_PrefixFromText(const char *text, MCAST_ADDR_S *address, uint32_t *length)
{
    if (text == nullptr || address == nullptr || length == nullptr) {
        return HOST_FAILED;
    }
    const std::string_view whole(text);
    const size_t slash = whole.find('/');
    const std::string_view front = whole.substr(0, slash);
    char copy[HOST_ADDRESS_TEXT_SIZE] = {};
    if (front.size() >= sizeof(copy)) {
        return HOST_FAILED;
    }
    memcpy(copy, front.data(), front.size());
    MCAST_ADDR_S parsed;
    if (HOST_AddressFromText(copy, &parsed) != 0) {
        return HOST_FAILED;
    }
    const uint32_t most = parsed.family == MCAST_FAMILY_IPV4 ? IPV4_BITS : IPV6_BITS;
    uint32_t bits = most;
    if (slash != std::string_view::npos && !read_length(whole.substr(slash + 1), most, &bits)) {
        return HOST_FAILED;
    }
    *address = parsed;
    *length = bits;
    return 0;
}

const char *HOST_AddressToText(const MCAST_ADDR_S *address, char *text)
{
    if (inet_ntop(address->family, address->address, text, HOST_ADDRESS_TEXT_SIZE) == nullptr) {
        strcpy(text, "unknown address");
    }
    return text;
}
