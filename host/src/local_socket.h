/*
 * Local sockets of family 37 on the kernel's own local sockets. Each function keeps the conventions of the
 * call that it serves: -1 with errno set on failure.
 */
#ifndef HOST_SRC_LOCAL_SOCKET_H
#define HOST_SRC_LOCAL_SOCKET_H

#include <sys/socket.h>

#include "runtime_dir.h"

namespace host
{

// Whether the descriptor is a local socket. Leaves errno alone.
bool is_local_socket(int fd);

// Whether the address is of the family of local sockets.
bool is_local_address(const sockaddr *address, socklen_t length);

// Who has a port: a live process, one that ended and left the name, nobody; or, with errno set, that cannot
// be found out. The listener does not notice the question.
enum class PortUse { Bound, Left, Unused, Unknown };
PortUse local_port_use(const RuntimeDir &dir, unsigned port);

int local_socket(int type, int protocol);
int local_bind(int fd, const sockaddr *address, socklen_t length);
int local_connect(int fd, const sockaddr *address, socklen_t length);
int local_accept(int fd, sockaddr *address, socklen_t *length, int flags);

// Whether the option, at SOL_SOCKET, is one of the family's own.
bool is_local_option(int option);
int local_set_option(int option, const void *value, socklen_t length);

} // namespace host

#endif
