/*
 * A clock that a test moves, for a machine with its timers, and notes of what the machine did.
 */
#ifndef TESTS_DAEMONS_PIMSMD_CLOCK_H
#define TESTS_DAEMONS_PIMSMD_CLOCK_H

#include <string>
#include <utility>
#include <vector>

#include "daemons/pimsmd/ms_timer.h"

namespace pimsmd_test
{

using Notes = std::vector<std::string>;

struct Clock {
    uint64_t now = 100;
    pimsmd::MsQueue queue{[this] { return now; }};
    Notes notes;

    // What happens until then.
    Notes pass(uint64_t ms)
    {
        now += ms;
        while (queue.run_due(SIZE_MAX)) {
        }
        return taken();
    }
    Notes taken()
    {
        return std::exchange(notes, {});
    }
};

} // namespace pimsmd_test

#endif
