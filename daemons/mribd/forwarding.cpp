/*
 * An entry exists for every (source, group) that sends, because the kernel asked, and for every source that
 * somebody joined by name. It is computed from three things that change independently:
 *
 *     upstream   the incoming interface, by the reverse path check       unicast routes, links
 *                (forwarding_upstream.cpp)
 *     outgoing   receivers of (source, group), never upstream, but       memberships, queriers,
 *                those left to another router (forwarding_yield.cpp);    virtual interfaces
 *                where PIM runs as it says (forwarding_pim.cpp)
 *     parent     upstream's virtual interface                            virtual interfaces
 *
 * Whatever changes, the entries concerned are queued once and evaluated a bounded number at a time, so that a
 * flapping route costs one pass and never starves the channel. Where somebody waits for packets comes first, lest a
 * join stand behind a hundred thousand sources that nobody wants any more. evaluate compares the result with what is
 * installed and calls the kernel only for a difference; it is the one place that installs.
 *
 * A source nobody wants, or whose packets come from the wrong side, gets an entry with no outgoing interface:
 * the kernel drops its packets without asking again. The 32 virtual interfaces are numbers that get new
 * meanings, so vacate_vifs rewrites all entries that use one before it is given up.
 *
 * The kernel's packet counter is read once an idle period for each entry. No packet in a whole period: the
 * entry goes, unless it was joined by name. One that was made for a membership goes with the membership when
 * no packet came. The table is bounded, because anybody on a link can make up sources: forwarding_limit.cpp.
 *
 * Without memory no new entry is made, and one whose route cannot be looked up keeps the interface that it has.
 * Everything else needs none.
 */
#include "daemons/mribd/forwarding.h"

#include <cstring>
#include <string>

#include "daemons/common/log.h"

namespace mribd
{
namespace
{

// One in so many that are evaluated is one of which nobody waits for packets.
constexpr unsigned OTHERS_TURN = 4;

} // namespace

Forwarding::Forwarding(const Parts &parts) : parts_(parts), entries_(parts.key.family, parts.entry_limit)
{
    changed_prefixes_.reserve(PREFIXES_TOLD_APART);
    changed_groups_.reserve(PREFIXES_TOLD_APART);
}

Forwarding::~Forwarding()
{
    mcastd::timer_stop(parts_.timers, route_retry_);
    urgent_.clear();
    waiting_.clear();
    entries_.visit_all([this](Entry *entry) {
        mcastd::timer_stop(parts_.timers, entry->timer);
        end_yield(entry);
    });
}

void Forwarding::remove(Entry *entry)
{
    withdraw(entry);
    if (entry->is_told) {
        tell_source(entry, mcastd::PIM_SOURCE_GONE, entry->arrival);
    }
    set_upstream(entry, 0);
    set_sending(entry, false);
    unqueue(entry);
    mcastd::timer_stop(parts_.timers, entry->timer);
    end_yield(entry);
    entries_.destroy(entry);
    watch_limit();
}

void Forwarding::queue(Entry *entry, bool check_route, bool urgent)
{
    entry->check_route |= check_route;
    if (entry->in_waiting.is_linked()) {
        if (!urgent || entry->is_urgent) {
            return;
        }
        unqueue(entry);
    }
    entry->is_urgent = urgent;
    (urgent ? urgent_ : waiting_).push_back(*entry);
}

void Forwarding::unqueue(Entry *entry)
{
    if (entry->in_waiting.is_linked()) {
        auto &list = entry->is_urgent ? urgent_ : waiting_;
        list.erase(list.iterator_to(*entry));
    }
}

// Of the other kind where there is none; NULL when nothing waits.
Entry *Forwarding::next_waiting(bool urgent)
{
    auto &list = (urgent || waiting_.empty()) && !urgent_.empty() ? urgent_ : waiting_;
    return list.empty() ? nullptr : &list.front();
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
        take_wrong_interface(upcall, arrival);
    } else {
        take_new_source(upcall, arrival);
    }
}

void Forwarding::take_wrong_interface(const Upcall &upcall, uint32_t arrival)
{
    ++counters_.wrong_interface;
    if (Entry *entry = entries_.find(upcall.group, upcall.source)) {
        entry->arrival = arrival;
        entry->is_sending = true;
        entry->wrong_at_s = mcastd::boot_time_s();
        queue(entry, true);
        tell_source(entry, mcastd::PIM_SOURCE_WRONG, arrival);
        hear_other_router(entry, upcall.vif);
    }
}

void Forwarding::take_new_source(const Upcall &upcall, uint32_t arrival)
{
    Entry *entry = entries_.find(upcall.group, upcall.source);
    if (entry == nullptr && make_room(upcall.group, upcall.source, upcall.vif)) {
        entry = create(upcall.group, upcall.source);
    }
    if (entry == nullptr) {
        return;
    }
    entry->arrival = arrival;
    entry->is_sending = true;
    entry->check_route = true;
    entry->installed = false; // the kernel has none, whatever was installed before
    if (!tell_source(entry, mcastd::PIM_SOURCE_NEW, arrival) || !await_answer(entry, upcall.vif)) {
        evaluate(entry);
    }
}

void Forwarding::membership_changed(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, Change change)
{
    const bool urgent = change == Change::More;
    if (is_unspecified(source)) {
        entries_.visit_group(group, [this, urgent](Entry *entry) { queue(entry, false, urgent); });
        return;
    }
    Entry *entry = entries_.find(group, source);
    // Before its first packet it is not worth another's place.
    if (entry == nullptr && !entries_.is_full() && parts_.members.has_source_join(group, source)) {
        entry = create(group, source);
    }
    if (entry != nullptr) {
        queue(entry, false, urgent);
    }
}

void Forwarding::vacate_vifs(uint32_t bits)
{
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        others_known_s_[vif] = (bits >> vif & 1) != 0 ? 0 : others_known_s_[vif];
    }
    entries_.visit_all([&](Entry *entry) {
        forget_yields(entry, bits);
        if (entry->share != EntryTable::NO_VIF && (bits >> entry->share & 1) != 0) {
            entries_.rank(entry, EntryTable::NO_VIF, entry->is_used);
        }
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
    queue_refused();
    for (; limit > 0; --limit) {
        Entry *entry = next_waiting(limit % OTHERS_TURN != 0);
        if (entry == nullptr) {
            return false;
        }
        evaluate(entry);
        unqueue(entry); // only now, should memory end on the way
        if (has_no_purpose(entry)) {
            trace_route("(%M, %N) ends: nobody receives it, and no packet came", &entry->source(),
                        &entry->group());
            ++counters_.ended;
            remove(entry);
        }
    }
    return !urgent_.empty() || !waiting_.empty();
}

// Whether the entry serves nobody: no receiver, no name that somebody joined, no packets to be dropped.
bool Forwarding::has_no_purpose(const Entry *entry) const
{
    if (entry->outgoing != 0 || entry->is_sending ||
        parts_.members.has_source_join(entry->group(), entry->source())) {
        return false;
    }
    const auto now =
        entry->installed ? parts_.kernel.counters(entry->source(), entry->group()) : std::nullopt;
    return !now || now->packets == entry->last_packets;
}

// Of the receivers those that have a virtual interface, which the upstream interface does not count as.
uint32_t Forwarding::outgoing_for(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint32_t upstream,
                                  bool is_shared_tree) const
{
    if (parts_.pim.runs() || is_shared_tree) {
        return pim_outgoing(group, source, upstream, is_shared_tree);
    }
    uint32_t outgoing = 0;
    parts_.members.visit_receivers(group, source, [&](uint32_t if_index) {
        const int vif = parts_.vifs.find(if_index);
        if (if_index != upstream && vif >= 0) {
            outgoing |= 1u << vif;
        }
    });
    return outgoing;
}

void Forwarding::evaluate(Entry *entry)
{
    if (entry->awaits_answer) {
        return;
    }
    if (entry->check_route) {
        determine_upstream(entry);
    }
    int parent = parts_.vifs.find(entry->upstream);
    uint32_t outgoing = 0;
    if (parent >= 0) {
        outgoing = outgoing_for(entry->group(), entry->source(), entry->upstream, entry->is_shared_tree) &
                   ~given_way(entry);
        outgoing |= register_output(entry);
    } else {
        // Not forwarded; the entry only keeps the kernel from asking for every packet.
        parent = parts_.vifs.find(entry->arrival);
    }
    if (entry->is_watched) {
        forget_reports(entry);
    }
    if (parent < 0 || waits_for_packets(entry)) {
        withdraw(entry);
    } else if (!entry->installed || parent != entry->parent || outgoing != entry->outgoing) {
        install(entry, parent, outgoing);
    }
    rank(entry);
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
    if (active || entry->is_told) {
        tell_source(entry, active ? mcastd::PIM_SOURCE_ACTIVE : mcastd::PIM_SOURCE_SILENT, entry->arrival);
    }
    if (waits_for_packets(entry)) {
        withdraw(entry);
    }
    rank(entry);
    if (!now) {
        entry->installed = false; // the kernel does not know it: install it again
    }
    if (!now || entry->check_route) {
        queue(entry, true);
    }
    if (!start_idle_period(entry)) {
        ++counters_.refused_by_memory;
        remove(entry); // it comes back with its next packet; without a timer it would stay for ever
    }
}

void Forwarding::install(Entry *entry, int parent, uint32_t outgoing)
{
    const bool replaces = entry->installed;
    const int error =
        parts_.kernel.set_entry(entry->source(), entry->group(), static_cast<unsigned>(parent), outgoing);
    entry->installed = error == 0;
    entry->parent = static_cast<int8_t>(parent);
    entry->outgoing = outgoing;
    if (error != 0) {
        // Tried again when anything about it changes, and with its idle check.
        ++counters_.kernel_failures;
        if (replaces) {
            parts_.kernel.delete_entry(entry->source(), entry->group()); // better none than a wrong one
        }
        mcastd::log_warning("%s: the kernel refused the entry (%s, %s): %s",
                            instance_name(parts_.key).c_str(), text_or_star(entry->source()).c_str(),
                            text_or_star(entry->group()).c_str(), std::strerror(error));
    } else {
        trace_entry(entry, replaces ? "replaced" : "installed");
    }
}

// What became of the kernel's entry; from its upstream interface, or where its packets arrive when they are
// not to.
void Forwarding::trace_entry(const Entry *entry, const char *what) const
{
    if (!mcastd::tracing(mcastd::TraceCategory::Route)) {
        return;
    }
    std::string outgoing;
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if ((entry->outgoing >> vif & 1) != 0) {
            outgoing += " " + parts_.environment.interface_name(parts_.vifs.if_index(vif));
        }
    }
    trace_route("entry (%M, %N) %s: from %P to%s", &entry->source(), &entry->group(), what,
                entry->upstream != 0 ? entry->upstream : entry->arrival,
                outgoing.empty() ? " nowhere" : outgoing.c_str());
}

void Forwarding::withdraw(Entry *entry)
{
    if (entry->installed) {
        parts_.kernel.delete_entry(entry->source(), entry->group());
        entry->installed = false;
        trace_entry(entry, "withdrawn");
    }
    entry->parent = -1;
    entry->outgoing = 0;
}

} // namespace mribd
