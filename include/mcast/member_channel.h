/*
 * The member channel: a daemon's second, simpler connection to the MRIB process, one for each address family.
 * Over it a daemon registers for classes of events and sends typed messages; what the MRIB sends is the
 * daemon's own to read from the socket. mcast/mrib_wire.h has the bytes of both directions.
 *
 * Messages are packed into datagrams of at most MBR_DATAGRAM_MAX bytes. A datagram waits until the caller
 * asks for a flush or its room is needed; datagrams leave oldest first, and one that the socket does not take
 * (send gives less than 1) stays with all newer ones until the next flush. A result of 1 or more counts as
 * the whole datagram. The first datagram that a flush sends becomes the empty one that is filled next; when
 * the flush stops before it has sent all, it is put behind those that wait. Nothing is ever lost but by
 * MBR_LIB_Fini.
 *
 * A family of MCAST_FAMILY_IPV6 means the IPv6 channel and any other the IPv4 channel; of a family only the
 * low byte counts. Nothing is locked: all calls for one family come from one thread. Sends are non-blocking
 * and no more: where local sockets raise SIGPIPE, the process ignores it.
 */
#ifndef MCAST_MEMBER_CHANNEL_H
#define MCAST_MEMBER_CHANNEL_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/* A datagram has at most this many bytes, its header and the headers of its messages included. */
#define MBR_DATAGRAM_MAX 1400u

/* The shortest payload that is refused. */
#define MBR_PAYLOAD_LIMIT 1384u

/* At most this many datagrams wait on a channel. */
#define MBR_BLOCK_MAX 1024u

/* The highest module number. */
#define MBR_MODULE_MAX 16u

/* A datagram that waits or is being filled; allocated and freed by the channel. */
typedef struct MBR_BLOCK_S {
    struct MBR_BLOCK_S *next;     /* the next older one */
    struct MBR_BLOCK_S *previous; /* the next newer one */
    uint32_t reserved;            /* always 0 */
    uint32_t used;                /* bytes of the datagram, its header included */
    uint8_t datagram[MBR_DATAGRAM_MAX];
} MBR_BLOCK_S;

MCAST_STATIC_ASSERT(sizeof(MBR_BLOCK_S) == 1424, "datagram block is 1424 bytes");
MCAST_STATIC_ASSERT(offsetof(MBR_BLOCK_S, used) == 20, "length follows the reserved word");
MCAST_STATIC_ASSERT(offsetof(MBR_BLOCK_S, datagram) == 24, "datagram comes last");

/* Datagrams in the order of their age; both pointers are NULL when there are none. */
typedef struct MBR_QUEUE_S {
    MBR_BLOCK_S *head; /* the newest, the one that is being filled */
    MBR_BLOCK_S *tail; /* the oldest, the next to be sent */
} MBR_QUEUE_S;

/*
 * A channel. The library holds one for each family; closed, socket and epoll are MCAST_NONE and everything
 * else is 0. Open, its queue always holds a datagram, and only the newest can be empty.
 */
typedef struct MBR_CHANNEL_S {
    uint32_t socket;      /* MCAST_NONE when closed */
    uint8_t family;       /* MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6; 0 when closed */
    uint8_t module;       /* the caller's number, in the header of every datagram */
    uint32_t epoll;       /* the set that holds the socket; MCAST_NONE when closed */
    uint64_t events;      /* the event mask that is registered */
    uint64_t block_count; /* datagrams in the queue */
    MBR_QUEUE_S queue;
} MBR_CHANNEL_S;

MCAST_STATIC_ASSERT(sizeof(MBR_CHANNEL_S) == 48, "channel record is 48 bytes");
MCAST_STATIC_ASSERT(offsetof(MBR_CHANNEL_S, family) == 4, "family follows the socket");
MCAST_STATIC_ASSERT(offsetof(MBR_CHANNEL_S, epoll) == 8, "epoll set follows the module");
MCAST_STATIC_ASSERT(offsetof(MBR_CHANNEL_S, events) == 16, "event mask follows the epoll set");
MCAST_STATIC_ASSERT(offsetof(MBR_CHANNEL_S, queue) == 32, "queue comes last");

/* What went wrong, counted over both channels since the process started. */
typedef struct MBR_LIB_STAT_S {
    uint32_t send_failures; /* datagrams that the socket did not take, each try counted */
    uint32_t refused;       /* messages refused: too long, or no datagram to be had for them */
} MBR_LIB_STAT_S;

MCAST_STATIC_ASSERT(sizeof(MBR_LIB_STAT_S) == 8, "statistics are two counters");

/* Written by the threads that send, each counter in one step. */
MCAST_API extern MBR_LIB_STAT_S g_stMbrLibStat;

/*
 * Connects the family's channel to the MRIB on this node and registers its socket in the set epoll_fd for
 * EPOLLIN with context (MCAST_AddEpoll, whose result does not matter). The socket, which the channel owns; if
 * the channel is open already, the socket that it has, and nothing else happens. In this order the arguments
 * are checked, the socket made, connected (EISCONN counts as connected; a connect that a signal interrupts is
 * not repeated and fails) and given option 128 (LOCAL_SOCKET_OPTION_LINGER, whose result does not matter),
 * the first datagram allocated and the socket registered. MCAST_NONE with nothing opened: family is neither
 * MCAST_FAMILY_IPV4 nor MCAST_FAMILY_IPV6, module is above MBR_MODULE_MAX, epoll_fd is MCAST_NONE, context is
 * 0, memory is short, or the socket cannot be made or connected.
 */
MCAST_API uint32_t MBR_LIB_Init(uint32_t family, uint32_t module, uint32_t epoll_fd, uint64_t context);

/* MCAST_TRUE while the family's channel is open. */
MCAST_API MCAST_BOOL MBR_LIB_IsAlreadyReg(uint32_t family);

/*
 * Appends a message of the type with length bytes at payload, in host order and the caller's afterwards, and
 * flushes when flush is 1. A length of 0 appends nothing, so that with flush 1 what waits is sent; payload
 * may then be NULL. MCAST_OK, or
 *
 *   MCAST_ERR_NOT_INIT   the channel is not open; checked before everything else
 *   MCAST_ERR_NO_BLOCK   refused and counted: length is MBR_PAYLOAD_LIMIT or more, MBR_BLOCK_MAX datagrams
 *                        wait and the socket takes none, or memory is short
 *   MCAST_ERR_GENERAL    payload is NULL with a length
 *   MCAST_ERR_STOPPED    appended, but not everything that waits could be sent
 *
 * A refused message is refused whole; what waits stays as it is.
 */
MCAST_API MCAST_STATUS MBR_LIB_SendMsg(uint32_t family, uint16_t type, uint16_t length, const void *payload,
                                       uint16_t flush);

/*
 * Adds the classes of events, MRIB_CAP_VRF and so on, to those that the family's channel is registered for,
 * and tells the MRIB at once when that changes any. MCAST_OK; MCAST_ERR_GENERAL when the channel is closed or
 * the MRIB could not be told. The registration then counts as it was before, while a message that was
 * appended is sent with the next flush all the same; so ask again.
 */
MCAST_API MCAST_STATUS MBR_LIB_RegEvt(uint32_t family, uint64_t events);

/* Takes the classes of events out of the registration. Otherwise as MBR_LIB_RegEvt. */
MCAST_API MCAST_STATUS MBR_LIB_DeRegEvt(uint32_t family, uint64_t events);

/*
 * Registers the channel for exactly the classes of events in mask with a message of the type,
 * MRIB_TLV_REGISTER the first time and MRIB_TLV_CHANGE_EVENTS later; the step that MBR_LIB_RegEvt and
 * MBR_LIB_DeRegEvt share. Nothing is sent when mask is what is registered. Results as MBR_LIB_RegEvt, and
 * MCAST_ERR_GENERAL for NULL.
 */
MCAST_API MCAST_STATUS MbrLib_RegFinalEvt(MBR_CHANNEL_S *channel, uint16_t type, uint64_t mask);

/*
 * Takes the socket of the family's channel out of its epoll set, closes it and frees what waits, unsent.
 * Nothing happens when the channel is closed.
 */
MCAST_API void MBR_LIB_Fini(uint32_t family);

MCAST_EXTERN_C_END

#endif
