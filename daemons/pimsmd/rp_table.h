/*
 * RPs by ranges of groups, each for as long as its holdtime says: what a router learnt from Bootstrap messages, and what a
 * BSR was told by candidate RPs.
 *
 *      239.0.0.0/8 ── 10.255.0.1 priority 0, 150 s
 *                  └─ 10.255.0.2 priority 0, 92 s
 *      239.1.0.0/16 ─ 10.255.0.3 priority 192, 10 s
 *
 * Whoever may send the messages can name as many of both as it likes. So there are limits of all ranges, of all RPs counted
 * once for every range, and of what one RP has of them: nobody's ranges keep those of others out before the whole is full.
 */
#ifndef DAEMONS_PIMSMD_RP_TABLE_H
#define DAEMONS_PIMSMD_RP_TABLE_H

#include <functional>
#include <map>

#include "daemons/common/limit_watch.h"
#include "daemons/pimsmd/counters.h"
#include "daemons/pimsmd/ms_timer.h"
#include "daemons/pimsmd/wire.h"

namespace pimsmd
{

// Ranges; RPs of all ranges; ranges of one RP. A range has at most 255 RPs, more cannot be said of one.
constexpr uint32_t MOST_RP_RANGES = 1024;
constexpr uint32_t MOST_RANGE_RPS = 4096;
constexpr uint32_t MOST_RANGES_OF_RP = 256;
constexpr uint32_t MOST_RPS_OF_RANGE = 255;

struct RpLimits {
    uint32_t ranges = MOST_RP_RANGES;
    uint32_t rps = MOST_RANGE_RPS;
    uint32_t ranges_of_rp = MOST_RANGES_OF_RP;
};

struct AddressLess {
    bool operator()(const Address &first, const Address &second) const
    {
        return address_less(first, second);
    }
};

class RpTableEvents
{
public:
    // An RP of the range ended with its holdtime. The table is not changed in the call.
    virtual void rp_expired(const Prefix &range, const Address &rp) = 0;

protected:
    ~RpTableEvents() = default;
};

class RpTable
{
public:
    struct Rp {
        RpTable *table = nullptr;
        Prefix range;
        Address address{};
        uint16_t holdtime_s = 0; // as it was said
        uint8_t priority = 0;    // the lowest number is preferred
        MsTimer expiry;
    };
    // Nodes stay where they are while others come and go.
    using Rps = std::map<Address, Rp, AddressLess>;
    using Ranges = std::map<Prefix, Rps>;

    // All of them outlive it.
    RpTable(MsQueue &queue, RpTableEvents &events, Counters &counters, const RpLimits &limits = {})
        : queue_(queue), events_(events), counters_(counters), limits_(limits)
    {
    }
    RpTable(const RpTable &) = delete;
    RpTable &operator=(const RpTable &) = delete;

    // Takes an RP for a range, or anew: its priority and time are others then. A holdtime of 0 takes it out. Whether
    // another priority, RP or none is there now. One beyond a limit is counted and not taken.
    bool put(const Prefix &range, const BootstrapRp &rp);

    // Takes an RP, or all of a range, out. Whether there was something.
    bool remove(const Prefix &range, const Address &rp);
    bool remove(const Prefix &range);

    void clear();

    // The RPs of the longest range to which the group belongs, with that range; NULL when none does.
    const Ranges::value_type *match(const Address &group) const;

    const Rps *find(const Prefix &range) const;

    const Ranges &ranges() const
    {
        return ranges_;
    }
    uint32_t rps() const
    {
        return rps_;
    }

private:
    static void expired(void *owner);
    bool has_room(const Prefix &range, const Address &rp);
    bool add(const Prefix &range, const BootstrapRp &rp);
    void forget(Ranges::iterator range, Rps::iterator rp);

    MsQueue &queue_;
    RpTableEvents &events_;
    Counters &counters_;
    RpLimits limits_;
    Ranges ranges_;
    std::map<Address, uint32_t, AddressLess> ranges_of_;
    std::map<uint8_t, uint32_t, std::greater<>> lengths_; // how many ranges of each length, the longest first
    uint32_t rps_ = 0;
    mcastd::LimitWatch<90, 80> limit_watch_;
};

} // namespace pimsmd

#endif
