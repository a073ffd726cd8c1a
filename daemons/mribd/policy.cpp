#include "daemons/mribd/policy.h"

#include <utility>

namespace mribd
{

Policy::Policy(const Routers &routers) : routers_(routers)
{
    refresh();
}

void Policy::configure(const Config &config)
{
    config_ = config;
    stale_ = true;
}

std::optional<View> Policy::refresh()
{
    if (!std::exchange(stale_, false)) {
        return std::nullopt;
    }
    View fresh = make_view(routers_.family(), config_, routers_.designated_interfaces(),
                           routers_.common().environment());
    if (fresh == view_) {
        return std::nullopt;
    }
    return std::exchange(view_, std::move(fresh));
}

} // namespace mribd
