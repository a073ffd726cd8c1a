/*
 * What PIM clients report, in a router: where PIM runs, the trees and asserts, and what becomes of those of lost clients.
 */
#include <algorithm>

#include "daemons/common/trace.h"
#include "daemons/mribd/router.h"

namespace mribd
{

using mcastd::TraceCategory;

bool Router::set_pim_interface(ClientId client, uint32_t if_index, mcastd::PimInterfaceState state)
{
    const bool runs = state != mcastd::PIM_GONE;
    if (runs && !pim_.has_room(if_index)) {
        return false;
    }
    if (!runs && pim_.is_client(client)) {
        const auto changed = [this](const Prefix &groups, const MCAST_ADDR_S &source) {
            forwarding_.tree_changed(groups, source, Forwarding::TreeChange::Asserts);
        };
        drop_members(client, if_index);
        trees_.drop_interface(if_index, client, changed);
        visit_lost(true, [&](ClientId lost) { trees_.drop_interface(if_index, lost, changed); });
    }
    bool changed = pim_.set(client, if_index, state);
    if (pim_.is_client(client)) {
        visit_lost(true, [&](ClientId lost) { changed |= pim_.set(lost, if_index, mcastd::PIM_GONE); });
    }
    if (changed) {
        mcastd::trace(TraceCategory::Group, key_, "PIM %s on %P",
                      !runs                             ? "no longer runs"
                      : state == mcastd::PIM_DESIGNATED ? "runs, this router is designated,"
                                                        : "runs, another router is designated,",
                      if_index);
        gmp_changed();
    }
    return true;
}

TreeTable::Result Router::set_tree(const Prefix &groups, const MCAST_ADDR_S &source,
                                   const TreeTable::Tree &tree)
{
    const TreeTable::Result result = trees_.set_tree(groups, source, tree);
    if (result == TreeTable::Result::Changed) {
        forwarding_.tree_changed(groups, source, Forwarding::TreeChange::Upstream);
    }
    return result;
}

TreeTable::Result Router::set_assert(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                     const MCAST_ADDR_S &source, mcastd::PimAssertState state)
{
    const bool had_won = trees_.has_won(if_index);
    const TreeTable::Result result = trees_.set_assert(client, if_index, group, source, state);
    if (result == TreeTable::Result::Changed) {
        forwarding_.tree_changed(Prefix{group, address_bits(family())}, source,
                                 Forwarding::TreeChange::Asserts);
        if (had_won != trees_.has_won(if_index) && designated_router_told_) {
            designated_router_told_();
        }
    }
    return result;
}

// Its other wishes are dropped by who calls this.
void Router::drop_trees(ClientId client)
{
    trees_.drop_client(client, [this](const Prefix &groups, const MCAST_ADDR_S &source) {
        forwarding_.tree_changed(groups, source, Forwarding::TreeChange::Upstream);
    });
}

void Router::take_answer(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    forwarding_.take_answer(group, source);
}

void Router::watch(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    forwarding_.watch(group, source);
}

void Router::set_pim_listener(PimListener *listener)
{
    pim_listener_ = listener;
    told_instance_ = {};
    if (listener == nullptr) {
        forwarding_.on_pim_source(nullptr);
        return;
    }
    forwarding_.on_pim_source([this](const Entry &entry, mcastd::PimSourceState state, uint32_t if_index) {
        return pim_listener_->is_told(mcastd::PIM_EVENT_SOURCE) &&
               pim_listener_->tell_source(*this, entry, state, if_index);
    });
}

void Router::tell_instance()
{
    const Instance now{kernel_.is_open(), kernel_.table(), vifs_.find(mcastd::PIM_REGISTER_INTERFACE)};
    if (pim_listener_ != nullptr && now != told_instance_) {
        told_instance_ = now;
        pim_listener_->tell_instance(*this, now.served);
    }
}

HostWish Router::hosts(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    return members_.hosts(
        if_index, group, source, [this](ClientId client) { return !pim_.is_client(client); },
        [this](ClientId client) { return std::find(lost_.begin(), lost_.end(), client) == lost_.end(); });
}

void Router::tell_host(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                       bool exclude) const
{
    pim_listener_->tell_member(*this, if_index, group, source, exclude, hosts(if_index, group, source));
}

// A wish of the client is another one now. Where others want the group too, what is blocked of it may be something else.
void Router::host_changed(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                          const MCAST_ADDR_S &source, MemberTable::Kind kind) const
{
    if (pim_listener_ == nullptr || pim_.is_client(client) ||
        !pim_listener_->is_told(mcastd::PIM_EVENT_MEMBER)) {
        return;
    }
    const bool exclude = kind == MemberTable::Kind::Block;
    tell_host(if_index, group, source, exclude);
    if (is_unspecified(source) && lost_.empty() && members_.is_shared(group, if_index, client)) {
        members_.visit_blocked(
            group, if_index, [&](const MCAST_ADDR_S &blocked) { tell_host(if_index, group, blocked, true); });
    }
}

void Router::end_pim_report()
{
    for (size_t i = lost_.size(); i-- > 0;) {
        const ClientId lost = lost_[i];
        if (pim_.is_client(lost)) {
            if (lost_let_go_) {
                lost_let_go_(lost);
            }
            drop_client(lost);
        }
    }
}

} // namespace mribd
