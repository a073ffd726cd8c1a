/*
 * The table is the library's route table: an entry for each group, or range of groups, in it one for each source of which
 * something is said and one of mask length 0 for any source.
 *
 *     239.0.0.0/8  --- 0.0.0.0/0     from the register interface
 *     239.1.1.1/32 -+- 0.0.0.0/0     from eth0; lost on eth1
 *                   +- 10.0.0.5/32   from eth2, source's own tree
 *
 * What counts for (10.0.0.6, 239.1.1.1) is said of (*, 239.1.1.1), for (10.0.0.6, 239.1.1.2) of the range. An entry about
 * which nothing is said any more goes at once. Forgetting goes from entry to entry by address, which needs no memory.
 */
#include "daemons/mribd/tree_table.h"

#include <algorithm>
#include <memory>
#include <new>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

// What an entry takes in a group of its own, roughly.
constexpr size_t SAID_BYTES = 512;

unsigned source_length(const MCAST_ADDR_S &source)
{
    return is_unspecified(source) ? 0 : address_bits(static_cast<uint8_t>(source.family));
}

Prefix whole(const MCAST_ADDR_S &group)
{
    return Prefix{group, address_bits(static_cast<uint8_t>(group.family))};
}

} // namespace

mcastd::PimAssertState TreeTable::Asserts::on(uint32_t if_index) const
{
    const auto found = std::lower_bound(ones_.begin(), ones_.end(), if_index,
                                        [](const One &one, uint32_t index) { return one.if_index < index; });
    return found == ones_.end() || found->if_index != if_index ? mcastd::PIM_ASSERT_NONE : found->state;
}

TreeTable::TreeTable(uint8_t family, size_t limit)
    : table_(MRT_CreateTable(family, "trees", nullptr,
                             [](void **user_data) { delete static_cast<Said *>(*user_data); })),
      family_(family), limit_(limit)
{
    if (table_ == nullptr) {
        throw std::bad_alloc();
    }
}

TreeTable::~TreeTable()
{
    MRT_DestroyTable(table_);
}

MRT_SOURCE_S *TreeTable::locate(const Prefix &groups, const MCAST_ADDR_S &source) const
{
    return MRT_LocateSourceMask(table_, &groups.address, groups.length, &source, source_length(source));
}

bool TreeTable::has_room()
{
    if (size_ < limit_) {
        near_reported_ = near_reported_ && size_ > limit_ / 2;
        return true;
    }
    ++refused_;
    if (!near_reported_) {
        near_reported_ = true;
        mcastd::log_warning("%s: the limit of %zu trees and asserts of an instance is reached",
                            family_name(family_), limit_);
    }
    return false;
}

// The entry, which is made when it is not there. NULL: *why_not.
MRT_SOURCE_S *TreeTable::make(const Prefix &groups, const MCAST_ADDR_S &source, Result *why_not)
{
    MRT_SOURCE_S *node = locate(groups, source);
    if (node != nullptr) {
        return node;
    }
    *why_not = Result::NoMemory;
    if (!mcastd::memory_permits(SAID_BYTES)) {
        return nullptr;
    }
    std::unique_ptr<Said> fresh(new (std::nothrow) Said);
    if (fresh != nullptr) {
        node = MRT_CreateEntryMask(table_, &groups.address, groups.length, &source, source_length(source));
    }
    if (node != nullptr) {
        node->user_data = fresh.release();
    }
    return node;
}

void TreeTable::delete_if_empty(MRT_SOURCE_S *node)
{
    if (said(node).tree.from == mcastd::PIM_FROM_UNSAID && said(node).asserts.ones_.empty()) {
        MRT_DeleteSourceGroup(node);
    }
}

TreeTable::Result TreeTable::set_tree(const Prefix &groups, const MCAST_ADDR_S &source, const Tree &tree)
{
    const bool present = tree.from != mcastd::PIM_FROM_UNSAID;
    MRT_SOURCE_S *node = locate(groups, source);
    const bool was_present = node != nullptr && said(node).tree.from != mcastd::PIM_FROM_UNSAID;
    if (!present && !was_present) {
        return Result::Unchanged;
    }
    if (!present) {
        said(node).tree = {};
        --size_;
        delete_if_empty(node);
        return Result::Changed;
    }
    if (!was_present && !has_room()) {
        return Result::OverLimit;
    }
    Result why_not = Result::NoMemory;
    node = make(groups, source, &why_not);
    if (node == nullptr) {
        return why_not;
    }
    Tree before = said(node).tree;
    said(node).tree = tree;
    size_ += was_present ? 0 : 1;
    before.client = tree.client;
    return before == tree ? Result::Unchanged : Result::Changed;
}

void TreeTable::count_won(uint32_t if_index, mcastd::PimAssertState before, mcastd::PimAssertState now)
{
    if (before == mcastd::PIM_ASSERT_WON && now != before) {
        const auto found = won_per_interface_.find(if_index);
        if (--found->second == 0) {
            won_per_interface_.erase(found);
        }
    } else if (now == mcastd::PIM_ASSERT_WON && now != before) {
        ++won_per_interface_[if_index];
    }
}

TreeTable::Result TreeTable::set_assert(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                        const MCAST_ADDR_S &source, mcastd::PimAssertState state)
{
    const Prefix groups = whole(group);
    const bool present = state != mcastd::PIM_ASSERT_NONE;
    MRT_SOURCE_S *node = locate(groups, source);
    const auto before = node == nullptr ? mcastd::PIM_ASSERT_NONE : said(node).asserts.on(if_index);
    if (!present && before == mcastd::PIM_ASSERT_NONE) {
        return Result::Unchanged;
    }
    if (before == mcastd::PIM_ASSERT_NONE && !has_room()) {
        return Result::OverLimit;
    }
    Result why_not = Result::NoMemory;
    node = make(groups, source, &why_not);
    if (node == nullptr) {
        return why_not;
    }
    auto &ones = said(node).asserts.ones_;
    const auto place = std::lower_bound(ones.begin(), ones.end(), if_index,
                                        [](const auto &one, uint32_t index) { return one.if_index < index; });
    if (!present) {
        count_won(if_index, before, state);
        ones.erase(place);
        --size_;
        delete_if_empty(node);
        return Result::Changed;
    }
    try {
        count_won(if_index, mcastd::PIM_ASSERT_NONE, state); // before anything else: it may find no memory
        if (before == mcastd::PIM_ASSERT_NONE) {
            ones.insert(place, {if_index, state, client});
            ++size_;
        } else {
            count_won(if_index, before, mcastd::PIM_ASSERT_NONE);
            place->state = state;
            place->client = client;
        }
    } catch (const std::bad_alloc &) {
        if (won_per_interface_.contains(if_index)) {
            count_won(if_index, state, mcastd::PIM_ASSERT_NONE);
        }
        delete_if_empty(node);
        return Result::NoMemory;
    }
    return before == state ? Result::Unchanged : Result::Changed;
}

// drop(said) takes out of an entry what is to go, and answers whether anything did.
template <typename Drop> void TreeTable::drop(const Drop &drop, const Changed &changed)
{
    MRT_SOURCE_S *node = MRT_GetNextSourceGroup(table_, nullptr, 0, nullptr, 0);
    while (node != nullptr) {
        const Prefix groups{*node->group->address, static_cast<uint8_t>(node->group->mask_length)};
        const MCAST_ADDR_S source = *node->address;
        const unsigned length = node->mask_length;
        if (drop(said(node))) {
            delete_if_empty(node);
            changed(groups, length == 0 ? any_address(family_) : source);
        }
        // Length 0 would count as the whole address; the any-source entry is the first of its group either way.
        node = MRT_GetNextSourceGroup(table_, &groups.address, groups.length, &source, length);
    }
}

void TreeTable::drop_client(ClientId client, const Changed &changed)
{
    const auto drop_said = [this, client](Said &said) {
        const size_t had = size_;
        if (said.tree.client == client && said.tree.from != mcastd::PIM_FROM_UNSAID) {
            said.tree = {};
            --size_;
        }
        std::erase_if(said.asserts.ones_, [this, client](const auto &one) {
            const bool goes = one.client == client;
            if (goes) {
                count_won(one.if_index, one.state, mcastd::PIM_ASSERT_NONE);
                --size_;
            }
            return goes;
        });
        return size_ != had;
    };
    drop(drop_said, changed);
}

void TreeTable::drop_interface(uint32_t if_index, ClientId client, const Changed &changed)
{
    const auto drop_said = [this, if_index, client](Said &said) {
        return std::erase_if(said.asserts.ones_, [this, if_index, client](const auto &one) {
                   const bool goes = one.if_index == if_index && (client == 0 || one.client == client);
                   if (goes) {
                       count_won(one.if_index, one.state, mcastd::PIM_ASSERT_NONE);
                       --size_;
                   }
                   return goes;
               }) != 0;
    };
    drop(drop_said, changed);
}

TreeTable::Tree TreeTable::find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const MRT_SOURCE_S *own = MRT_LocateSource(table_, &group, &source);
    if (own != nullptr && said(own).tree.from != mcastd::PIM_FROM_UNSAID) {
        return said(own).tree;
    }
    const MCAST_ADDR_S any = any_address(family_);
    unsigned length = address_bits(family_);
    while (true) {
        const auto *groups = static_cast<const MRT_GROUP_S *>(MRT_BestMatch(table_, &group, length));
        if (groups == nullptr) {
            return {};
        }
        const auto *node = static_cast<const MRT_SOURCE_S *>(MRT_LocateMask(groups->sources, &any, 0));
        if (node != nullptr && said(node).tree.from != mcastd::PIM_FROM_UNSAID) {
            return said(node).tree;
        }
        if (groups->mask_length == 0) {
            return {};
        }
        length = groups->mask_length - 1;
    }
}

bool TreeTable::has_source_tree(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const MRT_SOURCE_S *own = MRT_LocateSource(table_, &group, &source);
    return own != nullptr && said(own).tree.from != mcastd::PIM_FROM_UNSAID;
}

const TreeTable::Asserts &TreeTable::asserts(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    static const Asserts NONE;
    const MRT_SOURCE_S *node = locate(whole(group), source);
    return node == nullptr ? NONE : said(node).asserts;
}

} // namespace mribd
