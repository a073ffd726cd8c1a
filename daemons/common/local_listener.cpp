#include "daemons/common/local_listener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/local_socket.h"

namespace mcastd
{

constexpr int BACKLOG = 64;

int listen_local(uint16_t port)
{
    LOCAL_SOCKET_ADDR_S address{};
    address.length = sizeof(address);
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(port);
    address.node = LOCAL_SOCKET_NODE;
    const int fd =
        socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, LOCAL_SOCKET_PROTOCOL);
    if (fd < 0) {
        return -1;
    }
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(fd, BACKLOG) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

} // namespace mcastd
