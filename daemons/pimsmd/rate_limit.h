/*
 * How often something may be done that others cause: so many times a second, and as many at once after a second of rest.
 */
#ifndef DAEMONS_PIMSMD_RATE_LIMIT_H
#define DAEMONS_PIMSMD_RATE_LIMIT_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

class RateLimit
{
public:
    explicit RateLimit(uint32_t per_s = 0) : per_s_(per_s), left_(per_s * THOUSAND)
    {
    }

    // Whether it may be done at this time of a clock in milliseconds that never goes back; it counts then.
    bool take(uint64_t now_ms)
    {
        const uint64_t passed_ms = std::min(now_ms - last_ms_, THOUSAND);
        last_ms_ = now_ms;
        left_ = std::min(left_ + passed_ms * per_s_, per_s_ * THOUSAND);
        if (left_ < THOUSAND) {
            return false;
        }
        left_ -= THOUSAND;
        return true;
    }

private:
    static constexpr uint64_t THOUSAND = 1000;

    uint64_t per_s_;
    uint64_t left_; // in thousandths
    uint64_t last_ms_ = 0;
};

// The same for what is done for others, of whom one may take an eighth. Those with the same hash share that, so that
// memory does not depend on how many there are.
class SharedRateLimit
{
public:
    explicit SharedRateLimit(uint32_t per_s) : all_(per_s)
    {
        shares_.fill(RateLimit((per_s + 7) / 8));
    }

    bool take(const Address &whom, uint64_t now_ms)
    {
        return shares_[hash(whom) % SHARES].take(now_ms) && all_.take(now_ms);
    }

private:
    static constexpr size_t SHARES = 64;

    static uint32_t hash(const Address &address)
    {
        uint32_t value = 2166136261;
        for (const uint8_t byte : address.address) {
            value = (value ^ byte) * 16777619;
        }
        return value ^ value >> 16;
    }

    RateLimit all_;
    std::array<RateLimit, SHARES> shares_;
};

} // namespace pimsmd

#endif
