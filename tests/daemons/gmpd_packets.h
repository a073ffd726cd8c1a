/*
 * Packets for the gmpd tests, from literal bytes: the headers around a message, with right checksums unless a
 * test spoils them.
 */
#ifndef TESTS_DAEMONS_GMPD_PACKETS_H
#define TESTS_DAEMONS_GMPD_PACKETS_H

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "daemons/gmpd/address.h"
#include "daemons/gmpd/wire.h"
#include "mcast/addr.h"

namespace gmpd_test
{

using Bytes = std::vector<uint8_t>;
using gmpd::Address;
using gmpd::from_text;

inline void append(Bytes &bytes, const Bytes &more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline Bytes operator+(Bytes first, const Bytes &second)
{
    append(first, second);
    return first;
}

// The address bytes of the text form.
inline Bytes addr(const char *text)
{
    const Address address = from_text(text);
    return Bytes(address.address, address.address + gmpd::address_size(address.family));
}

inline void put16(Bytes &bytes, size_t at, uint32_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

// Recomputes the checksum of the IPv4 header in front.
inline void fix_ipv4_header(Bytes &packet)
{
    put16(packet, 10, 0);
    put16(packet, 10, gmpd::internet_checksum(std::span(packet).first((packet[0] & 0x0fu) * 4)));
}

// Fills in the checksum of an IGMP message.
inline Bytes igmp(Bytes message)
{
    put16(message, 2, 0);
    put16(message, 2, gmpd::internet_checksum(message));
    return message;
}

// An IPv4 packet with the router alert option and TTL 1 around a message.
inline Bytes ipv4(const char *source, const char *destination, const Bytes &message, bool router_alert = true)
{
    const uint8_t words = router_alert ? 6 : 5;
    const size_t length = words * 4u + message.size();
    Bytes packet = {static_cast<uint8_t>(0x40 | words),
                    0xc0,
                    static_cast<uint8_t>(length >> 8),
                    static_cast<uint8_t>(length),
                    0,
                    0,
                    0,
                    0,
                    1,
                    2,
                    0,
                    0};
    append(packet, addr(source));
    append(packet, addr(destination));
    if (router_alert) {
        append(packet, {0x94, 4, 0, 0});
    }
    fix_ipv4_header(packet);
    append(packet, message);
    return packet;
}

// Fills in the checksum of an MLD message between the two addresses.
inline Bytes mld(const char *source, const char *destination, Bytes message)
{
    const Address from = from_text(source);
    const Address to = from_text(destination);
    const uint32_t length = static_cast<uint32_t>(message.size());

    put16(message, 2, 0);
    const uint32_t sum =
        MCAST_Inet6Cksum(reinterpret_cast<const uint16_t *>(message.data()), length, &from, &to, length, 58);

    memcpy(message.data() + 2, &sum, 2); // in network order already
    return message;
}

// An IPv6 packet with a hop-by-hop header and hop limit 1 around a message.
inline Bytes ipv6(const char *source, const char *destination, const Bytes &message,
                  const Bytes &hop_by_hop = {58, 0, 5, 2, 0, 0, 1, 0})
{
    const size_t length = hop_by_hop.size() + message.size();
    Bytes packet = {0x60,
                    0,
                    0,
                    0,
                    static_cast<uint8_t>(length >> 8),
                    static_cast<uint8_t>(length),
                    static_cast<uint8_t>(hop_by_hop.empty() ? 58 : 0),
                    1};
    append(packet, addr(source));
    append(packet, addr(destination));
    append(packet, hop_by_hop);
    append(packet, message);
    return packet;
}

// Both in one.
inline Bytes igmp_packet(const char *source, const char *destination, const Bytes &message)
{
    return ipv4(source, destination, igmp(message));
}
inline Bytes mld_packet(const char *source, const char *destination, const Bytes &message)
{
    return ipv6(source, destination, mld(source, destination, message));
}

} // namespace gmpd_test

#endif
