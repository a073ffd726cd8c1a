/*
 * What the kernel says of a packet that an entry sends to the register interface: a report to all who listen, with the whole
 * packet in it.
 *
 *      nlmsghdr | rtgenmsg | kind | interface | source | group | packet | table (IPv4 alone)
 *       type 96   128, 129   3      number      attributes, in any order
 */
#ifndef DAEMONS_PIMSMD_REGISTER_REPORT_H
#define DAEMONS_PIMSMD_REGISTER_REPORT_H

#include <cstdint>
#include <span>

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

struct RegisterReport {
    uint32_t table = 0; // the kernel's multicast table, which reports of IPv6 do not name: 0
    uint32_t vif = 0;   // the register interface's number in it
    Address source{};
    Address group{};
    std::span<uint8_t> packet; // within the report
};

// Where a report has its kind, for a filter, and the kind of one with a whole packet.
constexpr uint32_t REPORT_KIND_AT = 24;
constexpr uint8_t REPORT_WHOLE_PACKET = 3;

// Takes the report at the front of bytes, which came from the kernel, and shortens them to what is behind it. False, and
// nothing is left, when there is none of a whole packet of the family.
bool next_report(uint16_t family, std::span<uint8_t> *bytes, RegisterReport *report);

} // namespace pimsmd

#endif
