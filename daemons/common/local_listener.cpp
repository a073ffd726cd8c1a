#include "daemons/common/local_listener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "platform/local_socket.h"

namespace mcastd
{

constexpr int BACKLOG = 64;

static uint64_t g_postponed = 0;

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

bool is_shortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

uint64_t accepts_postponed()
{
    return g_postponed;
}

int accept_next(int listener)
{
    int fd;
    do {
        fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0 && is_shortage(errno)) {
        // The kernel looks for a descriptor before it looks for a connection.
        const int shortage = errno;
        pollfd waiting{listener, POLLIN, 0};
        errno = poll(&waiting, 1, 0) > 0 ? shortage : EAGAIN;
    }
    return fd;
}

void postpone_accept(Reactor &reactor, int listener, const char *what)
{
    ++g_postponed;
    log_warning("cannot accept %s: %s; it waits until something else is closed", what, std::strerror(errno));
    reactor.pause(listener);
}

void accept_waiting(Reactor &reactor, int listener, unsigned most, const char *what,
                    const std::function<void(int fd)> &take)
{
    for (unsigned count = 0; count < most; ++count) {
        const int fd = accept_next(listener);
        if (fd >= 0) {
            if (!memory_unit(what, [&] { take(fd); })) {
                close(fd);
            }
        } else if (is_shortage(errno)) {
            postpone_accept(reactor, listener, what);
            return;
        } else {
            return;
        }
    }
}

} // namespace mcastd
