/*
 * An entry exists for every (source, group) that sends, because the kernel asked, and for every source that
 * somebody joined by name. It is computed from three things that change independently:
 *
 *     upstream   the incoming interface, by the reverse path check       unicast routes, links
 *     outgoing   receivers of (source, group) that this router serves,   memberships, queriers,
 *                never upstream                                          virtual interfaces
 *     parent     upstream's virtual interface                            virtual interfaces
 *
 * Whatever changes, the entries concerned are queued once and evaluated a bounded number at a time, so that a
 * flapping route costs one pass and never starves the channel. evaluate compares the result with what is
 * installed and calls the kernel only for a difference; it is the one place that installs.
 *
 * A source nobody wants, or whose packets come from the wrong side, gets an entry with no outgoing interface:
 * the kernel drops its packets without asking again. The 32 virtual interfaces are numbers that get new
 * meanings, so vacate_vifs rewrites all entries that use one before it is given up.
 *
 * The kernel's packet counter is read once an idle period for each entry. No packet in a whole period: the
 * entry goes, unless it was joined by name. The table is bounded, because anybody on a link can make up
 * sources.
 */
#include "daemons/mribd/forwarding.h"

#include <algorithm>
#include <memory>
#include <new>

#include "daemons/common/log.h"
#include "daemons/mribd/rpf.h"

namespace mribd
{
namespace
{

// Prefixes with changed routes that are told apart; more of them at once count as everything.
constexpr size_t PREFIXES_REMEMBERED = 16;

template <typename Visitor> void walk_sources(MRT_GROUP_S *group, const Visitor &visitor)
{
    MRT_WALK_S *walk = MRT_CreateWalk(group->sources);
    while (auto *node = static_cast<MRT_SOURCE_S *>(MRT_WalkNext(walk))) {
        visitor(static_cast<Entry *>(node->user_data));
    }
    MRT_DeleteWalk(walk);
}

template <typename Visitor> void walk_entries(MRT_TABLE_S *table, const Visitor &visitor)
{
    MRT_WALK_S *walk = MRT_CreateWalk(table);
    while (auto *group = static_cast<MRT_GROUP_S *>(MRT_WalkNext(walk))) {
        walk_sources(group, visitor);
    }
    MRT_DeleteWalk(walk);
}

} // namespace

Forwarding::Forwarding(const Parts &parts)
    : parts_(parts), table_(MRT_CreateTable(parts.key.family, "entries", nullptr, nullptr))
{
    if (table_ == nullptr) {
        throw std::bad_alloc();
    }
}

Forwarding::~Forwarding()
{
    walk_entries(table_, [this](Entry *entry) {
        mcastd::timer_stop(parts_.timers, entry->timer);
        delete entry;
    });
    MRT_DestroyTable(table_);
}

Entry *Forwarding::find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const MRT_SOURCE_S *node = MRT_LocateSource(table_, &group, &source);
    return node == nullptr ? nullptr : static_cast<Entry *>(node->user_data);
}

Entry *Forwarding::find_or_create(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    if (Entry *known = find(group, source)) {
        return known;
    }
    if (entry_count_ >= parts_.entry_limit) {
        ++counters_.refused_by_limit;
        trace_route("(%M, %N) refused: %u entries are the limit", &source, &group, parts_.entry_limit);
        watch_limit();
        return nullptr;
    }
    const unsigned length = address_bits(parts_.key.family);
    auto entry = std::make_unique<Entry>();
    entry->node = MRT_CreateEntryMask(table_, &group, length, &source, length);
    if (entry->node == nullptr) {
        ++counters_.refused_by_memory;
        return nullptr;
    }
    entry->owner = this;
    if (!start_idle_period(entry.get())) {
        ++counters_.refused_by_memory;
        MRT_DeleteSourceGroup(entry->node);
        return nullptr;
    }
    ++entry_count_;
    watch_limit();
    entry->node->user_data = entry.get();
    return entry.release();
}

void Forwarding::remove(Entry *entry)
{
    withdraw(entry);
    set_upstream(entry, 0);
    set_sending(entry, false);
    if (entry->queued) {
        *std::find(waiting_.begin(), waiting_.end(), entry) = nullptr;
    }
    mcastd::timer_stop(parts_.timers, entry->timer);
    entry->node->user_data = nullptr;
    MRT_DeleteSourceGroup(entry->node);
    delete entry;
    --entry_count_;
    watch_limit();
}

// Says once that the limit is near and once that it is reached, and again after it was far.
void Forwarding::watch_limit()
{
    const uint32_t near = parts_.entry_limit - parts_.entry_limit / 10;
    if (entry_count_ < near - near / 10) {
        limit_near_reported_ = false;
        limit_reported_ = false;
    } else if (entry_count_ >= near && !limit_near_reported_) {
        limit_near_reported_ = true;
        mcastd::log_warning("%s: %u of at most %u forwarding entries are in use (option --max-entries)",
                            instance_name(parts_.key).c_str(), entry_count_, parts_.entry_limit);
    } else if (entry_count_ == parts_.entry_limit && counters_.refused_by_limit != 0 && !limit_reported_) {
        limit_reported_ = true;
        mcastd::log_warning(
            "%s: the limit of %u forwarding entries is reached; new sources are not forwarded",
            instance_name(parts_.key).c_str(), parts_.entry_limit);
    }
}

void Forwarding::queue(Entry *entry, bool check_route)
{
    entry->check_route |= check_route;
    if (!entry->queued) {
        entry->queued = true;
        waiting_.push_back(entry);
    }
}

void Forwarding::take_upcall(const Upcall &upcall)
{
    ++counters_.upcalls;
    const uint32_t arrival = parts_.vifs.if_index(upcall.vif);
    if (arrival == 0) {
        ++counters_.stray_upcalls;
        trace_route("upcall: packets of (%M, %N) arrive on virtual interface %u, which is gone",
                    &upcall.source, &upcall.group, upcall.vif);
        return;
    }
    trace_route("upcall: packets of (%M, %N) arrive on %P, %s", &upcall.source, &upcall.group, arrival,
                upcall.kind == UpcallKind::WrongInterface ? "the wrong interface" : "no entry");
    if (upcall.kind == UpcallKind::WrongInterface) {
        ++counters_.wrong_interface;
        if (Entry *entry = find(upcall.group, upcall.source)) {
            entry->arrival = arrival;
            entry->is_sending = true;
            queue(entry, true);
        }
        return;
    }
    Entry *entry = find_or_create(upcall.group, upcall.source);
    if (entry != nullptr) {
        entry->arrival = arrival;
        entry->is_sending = true;
        entry->check_route = true;
        entry->installed = false; // the kernel has none, whatever was installed before
        evaluate(entry);
    }
}

void Forwarding::membership_changed(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    if (!is_unspecified(source)) {
        Entry *entry = parts_.members.has_source_join(group, source) ? find_or_create(group, source)
                                                                     : find(group, source);
        if (entry != nullptr) {
            queue(entry, false);
        }
        return;
    }
    if (auto *node = static_cast<MRT_GROUP_S *>(MRT_Locate(table_, &group))) {
        walk_sources(node, [this](Entry *entry) { queue(entry, false); });
    }
}

void Forwarding::routes_changed(const MCAST_ADDR_S &prefix, unsigned length)
{
    trace_route("unicast routes changed: %A/%u", &prefix, length);
    if (length == 0 || changed_prefixes_.size() == PREFIXES_REMEMBERED) {
        changed_prefixes_.assign(1, Prefix{any_address(parts_.key.family), 0});
    } else {
        changed_prefixes_.push_back(Prefix{prefix, static_cast<uint8_t>(length)});
    }
}

// One walk for all that was reported since the last, so that a burst of changes costs no walk each.
void Forwarding::queue_changed()
{
    if (!interfaces_changed_ && changed_prefixes_.empty()) {
        return;
    }
    walk_entries(table_, [this](Entry *entry) {
        const MCAST_ADDR_S source = entry->source();
        const bool check_route =
            std::any_of(changed_prefixes_.begin(), changed_prefixes_.end(),
                        [&source](const Prefix &changed) { return changed.covers(source); });
        if (interfaces_changed_ || check_route) {
            queue(entry, check_route);
        }
    });
    interfaces_changed_ = false;
    changed_prefixes_.clear();
}

void Forwarding::vacate_vifs(uint32_t bits)
{
    walk_entries(table_, [&](Entry *entry) {
        if (!entry->installed) {
            return;
        }
        const bool is_parent = (bits >> entry->parent & 1) != 0;
        if (is_parent || (entry->outgoing & bits) != 0) {
            evaluate(entry);
        }
        if (is_parent) {
            queue(entry, true); // asking for the routes of all of them can wait
        }
    });
}

bool Forwarding::settle(unsigned limit)
{
    queue_changed();
    for (; limit > 0 && !waiting_.empty(); --limit) {
        Entry *entry = waiting_.front();
        waiting_.pop_front();
        if (entry != nullptr) {
            entry->queued = false;
            evaluate(entry);
        }
    }
    return !waiting_.empty();
}

void Forwarding::determine_upstream(Entry *entry)
{
    const uint32_t upstream = rpf_interface(parts_.environment, parts_.key.vrf_index, entry->source(),
                                            entry->upstream, entry->arrival);
    entry->check_route = false;
    if (upstream == 0 && !entry->unreachable) {
        ++counters_.no_route;
    }
    entry->unreachable = upstream == 0;
    if (upstream == 0) {
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

void Forwarding::set_upstream(Entry *entry, uint32_t upstream)
{
    if (upstream == entry->upstream) {
        return;
    }
    if (entry->upstream != 0 && --entries_per_upstream_[entry->upstream] == 0) {
        entries_per_upstream_.erase(entry->upstream);
        upstream_changed_ = true;
    }
    if (upstream != 0 && ++entries_per_upstream_[upstream] == 1) {
        upstream_changed_ = true;
    }
    entry->upstream = upstream;
}

uint32_t Forwarding::outgoing_for(const Entry *entry) const
{
    uint32_t outgoing = 0;
    for (const uint32_t if_index : parts_.members.receivers(entry->group(), entry->source())) {
        const int vif = parts_.vifs.find(if_index);
        if (if_index != entry->upstream && vif >= 0 && parts_.gmp.is_forwarder(if_index)) {
            outgoing |= 1u << vif;
        }
    }
    return outgoing;
}

void Forwarding::evaluate(Entry *entry)
{
    if (entry->check_route) {
        determine_upstream(entry);
    }
    int parent = parts_.vifs.find(entry->upstream);
    uint32_t outgoing = 0;
    if (parent >= 0) {
        outgoing = outgoing_for(entry);
    } else {
        // Not forwarded; the entry only keeps the kernel from asking for every packet.
        parent = parts_.vifs.find(entry->arrival);
    }
    if (parent < 0) {
        withdraw(entry);
    } else if (!entry->installed || parent != entry->parent || outgoing != entry->outgoing) {
        install(entry, parent, outgoing);
    }
}

// False when there is no memory for its timer.
bool Forwarding::start_idle_period(Entry *entry)
{
    const auto over = [](void *owner) {
        auto *idle = static_cast<Entry *>(owner);
        idle->owner->check_idle(idle);
    };
    return mcastd::timer_try_start(parts_.timers, entry->timer, parts_.idle_period_s * 1000, over, entry);
}

// An entry's idle period is over: removes it when no packet came and nobody joined just this source.
void Forwarding::check_idle(Entry *entry)
{
    const auto now =
        entry->installed ? parts_.kernel.counters(entry->source(), entry->group()) : std::nullopt;
    const bool active = now && now->packets != entry->last_packets;
    if (!active && !parts_.members.has_source_join(entry->group(), entry->source())) {
        trace_route("(%M, %N) expires: no packet in a period", &entry->source(), &entry->group());
        ++counters_.expired;
        remove(entry);
        return;
    }
    entry->last_packets = now ? now->packets : 0;
    set_sending(entry, active);
    if (!now) {
        entry->installed = false; // the kernel does not know it: install it again
        queue(entry, true);
    }
    if (!start_idle_period(entry)) {
        ++counters_.refused_by_memory;
        remove(entry); // it comes back with its next packet; without a timer it would stay for ever
    }
}

void Forwarding::visit(const std::function<void(const Entry &)> &visitor) const
{
    walk_entries(table_, [&](Entry *entry) { visitor(*entry); });
}

void Forwarding::visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                            const std::function<bool(const Entry &)> &visitor) const
{
    const MRT_SOURCE_S *node = MRT_LocateSource(table_, group, source);
    if (node == nullptr) {
        node = MRT_GetNextSourceGroup(table_, group, 0, source, 0);
    }
    while (node != nullptr && visitor(*static_cast<const Entry *>(node->user_data))) {
        node = MRT_GetNextSourceGroup(table_, node->group->address, 0, node->address, 0);
    }
}

} // namespace mribd
