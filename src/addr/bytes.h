/*
 * Reading the bytes of an address.
 */
#ifndef SRC_ADDR_BYTES_H
#define SRC_ADDR_BYTES_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"

namespace mcast
{

/* The IPv4 address in the first four bytes, in host order. */
inline uint32_t Ipv4HostOrder(const MCAST_ADDR_S *addr)
{
    const uint8_t *bytes = addr->address;
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

inline bool AllZero(const uint8_t *bytes, size_t length)
{
    uint8_t any = 0;
    for (size_t i = 0; i < length; ++i) {
        any = static_cast<uint8_t>(any | bytes[i]);
    }
    return any == 0;
}

inline MCAST_BOOL Truth(bool value)
{
    return value ? MCAST_TRUE : MCAST_FALSE;
}

} // namespace mcast

#endif
