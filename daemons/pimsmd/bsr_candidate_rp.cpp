/*
 * What this router says of itself as candidate RP: to the BSR, or to itself when it is that. It says so again well before its holdtime
 * ends, and goodbye, which is a holdtime of 0, when it serves a range no longer.
 */
#include <algorithm>

#include "daemons/pimsmd/bsr.h"

namespace pimsmd
{
namespace
{

using bsr::Weight;

// The BSR may lose one of two messages in a row and still believe that the candidate is there.
uint32_t candidate_period_ms(uint16_t holdtime_s)
{
    return std::min<uint32_t>(CANDIDATE_RP_MS, holdtime_s * 1000u * 2 / 5);
}

// The ranges that only the first have.
std::vector<GroupRange> without(const std::vector<GroupRange> &first, const std::vector<GroupRange> &others)
{
    std::vector<GroupRange> left;
    std::copy_if(first.begin(), first.end(), std::back_inserter(left), [&others](const GroupRange &one) {
        return std::none_of(others.begin(), others.end(),
                            [&one](const GroupRange &other) { return other.prefix == one.prefix; });
    });
    return left;
}

} // namespace

void Bsr::tell_bsr_within(uint32_t most_ms)
{
    queue_.start(tell_, surroundings_.random(most_ms), tell_over, this);
}

void Bsr::tell_over(void *self)
{
    static_cast<Bsr *>(self)->tell_bsr();
}

// Without a BSR it is started again with the next one.
void Bsr::tell_bsr()
{
    if (say_candidate(settings_.rp_holdtime_s, settings_.rp_ranges)) {
        queue_.start(tell_, candidate_period_ms(settings_.rp_holdtime_s), tell_over, this);
    }
}

// No ranges are all groups. False when there is nobody to tell.
bool Bsr::say_candidate(uint16_t holdtime_s, std::span<const GroupRange> ranges)
{
    const std::optional<Weight> to = elected();
    if (!to) {
        return false;
    }
    CandidateRp message;
    message.priority = settings_.rp_priority;
    message.holdtime_s = holdtime_s;
    message.rp = *settings_.rp;
    message.range_count = static_cast<uint8_t>(ranges.size());
    if (!is_elected()) {
        surroundings_.send_candidate(to->address, message, ranges);
        return true;
    }
    const BootstrapRp own{message.rp, message.holdtime_s, message.priority};
    const GroupRange all{whole_range(family_)};
    bool changed = false;
    for (const GroupRange &range : ranges.empty() ? std::span(&all, 1) : ranges) {
        changed = put_candidate(range.prefix, own) || changed;
    }
    if (changed) {
        originate_soon();
    }
    return true;
}

void Bsr::set_candidate_rp(const BsrSettings &next)
{
    if (settings_.rp) {
        const bool same_rp = next.rp && same_address(*settings_.rp, *next.rp);
        const std::vector<GroupRange> left =
            same_rp ? without(settings_.rp_ranges, next.rp_ranges) : settings_.rp_ranges;

        if (!same_rp || !left.empty()) {
            say_candidate(0, left);
        }
    }
    settings_.rp = next.rp;
    settings_.rp_priority = next.rp_priority;
    settings_.rp_holdtime_s = next.rp_holdtime_s;
    settings_.rp_ranges = next.rp_ranges;
    queue_.stop(tell_);
    if (settings_.rp) {
        tell_bsr_within(0);
    }
}

void Bsr::close()
{
    if (settings_.rp) {
        say_candidate(0, settings_.rp_ranges);
    }
    queue_.stop(tell_);
    queue_.stop(soon_);
    resign();
}

} // namespace pimsmd
