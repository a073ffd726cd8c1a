#include "daemons/pimsmd/rp_set.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>

#include "daemons/common/expect.h"
#include "daemons/pimsmd/embedded_rp.h"
#include "daemons/pimsmd/rp_hash.h"

namespace pimsmd
{
namespace
{

bool static_less(const StaticRp &first, const StaticRp &second)
{
    if (!(first.range == second.range)) {
        return first.range < second.range;
    }
    return address_less(first.rp, second.rp);
}

bool same_static(const StaticRp &first, const StaticRp &second)
{
    return first.range == second.range && same_address(first.rp, second.rp);
}

// The best RP that was offered for a group.
class Election
{
public:
    Election(const Address &group, uint8_t mask_length) : group_(group), mask_length_(mask_length)
    {
    }
    void offer(const Address &rp, uint8_t priority)
    {
        const uint32_t hash = rp_hash(group_, mask_length_, rp);
        const auto terms = std::tuple(-int{priority}, hash);
        const auto best = std::tuple(-int{priority_}, hash_);
        if (!any_ || terms > best || (terms == best && address_less(rp_, rp))) {
            rp_ = rp;
            priority_ = priority;
            hash_ = hash;
            any_ = true;
        }
    }
    RpChoice choice(RpOrigin origin, const Prefix &range) const
    {
        mcastd::expect(any_);
        return {rp_, origin, range, priority_};
    }

private:
    Address group_;
    uint8_t mask_length_;
    Address rp_{};
    uint8_t priority_ = 0;
    uint32_t hash_ = 0;
    bool any_ = false;
};

} // namespace

RpSet::RpSet(uint16_t family, MsQueue &queue, RpSetEvents &events, Counters &counters, const RpLimits &limits)
    : family_(family), events_(events), learnt_(queue, *this, counters, limits),
      hash_mask_length_(default_hash_mask_length(family))
{
}

bool RpSet::is_usable(const StaticRp &one) const
{
    return one.range.address.family == family_ && one.rp.family == family_ && is_unicast(one.rp) &&
           is_multicast(one.range.address) && one.range.length >= (family_ == MCAST_FAMILY_IPV4 ? 4 : 8);
}

bool RpSet::set_static(std::span<const StaticRp> rps)
{
    const auto usable = [this](const StaticRp &one) { return is_usable(one); };
    if (rps.size() > MOST_STATIC_RPS || !std::all_of(rps.begin(), rps.end(), usable)) {
        return false;
    }
    std::vector<StaticRp> next(rps.begin(), rps.end());
    std::vector<StaticRp> changed;

    std::sort(next.begin(), next.end(), static_less);
    next.erase(std::unique(next.begin(), next.end(), same_static), next.end());
    std::set_symmetric_difference(static_.begin(), static_.end(), next.begin(), next.end(),
                                  std::back_inserter(changed), static_less);
    static_.swap(next);
    for (size_t i = 0; i < changed.size(); ++i) {
        if (i == 0 || !(changed[i].range == changed[i - 1].range)) {
            events_.rps_changed(changed[i].range);
        }
    }
    return true;
}

void RpSet::learn(const Prefix &range, std::span<const BootstrapRp> rps)
{
    std::set<Address, AddressLess> said;
    std::vector<Address> gone;
    bool changed = false;
    for (const BootstrapRp &rp : rps) {
        said.insert(rp.address);
    }
    if (const RpTable::Rps *known = learnt_.find(range)) {
        for (const auto &[address, rp] : *known) {
            if (said.count(address) == 0) {
                gone.push_back(address);
            }
        }
    }
    for (const Address &address : gone) {
        changed = learnt_.remove(range, address) || changed;
    }
    for (const BootstrapRp &rp : rps) {
        changed = learnt_.put(range, rp) || changed;
    }
    if (changed) {
        events_.rps_changed(range);
    }
}

void RpSet::set_hash_mask_length(uint8_t length)
{
    mcastd::expect(length <= address_bits(family_));
    if (length == hash_mask_length_) {
        return;
    }
    hash_mask_length_ = length;
    events_.rps_changed(whole_range(family_));
}

void RpSet::forget_learnt()
{
    std::vector<Prefix> gone;
    for (const auto &[range, rps] : learnt_.ranges()) {
        gone.push_back(range);
    }
    learnt_.clear();
    for (const Prefix &range : gone) {
        events_.rps_changed(range);
    }
    set_hash_mask_length(default_hash_mask_length(family_));
}

void RpSet::rp_expired(const Prefix &range, const Address & /*rp*/)
{
    events_.rps_changed(range);
}

std::span<const StaticRp> RpSet::match_static(const Address &group) const
{
    const auto by_range = [](const StaticRp &one, const Prefix &range) { return one.range < range; };
    for (int length = address_bits(family_); length > 0 && !static_.empty(); --length) {
        const Prefix range = Prefix::of(group, static_cast<uint8_t>(length));
        const auto first = std::lower_bound(static_.begin(), static_.end(), range, by_range);
        const auto last =
            std::find_if(first, static_.end(), [&](const StaticRp &one) { return !(one.range == range); });
        if (first != last) {
            return {first, last};
        }
    }
    return {};
}

RpChoice RpSet::best_of(const Address &group, std::span<const StaticRp> rps) const
{
    Election election(group, hash_mask_length_);
    for (const StaticRp &one : rps) {
        election.offer(one.rp, 0);
    }
    return election.choice(RpOrigin::Configured, rps.front().range);
}

RpChoice RpSet::best_of(const Address &group, const RpTable::Ranges::value_type &learnt) const
{
    Election election(group, hash_mask_length_);
    for (const auto &[address, rp] : learnt.second) {
        election.offer(address, rp.priority);
    }
    return election.choice(RpOrigin::Bootstrap, learnt.first);
}

std::optional<RpChoice> RpSet::choose(const Address &group) const
{
    if (embeds_rp(group)) {
        const std::optional<Address> rp = embedded_rp(group);
        const Prefix itself = Prefix::of(group, address_bits(family_));
        return rp ? std::optional(RpChoice{*rp, RpOrigin::Embedded, itself, 0}) : std::nullopt;
    }
    const std::span<const StaticRp> configured = match_static(group);
    const RpTable::Ranges::value_type *learnt = learnt_.match(group);
    if (!configured.empty() &&
        (learnt == nullptr || configured.front().range.length >= learnt->first.length)) {
        return best_of(group, configured);
    }
    return learnt != nullptr ? std::optional(best_of(group, *learnt)) : std::nullopt;
}

std::optional<Address> RpSet::rp_of(const Address &group) const
{
    const std::optional<RpChoice> choice = choose(group);
    return choice ? std::optional(choice->rp) : std::nullopt;
}

} // namespace pimsmd
