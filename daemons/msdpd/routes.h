/*
 * What the unicast routes say, as far as the RPF rules need it.
 */
#ifndef DAEMONS_MSDPD_ROUTES_H
#define DAEMONS_MSDPD_ROUTES_H

#include <cstdint>
#include <optional>

#include "daemons/msdpd/ipv4.h"

namespace msdpd
{

// The way to an address.
struct Route {
    uint32_t if_index = 0;
    Ipv4 gateway; // 0: the address is on the link
    bool is_unknown =
        false; // whether there is one cannot be found out now, later perhaps; the rest says nothing

    bool operator==(const Route &) const = default;
};

class Routes
{
public:
    virtual ~Routes() = default;

    // Nothing when there is no route, or the address is this router's own.
    virtual std::optional<Route> route_to(Ipv4 address) = 0;
};

} // namespace msdpd

#endif
