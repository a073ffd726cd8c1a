/*
 * What the forwarding plane of a stock machine can lack. The control call that starts multicast forwarding
 * (CIOCTL with CIOCTL_START_MULTICAST_THREADS) gives, when something is missing, HOST_FAILED together with
 * the bits below, and the bits alone in *status. The results of several nodes can be OR-ed.
 */
#ifndef MCASTHOST_DEVICE_H
#define MCASTHOST_DEVICE_H

#include <stddef.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The node is up, but another machine, and there is no way to it from here. */
#define HOST_FORWARDING_ELSEWHERE 0x80u

/* The kernel has no multicast routing of the family. */
#define HOST_FORWARDING_NO_IPV4 0x100u
#define HOST_FORWARDING_NO_IPV6 0x1000u

/* The process may not use it: that takes CAP_NET_RAW in the user namespace of the network namespace. */
#define HOST_FORWARDING_DENIED_IPV4 0x200u
#define HOST_FORWARDING_DENIED_IPV6 0x2000u

/* The kernel could not be asked, for want of descriptors or memory. */
#define HOST_FORWARDING_UNKNOWN_IPV4 0x400u
#define HOST_FORWARDING_UNKNOWN_IPV6 0x4000u

/* A size that holds every text of HOST_ForwardingText. */
#define HOST_FORWARDING_TEXT_SIZE 512

/*
 * Says in one line what the result of the control call means, empty for 0, with what helps: at most size
 * bytes with the terminator. text may be NULL when size is 0. The length of the whole text. Any thread.
 */
HOST_API size_t HOST_ForwardingText(uint32_t result, char *text, size_t size);

#ifdef __cplusplus
}
#endif

#endif
