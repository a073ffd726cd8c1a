/*
 * Packets come from a packet socket, before the kernel's IP layer has seen them, so that every check of that layer
 * is made here:
 *
 *      IPv4   version, header length ─► total length ─► checksum ─► no fragment ─► protocol 2 ─► options ─► TTL 1
 *      IPv6   version ─► payload length ─► hop-by-hop options ─► next header 58 ─► hop limit 1 ─► link-local source
 *
 * TTL or hop limit 1 shows that no router forwarded the packet. Each check has a counter of its own.
 */
#include "daemons/gmpd/ip_parse.h"

#include <netinet/in.h>

#include "daemons/gmpd/wire.h"
#include "mcast/addr.h"

namespace gmpd
{
namespace
{

constexpr size_t IPV4_HEADER = 20;
constexpr size_t IPV6_HEADER = 40;
constexpr uint8_t OPTION_END = 0;
constexpr uint8_t OPTION_NOP = 1;
constexpr uint8_t OPTION_ROUTER_ALERT4 = 0x94;
constexpr uint8_t OPTION_PAD1 = 0;
constexpr uint8_t OPTION_ROUTER_ALERT6 = 5;
constexpr uint16_t FRAGMENT_BITS = 0x3fff; // more fragments, and the offset

// Looks for the router alert option; false when an option does not fit.
bool read_ipv4_options(Reader options, bool &router_alert)
{
    while (options.left() > 0) {
        uint8_t type = options.u8();

        if (type == OPTION_END) {
            return true;
        }
        if (type == OPTION_NOP) {
            continue;
        }
        uint8_t length = options.u8();

        if (options.failed() || length < 2) {
            return false;
        }
        std::span<const uint8_t> value = options.take(length - 2u);

        if (options.failed()) {
            return false;
        }
        if (type == OPTION_ROUTER_ALERT4 && value.size() == 2 && value[0] == 0 && value[1] == 0) {
            router_alert = true;
        }
    }
    return true;
}

Count parse_ipv4(std::span<const uint8_t> bytes, IpPacket &out)
{
    if (bytes.size() < IPV4_HEADER) {
        return Count::ShortPacket;
    }
    Reader header(bytes);
    uint8_t version_length = header.u8();
    size_t header_length = size_t{version_length & 0x0fu} * 4;

    if (version_length >> 4 != 4) {
        return Count::IpVersion;
    }
    if (header_length < IPV4_HEADER || header_length > bytes.size()) {
        return Count::HeaderLength;
    }
    header.take(1);
    size_t total_length = header.u16();

    header.take(2);
    uint16_t fragment = header.u16();
    uint8_t ttl = header.u8();
    uint8_t protocol = header.u8();

    header.take(2);
    out.source = header.addr(MCAST_FAMILY_IPV4);
    out.destination = header.addr(MCAST_FAMILY_IPV4);
    if (total_length < header_length || total_length > bytes.size()) {
        return Count::TotalLength;
    }
    if (internet_checksum(bytes.first(header_length)) != 0) {
        return Count::HeaderChecksum;
    }
    if (fragment & FRAGMENT_BITS) {
        return Count::Fragment;
    }
    if (protocol != IPPROTO_IGMP) {
        return Count::Protocol;
    }
    out.router_alert = false;
    if (!read_ipv4_options(Reader(bytes.subspan(IPV4_HEADER, header_length - IPV4_HEADER)),
                           out.router_alert)) {
        return Count::HeaderLength;
    }
    if (ttl != 1) {
        return Count::HopLimit;
    }
    // Hosts that have no address yet report from 0.0.0.0.
    if (!is_unspecified(out.source) && MCAST_ProtoSrcAddrCheck(&out.source) != MCAST_OK) {
        return Count::Source;
    }
    out.payload = bytes.subspan(header_length, total_length - header_length);
    return NO_DROP;
}

// Reads the options of a hop-by-hop header; false when one does not fit or must not be skipped.
bool read_hop_by_hop(Reader options, bool &router_alert)
{
    while (options.left() > 0) {
        uint8_t type = options.u8();

        if (type == OPTION_PAD1) {
            continue;
        }
        uint8_t length = options.u8();
        std::span<const uint8_t> value = options.take(length);

        if (options.failed()) {
            return false;
        }
        if (type == OPTION_ROUTER_ALERT6) {
            // Value 0 says that the packet holds an MLD message.
            router_alert = router_alert || (value.size() == 2 && value[0] == 0 && value[1] == 0);
        } else if (type >> 6 != 0) {
            return false;
        }
    }
    return true;
}

Count parse_ipv6(std::span<const uint8_t> bytes, IpPacket &out)
{
    if (bytes.size() < IPV6_HEADER) {
        return Count::ShortPacket;
    }
    Reader header(bytes);

    if (header.u8() >> 4 != 6) {
        return Count::IpVersion;
    }
    header.take(3);
    size_t payload_length = header.u16();
    uint8_t next = header.u8();
    uint8_t hop_limit = header.u8();

    out.source = header.addr(MCAST_FAMILY_IPV6);
    out.destination = header.addr(MCAST_FAMILY_IPV6);
    if (payload_length > header.left()) {
        return Count::TotalLength;
    }
    Reader payload(header.take(payload_length));

    out.router_alert = false;
    if (next == IPPROTO_HOPOPTS) {
        next = payload.u8();
        size_t length = payload.u8() * 8u + 6u;
        std::span<const uint8_t> options = payload.take(length);

        if (payload.failed() || !read_hop_by_hop(Reader(options), out.router_alert)) {
            return Count::ExtensionHeader;
        }
    }
    if (next == IPPROTO_FRAGMENT) {
        return Count::Fragment;
    }
    if (next != IPPROTO_ICMPV6) {
        return Count::Protocol;
    }
    if (hop_limit != 1) {
        return Count::HopLimit;
    }
    if (!is_link_local6(out.source)) {
        return Count::Source;
    }
    out.payload = payload.rest();
    return NO_DROP;
}

} // namespace

Count parse_ip(uint16_t family, std::span<const uint8_t> bytes, IpPacket &out)
{
    return family == MCAST_FAMILY_IPV4 ? parse_ipv4(bytes, out) : parse_ipv6(bytes, out);
}

} // namespace gmpd
