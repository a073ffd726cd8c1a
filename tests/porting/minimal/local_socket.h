/*
 * Local sockets of the minimal platform, under names of their own: Unix sockets whose names are in the kernel's abstract
 * space, so that nothing of them is left in the file system. Everything else goes to the kernel as it is.
 */
#ifndef TESTS_PORTING_MINIMAL_LOCAL_SOCKET_H
#define TESTS_PORTING_MINIMAL_LOCAL_SOCKET_H

#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

int MINIMAL_Socket(int family, int type, int protocol);
int MINIMAL_Bind(int fd, const struct sockaddr *address, socklen_t length);
int MINIMAL_Connect(int fd, const struct sockaddr *address, socklen_t length);
int MINIMAL_SetOption(int fd, int level, int option, const void *value, socklen_t length);

#ifdef __cplusplus
}
#endif

#endif
