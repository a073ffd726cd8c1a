/*
 * What the files of the group and source table share: how addresses are copied into records, probes and
 * cursors.
 */
#ifndef SRC_CONTAINER_MTABLE_ADDRESS_H
#define SRC_CONTAINER_MTABLE_ADDRESS_H

#include <stddef.h>
#include <string.h>

#include "mcast/mtable.h"

namespace mcast::mtable
{

inline size_t AddressBytes(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 4 : 16;
}

/* Writes family and the address bytes of that family, and nothing else. */
inline void CopyAddress(MCAST_ADDR_S *to, const MCAST_ADDR_S *from)
{
    to->family = from->family;
    memcpy(to->address, from->address, AddressBytes(from->family));
}

/* The first record of tree after the address. Record is MTABLE_GROUP_S or MTABLE_SOURCE_S. */
template <typename Record> Record *FirstAfter(AVL_HANDLE tree, const MCAST_ADDR_S *address)
{
    Record probe = {};
    CopyAddress(&probe.address, address);
    return static_cast<Record *>(AVL_GetNext(tree, &probe));
}

} // namespace mcast::mtable

#endif
