/*
 * Connections to services on this node.
 */
#ifndef SRC_EVENT_LOCAL_CHANNEL_H
#define SRC_EVENT_LOCAL_CHANNEL_H

#include <stdint.h>

namespace mcast
{

/*
 * A local socket connected to the port, in host order, of this node; the caller closes it. -1, with errno as
 * the failing call set it, when it cannot be made or connected.
 */
int OpenLocalChannel(uint16_t port);

} // namespace mcast

#endif
