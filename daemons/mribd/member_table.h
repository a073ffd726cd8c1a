/*
 * Who wants what: the joins and blocks that clients reported, per group, source, interface and client.
 */
#ifndef DAEMONS_MRIBD_MEMBER_TABLE_H
#define DAEMONS_MRIBD_MEMBER_TABLE_H

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "mcast/common.h"
#include "mcast/route_table.h"

namespace mribd
{

using ClientId = uint32_t;

// What one client said of one (source, group) on one interface.
struct Wish {
    uint32_t if_index = 0;
    ClientId client = 0;
    bool joined = false;
    bool blocked = false; // a source only: not wanted here although the group is joined
};

class MemberTable
{
public:
    // Told of what changed: the group, and the source, or the any-source address when every source of the
    // group may be concerned.
    using Changed = std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)>;

    enum class Result { Unchanged, Changed, NoMemory };
    enum class Kind { Join, Block };

    explicit MemberTable(uint8_t family);
    ~MemberTable();
    MemberTable(const MemberTable &) = delete;
    MemberTable &operator=(const MemberTable &) = delete;

    // Sets or clears the client's join or block. source may be the any-source address for a join. Changed and
    // Unchanged say whether the table differs afterwards; NoMemory leaves it as it was.
    Result set(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
               Kind kind, bool present);

    // Forgets all that the client reported, what it reported for one interface, or what anybody reported for
    // the interface. Linear in the table.
    void drop_client(ClientId client, const Changed &changed);
    void drop_interface(ClientId client, uint32_t if_index, const Changed &changed);
    void drop_interface(uint32_t if_index, const Changed &changed);

    // The interfaces that want packets of (source, group), ascending, each once.
    std::vector<uint32_t> receivers(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

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

    // Every interface something is reported for, ascending.
    std::vector<uint32_t> interfaces() const;

    // Visits everything in order of group, then source (any source first).
    void visit(const std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                                        const std::vector<Wish> &wishes)> &visitor) const;

    // Visits in the same order, beginning with (group, source) or the first after it, until visitor returns
    // false. NULL source: from the group's first; NULL group: from the first of all.
    void visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                    const std::function<bool(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                                             const std::vector<Wish> &wishes)> &visitor) const;

private:
    void drop(const std::function<bool(const Wish &)> &matches, const Changed &changed);
    void count(uint32_t if_index, int change);

    MRT_TABLE_S *table_;
    uint8_t family_;
    size_t wish_count_ = 0;
    std::map<uint32_t, size_t> wishes_per_interface_;
};

} // namespace mribd

#endif
