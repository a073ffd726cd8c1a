#include "daemons/pimsmd/bsr_fragments.h"

#include "daemons/common/memory.h"

namespace pimsmd
{
namespace
{

// What an RP takes that is kept, roughly, with a range of its own.
constexpr size_t KEPT_BYTES = 512;

} // namespace

void BsrFragments::clear()
{
    pending_.clear();
    kept_ = 0;
}

void BsrFragments::begin(const Bootstrap &message)
{
    if (message.fragment_tag == tag_ && message.bsr.family == bsr_.family &&
        same_address(message.bsr, bsr_)) {
        return;
    }
    counters_[Count::BootstrapIncomplete] += pending_.size();
    clear();
    tag_ = message.fragment_tag;
    bsr_ = message.bsr;
}

bool BsrFragments::add(const BootstrapRanges &ranges, const BootstrapRange &range)
{
    const auto known = pending_.find(range.range.prefix);
    Pending rps;
    finished_.clear();
    if (known != pending_.end()) {
        kept_ -= static_cast<uint32_t>(known->second.size());
        rps.swap(known->second);
        pending_.erase(known);
    }
    for (size_t i = 0; i < range.rps_here; ++i) {
        const BootstrapRp rp = ranges.rp(range, i);
        rps[rp.address] = rp;
    }
    if (rps.size() >= range.rp_count) {
        for (const auto &[address, rp] : rps) {
            finished_.push_back(rp);
        }
        return true;
    }
    if (pending_.size() >= MOST_RP_RANGES || kept_ + rps.size() > most_ ||
        !mcastd::memory_permits(KEPT_BYTES * (1 + rps.size()))) {
        ++counters_[Count::BootstrapKept];
        return false;
    }
    kept_ += static_cast<uint32_t>(rps.size());
    pending_[range.range.prefix].swap(rps);
    return false;
}

} // namespace pimsmd
