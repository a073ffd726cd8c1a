#include "daemons/mribd/rpf.h"

#include "daemons/mribd/address.h"

namespace mribd
{

std::optional<uint32_t> rpf_interface(const Environment &environment, uint16_t vrf_index,
                                      const MCAST_ADDR_S &source, uint32_t current, uint32_t arrival)
{
    if (!is_routable_source(source)) {
        return 0;
    }
    for (const uint32_t seen : {arrival, current}) {
        // Either may have come to another instance since.
        if (seen != 0 && environment.is_on_link(seen, source) && environment.instance_of(seen) == vrf_index) {
            return seen;
        }
    }
    const Environment::Route route = environment.route_to(vrf_index, source);
    if (route.is_unknown) {
        return std::nullopt;
    }
    if (route.is_own && arrival != 0) {
        return arrival;
    }
    return route.if_index;
}

} // namespace mribd
