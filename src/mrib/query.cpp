/* Queries of the client's view, each under its instance's read lock, and the channel's hash. */
#include <endian.h>
#include <string.h>

#include "event/guards.h"
#include "mrib/view.h"

using namespace mcast;

namespace
{

/* The greatest scope that a group can have as far as boundaries go. */
constexpr uint8_t kGroupScopeCap = 14;

bool IsBlockedByScope(const MRIB_GMP_IF_S *interface, const MCAST_ADDR_S &group)
{
    if (group.family == MCAST_FAMILY_IPV4) {
        return false;
    }
    uint8_t scope = group.address[1] & 0x0f;

    scope = scope < kGroupScopeCap ? scope : kGroupScopeCap;
    return IsMeaningfulScope(interface->scope) && IsMeaningfulScope(scope) && interface->scope >= scope;
}

/* The i-th word of an address in network order. */
uint32_t Word(const MCAST_ADDR_S &address, size_t i)
{
    uint32_t word = 0;
    memcpy(&word, address.address + i * sizeof(word), sizeof(word));
    return be32toh(word);
}

uint32_t FoldedWords(const MCAST_ADDR_S &address)
{
    return Word(address, 0) ^ Word(address, 1) ^ Word(address, 2) ^ Word(address, 3);
}

uint32_t Mix(uint32_t x)
{
    return x * 1103515245u + 12345u;
}

} // namespace

uint32_t MRIB_GMP_IsL3McEnabled(const MRIB_GMP_VRF_KEY_S *key)
{
    MRIB_GMP_VRF_S *vrf = VrfAt(key->vrf_index);

    if (vrf == nullptr) {
        return 0;
    }
    ReadGuard guard(vrf->lock);

    return vrf->l3mc_state;
}

uint32_t MRIB_GMP_IsPimDr(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index)
{
    MRIB_GMP_VRF_S *vrf = VrfAt(key->vrf_index);

    if (vrf == nullptr) {
        return 0;
    }
    ReadGuard guard(vrf->lock);
    const MRIB_GMP_IF_S *interface = FindInterface(vrf, if_index);

    return interface != nullptr ? interface->dr_state : 0;
}

uint64_t MRIB_GMP_CanPassMBoundary(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                   const MCAST_ADDR_S *group)
{
    MRIB_GMP_VRF_S *vrf = VrfAt(key->vrf_index);

    if (vrf == nullptr) {
        return 1;
    }
    ReadGuard guard(vrf->lock);
    const MRIB_GMP_IF_S *interface = FindInterface(vrf, if_index);

    if (interface == nullptr) {
        return 1;
    }
    return IsInRange(interface, *group) || IsBlockedByScope(interface, *group) ? 0 : 1;
}

uint32_t MRIB_GMP_GetHashVal(uint32_t key, const MCAST_ADDR_S *a, const MCAST_ADDR_S *b)
{
    if (b->family != MCAST_FAMILY_IPV6) {
        return Mix(Mix(Word(*b, 0)) ^ Word(*a, 0)) & 0x7fffffffu;
    }
    uint32_t y = a->family == MCAST_FAMILY_IPV6 ? FoldedWords(*a) : Word(*a, 3);

    return Mix(Mix((key * 0xc2a29a69u - 0x2c23e982u) ^ FoldedWords(*b)) ^ y) & 0x7fffffffu;
}
