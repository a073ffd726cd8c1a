#include "daemons/pimsmd/rp_hash.h"

namespace pimsmd
{
namespace
{

constexpr uint32_t FACTOR = 1103515245;
constexpr uint32_t SUMMAND = 12345;
constexpr uint32_t BELOW_2_31 = 0x7fffffff;

} // namespace

uint32_t address_digest(const Address &address)
{
    uint32_t digest = 0;
    for (size_t at = 0; at < address_size(address.family); at += 4) {
        const uint8_t *word = address.address + at;

        digest ^= uint32_t{word[0]} << 24 | uint32_t{word[1]} << 16 | uint32_t{word[2]} << 8 | word[3];
    }
    return digest;
}

uint32_t rp_hash(const Address &group, uint8_t mask_length, const Address &rp)
{
    // Arithmetic modulo 2^32, of which the lower 31 bits are those modulo 2^31.
    const uint32_t masked = address_digest(Prefix::of(group, mask_length).address);
    return (FACTOR * ((FACTOR * masked + SUMMAND) ^ address_digest(rp)) + SUMMAND) & BELOW_2_31;
}

} // namespace pimsmd
