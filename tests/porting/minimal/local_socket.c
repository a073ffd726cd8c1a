#include "local_socket.h"

#include <arpa/inet.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "mcast/platform/local_socket.h"

/* The name in the kernel's abstract space that stands for a port; its length. */
static socklen_t NameOf(const struct sockaddr *address, struct sockaddr_un *name)
{
    LOCAL_SOCKET_ADDR_S local;
    memcpy(&local, address, sizeof(local));
    memset(name, 0, sizeof(*name));
    name->sun_family = AF_UNIX;
    const int length = snprintf(&name->sun_path[1], sizeof(name->sun_path) - 1, "minimal-platform-%u-%u",
                                geteuid(), ntohs(local.port_be));
    return (socklen_t)(offsetof(struct sockaddr_un, sun_path) + 1 + (size_t)length);
}

/* The family stands in the second byte of a local address, after a length; elsewhere it fills both. */
static int IsLocal(const struct sockaddr *address, socklen_t length)
{
    LOCAL_SOCKET_ADDR_S local;
    if (length < sizeof(local)) {
        return 0;
    }
    memcpy(&local, address, sizeof(local));
    return local.family == LOCAL_SOCKET_FAMILY;
}

int MINIMAL_Socket(int family, int type, int protocol)
{
    if (family == LOCAL_SOCKET_FAMILY) {
        return (int)syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | (type & (SOCK_CLOEXEC | SOCK_NONBLOCK)), 0);
    }
    return (int)syscall(SYS_socket, family, type, protocol);
}

int MINIMAL_Bind(int fd, const struct sockaddr *address, socklen_t length)
{
    struct sockaddr_un name;
    if (IsLocal(address, length)) {
        length = NameOf(address, &name);
        return (int)syscall(SYS_bind, fd, &name, length);
    }
    return (int)syscall(SYS_bind, fd, address, length);
}

int MINIMAL_Connect(int fd, const struct sockaddr *address, socklen_t length)
{
    struct sockaddr_un name;
    if (IsLocal(address, length)) {
        length = NameOf(address, &name);
        return (int)syscall(SYS_connect, fd, &name, length);
    }
    return (int)syscall(SYS_connect, fd, address, length);
}

int MINIMAL_SetOption(int fd, int level, int option, const void *value, socklen_t length)
{
    if (level == SOL_SOCKET &&
        (option == LOCAL_SOCKET_OPTION_LINGER || option == LOCAL_SOCKET_OPTION_REUSE)) {
        return 0; /* taken and ignored */
    }
    return (int)syscall(SYS_setsockopt, fd, level, option, value, length);
}
