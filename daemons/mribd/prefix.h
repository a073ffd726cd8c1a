/*
 * An address prefix: a range of groups.
 */
#ifndef DAEMONS_MRIBD_PREFIX_H
#define DAEMONS_MRIBD_PREFIX_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "mcast/common.h"

namespace mribd
{

struct Prefix {
    MCAST_ADDR_S address{}; // bits beyond the length are zero
    uint8_t length = 0;

    // "239.255.0.0/16"; bits beyond the length may be anything. Nothing for other text.
    static std::optional<Prefix> parse(const std::string &text);

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

} // namespace mribd

#endif
