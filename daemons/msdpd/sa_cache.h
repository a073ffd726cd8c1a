/*
 * The sources that peers have announced: one entry a (source, group) pair on the library's group and source
 * table, with the originator that announced it last, the peer from which it was accepted, and the timer at
 * whose end it is forgotten.
 */
#ifndef DAEMONS_MSDPD_SA_CACHE_H
#define DAEMONS_MSDPD_SA_CACHE_H

#include <cstdint>
#include <functional>

#include "daemons/common/timer.h"
#include "daemons/msdpd/address_counts.h"
#include "daemons/msdpd/ipv4.h"
#include "mcast/mtable.h"

namespace msdpd
{

class SaCache;

struct SaEntry {
    MTABLE_SOURCE_S head; // first: the table knows the records by it
    SaCache *cache;
    Ipv4 rp;
    Ipv4 peer; // 0.0.0.0 until it is counted
    mcastd::Timer expiry;
    uint32_t learned_s;   // seconds since boot
    uint32_t forwarded_s; // when it was last forwarded; meaningful once it was

    Pair pair() const
    {
        return {from_record(head.group->address), from_record(head.address)};
    }
};

class SaCache
{
public:
    // timers must outlive the cache.
    explicit SaCache(MCAST_TMR_S *timers);
    ~SaCache();
    SaCache(const SaCache &) = delete;
    SaCache &operator=(const SaCache &) = delete;

    // Told of each pair that comes, while it is in the cache, and of each that goes, after it is out; those
    // that go by forget excepted.
    void on_change(std::function<void(const Pair &pair, bool present)> told);

    // Told of each forget that found something, after all its pairs are out.
    void on_forget(std::function<void(Ipv4 group)> told);

    enum class Learned { New, Moved, Refreshed };

    // Keeps the pair for state_s seconds from now. New: it was not known. Moved: another originator or peer
    // announces it now. The entry is *entry. Throws
    // std::bad_alloc, with nothing changed, when memory is short.
    Learned learn(const Pair &pair, Ipv4 rp, Ipv4 peer, uint32_t state_s, SaEntry **entry);

    // NULL when the pair is not known.
    SaEntry *find(const Pair &pair) const;

    // Forgets the pairs for which the condition is true. How many there were. Linear in the cache.
    uint32_t remove_if(const std::function<bool(const SaEntry &entry)> &condition);

    // Forgets the pairs of the group, for 0.0.0.0 those of all groups. How many there were.
    uint32_t forget(Ipv4 group);

    uint32_t size() const
    {
        return table_.source_count;
    }
    // The entries accepted from each peer.
    const AddressCounts &peers() const
    {
        return peers_;
    }
    // The entries that each originator announced last.
    const AddressCounts &originators() const
    {
        return originators_;
    }

    // Where a visit goes on; a new one begins at the first pair. Pairs may come and go between visits: each
    // that stays is visited once.
    struct Cursor {
        MCAST_ADDR_S group = to_record(Ipv4{});
        MCAST_ADDR_S source = to_record(Ipv4{});
    };

    // Visits entries by group, then source, until visitor returns false, which refuses the entry: a later
    // visit begins with it. Whether the end was reached. visitor must not change the cache.
    bool visit(Cursor *cursor, const std::function<bool(const SaEntry &entry)> &visitor) const;

    // The same within one group.
    void visit_group(Ipv4 group, const std::function<bool(const SaEntry &entry)> &visitor) const;

private:
    SaEntry *insert(const Pair &pair);
    SaEntry *begin(const Pair &pair, Ipv4 rp, Ipv4 peer, uint32_t state_s);
    void count(SaEntry *entry, Ipv4 rp, Ipv4 peer);
    void remove(SaEntry *entry);
    void take_out(SaEntry *entry);
    void remove_empty(MTABLE_GROUP_S *group);
    static void expired(void *entry);
    static void release(void *source);

    MCAST_TMR_S *timers_;
    MTABLE_S table_{};
    AddressCounts peers_;
    AddressCounts originators_;
    std::function<void(const Pair &, bool)> told_;
    std::function<void(Ipv4)> told_of_forgetting_;
};

} // namespace msdpd

#endif
