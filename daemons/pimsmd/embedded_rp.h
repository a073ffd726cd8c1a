/*
 * Groups of IPv6 that name their RP themselves (RFC 3956; RFC 7371 for the fourth flag, which may be anything):
 *
 *      bits   8      4       4      4      4      8        64             32
 *           +----+-------+-------+------+------+------+----------------+----------+
 *           | ff | .RPT  | scope | 0    | RIID | plen | network prefix | group id |
 *           +----+-------+-------+------+------+------+----------------+----------+
 *
 *      the RP:  plen bits of the network prefix, zeros, RIID as the last four bits
 */
#ifndef DAEMONS_PIMSMD_EMBEDDED_RP_H
#define DAEMONS_PIMSMD_EMBEDDED_RP_H

#include <optional>

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

// Whether the group is of the range whose groups embed an RP, be it a usable one or not.
bool embeds_rp(const Address &group);

// The RP of such a group; nothing for another group, for one that stays on a link, and where what it names cannot be a
// router's address.
std::optional<Address> embedded_rp(const Address &group);

} // namespace pimsmd

#endif
