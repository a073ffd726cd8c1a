/*
 * Link table: the network interfaces of the network namespace and their addresses, kept current by the
 * kernel's notifications, which arrive in an event loop. Everything here is for the thread that runs that
 * loop.
 */
#ifndef MCASTHOST_LINK_H
#define MCASTHOST_LINK_H

#include <stdint.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A link table; NULL means none. */
typedef struct HOST_LINK_TABLE_S *HOST_LINK_TABLE;

/* Flags of a link. RUNNING: the link can carry traffic (administratively up and with a carrier). */
#define HOST_LINK_UP 0x01u
#define HOST_LINK_RUNNING 0x02u
#define HOST_LINK_MULTICAST 0x04u
#define HOST_LINK_LOOPBACK 0x08u
#define HOST_LINK_POINTTOPOINT 0x10u
#define HOST_LINK_BROADCAST 0x20u

/* A link. Filled into the caller's record; nothing in it needs to be freed. */
typedef struct HOST_LINK_S {
    uint32_t if_index;
    uint32_t flags;        /* HOST_LINK_ bits */
    uint32_t mtu;          /* bytes */
    uint32_t master_index; /* the bridge, bond or VRF device it belongs to; 0 when none */
    char name[16];
    char kind[16]; /* the kernel's name for what the device is, for example "veth" or "vrf"; may be empty */
    uint32_t vrf_table; /* of a VRF device: its routing table; otherwise 0 */
} HOST_LINK_S;

/*
 * Flags of an address. SECONDARY: IPv4, not the first of its subnet. TENTATIVE: not usable as a source yet.
 */
#define HOST_ADDRESS_SECONDARY 0x1u
#define HOST_ADDRESS_TENTATIVE 0x2u
#define HOST_ADDRESS_LINK_LOCAL 0x4u

/* An address of a link. */
typedef struct HOST_ADDRESS_S {
    uint32_t if_index;
    uint8_t family;        /* AF_INET or AF_INET6 */
    uint8_t prefix_length; /* bits */
    uint16_t flags;        /* HOST_ADDRESS_ bits */
    uint8_t address[16];   /* network order; IPv4 in the first four bytes, the rest zero */
    uint8_t peer[16];      /* the other end of a point-to-point link; otherwise the address again */
} HOST_ADDRESS_S;

/* What happened. */
#define HOST_LINK_EVENT_ADDED 1u
#define HOST_LINK_EVENT_CHANGED 2u /* flags, MTU, master, kind or routing table */
#define HOST_LINK_EVENT_RENAMED 3u /* reported before a CHANGED of the same moment */
#define HOST_LINK_EVENT_REMOVED 4u /* after an ADDRESS_REMOVED for each of its addresses */
#define HOST_LINK_EVENT_ADDRESS_ADDED 5u
#define HOST_LINK_EVENT_ADDRESS_CHANGED 6u /* flags; IPv6: also peer and prefix length */
#define HOST_LINK_EVENT_ADDRESS_REMOVED 7u

/* An event, valid during the callback. */
typedef struct HOST_LINK_EVENT_S {
    uint32_t kind;
    const HOST_LINK_S *link;       /* the new state; when REMOVED the last one */
    const HOST_LINK_S *old_link;   /* for CHANGED and RENAMED the state before, otherwise NULL */
    const HOST_ADDRESS_S *address; /* for ADDRESS_ events, otherwise NULL */
} HOST_LINK_EVENT_S;

/* Told of every change after the table shows it. It may query the table and close it. */
typedef void (*HOST_LINK_CALLBACK)(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context);

/*
 * Opens the link table of the calling thread's network namespace and registers it with the loop. What exists
 * is reported as ADDED and ADDRESS_ADDED before the call returns; the table passed to those callbacks is the
 * one that will be returned and must not be closed by them. callback may be NULL. When notifications are lost
 * the table reads everything again and reports the differences. NULL on failure with errno set.
 */
HOST_API HOST_LINK_TABLE HOST_LinkOpen(int32_t loop, HOST_LINK_CALLBACK callback, void *context);

/* Closes the table, before its loop is destroyed; also from its callback. NULL is ignored. */
HOST_API void HOST_LinkClose(HOST_LINK_TABLE table);

/* Fills *link for the interface index. 0, or HOST_FAILED when there is none (*link is untouched). */
HOST_API uint32_t HOST_LinkGetByIndex(HOST_LINK_TABLE table, uint32_t if_index, HOST_LINK_S *link);

/*
 * Fills *link for the name. 0, or HOST_FAILED when there is none (*link is untouched). Linear in the links.
 */
HOST_API uint32_t HOST_LinkGetByName(HOST_LINK_TABLE table, const char *name, HOST_LINK_S *link);

/*
 * Fills *link for the lowest interface index above after (0: the first); after need not exist. 0, or
 * HOST_FAILED at the end (*link is untouched).
 */
HOST_API uint32_t HOST_LinkGetNext(HOST_LINK_TABLE table, uint32_t after, HOST_LINK_S *link);

/*
 * Fills *address with the link's address number position, counted from 0 in the order of their arrival. 0, or
 * HOST_FAILED past the last (*address is untouched).
 */
HOST_API uint32_t HOST_LinkGetAddress(HOST_LINK_TABLE table, uint32_t if_index, uint32_t position,
                                      HOST_ADDRESS_S *address);

/*
 * Fills *address with what a routing daemon sends from on this link: for AF_INET the first address that is
 * not secondary, for AF_INET6 the first link-local address that is not tentative. 0, or HOST_FAILED when
 * there is none (*address is untouched).
 */
HOST_API uint32_t HOST_LinkGetSourceAddress(HOST_LINK_TABLE table, uint32_t if_index, uint8_t family,
                                            HOST_ADDRESS_S *address);

/* How often notifications were lost and the table was read again. */
HOST_API uint64_t HOST_LinkResyncCount(HOST_LINK_TABLE table);

#ifdef __cplusplus
}
#endif

#endif
