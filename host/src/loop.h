/*
 * Event loops inside this library.
 */
#ifndef HOST_SRC_LOOP_H
#define HOST_SRC_LOOP_H

#include <sys/epoll.h>

#include "mcasthost/loop.h"

namespace host
{

struct Loop;

// The loop with this epoll descriptor, or nullptr. Usable in signal handlers.
Loop *find_loop(int epoll);

// epoll_ctl for a loop's descriptor: ADD and MOD take a HOST_LOOP_RECORD_S.
int loop_control(Loop *loop, int operation, int fd, const void *record);

} // namespace host

#endif
