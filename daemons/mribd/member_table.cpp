/*
 * The table is the library's route table: a group entry for each group, in it a source entry for each source
 * somebody named and one of mask length 0 for "any source". A source entry's user data is its wishes, sorted
 * by interface and client:
 *
 *     239.1.1.1/32 --+-- 0.0.0.0/0       [ eth1: client 1 joined ] [ eth2: client 1 joined ]
 *                    +-- 10.0.0.5/32     [ eth1: client 1 blocked ]
 *
 * A wish that neither joins nor blocks is removed, an entry without wishes too, a group without entries too:
 * what exists carries something. Packets of (S, G) go to an interface when, for at least one client there,
 * the wish of S joins, or the wish of any source joins and that of S does not block.
 */
#include "daemons/mribd/member_table.h"

#include <algorithm>
#include <memory>
#include <new>
#include <tuple>

#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

using Wishes = std::vector<Wish>;

void release_wishes(void **user_data)
{
    delete static_cast<Wishes *>(*user_data);
}

Wishes &wishes_of(const MRT_SOURCE_S *entry)
{
    return *static_cast<Wishes *>(entry->user_data);
}

bool before(const Wish &one, const Wish &other)
{
    return std::tie(one.if_index, one.client) < std::tie(other.if_index, other.client);
}

unsigned source_length(const MCAST_ADDR_S &source)
{
    return is_unspecified(source) ? 0 : address_bits(source.family);
}

// Runs over the entries of a table while they may be deleted.
class Walk
{
public:
    explicit Walk(MRT_TABLE_S *table) : walk_(MRT_CreateWalk(table))
    {
    }
    ~Walk()
    {
        MRT_DeleteWalk(walk_);
    }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    template <typename Entry> Entry *next()
    {
        return static_cast<Entry *>(MRT_WalkNext(walk_));
    }

private:
    MRT_WALK_S *walk_;
};

} // namespace

MemberTable::MemberTable(uint8_t family)
    : table_(MRT_CreateTable(family, "members", nullptr, release_wishes)), family_(family)
{
    if (table_ == nullptr) {
        throw std::bad_alloc();
    }
}

MemberTable::~MemberTable()
{
    MRT_DestroyTable(table_);
}

void MemberTable::count(uint32_t if_index, int change)
{
    wish_count_ += static_cast<size_t>(change);
    size_t &uses = wishes_per_interface_[if_index];
    uses += static_cast<size_t>(change);
    if (uses == 0) {
        wishes_per_interface_.erase(if_index);
    }
}

MemberTable::Result MemberTable::set(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                     const MCAST_ADDR_S &source, Kind kind, bool present)
{
    const unsigned length = source_length(source);
    MRT_SOURCE_S *entry = MRT_LocateSourceMask(table_, &group, address_bits(family_), &source, length);
    if (entry == nullptr) {
        if (!present) {
            return Result::Unchanged;
        }
        auto wishes = std::make_unique<Wishes>();
        wishes->reserve(1);
        entry = MRT_CreateEntryMask(table_, &group, address_bits(family_), &source, length);
        if (entry == nullptr) {
            return Result::NoMemory;
        }
        entry->user_data = wishes.release();
    }
    Wishes &wishes = wishes_of(entry);
    const Wish key{if_index, client, false, false};
    auto wish = std::lower_bound(wishes.begin(), wishes.end(), key, before);
    if (wish == wishes.end() || before(key, *wish)) {
        if (!present) {
            return Result::Unchanged;
        }
        wish = wishes.insert(wish, key);
        count(if_index, 1);
    }
    bool &flag = kind == Kind::Join ? wish->joined : wish->blocked;
    if (flag == present) {
        return Result::Unchanged;
    }
    flag = present;
    if (!wish->joined && !wish->blocked) {
        wishes.erase(wish);
        count(if_index, -1);
        if (wishes.empty()) {
            MRT_DeleteSourceGroup(entry);
        }
    }
    return Result::Changed;
}

void MemberTable::drop(const std::function<bool(const Wish &)> &matches, const Changed &changed)
{
    Walk groups(table_);
    while (auto *group = groups.next<MRT_GROUP_S>()) {
        const MCAST_ADDR_S group_address = *group->address;
        std::vector<MCAST_ADDR_S> concerned;
        {
            Walk sources(group->sources);
            while (auto *source = sources.next<MRT_SOURCE_S>()) {
                Wishes &wishes = wishes_of(source);
                const auto rest = std::remove_if(wishes.begin(), wishes.end(), [&](const Wish &wish) {
                    if (matches(wish)) {
                        count(wish.if_index, -1);
                        return true;
                    }
                    return false;
                });
                if (rest == wishes.end()) {
                    continue;
                }
                wishes.erase(rest, wishes.end());
                concerned.push_back(*source->address);
                if (wishes.empty()) {
                    MRT_DeleteSource(source);
                }
            }
        }
        if (MRT_CountTable(group->sources) == 0) {
            MRT_DeleteGroup(group);
        }
        for (const MCAST_ADDR_S &source : concerned) {
            changed(group_address, source);
        }
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

std::vector<uint32_t> MemberTable::receivers(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    std::vector<uint32_t> result;
    const auto *entry =
        static_cast<const MRT_GROUP_S *>(MRT_LocateMask(table_, &group, address_bits(family_)));
    if (entry == nullptr) {
        return result;
    }
    const MCAST_ADDR_S any = any_address(family_);
    static const Wishes NONE;
    const auto wishes_for = [&](const MCAST_ADDR_S &address) -> const Wishes & {
        const auto *found = static_cast<const MRT_SOURCE_S *>(
            MRT_LocateMask(entry->sources, &address, source_length(address)));
        return found == nullptr ? NONE : wishes_of(found);
    };
    const Wishes &special = wishes_for(source);
    for (const Wish &wish : special) {
        if (wish.joined) {
            result.push_back(wish.if_index);
        }
    }
    for (const Wish &wish : wishes_for(any)) {
        const auto own = std::lower_bound(special.begin(), special.end(), wish, before);
        const bool blocked = own != special.end() && !before(wish, *own) && own->blocked;
        if (wish.joined && !blocked) {
            result.push_back(wish.if_index);
        }
    }
    std::sort(result.begin(), result.end());
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
}

bool MemberTable::has_source_join(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const MRT_SOURCE_S *entry = MRT_LocateSource(table_, &group, &source);
    return entry != nullptr && std::any_of(wishes_of(entry).begin(), wishes_of(entry).end(),
                                           [](const Wish &wish) { return wish.joined; });
}

uint32_t MemberTable::group_count() const
{
    return MRT_CountTable(table_);
}

std::vector<uint32_t> MemberTable::interfaces() const
{
    std::vector<uint32_t> result;
    for (const auto &[if_index, uses] : wishes_per_interface_) {
        result.push_back(if_index);
    }
    return result;
}

void MemberTable::visit(const std::function<void(const MCAST_ADDR_S &, const MCAST_ADDR_S &,
                                                 const std::vector<Wish> &)> &visitor) const
{
    Walk groups(table_);
    while (const auto *group = groups.next<MRT_GROUP_S>()) {
        Walk sources(group->sources);
        while (const auto *source = sources.next<MRT_SOURCE_S>()) {
            visitor(*group->address, *source->address, wishes_of(source));
        }
    }
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
