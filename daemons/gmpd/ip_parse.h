/*
 * The IP part of a received packet: everything that is checked before the message inside is looked at.
 */
#ifndef DAEMONS_GMPD_IP_PARSE_H
#define DAEMONS_GMPD_IP_PARSE_H

#include <cstdint>
#include <span>

#include "daemons/gmpd/address.h"
#include "daemons/gmpd/counters.h"

namespace gmpd
{

// What an IP packet carries. payload points into the packet.
struct IpPacket {
    Address source{};
    Address destination{};
    bool router_alert = false;
    std::span<const uint8_t> payload;
};

// Checks the packet's IP header and options and finds the IGMP or ICMPv6 message in it. family is
// MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6; bytes begin with the IP header and may go on behind the packet
// (link padding). NO_DROP with out filled, or the reason to drop it.
Count parse_ip(uint16_t family, std::span<const uint8_t> bytes, IpPacket &out);

} // namespace gmpd

#endif
