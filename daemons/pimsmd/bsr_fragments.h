/*
 * Bootstrap messages in pieces. A piece is whole in itself: it has ranges with some of their RPs, and says how many RPs a
 * range has in all. Pieces of one Bootstrap have one tag.
 *
 *      tag 7   239.0.0.0/8: .1 .2 of 3   ──► kept
 *      tag 7   239.0.0.0/8: .3    of 3   ──► complete: the range is told
 *      tag 8   ...                       ──► what was kept of tag 7 never comes: it goes, counted
 *
 * Only what is not complete is kept, of one Bootstrap at a time, and no more RPs than may be learnt at all.
 */
#ifndef DAEMONS_PIMSMD_BSR_FRAGMENTS_H
#define DAEMONS_PIMSMD_BSR_FRAGMENTS_H

#include <map>
#include <vector>

#include "daemons/pimsmd/rp_table.h"

namespace pimsmd
{

class BsrFragments
{
public:
    // counters outlives it. At most so many RPs are kept.
    explicit BsrFragments(Counters &counters, uint32_t most = MOST_RANGE_RPS)
        : counters_(counters), most_(most)
    {
    }

    // Takes a piece, and calls complete(range, RPs) for each range of which all RPs are there now. A range without any is
    // complete; bidirectional ones and those of zones are left out.
    template <typename Complete> void take(const Bootstrap &message, Complete complete)
    {
        begin(message);
        BootstrapRanges ranges = message.ranges;
        BootstrapRange range;
        while (ranges.next(&range)) {
            if (range.range.bidirectional || range.range.zone) {
                ++counters_[Count::RpRangeKind];
            } else if (add(ranges, range)) {
                complete(range.range.prefix, finished_);
            }
        }
    }

    // Forgets what is kept.
    void clear();

    // RPs that are kept.
    uint32_t kept() const
    {
        return kept_;
    }

private:
    using Pending = std::map<Address, BootstrapRp, AddressLess>;

    void begin(const Bootstrap &message);
    bool add(const BootstrapRanges &ranges, const BootstrapRange &range);

    Counters &counters_;
    uint32_t most_;
    Address bsr_{};
    uint16_t tag_ = 0;
    std::map<Prefix, Pending> pending_;
    uint32_t kept_ = 0;
    std::vector<BootstrapRp> finished_;
};

} // namespace pimsmd

#endif
