/*
 * Warnings that a number comes near its limit: one each time that it does, not one a step.
 */
#ifndef DAEMONS_COMMON_LIMIT_WATCH_H
#define DAEMONS_COMMON_LIMIT_WATCH_H

#include <cstdint>

namespace mcastd
{

// A warning is due at Warn percent of the limit, and again once use has been below Quiet percent.
template <unsigned Warn, unsigned Quiet> class LimitWatch
{
public:
    static_assert(Quiet < Warn && Warn <= 100);

    // Tells it how much of the limit is used. Whether a warning is due now.
    bool take(uint64_t used, uint64_t limit)
    {
        if (near_ && used * 100 < limit * Quiet) {
            near_ = false;
        } else if (!near_ && used * 100 >= limit * Warn) {
            near_ = true;
            return true;
        }
        return false;
    }

    // As if nothing was used.
    void reset()
    {
        near_ = false;
    }

private:
    bool near_ = false;
};

} // namespace mcastd

#endif
