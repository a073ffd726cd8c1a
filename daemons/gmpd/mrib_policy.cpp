/*
 * When the view counts. Right after the start it is empty, which is the same as "nothing is enabled and
 * another router is designated everywhere". Taken at its word it would withhold every membership until the
 * replay has ended, a gap in the traffic of each link after each restart of the daemon. So until the first
 * replay has ended only what was said counts against reporting, and an interface of which nothing was said
 * reports; from then on the view decides, silence included. A broken connection does not set this back: the
 * view of the last one holds until the replay of the next has replaced it.
 *
 * Boundaries and the source-specific range count from the record on, since silence means none of them.
 *
 * Changes are noted and applied once after everything that a wake-up brought. So a replay that takes a
 * boundary away and sets a wider one, or a hundred records for one interface, cost one pass and at most one
 * query.
 */
#include "daemons/gmpd/mrib_policy.h"

#include <utility>

#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/trace.h"
#include "mcast/acl_filter.h"

namespace gmpd
{

namespace
{

constexpr uint16_t PUBLIC_INSTANCE = 0;
constexpr uint32_t OPERATION_ADD = 1;

MribPolicy *the_policy;

MRIB_GMP_VRF_KEY_S key_of(const Router &router)
{
    return MRIB_GMP_VRF_KEY_S{router.config.family, PUBLIC_INSTANCE};
}

bool is_public(const MRIB_GMP_VRF_KEY_S *key)
{
    return key->vrf_index == PUBLIC_INSTANCE;
}

} // namespace

MribPolicy::MribPolicy(Router &router) : router_(router), ssm_acl_(MCAST_NONE)
{
    the_policy = this;
}

MribPolicy::~MribPolicy()
{
    the_policy = nullptr;
}

bool MribPolicy::in_ssm_range(const Address &group) const
{
    const MRIB_GMP_VRF_KEY_S key = key_of(router_);

    return MCAST_IsSSMGrp(&key, ssm_acl_, &group) == MCAST_TRUE;
}

Joins MribPolicy::joins_of(const Interface &interface, const Address &group) const
{
    const MRIB_GMP_VRF_KEY_S key = key_of(router_);

    if (MRIB_GMP_CanPassMBoundary(&key, link_of(interface).index, &group) == 0) {
        return Joins::None;
    }
    if (MCAST_GrpFilterByAcl(&key, router_.config.group_list, &group) != MCAST_TRUE) {
        return Joins::Unlisted;
    }
    return in_ssm_range(group) ? Joins::SourcesOnly : Joins::All;
}

bool MribPolicy::reports(const Interface &interface) const
{
    const MRIB_GMP_VRF_KEY_S key = key_of(router_);

    if (!replayed_) {
        return !disabled_ && others_.count(link_of(interface).index) == 0;
    }
    return MRIB_GMP_IsL3McEnabled(&key) == 1 && MRIB_GMP_IsPimDr(&key, link_of(interface).index) == 1;
}

void MribPolicy::add_callbacks(MRIB_GMP_CALLBACKS_S &callbacks)
{
    callbacks.smooth_finished = on_smooth_finished;
    callbacks.vrf_enabled = on_instance;
    callbacks.vrf_disabled = on_instance;
    callbacks.dr_changed = on_designated_router;
    callbacks.boundary_changed = on_boundary;
    callbacks.ssm_policy_changed = on_ssm_policy;
}

void MribPolicy::all_changed()
{
    for (const auto &[index, interface] : router_.interfaces) {
        changed_.insert(index);
    }
}

void MribPolicy::lists_changed()
{
    for (const auto &[index, interface] : router_.interfaces) {
        changed_.insert(index);
        to_ask_.insert(index);
    }
}

void MribPolicy::on_smooth_finished()
{
    mcastd::trace(TraceCategory::Channel, key_of(the_policy->router_), "heard: everything has been said");
    the_policy->replayed_ = true;
    the_policy->all_changed();
}

void MribPolicy::on_instance(const MRIB_GMP_VRF_KEY_S *key)
{
    if (is_public(key)) {
        the_policy->disabled_ = MRIB_GMP_IsL3McEnabled(key) != 1;
        mcastd::trace(TraceCategory::Channel, *key, "heard: multicast is %s",
                      the_policy->disabled_ ? "disabled" : "enabled");
        the_policy->all_changed();
    }
}

void MribPolicy::on_designated_router(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t state)
{
    if (!is_public(key)) {
        return;
    }
    mcastd::trace(TraceCategory::Channel, *key, "heard: %s is designated on %P",
                  state == 1 ? "this router" : "another router", if_index);
    if (state == 1) {
        the_policy->others_.erase(if_index);
    } else if (!the_policy->replayed_) {
        the_policy->others_.insert(if_index);
    }
    the_policy->changed_.insert(if_index);
}

void MribPolicy::on_boundary(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t operation)
{
    if (!is_public(key)) {
        return;
    }
    mcastd::trace(TraceCategory::Channel, *key, "heard: a boundary %s on %P",
                  operation == OPERATION_ADD ? "is" : "is no longer", if_index);
    the_policy->changed_.insert(if_index);
    if (operation != OPERATION_ADD) {
        the_policy->to_ask_.insert(if_index);
    }
}

void MribPolicy::on_ssm_policy(const MRIB_GMP_VRF_KEY_S *key, uint32_t acl_number)
{
    // Every connection begins with the policy, changed or not.
    if (is_public(key) && acl_number != the_policy->ssm_acl_) {
        mcastd::trace(TraceCategory::Channel, *key, "heard: list %d is the source-specific range",
                      static_cast<int32_t>(acl_number));
        the_policy->ssm_acl_ = acl_number;
        the_policy->lists_changed();
    }
}

void MribPolicy::apply_changes()
{
    const std::set<uint32_t> changed = std::exchange(changed_, {});
    const std::set<uint32_t> to_ask = std::exchange(to_ask_, {});

    for (const auto &[index, interface] : router_.interfaces) {
        if (changed.count(index) != 0) {
            apply_policy(*interface);
        }
        if (to_ask.count(index) != 0) {
            querier_ask_again(*interface);
        }
    }
}

} // namespace gmpd
