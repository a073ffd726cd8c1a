#include "daemons/msdpd/host_routes.h"

#include <cerrno>
#include <cstring>

#include "daemons/common/log.h"
#include "daemons/common/route_question.h"

namespace msdpd
{
namespace
{

// Originators come from outside; beyond this many distinct ones memory starts over.
constexpr size_t MOST_KNOWN = 4096;

std::optional<Route> look_up(HOST_ROUTE_LOOKUP lookup, Ipv4 address)
{
    const MCAST_ADDR_S record = to_record(address);
    HOST_ROUTE_S found;

    Route route;

    if (HOST_RouteLookupAsk(lookup, AF_INET, record.address, 0, &found) != 0) {
        route.is_unknown = mcastd::could_not_ask(errno);
        return route.is_unknown ? std::optional(route) : std::nullopt;
    }
    if (found.is_local != 0) {
        return std::nullopt;
    }
    route.if_index = found.if_index;
    if (found.gateway_family == AF_INET) {
        uint32_t gateway_be;

        memcpy(&gateway_be, found.gateway, sizeof(gateway_be));
        route.gateway = from_network(gateway_be);
    }
    return route;
}

} // namespace

HostRoutes::~HostRoutes()
{
    HOST_RouteWatchClose(watch_);
    HOST_RouteLookupClose(lookup_);
}

bool HostRoutes::open(int loop)
{
    lookup_ = HOST_RouteLookupOpen();
    if (lookup_ == nullptr) {
        mcastd::log_error("cannot look up unicast routes: %s", strerror(errno));
        return false;
    }
    watch_ = HOST_RouteWatchOpen(
        loop,
        [](const HOST_ROUTE_CHANGE_S *, void *self) { static_cast<HostRoutes *>(self)->known_.clear(); },
        this);
    if (watch_ == nullptr) {
        mcastd::log_error("cannot follow the unicast routes: %s", strerror(errno));
    }
    return watch_ != nullptr;
}

std::optional<Route> HostRoutes::route_to(Ipv4 address)
{
    const auto found = known_.find(address.number);
    if (found != known_.end()) {
        return found->second;
    }
    const std::optional<Route> route = look_up(lookup_, address);
    if (!route || !route->is_unknown) {
        if (known_.size() >= MOST_KNOWN) {
            known_.clear();
        }
        known_[address.number] = route;
    }
    return route;
}

} // namespace msdpd
