#include "daemons/pimsmd/kernel_routes.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

#include "daemons/common/log.h"
#include "daemons/common/route_question.h"

namespace pimsmd
{

KernelRoutes::~KernelRoutes()
{
    HOST_RouteWatchClose(watch_);
    HOST_RouteLookupClose(lookup_);
}

bool KernelRoutes::open(int loop, std::function<void()> changed)
{
    changed_ = std::move(changed);
    lookup_ = HOST_RouteLookupOpen();
    if (lookup_ == nullptr) {
        mcastd::log_error("cannot look up unicast routes: %s", strerror(errno));
        return false;
    }
    watch_ = HOST_RouteWatchOpen(
        loop,
        [](const HOST_ROUTE_CHANGE_S *change, void *self) {
            auto &routes = *static_cast<KernelRoutes *>(self);

            if (change->family == 0 || change->family == routes.family_) {
                routes.changed_();
            }
        },
        this);
    if (watch_ == nullptr) {
        mcastd::log_error("cannot follow the unicast routes: %s", strerror(errno));
    }
    return watch_ != nullptr;
}

std::optional<UnicastRoute> KernelRoutes::look_up(const Address &address)
{
    HOST_ROUTE_S found;
    UnicastRoute route;
    if (HOST_RouteLookupAsk(lookup_, static_cast<uint8_t>(family_), address.address, 0, &found) != 0) {
        unanswered_ = unanswered_ || mcastd::could_not_ask(errno);
        return std::nullopt;
    }
    route.if_index = found.if_index;
    route.local = found.is_local != 0;
    route.connected = !route.local && found.gateway_family == 0;
    route.next_hop = route.connected ? address : mcastd::any_address(family_);
    if (found.gateway_family == family_) {
        route.next_hop = make_address(family_, found.gateway);
    }
    route.source = make_address(family_, found.source_address);
    route.preference = route.connected ? 0 : 1;
    route.metric = found.metric;
    return route;
}

} // namespace pimsmd
