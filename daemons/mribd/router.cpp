/*
 * The router puts together what clients report and what the kernel and the machine report. Each of its
 * calls does two things: it changes a table at once, and marks what follows from the change. settle does
 * what follows, after every round of the event loop:
 *
 *     memberships  ──┬──> the virtual interfaces that are wanted ──> VifTable ──┐ vacate
 *     protocols    ──┤                                                          v
 *     links, routes ─┴──> the entries concerned ───────────────────────────> Forwarding ──> kernel
 *
 * Virtual interfaces come first, because entries are made of their numbers: before a number gets a new
 * meaning every entry that uses it is rewritten, and after a change all entries are computed anew. Entries
 * may in turn find sources on other interfaces, which then want a virtual one in the next round.
 *
 * Clients that are lost and kept hold their wishes under their own numbers. What another client says of
 * the same thing replaces theirs, so that each call that sets something clears it for the lost ones.
 */
#include "daemons/mribd/router.h"

#include <algorithm>
#include <new>
#include <utility>

#include "daemons/common/memory.h"
#include "daemons/common/trace.h"
#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

using mcastd::TraceCategory;

// Entries evaluated in one round of the event loop: some two milliseconds, most of them the route look-ups and the
// kernel's table. A client's message may wait for several rounds.
constexpr unsigned ENTRIES_PER_ROUND = 128;

// Virtual interfaces kept for interfaces without receivers.
constexpr size_t PLACES_FOR_SOURCES = 2;

constexpr uint32_t VIF_RETRY_MS = 1000;

} // namespace

Router::Router(const MRIB_GMP_VRF_KEY_S &key, KernelTable &kernel, const Environment &environment,
               MemberBudget &budget, MCAST_TMR_S *timers, const EntryRules &rules)
    : key_(key), timers_(timers), kernel_(kernel), environment_(environment), members_(key.family, budget),
      trees_(key.family), vifs_(key, kernel, environment, rules.registers),
      forwarding_({key, kernel, environment, members_, gmp_, pim_, trees_, vifs_, timers, rules.limit,
                   rules.idle_period_s})
{
    members_.on_forgotten([this](const Wish &wish, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) {
        if (wish.joined) {
            host_changed(wish.client, wish.if_index, group, source, MemberTable::Kind::Join);
        }
        if (wish.blocked) {
            host_changed(wish.client, wish.if_index, group, source, MemberTable::Kind::Block);
        }
    });
}

Router::~Router()
{
    mcastd::timer_stop(timers_, vif_retry_);
}

void Router::on_designated_router(std::function<void()> told)
{
    designated_router_told_ = std::move(told);
}

void Router::on_local_source(
    std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, bool present)> told)
{
    if (!told) {
        forwarding_.on_local_source(nullptr);
        return;
    }
    forwarding_.on_local_source([told = std::move(told)](const Entry &entry) {
        told(entry.group(), entry.source(), entry.is_local);
    });
}

void Router::watch_sources(bool watch)
{
    watches_sources_ = watch;
    vifs_stale_ = true;
}

void Router::visit_local_sources(
    const std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)> &visitor) const
{
    forwarding_.visit_from(nullptr, nullptr, [&visitor](const Entry &entry) {
        if (entry.is_local) {
            visitor(entry.group(), entry.source());
        }
        return true;
    });
}

// Whoever is the querier: where it is another router, this one must know the receivers, for only packets show whether
// that one forwards.
std::vector<uint32_t> Router::designated_interfaces() const
{
    std::vector<uint32_t> result = gmp_.enabled_interfaces();
    if (!pim_.runs()) {
        return result;
    }
    std::erase_if(result, [this](uint32_t if_index) { return pim_.runs_on(if_index); });
    for (const uint32_t if_index : pim_.interfaces()) {
        if (pim_.is_designated(if_index) || trees_.has_won(if_index)) {
            result.push_back(if_index);
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}

void Router::gmp_changed()
{
    vifs_stale_ = true;
    forwarding_.interfaces_changed();
    if (designated_router_told_) {
        designated_router_told_();
    }
}

bool Router::set_enabled(ClientId client, uint32_t if_index, bool enabled)
{
    if (!enabled) {
        drop_members(client, if_index);
    } else if (!gmp_.has_room(if_index)) {
        return false;
    }
    bool changed = gmp_.set_enabled(client, if_index, enabled);
    visit_lost(false, [&](ClientId lost) { changed |= gmp_.set_enabled(lost, if_index, false); });
    if (changed) {
        mcastd::trace(TraceCategory::Group, key_, "the protocol %s on %P",
                      enabled ? "runs" : "no longer runs", if_index);
        gmp_changed();
    }
    return true;
}

bool Router::set_querier(ClientId client, uint32_t if_index, bool this_router)
{
    if (!this_router && !gmp_.has_room(if_index)) {
        return false;
    }
    if (gmp_.set_querier(client, if_index, this_router)) {
        mcastd::trace(TraceCategory::Group, key_, "%s is the querier on %P",
                      this_router ? "this router" : "another router", if_index);
        gmp_changed();
    }
    return true;
}

void Router::trace_member(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                          MemberTable::Kind kind, bool present) const
{
    const char *what = kind == MemberTable::Kind::Join ? (present ? "wanted" : "no longer wanted")
                                                       : (present ? "blocked" : "no longer blocked");
    if (is_unspecified(source)) {
        mcastd::trace(TraceCategory::Group, key_, "(*, %N) %s on %P", &group, what, if_index);
    } else {
        mcastd::trace(TraceCategory::Group, key_, "(%M, %N) %s on %P", &source, &group, what, if_index);
    }
}

MemberTable::Result Router::set_member(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                       const MCAST_ADDR_S &source, MemberTable::Kind kind, bool present)
{
    const bool used = members_.uses_interface(if_index);
    const MemberTable::Result result = members_.set(client, if_index, group, source, kind, present);
    if (result == MemberTable::Result::Changed) {
        trace_member(if_index, group, source, kind, present);
        vifs_stale_ |= used != members_.uses_interface(if_index);
        const bool more = present == (kind == MemberTable::Kind::Join);
        forwarding_.membership_changed(group, source,
                                       more ? Forwarding::Change::More : Forwarding::Change::Fewer);
    }
    bool changed = result == MemberTable::Result::Changed;
    visit_lost(pim_.is_client(client), [&](ClientId lost) {
        if (members_.set(lost, if_index, group, source, kind, false) == MemberTable::Result::Changed) {
            changed = true;
            vifs_stale_ |= used != members_.uses_interface(if_index);
            forwarding_.membership_changed(group, source);
        }
    });
    if (changed) {
        host_changed(client, if_index, group, source, kind);
    }
    return result;
}

void Router::drop_members(ClientId client, uint32_t if_index)
{
    if (!members_.uses_interface(if_index)) {
        return;
    }
    mcastd::trace(TraceCategory::Group, key_, "client %u wants nothing more on %P", client, if_index);
    const auto changed = [this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) {
        forwarding_.membership_changed(group, source);
    };
    members_.drop_interface(client, if_index, changed);
    visit_lost(pim_.is_client(client),
               [&](ClientId lost) { members_.drop_interface(lost, if_index, changed); });
    vifs_stale_ = true;
}

void Router::drop_client(ClientId client)
{
    mcastd::trace(TraceCategory::Group, key_, "client %u wants nothing more", client);
    members_.drop_client(client, [this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) {
        forwarding_.membership_changed(group, source);
    });
    gmp_.drop_client(client);
    if (pim_.is_client(client)) {
        drop_trees(client);
        pim_.drop_client(client);
    }
    std::erase(lost_, client);
    gmp_changed();
}

void Router::keep_lost_clients(std::function<void(ClientId client)> kept,
                               std::function<void(ClientId client)> let_go)
{
    lost_kept_ = std::move(kept);
    lost_let_go_ = std::move(let_go);
}

void Router::lose_client(ClientId client)
{
    if (lost_kept_ == nullptr || (!gmp_.knows_client(client) && !pim_.knows_client(client))) {
        drop_client(client);
        return;
    }
    mcastd::trace(TraceCategory::Group, key_, "client %u is gone, what it wants is kept", client);
    const bool is_kept = mcastd::memory_unit("keeping what a lost client wants", [this, client] {
        lost_.push_back(client);
        lost_kept_(client);
    });
    if (!is_kept) {
        drop_client(client);
    }
}

void Router::take_upcall(const Upcall &upcall)
{
    forwarding_.take_upcall(upcall);
}

void Router::links_changed()
{
    vifs_stale_ = true;
    forwarding_.interfaces_changed();
}

// What leads packets to the instance's table may go by the interface's name.
void Router::link_renamed(uint32_t if_index)
{
    if (key_.vrf_index != 0) {
        vifs_.forget(if_index, [this](uint32_t bits) { forwarding_.vacate_vifs(bits); });
    }
    links_changed();
}

void Router::leave_kernel()
{
    static const std::vector<uint32_t> NONE;
    vifs_.refresh(NONE, [this](uint32_t bits) { forwarding_.vacate_vifs(bits); });
    links_changed();
}

void Router::link_removed(uint32_t if_index)
{
    vifs_stale_ = true;
    vifs_.forget(if_index, [this](uint32_t bits) { forwarding_.vacate_vifs(bits); });
    if (members_.uses_interface(if_index)) {
        members_.drop_interface(if_index, [this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) {
            forwarding_.membership_changed(group, source);
        });
    }
    trees_.drop_interface(
        if_index, 0, [](const Prefix &, const MCAST_ADDR_S &) {}); // with the link nothing goes out there
    const bool pim_ended = pim_.drop_interface(if_index);
    if (gmp_.drop_interface(if_index) || pim_ended) {
        gmp_changed();
    }
}

void Router::routes_changed(const MCAST_ADDR_S &prefix, unsigned length)
{
    forwarding_.routes_changed(prefix, length);
    vifs_stale_ = true;
}

// The interfaces that need a virtual interface, the most important first: the register interface where PIM runs, where known sources are, then where
// receivers are, then where a protocol runs (its daemon may hear some hosts only there), then every other one
// as long as anybody listens at all or sources are watched, because the kernel reports new sources only on
// interfaces that have one. For the same reason receivers never take the last places. Who has one already
// comes before equals.
std::vector<uint32_t> Router::wanted_interfaces() const
{
    std::vector<uint32_t> upstream;
    std::vector<uint32_t> receiving;
    std::vector<uint32_t> running;
    std::vector<uint32_t> rest;
    for (const uint32_t if_index : environment_.multicast_interfaces(key_.vrf_index)) {
        if (forwarding_.is_upstream(if_index)) {
            upstream.push_back(if_index);
        } else if (members_.uses_interface(if_index)) {
            receiving.push_back(if_index);
        } else if (gmp_.is_enabled(if_index) || pim_.runs_on(if_index)) {
            running.push_back(if_index);
        } else {
            rest.push_back(if_index);
        }
    }
    for (auto *equals : {&upstream, &receiving, &running, &rest}) {
        std::stable_partition(equals->begin(), equals->end(),
                              [this](uint32_t if_index) { return vifs_.find(if_index) >= 0; });
    }
    if (members_.wish_count() != 0 || watches_sources_) {
        running.insert(running.end(), rest.begin(), rest.end());
    }
    std::vector<uint32_t> wanted = std::move(upstream);
    if (pim_.runs()) {
        wanted.insert(wanted.begin(), mcastd::PIM_REGISTER_INTERFACE);
    }
    const size_t kept = wanted.size() < PLACES_FOR_SOURCES ? PLACES_FOR_SOURCES - wanted.size() : 0;
    const auto kept_end = running.begin() + static_cast<ptrdiff_t>(std::min(kept, running.size()));
    wanted.insert(wanted.end(), running.begin(), kept_end);
    wanted.insert(wanted.end(), receiving.begin(), receiving.end());
    wanted.insert(wanted.end(), kept_end, running.end());
    return wanted;
}

// What the kernel refused, or what there was no memory for, may go well a second later.
void Router::try_vifs_again()
{
    mcastd::timer_try_start(
        timers_, vif_retry_, VIF_RETRY_MS,
        [](void *owner) { static_cast<Router *>(owner)->vifs_stale_ = true; }, this);
}

// Whether it is done; otherwise memory was short, and a later round does it.
bool Router::refresh_vifs()
{
    try {
        if (vifs_.refresh(wanted_interfaces(), [this](uint32_t bits) { forwarding_.vacate_vifs(bits); })) {
            forwarding_.interfaces_changed();
        }
    } catch (const std::bad_alloc &) {
        forwarding_.interfaces_changed(); // it may have come half way
        return false;
    }
    if (vifs_.is_incomplete()) {
        try_vifs_again();
    } else {
        mcastd::timer_stop(timers_, vif_retry_);
    }
    return true;
}

bool Router::settle()
{
    const bool is_left = vifs_stale_ && !refresh_vifs();
    const bool more = forwarding_.settle(ENTRIES_PER_ROUND);
    const bool is_stale = forwarding_.take_upstream_change();
    vifs_stale_ = is_stale || is_left;
    tell_instance();
    return more || is_stale;
}

} // namespace mribd
