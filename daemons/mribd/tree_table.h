/*
 * What PIM clients say of the trees of one instance: where packets are to come from, of a source, of a group or of a
 * range of groups, and where asserts were lost and won.
 */
#ifndef DAEMONS_MRIBD_TREE_TABLE_H
#define DAEMONS_MRIBD_TREE_TABLE_H

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "daemons/common/pim_records.h"
#include "daemons/common/prefix.h"
#include "daemons/mribd/member_budget.h"
#include "mcast/route_table.h"

namespace mribd
{

class TreeTable
{
public:
    // Where packets come from. PIM_FROM_UNSAID: nothing is said.
    struct Tree {
        uint8_t from = mcastd::PIM_FROM_UNSAID;
        uint16_t flags = 0; // PIM_TREE_SPT and PIM_TREE_REGISTER_OUT alone
        uint32_t if_index = 0;
        ClientId client = 0;

        bool operator==(const Tree &) const = default;
    };

    // The asserts about (S,G) or (*,G), by interface.
    class Asserts
    {
    public:
        mcastd::PimAssertState on(uint32_t if_index) const;

    private:
        friend class TreeTable;
        struct One {
            uint32_t if_index;
            mcastd::PimAssertState state;
            ClientId client;
        };
        std::vector<One> ones_; // ascending
    };

    enum class Result { Unchanged, Changed, OverLimit, NoMemory };

    // Trees and asserts of an instance.
    static constexpr size_t MOST_TREES = 1048576;

    explicit TreeTable(uint8_t family, size_t limit = MOST_TREES);
    ~TreeTable();
    TreeTable(const TreeTable &) = delete;
    TreeTable &operator=(const TreeTable &) = delete;

    // The source may be the any-source address, and must be with a range. What takes back, PIM_FROM_UNSAID and
    // PIM_ASSERT_NONE, needs no memory and has room.
    Result set_tree(const mcastd::Prefix &groups, const MCAST_ADDR_S &source, const Tree &tree);
    Result set_assert(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                      const MCAST_ADDR_S &source, mcastd::PimAssertState state);

    // Told of what changed, see set_tree. It must not change the table.
    using Changed = std::function<void(const mcastd::Prefix &groups, const MCAST_ADDR_S &source)>;

    // Linear in the table, and without need of memory: forgets all that the client said, and the asserts of an interface, of
    // one client (0: of all).
    void drop_client(ClientId client, const Changed &changed);
    void drop_interface(uint32_t if_index, ClientId client, const Changed &changed);

    // What counts for a source of a group: said of it, of the group, or of the longest range with it.
    Tree find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    // Whether something is said of just this source.
    bool has_source_tree(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    // Of the source, or of the group for the any-source address.
    const Asserts &asserts(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    // Whether an assert was won on the interface.
    bool has_won(uint32_t if_index) const
    {
        return won_per_interface_.contains(if_index);
    }

    size_t size() const
    {
        return size_;
    }
    uint64_t refused() const
    {
        return refused_;
    }

private:
    struct Said {
        Tree tree;
        Asserts asserts;
    };

    static Said &said(const MRT_SOURCE_S *node)
    {
        return *static_cast<Said *>(node->user_data);
    }
    MRT_SOURCE_S *locate(const mcastd::Prefix &groups, const MCAST_ADDR_S &source) const;
    MRT_SOURCE_S *make(const mcastd::Prefix &groups, const MCAST_ADDR_S &source, Result *why_not);
    bool has_room();
    void delete_if_empty(MRT_SOURCE_S *node);
    void count_won(uint32_t if_index, mcastd::PimAssertState before, mcastd::PimAssertState now);
    template <typename Drop> void drop(const Drop &drop, const Changed &changed);

    MRT_TABLE_S *table_;
    uint8_t family_;
    size_t limit_;
    size_t size_ = 0;
    uint64_t refused_ = 0;
    bool near_reported_ = false;
    std::map<uint32_t, uint32_t> won_per_interface_; // none with 0
};

} // namespace mribd

#endif
