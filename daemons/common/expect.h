/*
 * Invariants. One that does not hold is a defect of the daemon, but seldom a reason to drop everybody's
 * traffic: it is reported with its place and counted, as the library does with its own, and the daemon goes
 * on. The counter failed_assertions of every daemon tells how many there were.
 */
#ifndef DAEMONS_COMMON_EXPECT_H
#define DAEMONS_COMMON_EXPECT_H

#include "mcast/format.h"

namespace mcastd
{

inline void expect(bool holds, const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!holds) {
        MCAST_Assert_X(file, line);
    }
}

} // namespace mcastd

#endif
