#include "tests/simulation/kernel/packet_build.h"

namespace sim
{
namespace
{

constexpr uint8_t IGMP = 2;
constexpr uint8_t ICMPV6 = 58;
constexpr size_t IPV4_HEADER = 24; // with the router alert option
constexpr size_t IPV6_HEADER = 48; // with the hop-by-hop header

void put16(Bytes &bytes, size_t at, size_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

uint32_t sum(std::span<const uint8_t> bytes)
{
    uint32_t total = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        total += static_cast<uint32_t>(bytes[i]) << (i % 2 == 0 ? 8 : 0);
    }
    return total;
}

uint16_t folded(uint32_t total)
{
    while (total >> 16 != 0) {
        total = (total & 0xffff) + (total >> 16);
    }
    return static_cast<uint16_t>(~total);
}

void append(Bytes &bytes, std::span<const uint8_t> more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes build_ipv4(const Address &source, const Address &destination, Bytes message)
{
    Bytes packet = {0x46, 0xc0, 0, 0, 0, 0, 0, 0, 1, IGMP, 0, 0};
    put16(packet, 2, IPV4_HEADER + message.size());
    append(packet, source.value());
    append(packet, destination.value());
    append(packet, std::array<uint8_t, 4>{0x94, 4, 0, 0});
    put16(packet, 10, folded(sum(packet)));
    put16(message, 2, folded(sum(message)));
    append(packet, message);
    return packet;
}

Bytes build_ipv6(const Address &source, const Address &destination, Bytes message)
{
    Bytes packet = {0x60, 0, 0, 0, 0, 0, 0, 1};
    put16(packet, 4, 8 + message.size());
    append(packet, source.value());
    append(packet, destination.value());
    append(packet, std::array<uint8_t, 8>{ICMPV6, 0, 5, 2, 0, 0, 1, 0});
    const uint32_t pseudo_header =
        sum(source.value()) + sum(destination.value()) + static_cast<uint32_t>(message.size()) + ICMPV6;
    put16(message, 2, folded(pseudo_header + sum(message)));
    append(packet, message);
    return packet;
}

} // namespace

Bytes build_packet(const Address &source, const Address &destination, Bytes message)
{
    put16(message, 2, 0);
    return source.family == AF_INET ? build_ipv4(source, destination, std::move(message))
                                    : build_ipv6(source, destination, std::move(message));
}

Bytes message_of(const Bytes &packet, Address *source)
{
    const bool ipv4 = packet[0] >> 4 == 4;
    *source = address_of(ipv4 ? AF_INET : AF_INET6, packet.data() + (ipv4 ? 12 : 8));
    return Bytes(packet.begin() + static_cast<ptrdiff_t>(ipv4 ? IPV4_HEADER : IPV6_HEADER), packet.end());
}

} // namespace sim
