/*
 * Reverse path check: the interface on which packets of a source are to arrive.
 */
#ifndef DAEMONS_MRIBD_RPF_H
#define DAEMONS_MRIBD_RPF_H

#include <optional>

#include "daemons/mribd/environment.h"

namespace mribd
{

// The incoming interface of the instance for the source, 0 when it has none and its packets are to be
// dropped. Packets of a source that is on the link of the interface where they arrived came the right way,
// whatever the unicast route prefers; so did the machine's own packets. current is the interface in use until
// now and arrival the one where a packet was last seen; both may be 0. Nothing when the route cannot be found
// out now.
std::optional<uint32_t> rpf_interface(const Environment &environment, uint16_t vrf_index,
                                      const MCAST_ADDR_S &source, uint32_t current, uint32_t arrival);

} // namespace mribd

#endif
