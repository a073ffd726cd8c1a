/*
 * Received packets, from the IP header to a checked message.
 */
#ifndef DAEMONS_GMPD_PACKET_PARSE_H
#define DAEMONS_GMPD_PACKET_PARSE_H

#include <cstdint>
#include <span>

#include "daemons/gmpd/counters.h"
#include "daemons/gmpd/message.h"

namespace gmpd
{

// Checks one packet whole, the records of a report included, so that what works on the message meets no lie.
// family is MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6; bytes begin with the IP header. NO_DROP with out filled
// and pointing into bytes, or the reason to drop the packet. Holds no state; linear in the packet's length.
Count parse_packet(uint16_t family, std::span<const uint8_t> bytes, Message &out);

} // namespace gmpd

#endif
