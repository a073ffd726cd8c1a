#include "event/local_channel.h"

#include <endian.h>
#include <errno.h>
#include <sys/socket.h>

#include "event/descriptor.h"

LOCAL_SOCKET_ADDR_S mcast::LocalAddress(uint16_t port, uint8_t length)
{
    LOCAL_SOCKET_ADDR_S address = {};
    address.length = length;
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htobe16(port);
    address.node = LOCAL_SOCKET_NODE;
    return address;
}

void mcast::SetLinger(int fd)
{
    const uint32_t linger[2] = {1, 0};
    (void)setsockopt(fd, SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, linger, sizeof(linger));
}

int mcast::OpenLocalChannel(uint16_t port)
{
    const LOCAL_SOCKET_ADDR_S address = LocalAddress(port, 0);
    int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
    if (fd < 0) {
        return -1;
    }
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 && errno != EISCONN) {
        CloseAfterFailure(fd);
        return -1;
    }
    SetLinger(fd);
    return fd;
}
