/*
 * Unicast routes: which interface and next hop the kernel would use towards an address, and word when the
 * answer may have changed. For reverse-path checks.
 */
#ifndef MCASTHOST_ROUTE_H
#define MCASTHOST_ROUTE_H

#include <stdint.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The answer to a look-up. */
typedef struct HOST_ROUTE_S {
    uint32_t if_index;      /* the interface towards the address */
    uint8_t family;         /* AF_INET or AF_INET6, as asked */
    uint8_t gateway_family; /* 0: the address is on the link; else AF_INET or AF_INET6 */
    uint8_t is_local;       /* 1 when the address is this machine's own; if_index is then the loopback's */
    uint8_t prefix_length;  /* of HOST_RouteLookupOn: bits of the route's prefix; otherwise 0 */
    uint8_t gateway[16];    /* network order; IPv4 in the first four bytes; zero when there is none */
    uint8_t source_address[16]; /* what the kernel would send from; zero when it names none */
    uint32_t metric;            /* of HOST_RouteLookupOn: among routes of a length the least is best */
} HOST_ROUTE_S;

/*
 * Looks up the unicast route to an address in the calling thread's network namespace. family is AF_INET or
 * AF_INET6 and address its 4 or 16 bytes in network order. vrf_if_index is the index of the VRF device whose
 * table is asked; 0 for the main instance. Fills *route. 0; HOST_FAILED when there is no usable route (errno
 * ENETUNREACH, EHOSTUNREACH or EACCES), when the address is not a unicast address (EINVAL) or when the
 * look-up itself failed; *route is then untouched. From any thread. It opens a socket for each call: who asks
 * often opens a HOST_ROUTE_LOOKUP.
 */
HOST_API uint32_t HOST_RouteLookup(uint8_t family, const uint8_t *address, uint32_t vrf_if_index,
                                   HOST_ROUTE_S *route);

/* A way to look up many routes; NULL means none. */
typedef struct HOST_ROUTE_LOOKUP_S *HOST_ROUTE_LOOKUP;

/*
 * Opens a way to look up routes in the calling thread's network namespace. NULL on failure with errno set.
 */
HOST_API HOST_ROUTE_LOOKUP HOST_RouteLookupOpen(void);

/*
 * HOST_RouteLookup in the namespace in which lookup was opened, wherever the calling thread is now, in two
 * system calls of a few microseconds. From any thread, but from one at a time. In a child of a fork the first
 * call opens the child's own socket, in the calling thread's namespace. lookup NULL is EINVAL.
 */
HOST_API uint32_t HOST_RouteLookupAsk(HOST_ROUTE_LOOKUP lookup, uint8_t family, const uint8_t *address,
                                      uint32_t vrf_if_index, HOST_ROUTE_S *route);

/*
 * The same for the route that is best among those which leave by the interface if_index: for an instance that
 * has interfaces of its own and no VRF device. route->if_index is if_index; there is no gateway when the
 * route has several next hops. if_index 0 is EINVAL.
 */
HOST_API uint32_t HOST_RouteLookupOn(HOST_ROUTE_LOOKUP lookup, uint8_t family, const uint8_t *address,
                                     uint32_t if_index, HOST_ROUTE_S *route);

/* Ends it. NULL is ignored. */
HOST_API void HOST_RouteLookupClose(HOST_ROUTE_LOOKUP lookup);

/* A watch on route changes; NULL means none. */
typedef struct HOST_ROUTE_WATCH_S *HOST_ROUTE_WATCH;

/*
 * A change. family 0: anything may have changed in both families (an interface went up or down, an address,
 * a rule or a next hop changed, or notifications were lost); every answer should be asked again.
 */
typedef struct HOST_ROUTE_CHANGE_S {
    uint8_t family;        /* AF_INET, AF_INET6 or 0 */
    uint8_t prefix_length; /* bits; only routes to addresses under the prefix may have changed */
    uint8_t prefix[16];    /* network order; IPv4 in the first four bytes */
    uint32_t table;        /* the kernel's routing table */
} HOST_ROUTE_CHANGE_S;

/* Told of changes after they took effect. It may look up routes and close the watch. */
typedef void (*HOST_ROUTE_CALLBACK)(const HOST_ROUTE_CHANGE_S *change, void *context);

/*
 * Watches the routes of the calling thread's network namespace from the loop, on the loop's thread. One
 * wake-up reports at most one change of family 0, and with it no other. callback is not NULL. NULL on failure
 * with errno set.
 */
HOST_API HOST_ROUTE_WATCH HOST_RouteWatchOpen(int32_t loop, HOST_ROUTE_CALLBACK callback, void *context);

/* Ends the watch, before its loop is destroyed; also from its callback. NULL is ignored. */
HOST_API void HOST_RouteWatchClose(HOST_ROUTE_WATCH watch);

#ifdef __cplusplus
}
#endif

#endif
