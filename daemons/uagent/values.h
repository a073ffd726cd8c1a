/*
 * The values of command words. Each function reads the whole text or fails with a reason in *error, which
 * does not repeat the text, and leaves the output alone. What an address may be is the library's to say.
 */
#ifndef DAEMONS_UAGENT_VALUES_H
#define DAEMONS_UAGENT_VALUES_H

#include <algorithm>
#include <limits>

#include "daemons/uagent/command.h"

namespace uagent
{

// A decimal number, or a hexadecimal one after 0x, within the bounds.
bool read_number(const std::string &text, uint64_t lowest, uint64_t highest, uint64_t *number,
                 std::string *error);

// The same into a narrower type, whose range bounds it too.
template <typename Number>
bool read_number(const std::string &text, uint64_t lowest, uint64_t highest, Number *number,
                 std::string *error)
{
    uint64_t wide = 0;
    if (!read_number(text, lowest, std::min<uint64_t>(highest, std::numeric_limits<Number>::max()), &wide,
                     error)) {
        return false;
    }
    *number = static_cast<Number>(wide);
    return true;
}

// The unicast address of a host, link-local ones of IPv6 included.
bool read_user_address(const std::string &text, uint16_t family, MCAST_ADDR_S *address, std::string *error);

// GROUP, or SOURCE,GROUP; a source of zero means any source, as none does.
bool read_permission(const std::string &text, uint16_t family, Permission *permission, std::string *error);

// An interface as it may be typed: the name of one of this machine, abbreviated or not, a Multicast-UA
// interface of the family, or an index as 0x and hexadecimal digits.
bool read_interface(const std::string &text, uint16_t family, uint32_t *if_index, std::string *error);

// Six bytes as two hexadecimal digits each, with colons between them.
bool read_hardware_address(const std::string &text, std::array<uint8_t, 6> *address, std::string *error);

} // namespace uagent

#endif
