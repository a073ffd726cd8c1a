/*
 * The libc functions that this library stands in front of, for what is passed through and for its own use.
 */
#ifndef HOST_SRC_LIBC_CALLS_H
#define HOST_SRC_LIBC_CALLS_H

#include <sys/epoll.h>
#include <sys/socket.h>

namespace host
{

struct LibcCalls {
    int (*socket)(int, int, int);
    int (*bind)(int, const sockaddr *, socklen_t);
    int (*connect)(int, const sockaddr *, socklen_t);
    int (*accept)(int, sockaddr *, socklen_t *);
    int (*accept4)(int, sockaddr *, socklen_t *, int);
    int (*setsockopt)(int, int, int, const void *, socklen_t);
    int (*epoll_ctl)(int, int, int, epoll_event *);
};

// Resolved on first use: constructors of other libraries may call before ours have run.
const LibcCalls &libc();

} // namespace host

#endif
