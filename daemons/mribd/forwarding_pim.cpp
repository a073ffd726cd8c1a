/*
 * What PIM makes of an entry: where its packets come from, and which of the wishes for them count. The table stands in
 * daemons/common/pim_records.h; it is the inherited_olist of RFC 7761 (4.1.6) with the downstream joins of PIM clients and
 * the memberships of all others.
 *
 * Where PIM does not run on a link everything is as without it, but that PIM clients have no say there.
 */
#include "daemons/mribd/forwarding.h"

namespace mribd
{

using mcastd::PIM_ASSERT_LOST;
using mcastd::PIM_ASSERT_WON;

// Of the wishes that count the interfaces that have a virtual one, but upstream.
uint32_t Forwarding::pim_outgoing(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint32_t upstream,
                                  bool is_shared_tree) const
{
    const PimState &pim = parts_.pim;
    const TreeTable::Asserts &of_source = parts_.trees.asserts(group, source);
    const TreeTable::Asserts &of_group = parts_.trees.asserts(group, any_address(parts_.key.family));
    const auto counts = [&](const Wish &wish, bool named) {
        if (named && is_shared_tree) {
            return false;
        }
        if (!pim.runs_on(wish.if_index)) {
            return !pim.is_client(wish.client);
        }
        const auto source_assert = of_source.on(wish.if_index);
        const auto group_assert = of_group.on(wish.if_index);
        if (source_assert == PIM_ASSERT_LOST || (!named && group_assert == PIM_ASSERT_LOST)) {
            return false;
        }
        return pim.is_client(wish.client) || pim.is_designated(wish.if_index) ||
               (named ? source_assert : group_assert) == PIM_ASSERT_WON;
    };
    uint32_t outgoing = 0;
    parts_.members.visit_wishes(group, source, [&](const Wish &wish, bool named) {
        const int vif = parts_.vifs.find(wish.if_index);
        if (vif >= 0 && wish.if_index != upstream && (outgoing >> vif & 1) == 0 && counts(wish, named)) {
            outgoing |= 1u << vif;
        }
    });
    return outgoing;
}

// The interface that PIM says, 0 for none; nothing when it says nothing of the entry.
std::optional<uint32_t> Forwarding::tree_upstream(Entry *entry) const
{
    const TreeTable::Tree tree = parts_.trees.find(entry->group(), entry->source());
    const bool is_said = tree.from != mcastd::PIM_FROM_UNSAID;
    entry->is_shared_tree = is_said && (tree.flags & mcastd::PIM_TREE_SPT) == 0;
    entry->is_registered = is_said && (tree.flags & mcastd::PIM_TREE_REGISTER_OUT) != 0;
    if (!is_said) {
        return std::nullopt;
    }
    switch (tree.from) {
    case mcastd::PIM_FROM_INTERFACE:
        return tree.if_index;
    case mcastd::PIM_FROM_REGISTER:
        return mcastd::PIM_REGISTER_INTERFACE;
    default:
        return 0;
    }
}

// Whether the kernel is to tell of the next packet of a silent source though it was joined by name: of one on a link of this
// router PIM must know that it sends, for it may have to be registered.
bool Forwarding::waits_for_packets(const Entry *entry) const
{
    return parts_.pim.runs() && !entry->is_sending && entry->upstream != 0 &&
           parts_.environment.is_on_link(entry->upstream, entry->source());
}

// The register interface's bit, when packets go there.
uint32_t Forwarding::register_output(const Entry *entry) const
{
    const int vif = parts_.vifs.find(mcastd::PIM_REGISTER_INTERFACE);
    const bool goes = entry->is_registered && vif >= 0 && entry->upstream != mcastd::PIM_REGISTER_INTERFACE;
    return goes ? 1u << vif : 0;
}

// A range costs a walk over all entries, so that it waits for settle, where one walk serves all of them.
void Forwarding::tree_changed(const Prefix &groups, const MCAST_ADDR_S &source, TreeChange change)
{
    const bool check_route = change == TreeChange::Upstream;
    if (groups.length < address_bits(parts_.key.family)) {
        if (changed_groups_.size() == PREFIXES_TOLD_APART) {
            changed_groups_.assign(1, Prefix{any_address(parts_.key.family), 0});
        } else {
            changed_groups_.push_back(groups);
        }
    } else if (is_unspecified(source)) {
        entries_.visit_group(groups.address,
                             [this, check_route](Entry *entry) { queue(entry, check_route, true); });
    } else if (Entry *entry = entries_.find(groups.address, source)) {
        queue(entry, check_route, true);
    }
}

// The kernel reports one packet on a wrong interface in three seconds of an entry; of a new entry it reports the first.
void Forwarding::watch(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    constexpr uint32_t SILENCE_S = 4; // in whole seconds
    Entry *entry = entries_.find(group, source);
    if (entry != nullptr && entry->installed && entry->wrong_at_s != 0 &&
        mcastd::boot_time_s() - entry->wrong_at_s <= SILENCE_S) {
        entry->is_watched = true;
        queue(entry, false, true);
    }
}

// Packets that come while the kernel has no entry wait for the new one. It counts from 0 again.
void Forwarding::forget_reports(Entry *entry)
{
    if (entry->installed) {
        parts_.kernel.delete_entry(entry->source(), entry->group());
        entry->installed = false;
    }
    entry->is_watched = false;
    entry->wrong_at_s = 0;
    entry->last_packets = 0;
    entry->looked_packets = 0;
}

} // namespace mribd
