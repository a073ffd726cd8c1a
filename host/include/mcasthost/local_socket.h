/*
 * What can be asked about the local sockets of family 37, beside what the calls on them answer.
 *
 * Beyond what the platform promises, these sockets are close-on-exec. socket takes SOCK_NONBLOCK with the type, and
 * fails for other types with ESOCKTNOSUPPORT and for other protocols with EPROTONOSUPPORT. bind and connect fail with
 * EADDRNOTAVAIL for another node or port 0, and with EINVAL for an address that is cut; a second connect with EISCONN.
 * An option of the family fails with EINVAL when its length is another.
 */
#ifndef MCASTHOST_LOCAL_SOCKET_H
#define MCASTHOST_LOCAL_SOCKET_H

#include <stddef.h>
#include <stdint.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Connections of this process's listeners that accept closed because their peer is of another user and not root. Any
 * thread.
 */
HOST_API uint64_t HOST_LocalSocketRefusedPeers(void);

/*
 * The users who have a port of the calling thread's network namespace in use, in one of the places where this library
 * looks for ports: at most size of them to uids, by ascending number. How many were written. A caller that is not root
 * learns of itself alone. Any thread.
 */
HOST_API size_t HOST_LocalSocketUsers(uint32_t *uids, size_t size);

/*
 * At most this many connections that accept gave out for a listener on the port may be open at a time: accept closes
 * and counts further ones. 0 takes the limit away. 0, or HOST_FAILED when memory is short. Any thread.
 */
HOST_API uint32_t HOST_LocalSocketLimit(uint16_t port, uint32_t most);

/* Connections that accept closed because of such a limit. Any thread. */
HOST_API uint64_t HOST_LocalSocketOverLimit(void);

/* What HOST_LocalSocketTend found. */
typedef struct HOST_LOCAL_SOCKET_TEND_S {
    uint32_t rebound;   /* ports that lost their names and have them again */
    uint32_t lost;      /* ports that lost them and have them not */
    int32_t error;      /* errno of the last of these */
    uint16_t lost_port; /* it; one that another process has, before any other */
} HOST_LOCAL_SOCKET_TEND_S;

/*
 * Looks whether the names of the ports that sockets of this process are bound to are still there, and still theirs: who
 * deletes or moves their folder makes the ports unreachable, and free for others. A port that lost its name is
 * bound again, in a folder that is made again: its descriptor then stands for a new socket, with the same flags, that
 * listens if the old one did (with a backlog of 1024) and that the same loops watch. Connections stay; what
 * waited to be accepted is closed. A port that another process has meanwhile fails with EADDRINUSE. To be called about
 * once a second, by a thread in the network namespace of the sockets, while no other thread uses them. At most
 * 32 ports are known. *found is written as a whole.
 */
HOST_API void HOST_LocalSocketTend(HOST_LOCAL_SOCKET_TEND_S *found);

#ifdef __cplusplus
}
#endif

#endif
