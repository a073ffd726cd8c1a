/*
 * Local inter-process sockets of the platform: address family 37. Sockets are created with
 * socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL); they connect to a port or listen on one and
 * accept connections, keep message boundaries and order, and report the peer's end as end-of-file and
 * hang-up.
 *
 * connect fails with ECONNREFUSED when nobody listens on the port. Messages of up to 10240 bytes go both ways.
 * One that send has taken arrives, the last ones before the end-of-file. send with MSG_DONTWAIT fails with
 * EAGAIN while the peer does not read, and the socket becomes writable when it reads again.
 */
#ifndef PLATFORM_LOCAL_SOCKET_H
#define PLATFORM_LOCAL_SOCKET_H

#include <stdint.h>

#define LOCAL_SOCKET_FAMILY 37
#define LOCAL_SOCKET_PROTOCOL 1

/* The address value of the local node. */
#define LOCAL_SOCKET_NODE 128

/* Option at SOL_SOCKET with the 8-byte value {u32 1, u32 0}: a close drops what the peer has not read yet. */
#define LOCAL_SOCKET_OPTION_LINGER 128

/*
 * Option at SOL_SOCKET with the 4-byte value 1, on a socket that will listen: its port can be bound again at
 * once after it was closed. A platform whose ports are free as soon as they are closed accepts and ignores
 * it.
 */
#define LOCAL_SOCKET_OPTION_REUSE 0x200

/* A local address. length is not looked at. */
typedef struct LOCAL_SOCKET_ADDR_S {
    uint8_t length;
    uint8_t family;   /* LOCAL_SOCKET_FAMILY */
    uint16_t port_be; /* network order */
    uint16_t node;    /* host order, LOCAL_SOCKET_NODE */
    uint8_t zero[10];
} LOCAL_SOCKET_ADDR_S;

#ifdef __cplusplus
static_assert(sizeof(LOCAL_SOCKET_ADDR_S) == 16, "a local address is 16 bytes");
#else
_Static_assert(sizeof(LOCAL_SOCKET_ADDR_S) == 16, "a local address is 16 bytes");
#endif

#endif
