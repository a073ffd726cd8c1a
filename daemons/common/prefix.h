/*
 * An address prefix: all addresses of a family that begin with the same bits.
 */
#ifndef DAEMONS_COMMON_PREFIX_H
#define DAEMONS_COMMON_PREFIX_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "mcast/common.h"

namespace mcastd
{

struct Prefix {
    MCAST_ADDR_S address{}; // bits beyond the length are zero
    uint8_t length = 0;

    // The prefix of that length to which the address belongs.
    static Prefix of(const MCAST_ADDR_S &address, uint8_t length);

    // "239.255.0.0/16"; bits beyond the length may be anything. Nothing for other text.
    static std::optional<Prefix> parse(const std::string &text);

    // Whether the address is in it.
    bool covers(const MCAST_ADDR_S &other) const;

    // Whether the other one lies within this one, equal ones included.
    bool covers(const Prefix &other) const;

    // Whether it holds multicast groups and nothing else, some of which may be routed.
    bool is_routable_range() const;

    std::string text() const;

    bool operator==(const Prefix &other) const
    {
        return length == other.length && std::memcmp(&address, &other.address, sizeof(address)) == 0;
    }

    // By address, then the longer prefix after the shorter one.
    bool operator<(const Prefix &other) const
    {
        const int order = std::memcmp(&address, &other.address, sizeof(address));
        return order < 0 || (order == 0 && length < other.length);
    }
};

} // namespace mcastd

#endif
