/*
 * What an entry knows of other routers that forward its packets on to the links of its outputs; forwarding_yield.cpp
 * says what follows.
 */
#ifndef DAEMONS_MRIBD_YIELD_H
#define DAEMONS_MRIBD_YIELD_H

#include <cstdint>

#include "daemons/common/timer.h"

namespace mribd
{

// Sets of virtual interfaces are bits. All of them are of links where another router is the querier.
struct Yield {
    uint32_t given_way = 0; // left to the other router
    uint32_t on_trial = 0;  // taken up again: another router's packet is enough to give way
    uint32_t suspected = 0; // a packet came from there, which anybody may have sent

    uint32_t changed_at_s = 0; // when one of these sets grew last, seconds since boot
    uint64_t carried = 0;      // packets of the flow when they were counted last
    uint64_t elsewhere = 0;    // and those of them that arrived on another than the incoming interface
    mcastd::Timer check;       // runs as long as this record exists
};

} // namespace mribd

#endif
