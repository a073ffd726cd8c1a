/*
 * A source's packet on its way into a Register.
 */
#ifndef DAEMONS_PIMSMD_REGISTER_PACKET_H
#define DAEMONS_PIMSMD_REGISTER_PACKET_H

#include <cstdint>
#include <span>

namespace pimsmd
{

enum class PacketFate : uint8_t { Register, Malformed, TimeToLive, TooLong };

// Makes of the packet, as it came in from a link, what goes into a Register: without bytes behind its end, with a hop less
// to live, and with a finished UDP checksum, for a sender on the same machine leaves that to a network card which the
// packet never meets. TooLong when it has more than most bytes: then it is several packets that a card would have cut.
// Nothing is done unless the result is Register.
PacketFate prepare_packet(uint16_t family, uint32_t most_bytes, std::span<uint8_t> *packet);

} // namespace pimsmd

#endif
