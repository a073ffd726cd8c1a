/* The socket calls that the minimal platform takes over from libc; listen and accept need nothing. */
#undef _GNU_SOURCE /* with it the addresses of these calls are of a type that cannot be written down here */
#include "local_socket.h"

int socket(int family, int type, int protocol)
{
    return MINIMAL_Socket(family, type, protocol);
}

int bind(int fd, const struct sockaddr *address, socklen_t length)
{
    return MINIMAL_Bind(fd, address, length);
}

int connect(int fd, const struct sockaddr *address, socklen_t length)
{
    return MINIMAL_Connect(fd, address, length);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t length)
{
    return MINIMAL_SetOption(fd, level, option, value, length);
}
