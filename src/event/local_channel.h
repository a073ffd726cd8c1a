/*
 * Connections to services on this node.
 */
#ifndef SRC_EVENT_LOCAL_CHANNEL_H
#define SRC_EVENT_LOCAL_CHANNEL_H

#include <stdint.h>

#include "platform/local_socket.h"

namespace mcast
{

/* The address of the port, in host order, on this node; length is what its first byte says. */
LOCAL_SOCKET_ADDR_S LocalAddress(uint16_t port, uint8_t length);

/* The option that is set on a connected socket; whether that succeeds does not matter. */
void SetLinger(int fd);

/*
 * A local socket connected to the port, in host order, of this node; the caller closes it. -1, with errno as
 * the failing call set it, when it cannot be made or connected.
 */
int OpenLocalChannel(uint16_t port);

} // namespace mcast

#endif
