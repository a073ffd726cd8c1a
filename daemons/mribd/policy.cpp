#include "daemons/mribd/policy.h"

#include <utility>

namespace mribd
{

Policy::Policy(const Router &router) : router_(router)
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
    View fresh = make_view(router_.family(), config_, router_.designated_interfaces(), router_.environment());
    if (fresh == view_) {
        return std::nullopt;
    }
    return std::exchange(view_, std::move(fresh));
}

} // namespace mribd
