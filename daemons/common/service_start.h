/*
 * What a daemon does about the rest of the router when it starts: has the daemon that it needs started, and
 * finds out whether this machine can forward multicast.
 */
#ifndef DAEMONS_COMMON_SERVICE_START_H
#define DAEMONS_COMMON_SERVICE_START_H

#include <cstdint>

namespace mcastd
{

// Reaches the daemon of this name on its control port, and has it started when it is not there. Blocks for up
// to a second. Whether it answered; if not, what to look at is logged.
bool start_service(const char *name, uint64_t service, uint16_t control_port);

// Starts multicast forwarding on the nodes of the router and logs what is missing for it.
void start_forwarding();

} // namespace mcastd

#endif
