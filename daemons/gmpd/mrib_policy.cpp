/*
 * When the view counts. Right after the start it is empty, which is the same as "nothing is enabled and
 * another router is designated everywhere". Taken at its word it would withhold every membership until the
 * replay has ended, a gap in the traffic of each link after each restart of the daemon. Until the first replay
 * has ended, therefore, only explicit records count against reporting, and an interface that no record named
 * reports; from then on the view decides, also where it is silent. A broken connection does not set this back: the
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

#include "daemons/common/memory.h"
#include "daemons/common/services.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/trace.h"
#include "mcast/acl_filter.h"

namespace gmpd
{
namespace
{

using mcastd::PUBLIC_INSTANCE;
constexpr uint32_t OPERATION_ADD = 1;

MribPolicy *the_policy;

// Whether the view has room for the instance. Without it nothing was said of it.
bool in_view(const MRIB_GMP_VRF_KEY_S &key)
{
    return key.vrf_index < g_stMribGmpVrfInfo.count;
}

} // namespace

MribPolicy::MribPolicy(Process &process) : process_(process)
{
    the_policy = this;
}

MribPolicy::~MribPolicy()
{
    the_policy = nullptr;
}

// The interface that a record is about; NULL when it is not ours, or no longer in that instance.
const Interface *MribPolicy::find(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index) const
{
    const auto found = process_.interfaces.find(if_index);
    return found != process_.interfaces.end() && found->second->vrf_index == key->vrf_index
               ? found->second.get()
               : nullptr;
}

bool MribPolicy::in_ssm_range(const MRIB_GMP_VRF_KEY_S &key, const Address &group) const
{
    const auto found = ssm_acls_.find(key.vrf_index);
    const uint32_t acl = found == ssm_acls_.end() ? MCAST_NONE : found->second;
    return MCAST_IsSSMGrp(&key, acl, &group) == MCAST_TRUE;
}

Joins MribPolicy::joins_of(const Interface &interface, const Address &group) const
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);
    if (in_view(key) && MRIB_GMP_CanPassMBoundary(&key, interface.index, &group) == 0) {
        return Joins::None;
    }
    if (MCAST_GrpFilterByAcl(&key, process_.config.group_list, &group) != MCAST_TRUE) {
        return Joins::Unlisted;
    }
    return in_ssm_range(key, group) ? Joins::SourcesOnly : Joins::All;
}

bool MribPolicy::reports(const Interface &interface) const
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);
    const uint32_t if_index = interface.index;
    if (!replayed_) {
        return disabled_.count(key.vrf_index) == 0 && others_.count({key.vrf_index, if_index}) == 0;
    }
    return in_view(key) && MRIB_GMP_IsL3McEnabled(&key) == 1 && MRIB_GMP_IsPimDr(&key, if_index) == 1;
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

void MribPolicy::changed_in(const MRIB_GMP_VRF_KEY_S &key, std::set<uint32_t> &changed) const
{
    for (const auto &[index, interface] : process_.interfaces) {
        if (interface->vrf_index == key.vrf_index) {
            changed.insert(index);
        }
    }
}

void MribPolicy::all_changed()
{
    for (const auto &[index, interface] : process_.interfaces) {
        changed_.insert(index);
    }
}

void MribPolicy::lists_changed()
{
    all_changed();
    to_ask_.insert(changed_.begin(), changed_.end());
}

void MribPolicy::start_over()
{
    replayed_ = false;
    ssm_acls_.clear();
    disabled_.clear();
    others_.clear();
    all_changed();
}

// Does the work, or sees to it that everything is looked at when there is memory.
template <typename Work> void MribPolicy::note(const char *what, const Work &work)
{
    missed_ |= !mcastd::memory_unit(what, work);
}

void MribPolicy::on_smooth_finished()
{
    mcastd::trace(TraceCategory::Channel, {the_policy->process_.config.family, PUBLIC_INSTANCE},
                  "heard: everything has been said");
    the_policy->replayed_ = true;
    the_policy->to_tell_ = the_policy->heard_; // it asks for everything again, this router's side too
    the_policy->heard_ = true;
    the_policy->note("the end of a replay", [] { the_policy->all_changed(); });
}

void MribPolicy::connected()
{
    heard_ = false;
    to_tell_ = false;
}

// The MRIB process ignores what is said of an instance that it does not serve, so that it is said again of
// one that it begins to serve. The public one it always serves.
void MribPolicy::on_instance(const MRIB_GMP_VRF_KEY_S *key)
{
    const bool enabled = MRIB_GMP_IsL3McEnabled(key) == 1;
    mcastd::trace(TraceCategory::Channel, *key, "heard: multicast is %s", enabled ? "enabled" : "disabled");
    the_policy->note("news of an instance", [key, enabled] {
        if (!enabled) {
            the_policy->disabled_.insert(key->vrf_index);
        } else {
            the_policy->disabled_.erase(key->vrf_index);
            if (key->vrf_index != PUBLIC_INSTANCE) {
                the_policy->changed_in(*key, the_policy->to_introduce_);
            }
        }
        the_policy->changed_in(*key, the_policy->changed_);
    });
}

void MribPolicy::on_designated_router(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t state)
{
    mcastd::trace(TraceCategory::Channel, *key, "heard: %s is designated on %P",
                  state == 1 ? "this router" : "another router", if_index);
    the_policy->note("news of a designated router", [=] {
        if (state == 1) {
            the_policy->others_.erase({key->vrf_index, if_index});
        } else if (!the_policy->replayed_ && the_policy->others_.size() < MOST_OTHERS) {
            the_policy->others_.insert({key->vrf_index, if_index});
        }
        if (the_policy->find(key, if_index) != nullptr) {
            the_policy->changed_.insert(if_index);
        }
    });
}

void MribPolicy::on_boundary(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t operation)
{
    mcastd::trace(TraceCategory::Channel, *key, "heard: a boundary %s on %P",
                  operation == OPERATION_ADD ? "is" : "is no longer", if_index);
    if (the_policy->find(key, if_index) == nullptr) {
        return;
    }
    the_policy->note("news of a boundary", [=] {
        the_policy->changed_.insert(if_index);
        if (operation != OPERATION_ADD) {
            the_policy->to_ask_.insert(if_index);
        }
    });
}

void MribPolicy::on_ssm_policy(const MRIB_GMP_VRF_KEY_S *key, uint32_t acl_number)
{
    the_policy->note("news of a source-specific range", [=] {
        uint32_t &known = the_policy->ssm_acls_.try_emplace(key->vrf_index, MCAST_NONE).first->second;
        // Every connection begins with the policy, changed or not.
        if (acl_number != known) {
            mcastd::trace(TraceCategory::Channel, *key, "heard: list %d is the source-specific range",
                          static_cast<int32_t>(acl_number));
            known = acl_number;
            the_policy->changed_in(*key, the_policy->changed_);
            the_policy->changed_in(*key, the_policy->to_ask_);
        }
    });
}

void MribPolicy::apply_changes()
{
    if (missed_ && !mcastd::memory_is_short()) {
        lists_changed();
        missed_ = false;
    }
    note("a changed policy", [this] { apply_noted(); });
}

void MribPolicy::apply_noted()
{
    const std::set<uint32_t> changed = std::exchange(changed_, {});
    const std::set<uint32_t> to_ask = std::exchange(to_ask_, {});
    const std::set<uint32_t> to_introduce = std::exchange(to_introduce_, {});
    for (const auto &[index, interface] : process_.interfaces) {
        if (to_introduce.count(index) != 0 && interface->running) {
            process_.mrib->tell_running(*interface, true);
            process_.mrib->tell_querier(*interface, interface->querier.elected);
        }
        if (changed.count(index) != 0) {
            apply_policy(*interface);
        }
        if (to_ask.count(index) != 0) {
            querier_ask_again(*interface);
        }
    }
}

} // namespace gmpd
