/*
 * Starting up on a router of several nodes: the kernel's multicast forwarding threads, the daemons on this
 * node and on the standby nodes, the connection to another daemon, and look-up of VPN instances.
 *
 * Everything runs on the calling thread and blocks; it is meant for start-up and configuration, not for an
 * event loop. The functions keep no state, take no lock and may be called from any thread. A status of a
 * platform call is handed on as it is; several are OR-ed, so that it is 0 when all of them were.
 */
#ifndef MCAST_SERVICE_H
#define MCAST_SERVICE_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

struct sockaddr;

/* A daemon on this node that can be connected to. The caller owns it; it is only read. */
typedef struct MCAST_APP_ENDPOINT_S {
    uint64_t service;         /* the platform's identifier of the daemon */
    uint16_t port;            /* its local port, host order */
    uint16_t start_if_absent; /* 1: start the daemon when the connection fails; anything else: do not */
} MCAST_APP_ENDPOINT_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_APP_ENDPOINT_S) == 16, "an endpoint is 16 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_APP_ENDPOINT_S, port) == 8, "the port follows the service");
MCAST_STATIC_ASSERT(offsetof(MCAST_APP_ENDPOINT_S, start_if_absent) == 10, "the flag follows the port");

/* How often MCAST_Connect2APP tries, and how long it waits after a try that failed. */
#define MCAST_APP_ATTEMPTS 5u
#define MCAST_APP_WAIT_US 200000u

/* ---- Forwarding threads ---- */

/* Starts the kernel's multicast forwarding threads on a node. The result of the control call. */
MCAST_API MCAST_STATUS MCAST_StartSpecifyKernelThread(uint16_t node);

/*
 * Starts them on the system master first and then on every other node that is up, in the platform's order:
 * all nodes are asked whether they are up before the second is started. The master is not tried again; a node
 * that the platform lists twice is tried twice. One that fails keeps no other from being tried. The OR of the
 * results; or MCAST_ERR_GENERAL, with the master's threads tried, when the nodes cannot be had, are none, or
 * there is no memory for them.
 */
MCAST_API MCAST_STATUS MCAST_StartAllKernelThread(void);

/* MCAST_StartAllKernelThread on the system master; on another node, its own threads alone. Their result. */
MCAST_API MCAST_STATUS MCAST_StartKernelThread(void);

/* ---- Services ---- */

/*
 * Starts the service on every standby node where it is absent or stopped; a node whose state cannot be had is
 * left alone. The OR of the results of the starts, MCAST_ERR_NOTHING_DONE counting as 0; 0 when there are no
 * standby nodes.
 */
MCAST_API MCAST_STATUS MCAST_StartSlaveService(uint64_t service);

/*
 * connect that a signal does not interrupt and for which a connected socket is connected: 0; or the result
 * of connect, -1, with its errno. addr holds addr_len bytes.
 */
MCAST_API int MCAST_Connect(int fd, const struct sockaddr *addr, uint32_t addr_len);

/*
 * A blocking local socket connected to the daemon; the caller owns and closes it. The address that is
 * connected to has 16 in its first byte; on the connected socket option 128 (LOCAL_SOCKET_OPTION_LINGER) is
 * set, and whether that succeeds does not matter. When the endpoint says so a daemon that does not answer is
 * started, here and on the standby nodes, unless its state on this node is known and neither absent nor
 * stopped: then it is there but not ready. Then the connection is tried again, MCAST_APP_ATTEMPTS times in
 * all, with a wait of MCAST_APP_WAIT_US after each, which signals do not shorten. So the call takes up to a
 * second; without leave to start it tries once and does not wait.
 *
 * A negative value when there is no socket (socket's own result) or no connection (-1, with the errno of the
 * last try; what was started stays so), or endpoint is NULL.
 */
MCAST_API int MCAST_Connect2APP(const MCAST_APP_ENDPOINT_S *endpoint);

/* ---- VPN instances ---- */

/*
 * The instance that the interface belongs to, in *vrf_out: MCAST_OK; or MCAST_ERR_GENERAL with *vrf_out
 * untouched when the platform does not know it or vrf_out is NULL.
 */
MCAST_API MCAST_STATUS MCAST_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_out);

/* Whether the instance exists. Of vrf_index the low 16 bits count; 0, the public instance, always exists. */
MCAST_API MCAST_BOOL MCAST_VrfIsExist(uint32_t vrf_index);

MCAST_EXTERN_C_END

#endif
