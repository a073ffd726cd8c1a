/*
 * IGMP and MLD messages differ in three things only: the numbers of their types, the size of an address, and
 * where a query keeps its response time. With A an address of the family:
 *
 *      IGMP  type 1 | time 1 | checksum 2                            | group A |   versions 1 and 2, leave
 *      MLD   type 1 | code 1 | checksum 2 | time 2      | reserved 2 | group A |   version 1, done
 *                                                                    ... and | S, robustness 1 | interval 1 |
 *                                                    source count 2 | source A | ...   version 3 (2) query
 *      both  type 1 | reserved 1 | checksum 2 | reserved 2 | record count 2 | record | ...     report
 *      record       type 1 | auxiliary words 1 | source count 2 | group A | source A ... | auxiliary 4 ...
 *
 * Bytes behind what a message needs are covered by the checksum and otherwise ignored. IGMP queries are told
 * apart by their length and time, MLD queries by their length (RFC 3376 section 7.1, RFC 3810 section 8.1).
 */
#include "daemons/gmpd/packet_parse.h"

#include "daemons/gmpd/float_code.h"
#include "daemons/gmpd/ip_parse.h"
#include "daemons/gmpd/protocol.h"
#include "mcast/addr.h"

namespace gmpd
{
namespace
{

bool checksum_is_good(uint16_t family, const IpPacket &packet)
{
    if (family == MCAST_FAMILY_IPV4) {
        return internet_checksum(packet.payload) == 0;
    }
    uint32_t length = static_cast<uint32_t>(packet.payload.size());
    uint32_t sum = MCAST_Inet6Cksum(reinterpret_cast<const uint16_t *>(packet.payload.data()), length,
                                    &packet.source, &packet.destination, length, ICMPV6);

    return (sum & 0xffff) == 0;
}

// True when a message may be addressed there: to one system, to the group it names, or link-wide.
bool destination_fits(const Message &message)
{
    return !is_multicast(message.destination) || is_link_scope_group(message.destination) ||
           same_address(message.destination, message.group);
}

Count read_sources_of_query(Reader &body, uint16_t family, Message &out)
{
    uint8_t flags = body.u8();

    out.suppress = (flags & SUPPRESS_FLAG) != 0;
    out.robustness = flags & ROBUSTNESS_MASK;
    out.query_interval_s = decode_float(body.u8(), SHORT_MANTISSA);
    size_t count = body.u16();
    std::span<const uint8_t> sources = body.take(count * address_size(family));

    if (body.failed()) {
        return Count::SourceCount;
    }
    out.sources = SourceList{family, sources};
    return NO_DROP;
}

// The version of a query by its length, and its response time by the version; 0 for no valid length.
uint8_t query_version(uint16_t family, size_t length, uint32_t time, uint32_t &max_response_ms)
{
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    const size_t old_length = ipv4 ? OLD_IGMP_LENGTH : OLD_MLD_LENGTH;
    if (length >= old_length + QUERY_TAIL) {
        max_response_ms = ipv4 ? decode_float(time, SHORT_MANTISSA) * 100 : decode_float(time, LONG_MANTISSA);
        return 3;
    }
    if (length != old_length) {
        return 0;
    }
    if (ipv4 && time == 0) {
        max_response_ms = VERSION1_RESPONSE_MS;
        return 1;
    }
    max_response_ms = ipv4 ? time * 100 : time;
    return 2;
}

Count parse_query(uint16_t family, const IpPacket &packet, Message &out)
{
    Reader body(packet.payload);
    const bool ipv4 = family == MCAST_FAMILY_IPV4;

    body.take(1);
    uint32_t time = body.u8();

    body.take(2);
    if (!ipv4) {
        time = body.u16();
        body.take(2);
    }
    out.kind = MessageKind::Query;
    out.group = body.addr(family);
    out.version = query_version(family, packet.payload.size(), time, out.max_response_ms);
    if (body.failed() || out.version == 0) {
        return Count::MessageLength;
    }
    if (!packet.router_alert && out.version > 1) {
        return Count::RouterAlert;
    }
    if (!is_multicast(out.destination)) {
        return Count::UnicastQuery;
    }
    if (!is_unspecified(out.group) && !is_multicast(out.group)) {
        return Count::Group;
    }
    // A general query goes to all systems, any other to its group; all systems is let pass for both.
    if (!same_address(out.destination, all_systems(family)) && !same_address(out.destination, out.group)) {
        return Count::Destination;
    }
    return out.version == 3 ? read_sources_of_query(body, family, out) : NO_DROP;
}

// Version 1 and 2 reports and leaves: one group and nothing else.
Count parse_old_message(uint16_t family, const IpPacket &packet, MessageKind kind, uint8_t version,
                        Message &out)
{
    Reader body(packet.payload);
    body.take(family == MCAST_FAMILY_IPV4 ? OLD_IGMP_LENGTH - 4 : OLD_MLD_LENGTH - 16);
    out.kind = kind;
    out.version = version;
    out.group = body.addr(family);
    if (body.failed()) {
        return Count::MessageLength;
    }
    if (!packet.router_alert && version > 1) {
        return Count::RouterAlert;
    }
    if (!is_multicast(out.group)) {
        return Count::Group;
    }
    return destination_fits(out) ? NO_DROP : Count::Destination;
}

Count parse_report(uint16_t family, const IpPacket &packet, Message &out)
{
    Reader body(packet.payload);

    body.take(6);
    out.kind = MessageKind::Report;
    out.version = 3;
    out.group = any_address(family);
    out.record_count = body.u16();
    out.records = body;
    if (!packet.router_alert) {
        return Count::RouterAlert;
    }
    if (!destination_fits(out)) {
        return Count::Destination;
    }
    for (unsigned left = out.record_count; left > 0; --left) {
        Record record;
        bool source_count_lies = false;

        if (!next_record(body, family, record, source_count_lies)) {
            return source_count_lies ? Count::SourceCount : Count::RecordCount;
        }
        if (!is_multicast(record.group)) {
            return Count::Group;
        }
    }
    return NO_DROP;
}

} // namespace

bool next_record(Reader &records, uint16_t family, Record &record, bool &source_count_lies)
{
    record.type = static_cast<RecordType>(records.u8());
    size_t auxiliary = size_t{records.u8()} * 4;
    size_t count = records.u16();

    record.group = records.addr(family);
    if (records.failed()) {
        source_count_lies = false;
        return false;
    }
    record.sources = SourceList{family, records.take(count * address_size(family))};
    records.take(auxiliary);
    source_count_lies = records.failed();
    return !records.failed();
}

Count parse_packet(uint16_t family, std::span<const uint8_t> bytes, Message &out)
{
    IpPacket packet;
    Count drop = parse_ip(family, bytes, packet);

    if (drop != NO_DROP) {
        return drop;
    }
    if (packet.payload.size() < SHORTEST_MESSAGE) {
        return Count::ShortMessage;
    }
    if (!checksum_is_good(family, packet)) {
        return Count::Checksum;
    }
    out.sender = packet.source;
    out.destination = packet.destination;
    const uint8_t type = packet.payload[0];
    const MessageTypes &types = types_of(family);

    if (type == types.query) {
        return parse_query(family, packet, out);
    }
    if (type == types.report_v3) {
        return parse_report(family, packet, out);
    }
    if (type == types.report_v2) {
        return parse_old_message(family, packet, MessageKind::Report, 2, out);
    }
    if (type == types.leave) {
        return parse_old_message(family, packet, MessageKind::Leave, 2, out);
    }
    if (types.report_v1 != 0 && type == types.report_v1) {
        return parse_old_message(family, packet, MessageKind::Report, 1, out);
    }
    return Count::MessageType;
}

} // namespace gmpd
