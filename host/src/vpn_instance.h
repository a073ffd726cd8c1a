/*
 * VPN instances: those of the configuration and those that the kernel has as VRF devices.
 *
 *     [[vpn]] red, index 5, interfaces eth1 ──┬──► instance 5 "red": eth1, and eth2 as the device's port
 *     device red, table 100, port eth2 ───────┘
 *     device blue, table 200, port eth3 ─────────► instance 200 "blue": eth3
 *     everything else ───────────────────────────► instance 0
 *
 * A device is the entry of its name. A device without one has the number of its routing table as index and
 * its own name, unless that number is above 65535 or an entry's: then it is no instance, and what is in it
 * belongs to none, not even to the public one. What the kernel says about an interface overrules what the
 * file lists.
 */
#ifndef HOST_SRC_VPN_INSTANCE_H
#define HOST_SRC_VPN_INSTANCE_H

#include <cstdint>
#include <optional>

#include "mcasthost/link.h"
#include "vpn_table.h"

namespace host
{

// Whether the link is a VRF device.
bool is_vrf_device(const HOST_LINK_S &link);

// The instance of a VRF device; nothing when it is none. vpns is NULL when nothing is configured.
std::optional<uint16_t> instance_of_device(const VpnTable *vpns, const HOST_LINK_S &device);

// The instance of a link; nothing when it belongs to none. vpns as above; master is the link that it is a
// port of, NULL when it is no port.
std::optional<uint16_t> instance_of_link(const VpnTable *vpns, const HOST_LINK_S &link,
                                         const HOST_LINK_S *master);

} // namespace host

#endif
