/*
 * Which entries there may be, and which make room for others; entry_table.cpp says what the ranks and
 * shares are.
 *
 * A new flow that somebody receives must find room even when every entry is used: a flood of made-up
 * sources to a group that has receivers looks like so many flows. What tells them apart is that the flood
 * sends each source's packet once. So of the oldest used entries a few are looked at: one that carried
 * nothing since the last look, or since the packet it was made for, goes; the others become the newest.
 * When all of them carry, the newcomer displaces one nevertheless if its own share is the smaller one, and
 * is refused otherwise.
 */
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/mribd/forwarding.h"

namespace mribd
{
namespace
{

// What an entry takes, roughly.
constexpr size_t ENTRY_BYTES = 768;

// Entries looked at for one newcomer.
constexpr unsigned LOOKS = 8;

// A flow may pause so long, in seconds counted from whole seconds, and carries all the same.
constexpr uint32_t LOOK_AGAIN_S = 2;

} // namespace

// Makes an entry that is not there yet; NULL, counted, when memory is short.
Entry *Forwarding::create(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    Entry *entry = mcastd::memory_permits(ENTRY_BYTES) ? entries_.create(group, source) : nullptr;
    if (entry == nullptr) {
        ++counters_.refused_by_memory;
        return nullptr;
    }
    entry->owner = this;
    entry->looked_at_s = mcastd::boot_time_s();
    entry->looked_packets = 1; // for which it is made
    if (!start_idle_period(entry)) {
        ++counters_.refused_by_memory;
        entries_.destroy(entry);
        return nullptr;
    }
    watch_limit();
    return entry;
}

// Whether there is room for one more, of whose packets one arrived on the share's virtual interface.
bool Forwarding::make_room(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, unsigned share)
{
    if (!entries_.is_full()) {
        return true;
    }
    Entry *victim = entries_.oldest_spare();
    if (victim == nullptr && outgoing_for(group, source, parts_.vifs.if_index(share)) != 0) {
        victim = used_entry_to_displace(share);
    }
    if (victim == nullptr) {
        ++counters_.refused_by_limit;
        trace_route("(%M, %N) refused: %u entries are the limit", &source, &group, entries_.limit());
        watch_limit();
        return false;
    }
    trace_route("(%M, %N) makes room for another", &victim->source(), &victim->group());
    ++counters_.displaced;
    remove(victim);
    return true;
}

Entry *Forwarding::used_entry_to_displace(unsigned share)
{
    for (unsigned looks = LOOKS; looks > 0; --looks) {
        Entry *entry = entries_.oldest_used();
        if (entry == nullptr || is_silent(entry)) {
            return entry;
        }
        entries_.renew(entry);
    }
    Entry *entry = entries_.oldest_used();
    return entries_.share_size(share) + 1 < entries_.share_size(entry->share) ? entry : nullptr;
}

// Whether the entry carried no packet since it was looked at last, long enough ago to tell. Packets from a
// wrong interface are dropped and do not count.
bool Forwarding::is_silent(Entry *entry) const
{
    const uint32_t now_s = mcastd::boot_time_s();
    if (now_s - entry->looked_at_s < LOOK_AGAIN_S) {
        return false;
    }
    const auto counters = parts_.kernel.counters(entry->source(), entry->group());
    const uint64_t carried = counters ? counters->packets - counters->wrong_interface : 0;
    const bool is_silent = carried <= entry->looked_packets;
    entry->looked_at_s = now_s;
    entry->looked_packets = carried;
    return is_silent;
}

// To be called when what its rank depends on may have changed.
void Forwarding::rank(Entry *entry)
{
    unsigned share = entry->share;
    if (share == EntryTable::NO_VIF) {
        const int arrival = parts_.vifs.find(entry->arrival);
        const int vif = arrival >= 0 ? arrival : entry->parent;
        share = vif >= 0 ? static_cast<unsigned>(vif) : EntryTable::NO_VIF;
    }
    entries_.rank(entry, share, entry->is_sending && entry->outgoing != 0);
}

// Says once that the limit is near and once that it is reached, and again after it was far.
void Forwarding::watch_limit()
{
    const uint32_t limit = entries_.limit();
    const uint32_t near = limit - limit / 10;
    if (entries_.size() < near - near / 10) {
        limit_near_reported_ = false;
        limit_reported_ = false;
    } else if (entries_.size() >= near && !limit_near_reported_) {
        limit_near_reported_ = true;
        mcastd::log_warning("%s: %u of at most %u forwarding entries are in use (option --max-entries)",
                            instance_name(parts_.key).c_str(), entries_.size(), limit);
    } else if (entries_.is_full() && !limit_reported_) {
        limit_reported_ = true;
        mcastd::log_warning("%s: the limit of %u forwarding entries is reached; new sources displace what "
                            "nobody receives, what carries no packets, and then what the same link sent",
                            instance_name(parts_.key).c_str(), limit);
    }
}

} // namespace mribd
