/*
 * The forwarding entries of one instance as a bounded set: found by address, walked, and ranked by what they
 * are worth when the bound is reached. entry_table.cpp says how room is made.
 */
#ifndef DAEMONS_MRIBD_ENTRY_TABLE_H
#define DAEMONS_MRIBD_ENTRY_TABLE_H

#include <array>
#include <boost/intrusive/list.hpp>
#include <cstdint>
#include <functional>
#include <memory>

#include "daemons/common/timer.h"
#include "daemons/mribd/kernel_table.h"
#include "daemons/mribd/yield.h"
#include "mcast/route_table.h"

namespace mribd
{

class Forwarding;

// One (source, group). Its addresses are those of its node in the table. A hundred thousand of them are usual: flags are
// bits, and what is small lies together.
struct Entry {
    using Hook = boost::intrusive::list_member_hook<>;

    Forwarding *owner = nullptr;
    MRT_SOURCE_S *node = nullptr;
    uint32_t upstream = 0; // interface on which the packets are to arrive, 0 when there is none
    uint32_t arrival = 0;  // interface on which a packet last asked for the entry, 0 when none did
    uint32_t outgoing = 0; // as installed: outgoing virtual interfaces
    int8_t parent = -1;    // as installed: incoming virtual interface
    uint8_t share = 0;     // its share, see EntryTable
    bool installed : 1 = false;
    bool check_route : 1 = true;     // upstream is to be determined again
    bool is_urgent : 1 = false;      // it waits among those of which somebody is to receive more
    bool unreachable : 1 = false;    // the last check found no incoming interface
    bool is_sending : 1 = false;     // packets came, as far as the kernel told
    bool is_local : 1 = false;       // is_sending, and the source is on the link of its incoming interface
    bool is_used : 1 = false;        // its rank, see EntryTable
    bool is_shared_tree : 1 = false; // packets come over the group's tree, as PIM says
    bool awaits_answer : 1 = false;  // of PIM, before it is installed
    bool is_told : 1 = false;        // PIM knows that the source sends
    bool is_registered : 1 = false;  // and go to the register interface too
    bool is_watched : 1 = false;     // PIM wants to know of the next packet on another interface
    uint32_t wrong_at_s = 0;         // when one was reported last, seconds since boot, 0 for never
    uint32_t looked_at_s = 0;        // when Forwarding::is_silent last asked, seconds since boot
    uint64_t looked_packets = 0;     // what it was told then
    uint64_t last_packets = 0;       // at the last idle check
    mcastd::Timer timer;             // of the idle period
    std::unique_ptr<Yield> yield;    // while other routers forward its packets too
    Hook in_rank;
    Hook in_waiting; // linked while it waits to be evaluated

    const MCAST_ADDR_S &source() const
    {
        return *node->address;
    }
    const MCAST_ADDR_S &group() const
    {
        return *node->group->address;
    }
};

template <auto HOOK>
using EntryList = boost::intrusive::list<Entry, boost::intrusive::member_hook<Entry, Entry::Hook, HOOK>>;

class EntryTable
{
public:
    // The share of entries that belong to no virtual interface.
    static constexpr unsigned NO_VIF = MAX_VIFS;

    EntryTable(uint8_t family, uint32_t limit);
    ~EntryTable();
    EntryTable(const EntryTable &) = delete;
    EntryTable &operator=(const EntryTable &) = delete;

    uint32_t size() const
    {
        return size_;
    }
    uint32_t limit() const
    {
        return limit_;
    }
    bool is_full() const
    {
        return size() >= limit_;
    }

    // NULL when there is none.
    Entry *find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    // Makes the entry, which is not there yet, as a spare one without a virtual interface. NULL when memory
    // is short. The limit is the caller's business.
    Entry *create(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Frees the entry. Its timer must not run.
    void destroy(Entry *entry);

    // Sets the entry's share, a virtual interface or NO_VIF, and its rank. Where one changes it is the newest
    // there.
    void rank(Entry *entry, unsigned share, bool is_used);

    // The oldest spare entry of the largest share that has one; NULL when no entry is spare.
    Entry *oldest_spare();

    // The oldest used entry of the largest share; NULL when none is used.
    Entry *oldest_used();

    // Makes a used entry the newest of its share.
    void renew(Entry *entry);

    uint32_t share_size(unsigned share) const
    {
        return static_cast<uint32_t>(shares_[share].spare.size() + shares_[share].used.size());
    }

    // The walks need no memory.

    // By share and rank. visitor may destroy the entry that it is called with, or rank it anew; it may then be called
    // with that one again.
    template <typename Visitor> void visit_all(const Visitor &visitor)
    {
        for (Share &share : shares_) {
            visit_list(share.spare, visitor);
            visit_list(share.used, visitor);
        }
    }

    // Those of a group, by source; visitor must not destroy any.
    template <typename Visitor> void visit_group(const MCAST_ADDR_S &group, const Visitor &visitor) const
    {
        const auto *owner = static_cast<const MRT_GROUP_S *>(MRT_Locate(table_, &group));
        if (owner == nullptr) {
            return;
        }
        auto *node = static_cast<MRT_SOURCE_S *>(MRT_GetNext(owner->sources, nullptr, 0));
        while (node != nullptr) {
            visitor(static_cast<Entry *>(node->user_data));
            node = static_cast<MRT_SOURCE_S *>(MRT_GetNext(owner->sources, node->address, 0));
        }
    }

    // By group, then source, beginning with (group, source) or the first after it, until visitor returns
    // false. NULL source: from the group's first; NULL group: from the first of all.
    void visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                    const std::function<bool(const Entry &)> &visitor) const;

private:
    using Ranked = EntryList<&Entry::in_rank>;
    struct Share {
        Ranked spare;
        Ranked used;
    };

    template <typename Visitor> static void visit_list(Ranked &list, const Visitor &visitor)
    {
        for (auto next = list.begin(); next != list.end();) {
            Entry *entry = &*next++;
            visitor(entry);
        }
    }

    Ranked &list_of(const Entry &entry);
    Entry *oldest(Ranked Share::*rank);

    MRT_TABLE_S *table_;
    uint32_t limit_;
    uint32_t size_ = 0;
    std::array<Share, MAX_VIFS + 1> shares_; // by virtual interface, and NO_VIF
};

} // namespace mribd

#endif
