/*
 * The announcement of local sources: each at once when it appears, and all of them once in an interval,
 * spread over it when they are many (RFC 3618, sections 5.1 and 5.2).
 */
#ifndef DAEMONS_MSDPD_ADVERTISE_H
#define DAEMONS_MSDPD_ADVERTISE_H

#include <cstdint>
#include <map>
#include <vector>

#include "daemons/common/timer.h"
#include "daemons/msdpd/ipv4.h"
#include "mcast/msdp.h"

namespace msdpd
{

struct Speaker;

struct Advertisement {
    mcastd::Timer timer;  // runs once advertise_start was called
    bool walking = false; // through the local sources of the current interval
    MRIB_MSDP_CURSOR_S cursor{};
    uint32_t left_s = 0;                     // of the current interval
    uint32_t batches = 0;                    // a second
    std::map<Ipv4, std::vector<Pair>> fresh; // sources that have just appeared, by originator
};

// Begins an interval now.
void advertise_start(Speaker &speaker);

// A local source has appeared. It is announced with the next advertise_flush, when it may be.
void advertise_fresh(Speaker &speaker, Ipv4 rp, const Pair &pair);

// Announces what has appeared; to be called once after everything that a wake-up brought.
void advertise_flush(Speaker &speaker);

// The next local sources that may be announced, with the originator to announce; see Mrib::next_local.
bool advertise_next(Speaker &speaker, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor, Ipv4 *rp,
                    std::vector<Pair> *pairs);

} // namespace msdpd

#endif
