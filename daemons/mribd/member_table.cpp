/*
 * The table is the library's route table: a group entry for each group, in it a source entry for each
 * source somebody named and one of mask length 0 for "any source". A source entry's user data is its
 * wishes, sorted by interface and client:
 *
 *     239.1.1.1/32 --+-- 0.0.0.0/0       [ eth1: client 1 joined ] [ eth2: client 1 joined ]
 *                    +-- 10.0.0.5/32     [ eth1: client 1 blocked ]
 *
 * A wish that neither joins nor blocks is removed, an entry without wishes too, a group without entries
 * too: what exists carries something. Packets of (S, G) go to an interface when, for at least one client
 * there, the wish of S joins, or the wish of any source joins and that of S does not block.
 *
 * Forgetting must work when memory is short: it is how the room comes back, and what a client wanted must
 * not outlive it. So it goes from entry to entry by address, which needs no walk record, and only setting
 * can fail.
 */
#include "daemons/mribd/member_table.h"

#include <algorithm>
#include <memory>
#include <new>
#include <tuple>

#include "daemons/common/memory.h"
#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

// What a wish takes in a group of its own, roughly.
constexpr size_t WISH_BYTES = 512;

bool before(const Wish &one, const Wish &other)
{
    return std::tie(one.if_index, one.client) < std::tie(other.if_index, other.client);
}

unsigned source_length(const MCAST_ADDR_S &source)
{
    return is_unspecified(source) ? 0 : address_bits(static_cast<uint8_t>(source.family));
}

// The wish of the same interface and client, or where it would be.
template <typename WishVector> auto place_of(WishVector &wishes, const Wish &key)
{
    return std::lower_bound(wishes.begin(), wishes.end(), key, before);
}

template <typename WishVector, typename Place>
bool is_at(const WishVector &wishes, const Place &place, const Wish &key)
{
    return place != wishes.end() && !before(key, *place);
}

} // namespace

MemberTable::MemberTable(uint8_t family, MemberBudget &budget)
    : table_(MRT_CreateTable(family, "members", nullptr,
                             [](void **user_data) { delete static_cast<Wishes *>(*user_data); })),
      family_(family), budget_(budget)
{
    if (table_ == nullptr) {
        throw std::bad_alloc();
    }
}

MemberTable::~MemberTable()
{
    drop([](const Wish &) { return true; }, [](const MCAST_ADDR_S &, const MCAST_ADDR_S &) {});
    MRT_DestroyTable(table_);
}

const MemberTable::Wishes &MemberTable::wishes_of(const MRT_SOURCE_S *entry)
{
    static const Wishes NONE;
    return entry == nullptr ? NONE : *static_cast<const Wishes *>(entry->user_data);
}

MRT_SOURCE_S *MemberTable::locate(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    return MRT_LocateSourceMask(table_, &group, address_bits(family_), &source, source_length(source));
}

MemberTable::Result MemberTable::set(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                     const MCAST_ADDR_S &source, Kind kind, bool present)
{
    MRT_SOURCE_S *entry = locate(group, source);
    Wish wish{if_index, client, false, false};
    const auto flag = kind == Kind::Join ? &Wish::joined : &Wish::blocked;
    Wishes none;
    Wishes &wishes = entry == nullptr ? none : *static_cast<Wishes *>(entry->user_data);
    const auto known = place_of(wishes, wish);
    if (!is_at(wishes, known, wish)) {
        wish.*flag = true;
        return present ? add(entry, group, source, wish) : Result::Unchanged;
    }
    if ((*known).*flag == present) {
        return Result::Unchanged;
    }
    (*known).*flag = present;
    if (!known->joined && !known->blocked) {
        forget(*known);
        wishes.erase(known);
        if (wishes.empty()) {
            MRT_DeleteSourceGroup(entry);
        }
    }
    return Result::Changed;
}

bool MemberTable::has_room(ClientId client, uint32_t if_index) const
{
    const auto uses = wishes_per_interface_.find(if_index);
    return !mcastd::memory_is_short() &&
           budget_.has_room(client, uses == wishes_per_interface_.end() ? 0 : uses->second);
}

MemberTable::Result MemberTable::add(MRT_SOURCE_S *entry, const MCAST_ADDR_S &group,
                                     const MCAST_ADDR_S &source, const Wish &wish)
{
    const auto uses = wishes_per_interface_.find(wish.if_index);
    try {
        if (!budget_.take(wish.client, uses == wishes_per_interface_.end() ? 0 : uses->second)) {
            return Result::OverLimit;
        }
    } catch (const std::bad_alloc &) {
        return Result::NoMemory;
    }
    if (!mcastd::memory_permits(WISH_BYTES)) {
        budget_.give(wish.client);
        return Result::NoMemory;
    }
    try {
        insert(entry, group, source, wish);
    } catch (const std::bad_alloc &) {
        budget_.give(wish.client);
        return Result::NoMemory;
    }
    ++wish_count_;
    return Result::Changed;
}

// Throws, with nothing inserted, when memory is short.
void MemberTable::insert(MRT_SOURCE_S *entry, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                         const Wish &wish)
{
    const auto uses = wishes_per_interface_.try_emplace(wish.if_index, 0).first;
    try {
        if (entry != nullptr) {
            Wishes &wishes = *static_cast<Wishes *>(entry->user_data);
            wishes.insert(place_of(wishes, wish), wish);
        } else {
            auto wishes = std::make_unique<Wishes>(1, wish);
            entry =
                MRT_CreateEntryMask(table_, &group, address_bits(family_), &source, source_length(source));
            if (entry == nullptr) {
                throw std::bad_alloc();
            }
            entry->user_data = wishes.release();
        }
    } catch (const std::bad_alloc &) {
        if (uses->second == 0) {
            wishes_per_interface_.erase(uses);
        }
        throw;
    }
    ++uses->second;
}

// Counts the wish out.
void MemberTable::forget(const Wish &wish)
{
    --wish_count_;
    budget_.give(wish.client);
    const auto uses = wishes_per_interface_.find(wish.if_index);
    if (--uses->second == 0) {
        wishes_per_interface_.erase(uses);
    }
}

// Those that match go to the end, and then away: in between the others are told of each. How many there were.
size_t MemberTable::forget_matching(Wishes &wishes, const std::function<bool(const Wish &)> &matches,
                                    const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    size_t kept = 0;
    for (size_t i = 0; i < wishes.size(); ++i) {
        wishes[i].goes = matches(wishes[i]);
        if (!wishes[i].goes) {
            std::swap(wishes[kept++], wishes[i]);
        }
    }
    const size_t gone = wishes.size() - kept;
    for (size_t i = kept; i < wishes.size(); ++i) {
        forget(wishes[i]);
        if (forgotten_) {
            forgotten_(wishes[i], group, source);
        }
    }
    wishes.resize(kept);
    return gone;
}

void MemberTable::drop(const std::function<bool(const Wish &)> &matches, const Changed &changed)
{
    MRT_SOURCE_S *entry = MRT_GetNextSourceGroup(table_, nullptr, 0, nullptr, 0);
    while (entry != nullptr) {
        const MCAST_ADDR_S group = *entry->group->address;
        const MCAST_ADDR_S source = *entry->address;
        Wishes &wishes = *static_cast<Wishes *>(entry->user_data);
        const unsigned length = entry->mask_length;
        const bool dropped = forget_matching(wishes, matches, group, source) != 0;
        if (wishes.empty()) {
            MRT_DeleteSourceGroup(entry);
        }
        if (dropped) {
            changed(group, source);
        }
        entry = MRT_GetNextSourceGroup(table_, &group, 0, &source, length);
    }
}

void MemberTable::drop_client(ClientId client, const Changed &changed)
{
    drop([client](const Wish &wish) { return wish.client == client; }, changed);
}

void MemberTable::drop_interface(ClientId client, uint32_t if_index, const Changed &changed)
{
    drop([=](const Wish &wish) { return wish.client == client && wish.if_index == if_index; }, changed);
}

void MemberTable::drop_interface(uint32_t if_index, const Changed &changed)
{
    drop([if_index](const Wish &wish) { return wish.if_index == if_index; }, changed);
}

// The entries of the source and of any source; NULL for one that is not there.
void MemberTable::find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, const MRT_SOURCE_S **special,
                       const MRT_SOURCE_S **general) const
{
    const auto *owner =
        static_cast<const MRT_GROUP_S *>(MRT_LocateMask(table_, &group, address_bits(family_)));
    if (owner == nullptr) {
        return;
    }
    const MCAST_ADDR_S any = any_address(family_);
    *special =
        static_cast<const MRT_SOURCE_S *>(MRT_LocateMask(owner->sources, &source, source_length(source)));
    *general = static_cast<const MRT_SOURCE_S *>(MRT_LocateMask(owner->sources, &any, 0));
}

// Whether the client that has the wish for any source blocks this one on the same interface.
bool MemberTable::is_blocked(const MRT_SOURCE_S *special, const Wish &wish)
{
    const Wishes &wishes = wishes_of(special);
    const auto own = place_of(wishes, wish);
    return is_at(wishes, own, wish) && own->blocked;
}

bool MemberTable::has_source_join(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const Wishes &wishes = wishes_of(locate(group, source));
    return std::any_of(wishes.begin(), wishes.end(), [](const Wish &wish) { return wish.joined; });
}

// The wishes for the interface. Those that are being forgotten are behind all others.
std::span<const Wish> MemberTable::on_interface(const MRT_SOURCE_S *entry, uint32_t if_index)
{
    const Wishes &wishes = wishes_of(entry);
    const auto end =
        std::partition_point(wishes.begin(), wishes.end(), [](const Wish &wish) { return !wish.goes; });
    const auto first = std::lower_bound(wishes.begin(), end, Wish{if_index}, before);
    const auto last =
        std::partition_point(first, end, [if_index](const Wish &wish) { return wish.if_index == if_index; });
    return {first, last};
}

bool MemberTable::is_shared(const MCAST_ADDR_S &group, uint32_t if_index, ClientId client) const
{
    const auto wishes = on_interface(locate(group, any_address(family_)), if_index);
    return std::any_of(wishes.begin(), wishes.end(),
                       [client](const Wish &wish) { return wish.client != client && wish.joined; });
}

void MemberTable::visit_blocked(const MCAST_ADDR_S &group, uint32_t if_index,
                                const std::function<void(const MCAST_ADDR_S &source)> &visitor) const
{
    const auto *owner = static_cast<const MRT_GROUP_S *>(MRT_Locate(table_, &group));
    const auto *node = owner == nullptr
                           ? nullptr
                           : static_cast<const MRT_SOURCE_S *>(MRT_GetNext(owner->sources, nullptr, 0));
    while (node != nullptr) {
        const auto wishes = on_interface(node, if_index);
        if (std::any_of(wishes.begin(), wishes.end(), [](const Wish &wish) { return wish.blocked; })) {
            visitor(*node->address);
        }
        node =
            static_cast<const MRT_SOURCE_S *>(MRT_GetNext(owner->sources, node->address, node->mask_length));
    }
}

uint32_t MemberTable::group_count() const
{
    return MRT_CountTable(table_);
}

void MemberTable::visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                             const std::function<bool(const MCAST_ADDR_S &, const MCAST_ADDR_S &,
                                                      const std::vector<Wish> &)> &visitor) const
{
    // Any source is stored with length 0 and is the first of its group.
    const MCAST_ADDR_S *after = source != nullptr && is_unspecified(*source) ? nullptr : source;
    const MRT_SOURCE_S *entry = MRT_LocateSource(table_, group, after);
    if (entry == nullptr) {
        entry = MRT_GetNextSourceGroup(table_, group, 0, after, 0);
    }
    while (entry != nullptr && visitor(*entry->group->address, *entry->address, wishes_of(entry))) {
        entry = MRT_GetNextSourceGroup(table_, entry->group->address, 0, entry->address, entry->mask_length);
    }
}

} // namespace mribd
