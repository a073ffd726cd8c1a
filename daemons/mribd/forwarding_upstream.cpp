/*
 * Where the packets of an entry are to come from: what PIM says (tree_table.h), or else the interface by which this router
 * would reach the source (rpf.h).
 *
 *     routes_changed ── prefixes ──► queue_changed ── the entries concerned ──► evaluate (forwarding.cpp)
 *                                                                                   │ check_route
 *     a second later, or when there is memory ◄── could not be asked ── determine_upstream ──► set_upstream, set_sending
 *
 * A route is not asked for when it changes: entries under the prefix are marked, and asked for one by one when they are
 * evaluated, so that a flapping route costs one walk however often it was reported. Some prefixes are told apart; more of
 * them at once count as everything.
 *
 * No route is an answer: the entry then has no incoming interface, and forwards nothing. No answer is none: an entry
 * whose route could not be asked for, for want of memory or because the kernel refused the question, keeps the interface
 * that it has, stays marked, and is queued again by queue_refused.
 *
 * entries_per_upstream_ counts the entries of each interface, since one that packets are to come from needs a virtual
 * interface though nobody receives there.
 */
#include <algorithm>
#include <new>

#include "daemons/common/memory.h"
#include "daemons/mribd/forwarding.h"
#include "daemons/mribd/rpf.h"

namespace mribd
{
namespace
{

constexpr uint32_t ROUTE_RETRY_MS = 1000;

} // namespace

void Forwarding::routes_changed(const MCAST_ADDR_S &prefix, unsigned length)
{
    trace_route("unicast routes changed: %A/%u", &prefix, length);
    if (length == 0 || changed_prefixes_.size() == PREFIXES_TOLD_APART) {
        changed_prefixes_.assign(1, Prefix{any_address(parts_.key.family), 0});
    } else {
        changed_prefixes_.push_back(Prefix{prefix, static_cast<uint8_t>(length)});
    }
}

// One walk for all that was reported since the last, so that a burst of changes costs no walk each.
void Forwarding::queue_changed()
{
    if (!interfaces_changed_ && changed_prefixes_.empty() && changed_groups_.empty()) {
        return;
    }
    entries_.visit_all([this](Entry *entry) {
        const MCAST_ADDR_S &source = entry->source();
        const MCAST_ADDR_S &group = entry->group();
        const bool check_route =
            std::any_of(changed_prefixes_.begin(), changed_prefixes_.end(),
                        [&source](const Prefix &changed) { return changed.covers(source); }) ||
            std::any_of(changed_groups_.begin(), changed_groups_.end(),
                        [&group](const Prefix &changed) { return changed.covers(group); });
        if (interfaces_changed_ || check_route) {
            queue(entry, check_route);
        }
    });
    interfaces_changed_ = false;
    changed_prefixes_.clear();
    changed_groups_.clear();
}

// What found no memory for its route is evaluated again when there is room, what the kernel could not be asked about
// a second later.
void Forwarding::queue_refused()
{
    if (lacks_route_ && !mcastd::memory_is_short()) {
        lacks_route_ = false;
        entries_.visit_all([this](Entry *entry) {
            if (entry->check_route) {
                queue(entry, true);
            }
        });
    }
}

void Forwarding::ask_again_later()
{
    const auto due = [](void *owner) { static_cast<Forwarding *>(owner)->lacks_route_ = true; };
    if (!route_retry_.running()) {
        lacks_route_ |= !mcastd::timer_try_start(parts_.timers, route_retry_, ROUTE_RETRY_MS, due, this);
    }
}

void Forwarding::determine_upstream(Entry *entry)
{
    uint32_t upstream = 0;
    bool is_said = false; // by PIM
    try {
        auto found = tree_upstream(entry);
        is_said = found.has_value();
        if (!is_said) {
            found = rpf_interface(parts_.environment, parts_.key.vrf_index, entry->source(), entry->upstream,
                                  entry->arrival);
        }
        if (!found) {
            trace_route("(%M, %N): the kernel cannot be asked for the route", &entry->source(),
                        &entry->group());
            ask_again_later();
            return;
        }
        upstream = *found;
        if (upstream != 0) {
            entries_per_upstream_.try_emplace(upstream, 0); // set_upstream counts it
        }
    } catch (const std::bad_alloc &) {
        ++counters_.refused_by_memory;
        lacks_route_ = true;
        return; // asked again when there is room
    }
    entry->check_route = false;
    if (upstream == 0 && !is_said && !entry->unreachable) {
        ++counters_.no_route;
    }
    entry->unreachable = upstream == 0 && !is_said;
    if (upstream == 0 && is_said) {
        trace_route("(%M, %N): packets come from nowhere", &entry->source(), &entry->group());
    } else if (upstream == 0) {
        trace_route("(%M, %N): no usable route to the source", &entry->source(), &entry->group());
    } else if (upstream != entry->upstream) {
        trace_route("(%M, %N): packets are to come from %P", &entry->source(), &entry->group(), upstream);
    }
    set_upstream(entry, upstream);
    set_sending(entry, entry->is_sending);
}

// Also determines anew whether the source is local.
void Forwarding::set_sending(Entry *entry, bool is_sending)
{
    entry->is_sending = is_sending;
    const bool is_local =
        is_sending && entry->upstream != 0 && parts_.environment.is_on_link(entry->upstream, entry->source());
    if (is_local != entry->is_local) {
        entry->is_local = is_local;
        trace_route("(%M, %N): the source %s on the link of %P", &entry->source(), &entry->group(),
                    is_local ? "sends" : "is silent or no longer", entry->upstream);
        if (local_source_told_) {
            local_source_told_(*entry);
        }
    }
}

// Of an upstream other than 0 the interface has been entered in entries_per_upstream_.
void Forwarding::set_upstream(Entry *entry, uint32_t upstream)
{
    if (upstream == entry->upstream) {
        return;
    }
    if (entry->upstream != 0 && --entries_per_upstream_.find(entry->upstream)->second == 0) {
        entries_per_upstream_.erase(entry->upstream);
        upstream_changed_ = true;
    }
    if (upstream != 0 && ++entries_per_upstream_.find(upstream)->second == 1) {
        upstream_changed_ = true;
    }
    entry->upstream = upstream;
}

} // namespace mribd
