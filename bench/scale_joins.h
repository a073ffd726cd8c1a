/*
 * The joins of the scale run. Join i is of a group and a source of its own, the i-th after these, and asks
 * for the source by name, so that its entry needs no packet of the source:
 *
 *              group           source        reported to     in
 *      IPv4    232.1.0.0       10.128.0.0    224.0.0.22      IGMPv3
 *      IPv6    ff3e::8000:0    fd00:80::     ff02::16        MLDv2
 */
#ifndef BENCH_SCALE_JOINS_H
#define BENCH_SCALE_JOINS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace scale
{

using Address = std::array<uint8_t, 16>; // an IPv4 address in the first four bytes

struct Family {
    const char *name;
    size_t address_size;
    Address first_group;
    Address first_source;
    uint32_t records_max;            // joins in a report that a packet of 1500 bytes takes
    uint8_t report_type;             // of the message
    uint16_t ethertype;              // of its packet
    std::array<uint8_t, 6> reported; // the link's address of those who hear reports
    uint8_t entry_family;            // of the kernel's messages about forwarding entries
    int entry_notifications;         // their group
};

extern const Family IPV4;
extern const Family IPV6;

// The join whose group and source these are, each of the family's address size; nothing when no join has
// both.
std::optional<uint32_t> join_of(const Family &family, const uint8_t *group, const uint8_t *source);

// A whole IP packet with a report of joins first to first + count.
std::vector<uint8_t> report_packet(const Family &family, uint32_t first, uint32_t count);

} // namespace scale

#endif
