/*
 * What PIM is told of sources, and the answer to a first packet. The kernel holds a few packets of a source that it does not
 * know, and sends them to whatever is installed first: so where PIM runs that is what PIM says of the source, a moment later.
 *
 *     first packet ──► told: new ──► wait ──┬── PIM's answer ──────┬──► install
 *                                           └── 25 to 50 ms later ─┘
 *
 * Nothing waits when nobody is told, or when PIM said already where packets of just this source come from; but those of a
 * source on a link of this router wait even then, because they may have to be registered. Who makes sources up makes them
 * wait: beyond a number, and a half of that for each virtual interface, they are installed with what is known.
 */
#include <algorithm>
#include <new>

#include "daemons/common/memory.h"
#include "daemons/mribd/forwarding.h"

namespace mribd
{

bool Forwarding::tell_source(Entry *entry, mcastd::PimSourceState state, uint32_t if_index)
{
    const bool is_told = pim_source_told_ && pim_source_told_(*entry, state, if_index);
    entry->is_told |= is_told;
    return is_told;
}

// Whether the entry waits from now on.
bool Forwarding::await_answer(Entry *entry, unsigned vif)
{
    const bool is_known = parts_.trees.has_source_tree(entry->group(), entry->source()) &&
                          !parts_.environment.is_on_link(entry->arrival, entry->source());
    if (!may_await_ || !parts_.pim.runs() || is_known || entry->awaits_answer) {
        return entry->awaits_answer;
    }
    const auto of_vif = std::count_if(awaiting_.begin(), awaiting_.end(),
                                      [vif](const Awaiting &one) { return one.vif == vif; });
    if (awaiting_.size() >= MOST_AWAITING || static_cast<size_t>(of_vif) >= MOST_AWAITING / 2) {
        ++counters_.not_awaited;
        return false;
    }
    try {
        awaiting_.push_back({entry->group(), entry->source(), vif, false});
    } catch (const std::bad_alloc &) {
        ++counters_.not_awaited;
        return false;
    }
    entry->awaits_answer = true;
    return true;
}

void Forwarding::end_awaiting(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    Entry *entry = entries_.find(group, source);
    if (entry != nullptr && entry->awaits_answer) {
        entry->awaits_answer = false;
        evaluate(entry);
    }
}

void Forwarding::take_answer(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    const auto found = std::find_if(awaiting_.begin(), awaiting_.end(), [&](const Awaiting &one) {
        return mcastd::compare_address(one.source, source) == 0 &&
               mcastd::compare_address(one.group, group) == 0;
    });
    if (found != awaiting_.end()) {
        *found = awaiting_.back();
        awaiting_.pop_back();
        end_awaiting(group, source);
    }
}

void Forwarding::pass_answer_tick()
{
    for (size_t i = awaiting_.size(); i-- > 0;) {
        Awaiting &one = awaiting_[i];
        if (!one.is_old) {
            one.is_old = true;
            continue;
        }
        const Awaiting late = one;
        one = awaiting_.back();
        awaiting_.pop_back();
        ++counters_.unanswered;
        trace_route("(%M, %N): PIM did not answer in time", &late.source, &late.group);
        end_awaiting(late.group, late.source);
    }
}

} // namespace mribd
