/*
 * Numbers of the protocols as they stand on the wire (RFC 1112, 2236, 2710, 3376, 3810).
 */
#ifndef DAEMONS_GMPD_PROTOCOL_H
#define DAEMONS_GMPD_PROTOCOL_H

#include <cstddef>
#include <cstdint>

#include "mcast/common.h"

namespace gmpd
{

// Message types of one family; 0 where the family has no such message.
struct MessageTypes {
    uint8_t query;
    uint8_t report_v1;
    uint8_t report_v2;
    uint8_t leave;
    uint8_t report_v3;
};

constexpr MessageTypes IGMP_TYPES = {0x11, 0x12, 0x16, 0x17, 0x22};
constexpr MessageTypes MLD_TYPES = {130, 0, 131, 132, 143};

constexpr const MessageTypes &types_of(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? IGMP_TYPES : MLD_TYPES;
}

// The upper-layer protocol number of the ICMPv6 pseudo-header.
constexpr uint32_t ICMPV6 = 58;

// Every message is at least this long.
constexpr size_t SHORTEST_MESSAGE = 8;

// Messages that carry one group and nothing else.
constexpr size_t OLD_IGMP_LENGTH = 8;
constexpr size_t OLD_MLD_LENGTH = 24;

// What a version 3 query has between its group and its sources.
constexpr size_t QUERY_TAIL = 4;
constexpr uint8_t SUPPRESS_FLAG = 0x08;
constexpr uint8_t ROBUSTNESS_MASK = 0x07;

// The response time of version 1 hosts, which queries do not carry.
constexpr uint32_t VERSION1_RESPONSE_MS = 10000;

} // namespace gmpd

#endif
