/*
 * The ports that sockets of this process are bound to, and who was let in.
 */
#ifndef HOST_SRC_LOCAL_PORTS_H
#define HOST_SRC_LOCAL_PORTS_H

#include <cstdint>
#include <sys/un.h>

namespace host
{

// The socket has just been bound to the name of the port.
void remember_port(int fd, uint16_t port, const sockaddr_un &name);

// Whether the peer, which the listener accepted, may stay open (HOST_LocalSocketLimit). A peer that may not is
// counted.
bool admit_peer(int listener, int peer);

} // namespace host

#endif
