#include "daemons/mribd/current_view.h"

#include <utility>

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"
#include "mcast/acl_filter.h"

namespace mribd
{
namespace
{

// A missing or empty list matches no group, which is rarely intended.
void warn_of_lists(uint8_t family, const Config &config)
{
    for (const auto &[vrf_index, instance] : config.instances) {
        const uint32_t list = instance.ssm_acl[family_row(family)];
        if (list != MCAST_NONE && MCAST_IsAclValid(&family, list) != MCAST_TRUE) {
            mcastd::log_warning("instance %u: ssm_acl names %s list %u, which does not exist or has no rules",
                                unsigned{vrf_index}, family_name(family), list);
        }
    }
}

} // namespace

CurrentView::CurrentView(const Routers &routers) : routers_(routers)
{
    refresh();
}

void CurrentView::configure(const Config &config)
{
    warn_of_lists(routers_.family(), config);
    config_ = config;
    stale_ = true;
}

std::optional<View> CurrentView::refresh()
{
    if (!stale_) {
        return std::nullopt;
    }
    View fresh = make_view(routers_.family(), config_, routers_.designated_interfaces(),
                           routers_.common().environment(), routers_.pim_interfaces());
    stale_ = false; // only now that there was memory for it
    if (fresh == view_) {
        return std::nullopt;
    }
    return std::exchange(view_, std::move(fresh));
}

} // namespace mribd
