/*
 * How a router learns the RPs of its domain (RFC 5059): it elects with all others the router that knows them, the BSR, takes
 * that one's Bootstrap messages and hands them on; as BSR it gathers what candidate RPs say and tells all. Administrative
 * scope zones are not served: Bootstrap messages of one are counted and left.
 */
#ifndef DAEMONS_PIMSMD_BSR_H
#define DAEMONS_PIMSMD_BSR_H

#include <optional>
#include <set>
#include <vector>

#include "daemons/pimsmd/bsr_fragments.h"
#include "daemons/pimsmd/bsr_machine.h"
#include "daemons/pimsmd/rp_set.h"
#include "daemons/pimsmd/surroundings.h"
#include "daemons/pimsmd/wire_write.h"

namespace pimsmd
{

// Milliseconds: between two Bootstrap messages at least, and between what a candidate RP says at most.
constexpr uint32_t BSR_LEAST_MS = 10 * 1000;
constexpr uint32_t CANDIDATE_RP_MS = 60 * 1000;
constexpr uint32_t CANDIDATE_RP_BACKOFF_MS = 3 * 1000;

// Bootstrap messages of others that are taken and handed on: in a second, and together after a time without any. The largest
// set of RPs that is kept takes about a hundred.
constexpr uint32_t BOOTSTRAPS_PER_S = 32;
constexpr uint32_t BOOTSTRAPS_AT_ONCE = 256;

struct BsrSettings {
    // As a candidate BSR: its weight, and how many bits of groups the hash takes.
    std::optional<bsr::Weight> candidate;
    uint8_t hash_mask_length = 0;

    // As a candidate RP.
    std::optional<Address> rp;
    uint8_t rp_priority = 192;
    uint16_t rp_holdtime_s = 150;
    std::vector<GroupRange> rp_ranges; // at most 255

    uint32_t period_ms = bsr::PERIOD_MS;
    uint32_t timeout_ms = bsr::TIMEOUT_MS;
};

// What it asks of the rest of the router. Nothing of it may be changed in these calls.
class BsrSurroundings
{
public:
    virtual Route route_to(const Address &address) = 0;
    virtual bool is_neighbour(unsigned link, const Address &address) = 0;
    virtual bool is_own(const Address &address) = 0;

    // A random number from 0 to most.
    virtual uint32_t random(uint32_t most) = 0;

    // The received message to all links with neighbours, the one on which it came included, as it is but for the checksum.
    virtual void forward(const Bootstrap &message) = 0;

    // A Bootstrap to all links with neighbours: as many messages as it takes (bsr_pieces.h).
    virtual void send_bootstrap(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges) = 0;

    // The same as unicast to a new neighbour.
    virtual void send_bootstrap_to(unsigned link, const Address &neighbour, const Bootstrap &message,
                                   std::span<const BootstrapRangeOut> ranges) = 0;

    // What this router says as candidate RP, to the BSR; message has the ranges' count but not their bytes.
    virtual void send_candidate(const Address &bsr, const CandidateRp &message,
                                std::span<const GroupRange> ranges) = 0;

protected:
    ~BsrSurroundings() = default;
};

class Bsr final : private RpTableEvents
{
public:
    // All of them outlive it but the settings.
    Bsr(uint16_t family, MsQueue &queue, BsrSurroundings &surroundings, RpSet &set, Counters &counters,
        const BsrSettings &settings);

    // A Bootstrap from the link; unicast when it was sent to an address of this router alone. NO_DROP, or why it was
    // refused; one that is worse than what is known is not refused.
    Count bootstrap(unsigned link, const Address &sender, bool unicast, const Bootstrap &message);

    // What a candidate RP says of itself. NO_DROP, or why it was refused.
    Count candidate_rp(const CandidateRp &message);

    // A neighbour that does not know the RPs yet: it is told what this router knows, as BSR or of another one. To be called by
    // the router alone that is, or without that neighbour would be, designated.
    void neighbour_up(unsigned link, const Address &neighbour);

    // Takes of the settings what concerns the candidate RP, and tells the BSR at once. What is left is said goodbye to.
    void set_candidate_rp(const BsrSettings &next);

    // When this router is no candidate any more: as elected BSR it tells all once more what it knows, with the lowest priority.
    void resign();

    // To be called before the router says goodbye to its neighbours, who believe it no more then: goodbye as candidate RP and BSR.
    void close();

    bool is_elected() const
    {
        return settings_.candidate && candidate_ == bsr::CandidateState::Elected;
    }
    // The BSR that counts now, perhaps this router; nothing while none is known.
    std::optional<bsr::Weight> elected() const;

    const char *state_name() const;

    // What candidate RPs said to this router as BSR.
    const RpTable &candidates() const
    {
        return candidates_;
    }

private:
    // The ranges of a table as a message has them, and the RPs that they are views of.
    struct Told {
        explicit Told(const RpTable &table);

        std::vector<std::vector<BootstrapRp>> rps;
        std::vector<BootstrapRangeOut> ranges;
    };

    Count check(unsigned link, const Address &sender, bool unicast, const Bootstrap &message);
    bsr::Event meaning_of(const bsr::Weight &heard) const;
    void take(bsr::Event event, const Bootstrap *message);
    void act(Actions actions, const Bootstrap *message);
    void store(const Bootstrap &message);
    bool has_settled() const;
    void start_override();
    void originate();
    void originate_soon();
    void note_if_empty(const Prefix &range);
    bool put_candidate(const Prefix &range, const BootstrapRp &rp);
    bool take_turn();
    bool say_candidate(uint16_t holdtime_s, std::span<const GroupRange> ranges);
    void tell_bsr();
    void tell_bsr_within(uint32_t most_ms);
    template <typename Send> void with_own_message(Send send);
    void rp_expired(const Prefix &range, const Address &rp) override;
    static void timer_over(void *self);
    static void tell_over(void *self);
    static void soon_over(void *self);

    uint16_t family_;
    MsQueue &queue_;
    BsrSurroundings &surroundings_;
    RpSet &set_;
    Counters &counters_;
    BsrSettings settings_;
    bsr::CandidateState candidate_ = bsr::CandidateState::Pending;
    bsr::ListenerState listener_ = bsr::ListenerState::AcceptAny;
    std::optional<bsr::Weight> other_; // the BSR whose Bootstrap was accepted last
    uint16_t other_tag_ = 0;           // of that
    BsrFragments fragments_;
    RpTable candidates_;
    std::set<Prefix> emptied_; // ranges whose last RP went, to be told once
    uint16_t tag_;
    uint64_t started_ms_;
    std::optional<uint64_t> originated_ms_;
    uint32_t turns_ = BOOTSTRAPS_AT_ONCE; // messages of others that may be taken
    uint64_t turns_since_ms_ = 0;
    MsTimer timer_; // the Bootstrap timer
    MsTimer tell_;  // as candidate RP
    MsTimer soon_;  // a Bootstrap out of turn
};

} // namespace pimsmd

#endif
