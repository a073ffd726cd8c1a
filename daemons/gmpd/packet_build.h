/*
 * Queries as they go on the wire, from the IGMP or MLD header on; the IP header with the router alert and the
 * MLD checksum are the kernel's work.
 */
#ifndef DAEMONS_GMPD_PACKET_BUILD_H
#define DAEMONS_GMPD_PACKET_BUILD_H

#include <cstdint>
#include <span>

#include "daemons/gmpd/address.h"

namespace gmpd
{

// What a query says.
struct Query {
    uint8_t version = 3;                // 1 to 3, MLD: 2 or 3
    Address group{};                    // unspecified: general query; its family is the message's
    std::span<const Address> sources{}; // version 3 only
    bool suppress = false;              // version 3: the S flag
    uint32_t max_response_ms = 0;       // not used by version 1
    uint32_t robustness = 0;            // version 3; above 7 goes out as 0
    uint32_t query_interval_s = 0;      // version 3
};

// Writes the message into buffer. The number of bytes written, or 0 when buffer is too small. A response time
// that no code stands for is rounded down, so that hosts answer in time; an interval is rounded up.
size_t build_query(const Query &query, std::span<uint8_t> buffer);

// The number of sources that fit into one query on a link of the given MTU; at least 1.
size_t sources_per_query(uint16_t family, uint32_t mtu);

// Where the query is sent: all systems, or its group.
Address query_destination(const Query &query);

} // namespace gmpd

#endif
