/*
 * What can be asked about the local sockets of family 37, beside what the calls on them answer.
 */
#ifndef MCASTHOST_LOCAL_SOCKET_H
#define MCASTHOST_LOCAL_SOCKET_H

#include <stddef.h>
#include <stdint.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

// Connections of this process's listeners that accept closed because their peer is of another user and not
// root. Any thread.
HOST_API uint64_t HOST_LocalSocketRefusedPeers(void);

// The users who have a port of the calling thread's network namespace in use, in one of the places where this
// library looks for ports: at most size of them to uids, by ascending number. How many were written. A caller
// that is not root learns of itself alone. Any thread.
HOST_API size_t HOST_LocalSocketUsers(uint32_t *uids, size_t size);

#ifdef __cplusplus
}
#endif

#endif
