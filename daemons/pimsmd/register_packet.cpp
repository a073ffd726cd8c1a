/*
 * An unfinished UDP checksum is the sum of the pseudo-header alone, where a finished one is the complement of the sum of
 * pseudo-header and datagram. To finish it is to sum the datagram with what stands there. A finished one that happens to be
 * the sum of its pseudo-header comes out as it was: no packet is made wrong by it.
 */
#include "daemons/pimsmd/register_packet.h"

#include <cstddef>
#include <netinet/in.h>

#include "mcast/common.h"

namespace pimsmd
{
namespace
{

constexpr size_t IPV4_HEADER = 20;
constexpr size_t IPV6_HEADER = 40;
constexpr size_t UDP_HEADER = 8;
constexpr size_t UDP_CHECKSUM_AT = 6;

uint32_t word_at(std::span<const uint8_t> bytes, size_t at)
{
    return static_cast<uint32_t>(bytes[at] << 8 | bytes[at + 1]);
}

void put_word(std::span<uint8_t> bytes, size_t at, uint32_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

// Of 16-bit words in network order, an odd byte at the end with a zero behind it.
uint64_t sum_of(std::span<const uint8_t> bytes)
{
    uint64_t sum = 0;
    for (size_t at = 0; at + 1 < bytes.size(); at += 2) {
        sum += word_at(bytes, at);
    }
    return bytes.size() % 2 == 0 ? sum : sum + (uint64_t{bytes.back()} << 8);
}

uint32_t folded(uint64_t sum)
{
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<uint32_t>(sum);
}

// addresses are those of the IP header, one behind the other.
void finish_checksum(std::span<const uint8_t> addresses, std::span<uint8_t> datagram)
{
    if (datagram.size() < UDP_HEADER) {
        return;
    }
    const uint32_t pseudo = folded(sum_of(addresses) + datagram.size() + IPPROTO_UDP);
    if (word_at(datagram, UDP_CHECKSUM_AT) == pseudo) {
        const uint32_t finished = ~folded(sum_of(datagram)) & 0xffff;

        put_word(datagram, UDP_CHECKSUM_AT, finished == 0 ? 0xffff : finished);
    }
}

PacketFate prepare4(uint32_t most_bytes, std::span<uint8_t> *packet)
{
    constexpr size_t LENGTH_AT = 2;
    constexpr size_t FRAGMENT_AT = 6;
    constexpr size_t TTL_AT = 8;
    constexpr size_t PROTOCOL_AT = 9;
    constexpr size_t CHECKSUM_AT = 10;
    constexpr size_t ADDRESSES_AT = 12;
    if (packet->size() < IPV4_HEADER || packet->front() >> 4 != 4) {
        return PacketFate::Malformed;
    }
    const size_t header = size_t{4} * (packet->front() & 0x0f);
    const size_t length = word_at(*packet, LENGTH_AT);
    if (header < IPV4_HEADER || length < header || length > packet->size()) {
        return PacketFate::Malformed;
    }
    if ((*packet)[TTL_AT] <= 1) {
        return PacketFate::TimeToLive;
    }
    if (length > most_bytes) {
        return PacketFate::TooLong;
    }
    *packet = packet->first(length);
    --(*packet)[TTL_AT];
    put_word(*packet, CHECKSUM_AT, 0);
    put_word(*packet, CHECKSUM_AT, ~folded(sum_of(packet->first(header))) & 0xffff);
    const bool is_fragment =
        (word_at(*packet, FRAGMENT_AT) & 0x3fff) != 0; // more follow, or it is not the first
    if ((*packet)[PROTOCOL_AT] == IPPROTO_UDP && !is_fragment) {
        finish_checksum(packet->subspan(ADDRESSES_AT, 8), packet->subspan(header));
    }
    return PacketFate::Register;
}

PacketFate prepare6(uint32_t most_bytes, std::span<uint8_t> *packet)
{
    constexpr size_t LENGTH_AT = 4;
    constexpr size_t NEXT_HEADER_AT = 6;
    constexpr size_t HOP_LIMIT_AT = 7;
    constexpr size_t ADDRESSES_AT = 8;
    if (packet->size() < IPV6_HEADER || packet->front() >> 4 != 6) {
        return PacketFate::Malformed;
    }
    const size_t length = IPV6_HEADER + word_at(*packet, LENGTH_AT);
    if (length > packet->size()) {
        return PacketFate::Malformed;
    }
    if ((*packet)[HOP_LIMIT_AT] <= 1) {
        return PacketFate::TimeToLive;
    }
    if (length > most_bytes) {
        return PacketFate::TooLong;
    }
    *packet = packet->first(length);
    --(*packet)[HOP_LIMIT_AT];
    if ((*packet)[NEXT_HEADER_AT] == IPPROTO_UDP) {
        finish_checksum(packet->subspan(ADDRESSES_AT, 32), packet->subspan(IPV6_HEADER));
    }
    return PacketFate::Register;
}

} // namespace

PacketFate prepare_packet(uint16_t family, uint32_t most_bytes, std::span<uint8_t> *packet)
{
    return family == MCAST_FAMILY_IPV4 ? prepare4(most_bytes, packet) : prepare6(most_bytes, packet);
}

} // namespace pimsmd
