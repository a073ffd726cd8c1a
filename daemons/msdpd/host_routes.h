/*
 * The kernel's unicast routes. Answers are remembered until routes change, since an originator is asked about
 * with each of its announcements. A question that the kernel refuses, for want of memory say, is no answer: the next
 * announcement asks it again.
 */
#ifndef DAEMONS_MSDPD_HOST_ROUTES_H
#define DAEMONS_MSDPD_HOST_ROUTES_H

#include <unordered_map>

#include "daemons/msdpd/routes.h"
#include "mcasthost/route.h"

namespace msdpd
{

class HostRoutes final : public Routes
{
public:
    HostRoutes() = default;
    ~HostRoutes() override;
    HostRoutes(const HostRoutes &) = delete;
    HostRoutes &operator=(const HostRoutes &) = delete;

    // Follows the routes from the event loop. False on failure, which is logged.
    bool open(int loop);

    std::optional<Route> route_to(Ipv4 address) override;

private:
    HOST_ROUTE_LOOKUP lookup_ = nullptr;
    HOST_ROUTE_WATCH watch_ = nullptr;
    std::unordered_map<uint32_t, std::optional<Route>> known_; // by address
};

} // namespace msdpd

#endif
