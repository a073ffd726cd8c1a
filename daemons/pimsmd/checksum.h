/*
 * The checksum of a PIM message: of its bytes for IPv4, with the pseudo-header before them for IPv6. A Register's is of
 * its first eight bytes, so that no router has to read the packet in it; those of older routers are over everything,
 * which RFC 7761, section 4.9, has IPv4 routers accept.
 */
#ifndef DAEMONS_PIMSMD_CHECKSUM_H
#define DAEMONS_PIMSMD_CHECKSUM_H

#include <cstdint>
#include <span>

#include "daemons/pimsmd/wire.h"

namespace pimsmd
{

constexpr size_t REGISTER_HEADER_SIZE = 8;

// Whether the checksum in the message is right. The message has its header.
bool checksum_is_right(const Envelope &envelope, std::span<const uint8_t> message);

// Writes the checksum into the message, which has its header and is complete.
void put_checksum(const Envelope &envelope, std::span<uint8_t> message);

// The Internet checksum of bytes, in network order, after the IPv6 pseudo-header when the addresses are of IPv6.
uint16_t checksum_of(const Envelope &envelope, std::span<const uint8_t> bytes);

} // namespace pimsmd

#endif
