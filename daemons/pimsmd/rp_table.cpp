#include "daemons/pimsmd/rp_table.h"

#include "daemons/common/expect.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"

namespace pimsmd
{
namespace
{

constexpr uint64_t MS_PER_S = 1000;

// What an RP takes, roughly, with a range of its own.
constexpr size_t RP_BYTES = sizeof(RpTable::Rp) + 512;

} // namespace

bool RpTable::has_room(const Prefix &range, const Address &rp)
{
    const auto known = ranges_.find(range);
    const auto has = ranges_of_.find(rp);
    if ((known == ranges_.end() && ranges_.size() >= limits_.ranges) || rps_ >= limits_.rps) {
        ++counters_[Count::RpLimit];
        return false;
    }
    if ((has != ranges_of_.end() && has->second >= limits_.ranges_of_rp) ||
        (known != ranges_.end() && known->second.size() >= MOST_RPS_OF_RANGE)) {
        ++counters_[Count::RpShare];
        return false;
    }
    if (!mcastd::memory_permits(RP_BYTES)) {
        ++counters_[Count::NoMemory];
        return false;
    }
    return true;
}

bool RpTable::add(const Prefix &range, const BootstrapRp &rp)
{
    if (!has_room(range, rp.address)) {
        return false;
    }
    const auto [at, new_range] = ranges_.try_emplace(range);
    if (new_range) {
        ++lengths_[range.length];
    }
    Rp &made = at->second[rp.address];
    made.table = this;
    made.range = range;
    made.address = rp.address;
    made.holdtime_s = rp.holdtime_s;
    made.priority = rp.priority;
    ++ranges_of_[rp.address];
    ++rps_;
    queue_.start(made.expiry, MS_PER_S * rp.holdtime_s, expired, &made);
    if (limit_watch_.take(rps_, limits_.rps)) {
        mcastd::log_warning("RPs of group ranges: %u of at most %u", rps_, limits_.rps);
    }
    return true;
}

bool RpTable::put(const Prefix &range, const BootstrapRp &rp)
{
    if (rp.holdtime_s == 0) {
        return remove(range, rp.address);
    }
    const auto at = ranges_.find(range);
    const auto known = at != ranges_.end() ? at->second.find(rp.address) : Rps::iterator();
    if (at == ranges_.end() || known == at->second.end()) {
        return add(range, rp);
    }
    const bool changes = known->second.priority != rp.priority;
    known->second.priority = rp.priority;
    known->second.holdtime_s = rp.holdtime_s;
    queue_.start(known->second.expiry, MS_PER_S * rp.holdtime_s, expired, &known->second);
    return changes;
}

void RpTable::forget(Ranges::iterator range, Rps::iterator rp)
{
    const auto has = ranges_of_.find(rp->first);
    mcastd::expect(has != ranges_of_.end() && has->second > 0 && rps_ > 0);
    if (--has->second == 0) {
        ranges_of_.erase(has);
    }
    --rps_;
    range->second.erase(rp);
    if (range->second.empty()) {
        const auto length = lengths_.find(range->first.length);
        if (--length->second == 0) {
            lengths_.erase(length);
        }
        ranges_.erase(range);
    }
    limit_watch_.take(rps_, limits_.rps);
}

bool RpTable::remove(const Prefix &range, const Address &rp)
{
    const auto at = ranges_.find(range);
    if (at == ranges_.end()) {
        return false;
    }
    const auto known = at->second.find(rp);
    if (known == at->second.end()) {
        return false;
    }
    forget(at, known);
    return true;
}

bool RpTable::remove(const Prefix &range)
{
    const auto at = ranges_.find(range);
    if (at == ranges_.end()) {
        return false;
    }
    for (size_t left = at->second.size(); left > 0; --left) {
        forget(at, at->second.begin()); // the last takes the range with it
    }
    return true;
}

void RpTable::clear()
{
    ranges_.clear();
    ranges_of_.clear();
    lengths_.clear();
    rps_ = 0;
    limit_watch_.reset();
}

void RpTable::expired(void *owner)
{
    const auto &rp = *static_cast<Rp *>(owner);
    RpTable &table = *rp.table;
    const Prefix range = rp.range;
    const Address address = rp.address;
    table.remove(range, address);
    table.events_.rp_expired(range, address);
}

const RpTable::Ranges::value_type *RpTable::match(const Address &group) const
{
    for (const auto &[length, count] : lengths_) {
        const auto found = ranges_.find(Prefix::of(group, length));
        if (found != ranges_.end()) {
            return &*found;
        }
    }
    return nullptr;
}

const RpTable::Rps *RpTable::find(const Prefix &range) const
{
    const auto found = ranges_.find(range);
    return found != ranges_.end() ? &found->second : nullptr;
}

} // namespace pimsmd
