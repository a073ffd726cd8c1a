/*
 * What the kernel tells the holder of a multicast routing socket.
 */
#ifndef DAEMONS_MRIBD_UPCALL_H
#define DAEMONS_MRIBD_UPCALL_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "mcast/common.h"

namespace mribd
{

enum class UpcallKind {
    NoEntry,       // a packet arrived for which there is no entry; the kernel holds it until one comes
    WrongInterface // a packet arrived on an interface that is not its entry's incoming one
};

struct Upcall {
    UpcallKind kind;
    unsigned vif;
    MCAST_ADDR_S source;
    MCAST_ADDR_S group;
};

// Reads the size bytes received on the routing socket of the family. Nothing when they are no upcall (an
// ordinary packet of the protocol), one of another kind, or too short.
std::optional<Upcall> parse_upcall(uint8_t family, const void *bytes, size_t size);

} // namespace mribd

#endif
