/*
 * Descriptors on a failure path.
 */
#ifndef SRC_EVENT_DESCRIPTOR_H
#define SRC_EVENT_DESCRIPTOR_H

#include <errno.h>
#include <unistd.h>

namespace mcast
{

/* Closes fd and leaves errno as the call that failed before set it. */
inline void CloseAfterFailure(int fd)
{
    int error = errno;
    close(fd);
    errno = error;
}

} // namespace mcast

#endif
