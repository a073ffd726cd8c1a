#include "daemons/gmpd/held_members.h"

#include "daemons/common/memory.h"

namespace gmpd
{

bool HeldMembers::WishLess::operator()(const MemberChange &first, const MemberChange &second) const
{
    if (first.if_index != second.if_index || first.blocked != second.blocked) {
        return std::tie(first.if_index, first.blocked) < std::tie(second.if_index, second.blocked);
    }
    const int order = compare_address(first.group, second.group);

    return order != 0 ? order < 0 : address_less(first.source, second.source);
}

bool HeldMembers::hold(const MemberChange &change)
{
    const auto found = places_.find(change);
    if (found != places_.end()) {
        *found->second = change;
        order_.splice(order_.end(), order_, found->second);
        return true;
    }
    if (order_.size() >= LIMIT) {
        return false;
    }
    if (!mcastd::memory_permits(sizeof(change) * 3)) {
        return false;
    }
    Order fresh(1, change);
    places_.emplace(change, fresh.begin());
    order_.splice(order_.end(), fresh); // its elements stay where they are
    return true;
}

void HeldMembers::forget(uint32_t if_index)
{
    for (auto at = places_.begin(); at != places_.end();) {
        if (at->first.if_index == if_index) {
            order_.erase(at->second);
            at = places_.erase(at);
        } else {
            ++at;
        }
    }
}

void HeldMembers::clear()
{
    places_.clear();
    order_.clear();
}

} // namespace gmpd
