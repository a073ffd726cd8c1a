#include "scale_joins.h"

#include <cstring>
#include <net/ethernet.h>
#include <netinet/in.h>
#include <linux/rtnetlink.h>

namespace scale
{
namespace
{

constexpr uint8_t ALLOW_NEW_SOURCES = 5;

// The headers of reports, as far as they do not depend on what follows.
constexpr uint8_t IPV4_HEADER[] = {
    0x46, 0xc0, 0, 0,  0,    0, 0, 0,  // header of 24 bytes; the length follows
    1,    2,    0, 0,  10,   2, 0, 77, // one hop, IGMP; the checksum follows
    224,  0,    0, 22, 0x94, 4, 0, 0   // router alert
};
constexpr uint8_t IPV6_HEADER[] = {
    0x60, 0,    0, 0, 0, 0, 0, 1,    // the length follows; hop-by-hop options, one hop
    0xfe, 0x80, 0, 0, 0, 0, 0, 0,    // from fe80::4d
    0,    0,    0, 0, 0, 0, 0, 0x4d, //
    0xff, 0x02, 0, 0, 0, 0, 0, 0,    // to ff02::16
    0,    0,    0, 0, 0, 0, 0, 0x16, //
    58,   0,    5, 2, 0, 0, 1, 0     // ICMPv6 next; router alert
};
constexpr size_t IPV6_FIXED = 40;

void put16(std::vector<uint8_t> &bytes, size_t place, size_t value)
{
    bytes[place] = static_cast<uint8_t>(value >> 8);
    bytes[place + 1] = static_cast<uint8_t>(value);
}

uint32_t sum(const std::vector<uint8_t> &bytes, size_t begin, size_t end)
{
    uint32_t result = 0;
    for (size_t i = begin; i < end; i += 2) {
        result += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    }
    return result;
}

uint16_t checksum(uint32_t sum)
{
    sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~((sum & 0xffff) + (sum >> 16)));
}

uint32_t last_word(const uint8_t *address, size_t size)
{
    uint32_t word_be;
    std::memcpy(&word_be, address + size - sizeof(word_be), sizeof(word_be));
    return ntohl(word_be);
}

void put_address(std::vector<uint8_t> &bytes, const Address &first, size_t size, uint32_t join)
{
    const uint32_t word_be = htonl(last_word(first.data(), size) + join);
    const auto *word = reinterpret_cast<const uint8_t *>(&word_be);
    bytes.insert(bytes.end(), first.begin(), first.begin() + static_cast<long>(size - sizeof(word_be)));
    bytes.insert(bytes.end(), word, word + sizeof(word_be));
}

// The two messages differ in their type and in the size of their addresses.
void put_report(std::vector<uint8_t> &bytes, const Family &family, uint32_t first, uint32_t count)
{
    const size_t begin = bytes.size();
    bytes.resize(begin + 8);
    bytes[begin] = family.report_type;
    put16(bytes, begin + 6, count);
    for (uint32_t join = first; join < first + count; ++join) {
        bytes.insert(bytes.end(), {ALLOW_NEW_SOURCES, 0, 0, 1});
        put_address(bytes, family.first_group, family.address_size, join);
        put_address(bytes, family.first_source, family.address_size, join);
    }
}

std::vector<uint8_t> ipv4_packet(uint32_t first, uint32_t count)
{
    constexpr size_t HEADER = sizeof(IPV4_HEADER);
    std::vector<uint8_t> bytes(IPV4_HEADER, IPV4_HEADER + HEADER);
    put_report(bytes, IPV4, first, count);
    put16(bytes, 2, bytes.size());
    put16(bytes, 10, checksum(sum(bytes, 0, HEADER)));
    put16(bytes, HEADER + 2, checksum(sum(bytes, HEADER, bytes.size())));
    return bytes;
}

std::vector<uint8_t> ipv6_packet(uint32_t first, uint32_t count)
{
    constexpr size_t HEADER = sizeof(IPV6_HEADER);
    std::vector<uint8_t> bytes(IPV6_HEADER, IPV6_HEADER + HEADER);
    put_report(bytes, IPV6, first, count);
    put16(bytes, 4, bytes.size() - IPV6_FIXED);
    const uint32_t pseudo =
        sum(bytes, 8, IPV6_FIXED) + static_cast<uint32_t>(bytes.size() - HEADER) + IPPROTO_ICMPV6;
    put16(bytes, HEADER + 2, checksum(pseudo + sum(bytes, HEADER, bytes.size())));
    return bytes;
}

} // namespace

const Family IPV4 = {
    .name = "ipv4",
    .address_size = 4,
    .first_group = {232, 1, 0, 0},
    .first_source = {10, 128, 0, 0},
    .records_max = 122,
    .report_type = 0x22,
    .ethertype = ETHERTYPE_IP,
    .reported = {0x01, 0x00, 0x5e, 0x00, 0x00, 0x16},
    .entry_family = RTNL_FAMILY_IPMR,
    .entry_notifications = RTNLGRP_IPV4_MROUTE,
};

const Family IPV6 = {
    .name = "ipv6",
    .address_size = 16,
    .first_group = {0xff, 0x3e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0},
    .first_source = {0xfd, 0x00, 0x00, 0x80},
    .records_max = 40,
    .report_type = 143,
    .ethertype = ETHERTYPE_IPV6,
    .reported = {0x33, 0x33, 0x00, 0x00, 0x00, 0x16},
    .entry_family = RTNL_FAMILY_IP6MR,
    .entry_notifications = RTNLGRP_IPV6_MROUTE,
};

std::optional<uint32_t> join_of(const Family &family, const uint8_t *group, const uint8_t *source)
{
    const size_t size = family.address_size;
    const size_t fixed = size - sizeof(uint32_t);
    const uint32_t join = last_word(group, size) - last_word(family.first_group.data(), size);
    const bool known = last_word(source, size) - last_word(family.first_source.data(), size) == join &&
                       std::memcmp(group, family.first_group.data(), fixed) == 0 &&
                       std::memcmp(source, family.first_source.data(), fixed) == 0;
    return known ? std::optional(join) : std::nullopt;
}

std::vector<uint8_t> report_packet(const Family &family, uint32_t first, uint32_t count)
{
    return &family == &IPV4 ? ipv4_packet(first, count) : ipv6_packet(first, count);
}

} // namespace scale
