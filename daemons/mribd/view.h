/*
 * What the clients of one family are to know: instances, designated routers, boundaries, flow control. A
 * plain value, made anew from the configuration, the querier election and the interfaces that exist, and
 * compared with the one before.
 */
#ifndef DAEMONS_MRIBD_VIEW_H
#define DAEMONS_MRIBD_VIEW_H

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "daemons/mribd/config.h"
#include "daemons/mribd/environment.h"

namespace mribd
{

struct InstanceView {
    bool enabled = true;
    uint32_t ssm_acl = MCAST_NONE;

    bool operator==(const InstanceView &) const = default;
};

struct InterfaceKey {
    uint16_t vrf_index;
    uint32_t if_index;

    auto operator<=>(const InterfaceKey &) const = default;
};

// Whether one of the ranges, none of which covers another, holds the other range, equal ones included. Takes
// logarithmic time.
bool any_covers(const std::set<Prefix> &ranges, const Prefix &other);

// Never empty: has ranges or a scope.
struct BoundaryView {
    std::set<Prefix> ranges; // none covers another
    uint8_t scope = 0;       // IPv6, 3 to 15; 0: none

    bool operator==(const BoundaryView &) const = default;
};

struct View {
    uint16_t busy = 0;
    std::map<uint16_t, InstanceView> instances; // the public one always
    // Of enabled instances only.
    std::set<InterfaceKey> designated;
    std::map<InterfaceKey, BoundaryView> boundaries;

    bool operator==(const View &) const = default;
};

// elected: the interfaces for which the router is designated unless the configuration says otherwise, which it
// cannot where PIM runs, on pim.
View make_view(uint8_t family, const Config &config, const std::set<InterfaceKey> &elected,
               const Environment &environment, const std::set<InterfaceKey> &pim = {});

} // namespace mribd

#endif
