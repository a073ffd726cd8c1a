/*
 * The calls that this library takes over from libc. Each decides whether it concerns a local socket or an
 * event loop of ours and passes everything else on untouched, errno included.
 */
#include <sys/epoll.h>
#include <sys/socket.h>

#include "libc_calls.h"
#include "local_socket.h"
#include "loop.h"
#include "mcasthost/loop.h"
#include "platform/local_socket.h"

extern "C" {

HOST_API int socket(int domain, int type, int protocol) noexcept
{
    return domain == LOCAL_SOCKET_FAMILY ? host::local_socket(type, protocol)
                                         : host::libc().socket(domain, type, protocol);
}

HOST_API int bind(int fd, const sockaddr *address, socklen_t length) noexcept
{
    return host::is_local_address(address, length) && host::is_local_socket(fd)
               ? host::local_bind(fd, address, length)
               : host::libc().bind(fd, address, length);
}

HOST_API int connect(int fd, const sockaddr *address, socklen_t length)
{
    return host::is_local_address(address, length) && host::is_local_socket(fd)
               ? host::local_connect(fd, address, length)
               : host::libc().connect(fd, address, length);
}

HOST_API int accept(int fd, sockaddr *address, socklen_t *length)
{
    return host::is_local_socket(fd) ? host::local_accept(fd, address, length, 0)
                                     : host::libc().accept(fd, address, length);
}

HOST_API int accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    return host::is_local_socket(fd) ? host::local_accept(fd, address, length, flags)
                                     : host::libc().accept4(fd, address, length, flags);
}

HOST_API int setsockopt(int fd, int level, int option, const void *value, socklen_t length) noexcept
{
    return level == SOL_SOCKET && host::is_local_option(option) && host::is_local_socket(fd)
               ? host::local_set_option(option, value, length)
               : host::libc().setsockopt(fd, level, option, value, length);
}

HOST_API int epoll_ctl(int epoll, int operation, int fd, epoll_event *event) noexcept
{
    host::Loop *loop = host::find_loop(epoll);
    return loop != nullptr ? host::loop_control(loop, operation, fd, event)
                           : host::libc().epoll_ctl(epoll, operation, fd, event);
}

} // extern "C"
