#include "tests/simulation/network/membership_message.h"

#include "tests/simulation/kernel/packet_build.h"

namespace sim
{
namespace
{

struct Types {
    uint8_t query;
    uint8_t report_v1;
    uint8_t report_v2;
    uint8_t leave;
    uint8_t report_v3;
};

constexpr Types IGMP = {0x11, 0x12, 0x16, 0x17, 0x22};
constexpr Types MLD = {130, 131, 131, 132, 143}; // there is nothing older than MLDv1

const Types &types_of(int family)
{
    return family == AF_INET ? IGMP : MLD;
}

void append(Bytes &bytes, const Address &address)
{
    bytes.insert(bytes.end(), address.value().begin(), address.value().end());
}

void append16(Bytes &bytes, size_t number)
{
    bytes.push_back(static_cast<uint8_t>(number >> 8));
    bytes.push_back(static_cast<uint8_t>(number));
}

Address any_of(int family)
{
    Address any;
    any.family = family;
    return any;
}

// The head of the messages that are about one group: MLD has 16 bits for the time, and 16 more.
Bytes group_message(uint8_t type, Ns response_time, const Address &group)
{
    const bool ipv4 = group.family == AF_INET;
    Bytes message = {type, 0, 0, 0};
    if (ipv4) {
        message[1] = static_cast<uint8_t>(response_time / (100 * MILLISECOND));
    } else {
        append16(message, response_time / MILLISECOND);
        append16(message, 0);
    }
    append(message, group);
    return message;
}

// A mantissa of so many bits behind an exponent of 3 for codes from the limit on.
uint64_t decoded(uint64_t code, unsigned bits)
{
    const uint64_t limit = uint64_t{1} << (bits + 3);
    const uint64_t mantissa = (code & ((uint64_t{1} << bits) - 1)) | uint64_t{1} << bits;
    return code < limit ? code : mantissa << ((code >> bits & 7) + 3);
}

} // namespace

Bytes report_packet(const Address &from, const std::vector<Record> &records)
{
    const int family = from.family;
    Bytes message = {types_of(family).report_v3, 0, 0, 0, 0, 0};
    append16(message, records.size());
    for (const Record &record : records) {
        message.push_back(static_cast<uint8_t>(record.type));
        message.push_back(0);
        append16(message, record.sources.size());
        append(message, record.group);
        for (const Address &source : record.sources) {
            append(message, source);
        }
    }
    return build_packet(from, address_from(family == AF_INET ? "224.0.0.22" : "ff02::16"),
                        std::move(message));
}

Bytes old_report_packet(const Address &from, const Address &group, unsigned version)
{
    const Types &types = types_of(from.family);
    return build_packet(from, group,
                        group_message(version == 1 ? types.report_v1 : types.report_v2, 0, group));
}

Bytes leave_packet(const Address &from, const Address &group)
{
    return build_packet(from, address_from(from.family == AF_INET ? "224.0.0.2" : "ff02::2"),
                        group_message(types_of(from.family).leave, 0, group));
}

Bytes general_query_packet(const Address &from, unsigned version, Ns response_time)
{
    Bytes message =
        group_message(types_of(from.family).query, version == 1 ? 0 : response_time, any_of(from.family));
    if (version == 3) {
        message.insert(message.end(), {2, 125, 0, 0}); // robustness, query interval, no sources
    }
    return build_packet(from, address_from(from.family == AF_INET ? "224.0.0.1" : "ff02::1"),
                        std::move(message));
}

std::optional<Query> read_query(const Bytes &packet)
{
    Address from;
    const Bytes message = message_of(packet, &from);
    const bool ipv4 = from.family == AF_INET;
    const size_t group_at = ipv4 ? 4 : 8;
    const size_t shortest = group_at + from.size();
    if (message.size() < shortest || message[0] != types_of(from.family).query) {
        return std::nullopt;
    }
    Query query{};
    query.from = from;
    query.version = message.size() > shortest ? 3 : ipv4 && message[1] == 0 ? 1 : 2;
    if (ipv4) {
        query.response_time = decoded(message[1], 4) * 100 * MILLISECOND;
    } else {
        query.response_time = decoded(static_cast<uint64_t>(message[4]) << 8 | message[5], 12) * MILLISECOND;
    }
    if (query.version == 1) {
        query.response_time = 10 * SECOND;
    }
    const Address group = address_of(from.family, message.data() + group_at);
    query.group = group == any_of(from.family) ? Address{} : group;
    for (size_t at = shortest + 4; query.version == 3 && at + from.size() <= message.size();
         at += from.size()) {
        query.sources.insert(address_of(from.family, message.data() + at));
    }
    return query;
}

std::optional<Address> read_old_report(const Bytes &packet)
{
    Address from;
    const Bytes message = message_of(packet, &from);
    const Types &types = types_of(from.family);
    const size_t group_at = from.family == AF_INET ? 4 : 8;
    if (message.size() < group_at + from.size() ||
        (message[0] != types.report_v1 && message[0] != types.report_v2)) {
        return std::nullopt;
    }
    return address_of(from.family, message.data() + group_at);
}

} // namespace sim
