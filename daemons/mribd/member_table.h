/*
 * Who wants what: the joins and blocks that clients reported, per group, source, interface and client.
 */
#ifndef DAEMONS_MRIBD_MEMBER_TABLE_H
#define DAEMONS_MRIBD_MEMBER_TABLE_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <vector>

#include "daemons/mribd/member_budget.h"
#include "daemons/mribd/pim_listener.h"
#include "mcast/common.h"
#include "mcast/route_table.h"

namespace mribd
{

// What one client said of one (source, group) on one interface.
struct Wish {
    uint32_t if_index = 0;
    ClientId client = 0;
    bool joined = false;
    bool blocked = false; // a source only: not wanted here although the group is joined
    bool goes = false;    // it is being forgotten
};

class MemberTable
{
public:
    // Told of what changed: the group, and the source, or the any-source address when every source of the
    // group may be concerned. It must not change the table.
    using Changed = std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)>;

    enum class Result { Unchanged, Changed, OverLimit, NoMemory };
    enum class Kind { Join, Block };

    // Told of each wish that a drop forgot, when the table does not say it any more. It must not change the table, and may ask
    // hosts alone.
    using Forgotten =
        std::function<void(const Wish &wish, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)>;

    // budget, which may be shared with other tables, must outlive the table.
    MemberTable(uint8_t family, MemberBudget &budget);
    ~MemberTable();
    MemberTable(const MemberTable &) = delete;
    MemberTable &operator=(const MemberTable &) = delete;

    // Sets or clears the client's join or block. source may be the any-source address for a join. Changed and
    // Unchanged say whether the table differs afterwards; OverLimit and NoMemory leave it as it was, and only
    // what is set meets them.
    Result set(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
               Kind kind, bool present);

    // Whether the client could report more than a few memberships of the interface.
    bool has_room(ClientId client, uint32_t if_index) const;

    void on_forgotten(Forgotten told)
    {
        forgotten_ = std::move(told);
    }

    // Forgets all that the client reported, what it reported for one interface, or what anybody reported for
    // the interface. Linear in the table. Needs no memory.
    void drop_client(ClientId client, const Changed &changed);
    void drop_interface(ClientId client, uint32_t if_index, const Changed &changed);
    void drop_interface(uint32_t if_index, const Changed &changed);

    // Calls visitor(wish, named) for the wishes that want packets of (source, group), named when they are for the source.
    // Needs no memory.
    template <typename Visitor>
    void visit_wishes(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, const Visitor &visitor) const
    {
        const MRT_SOURCE_S *special = nullptr;
        const MRT_SOURCE_S *general = nullptr;
        find(group, source, &special, &general);
        for (const Wish &wish : wishes_of(special)) {
            if (wish.joined) {
                visitor(wish, true);
            }
        }
        for (const Wish &wish : wishes_of(general)) {
            if (wish.joined && !is_blocked(special, wish)) {
                visitor(wish, false);
            }
        }
    }

    // Calls visitor(if_index) for the interfaces of these wishes, for some of them more than once.
    template <typename Visitor>
    void visit_receivers(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, const Visitor &visitor) const
    {
        visit_wishes(group, source, [&visitor](const Wish &wish, bool) { visitor(wish.if_index); });
    }

    // What the clients for which is_host(client) holds want on the interface. A source is blocked when one of them blocks it
    // and no other one that is_live(client) holds for joined any source without blocking this one.
    template <typename IsHost, typename IsLive>
    HostWish hosts(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                   const IsHost &is_host, const IsLive &is_live) const
    {
        const MRT_SOURCE_S *special = nullptr;
        const MRT_SOURCE_S *general = nullptr;
        find(group, source, &special, &general);
        const auto of_source = on_interface(special, if_index);
        HostWish result;
        for (const Wish &wish : of_source) {
            result.joined |= wish.joined && is_host(wish.client);
            result.blocked |= wish.blocked && is_host(wish.client);
        }
        for (const Wish &wish : on_interface(general, if_index)) {
            if (result.blocked && wish.joined && is_host(wish.client) && is_live(wish.client)) {
                result.blocked = std::any_of(of_source.begin(), of_source.end(), [&wish](const Wish &own) {
                    return own.client == wish.client && own.blocked;
                });
            }
        }
        return result;
    }

    // Whether a client other than this one wants any source of the group on the interface.
    bool is_shared(const MCAST_ADDR_S &group, uint32_t if_index, ClientId client) const;

    // Calls visitor(source) for the sources of the group that somebody blocks on the interface.
    void visit_blocked(const MCAST_ADDR_S &group, uint32_t if_index,
                       const std::function<void(const MCAST_ADDR_S &source)> &visitor) const;

    // Whether a client joined exactly this source of the group, or any source when that is the address.
    bool has_source_join(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    uint32_t group_count() const;

    size_t wish_count() const
    {
        return wish_count_;
    }

    // Whether anything is reported for the interface.
    bool uses_interface(uint32_t if_index) const
    {
        return wishes_per_interface_.contains(if_index);
    }

    // Visits in order of group, then source (any source first), beginning with (group, source) or the first
    // after it, until visitor returns false. NULL source: from the group's first; NULL group: from the first
    // of all.
    void visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                    const std::function<bool(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                                             const std::vector<Wish> &wishes)> &visitor) const;

private:
    using Wishes = std::vector<Wish>;

    // None for NULL.
    static const Wishes &wishes_of(const MRT_SOURCE_S *entry);
    static std::span<const Wish> on_interface(const MRT_SOURCE_S *entry, uint32_t if_index);
    static bool is_blocked(const MRT_SOURCE_S *special, const Wish &wish);

    MRT_SOURCE_S *locate(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;
    void find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, const MRT_SOURCE_S **special,
              const MRT_SOURCE_S **general) const;
    Result add(MRT_SOURCE_S *entry, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, const Wish &wish);
    void insert(MRT_SOURCE_S *entry, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, const Wish &wish);
    void drop(const std::function<bool(const Wish &)> &matches, const Changed &changed);
    void forget(const Wish &wish);
    size_t forget_matching(Wishes &wishes, const std::function<bool(const Wish &)> &matches,
                           const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    MRT_TABLE_S *table_;
    uint8_t family_;
    MemberBudget &budget_;
    Forgotten forgotten_;
    size_t wish_count_ = 0;
    std::map<uint32_t, size_t> wishes_per_interface_; // no interface without wishes
};

} // namespace mribd

#endif
