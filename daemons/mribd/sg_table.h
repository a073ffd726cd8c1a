/*
 * A set of (source, group) pairs of IPv4 on the library's group and source table, with a mark on each for
 * re-sends: what was not sent again is swept out.
 */
#ifndef DAEMONS_MRIBD_SG_TABLE_H
#define DAEMONS_MRIBD_SG_TABLE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include "mcast/mtable.h"

namespace mribd
{

class SgTable
{
public:
    SgTable();
    ~SgTable();
    SgTable(const SgTable &) = delete;
    SgTable &operator=(const SgTable &) = delete;

    enum class Result { Known, Added, NoMemory };

    // Called with each pair that erase_matching and sweep remove, when it is gone. It must not change the table.
    void
    on_erased(std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note)> told)
    {
        erased_ = std::move(told);
    }

    // The pair's note; nothing when it is not there.
    std::optional<uint8_t> note_of(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    // Adds the pair or refreshes what is known of it: not stale, and note, a byte of the owner's.
    Result set(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note = 0);

    // Whether the pair was there.
    bool erase(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Removes the pairs that match; the any-address stands for all. How many there were. Linear in the table
    // when a group is not given.
    uint32_t erase_matching(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Removes everything.
    void clear();

    bool contains(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    uint32_t size() const
    {
        return size_;
    }

    // Marks all pairs stale; set takes the mark off. Linear.
    void mark_stale();

    // Removes the stale pairs. How many there were. Linear.
    uint32_t sweep();

    // Where a visit goes on; new ones begin at the first pair. Pairs may come and go between visits: each
    // that stays is visited once.
    struct Cursor {
        Cursor();

        MCAST_ADDR_S group;
        MCAST_ADDR_S source;
    };

    // Visits pairs in order of group, then source, until visitor returns false, which refuses the pair: a
    // later visit begins with it. Whether the end was reached.
    bool visit(Cursor *cursor,
               const std::function<bool(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note)>
                   &visitor) const;

private:
    struct Group;
    struct Source;

    Group *find_group(const MCAST_ADDR_S &group) const;
    uint32_t erase_if(const std::function<bool(const Source &)> &matches, const MCAST_ADDR_S *only_group);
    void erase(Group *group, Source *source);

    MTABLE_S table_{};
    std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note)> erased_;
    uint32_t size_ = 0;
};

} // namespace mribd

#endif
