/*
 * The hash that spreads groups over RPs of equal standing (RFC 7761, section 4.7.2). All routers of a domain compute it
 * alike: so they agree on a group's RP without a word.
 */
#ifndef DAEMONS_PIMSMD_RP_HASH_H
#define DAEMONS_PIMSMD_RP_HASH_H

#include <cstdint>

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

// Leading bits of a group that count, where no BSR says how many: four groups in a row have one RP.
constexpr uint8_t default_hash_mask_length(uint16_t family)
{
    return static_cast<uint8_t>(address_bits(family) - 2);
}

// An address as 32 bits in host order; that of IPv6 is the exclusive-or of its four words.
uint32_t address_digest(const Address &address);

// The value of an RP for a group, below 2^31; the RP with the highest serves it. The mask length is at most the
// family's bits.
uint32_t rp_hash(const Address &group, uint8_t mask_length, const Address &rp);

} // namespace pimsmd

#endif
