/*
 * Which RP serves a group (RFC 7761, section 4.7). What is known comes from three sides, and is asked in this order:
 *
 *   1. The group itself names it (embedded_rp.h). Nothing else is looked at then, and a group of that range which names
 *      none that can be used has no RP: no other router of the domain would think of one.
 *   2. The longest range to which the group belongs, whoever knows it: the configuration or the BSR.
 *   3. Where both know that same range, the configuration: the operator has the last word.
 *   4. Of the range's RPs those with the lowest priority number. Configured ones are all equal.
 *   5. Of several the highest hash (rp_hash.h), of equal ones the highest address.
 *
 * Source-specific groups have no RP; which they are is policy, and the caller's to know.
 */
#ifndef DAEMONS_PIMSMD_RP_SET_H
#define DAEMONS_PIMSMD_RP_SET_H

#include <optional>
#include <span>
#include <vector>

#include "daemons/pimsmd/rp_table.h"

namespace pimsmd
{

// Configured RPs, each counted once for every range. The configuration is refused beyond it.
constexpr uint32_t MOST_STATIC_RPS = 1024;

struct StaticRp {
    Prefix range;
    Address rp;
};

enum class RpOrigin : uint8_t { Embedded, Configured, Bootstrap };

// What serves a group, and why.
struct RpChoice {
    Address rp{};
    RpOrigin origin = RpOrigin::Configured;
    Prefix range; // of which it is one; of an embedded one the group alone
    uint8_t priority = 0;
};

class RpSetEvents
{
public:
    // Groups of the range may have another RP now, or none. The set is not changed in the call.
    virtual void rps_changed(const Prefix &range) = 0;

protected:
    ~RpSetEvents() = default;
};

class RpSet final : private RpTableEvents
{
public:
    // Queue, events and counters outlive it.
    RpSet(uint16_t family, MsQueue &queue, RpSetEvents &events, Counters &counters,
          const RpLimits &limits = {});

    // Takes the configured RPs in place of those it had. False, with nothing changed, when they are too many, or one is
    // not of the family, not for groups or no router's address.
    bool set_static(std::span<const StaticRp> rps);

    // Takes what the BSR says of a range in place of what it said before. The range's RPs are all of them, several of one
    // address count once, the last.
    void learn(const Prefix &range, std::span<const BootstrapRp> rps);

    // Takes the mask length that the BSR says; at most the family's bits.
    void set_hash_mask_length(uint8_t length);

    // Forgets all that a BSR said.
    void forget_learnt();

    std::optional<RpChoice> choose(const Address &group) const;

    // The RP of choose alone, as the trees ask for it.
    std::optional<Address> rp_of(const Address &group) const;

    // By range, then by RP.
    std::span<const StaticRp> configured() const
    {
        return static_;
    }
    const RpTable &learnt() const
    {
        return learnt_;
    }
    uint8_t hash_mask_length() const
    {
        return hash_mask_length_;
    }

private:
    void rp_expired(const Prefix &range, const Address &rp) override;
    bool is_usable(const StaticRp &one) const;
    // The configured RPs of the longest range of the group.
    std::span<const StaticRp> match_static(const Address &group) const;
    RpChoice best_of(const Address &group, std::span<const StaticRp> rps) const;
    RpChoice best_of(const Address &group, const RpTable::Ranges::value_type &learnt) const;

    uint16_t family_;
    RpSetEvents &events_;
    std::vector<StaticRp> static_; // by range, then by RP
    RpTable learnt_;
    uint8_t hash_mask_length_;
};

} // namespace pimsmd

#endif
