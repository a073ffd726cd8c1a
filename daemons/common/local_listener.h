/*
 * Listening sockets: one of the local family, and how any of them accepts. A listener that cannot accept,
 * because descriptors or memory have run out, is not watched until something was closed or a second has
 * passed: it would be ready all the time until then, and the daemon spin.
 */
#ifndef DAEMONS_COMMON_LOCAL_LISTENER_H
#define DAEMONS_COMMON_LOCAL_LISTENER_H

#include <cstdint>
#include <functional>

#include "daemons/common/reactor.h"

namespace mcastd
{

// A socket that listens on the local port and does not block; the caller closes it. -1 with errno set when
// there is none, EADDRINUSE when somebody listens already.
int listen_local(uint16_t port);

// Takes the connections that wait at a listener that does not block and that the reactor watches for EPOLLIN,
// at most `most` of them. take gets each descriptor, which does not block and becomes its own unless it throws
// std::bad_alloc; it must not close the listener. what names those who connect, for the log: "a standby".
void accept_waiting(Reactor &reactor, int listener, unsigned most, const char *what,
                    const std::function<void(int fd)> &take);

// The next connection of such a listener, a descriptor that does not block; -1 with errno set when there is
// none. is_shortage of errno tells that one waits for which there is no descriptor or memory.
int accept_next(int listener);
bool is_shortage(int error);

// How often a listener could not accept and was left for later.
uint64_t accepts_postponed();

// Leaves the listener for later and says so; for those that accept one by one.
void postpone_accept(Reactor &reactor, int listener, const char *what);

} // namespace mcastd

#endif
