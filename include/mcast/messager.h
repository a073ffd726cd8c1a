/*
 * A messager batches small messages for one peer into packets. Each packet begins with a header area that the
 * owner keeps through callbacks; what the send function does not take waits in a queue of pending blocks and
 * is tried again, in order, before anything newer.
 *
 * One messager serves one peer. Messager_Send, Messager_Announce and Messager_Fini hold the messager's lock
 * for their whole run, callbacks included, so callbacks must not call into the same messager;
 * Messager_GetDataLen and Messager_Clear take no lock.
 */
#ifndef MCAST_MESSAGER_H
#define MCAST_MESSAGER_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"
#include "mcast/lock.h"

MCAST_EXTERN_C_BEGIN

/*
 * What happens to a packet that the send function did not take whole. Any other value counts as KEEP_PACKET.
 */
#define MESSAGER_KEEP_TAIL 0u   /* exactly the unsent bytes wait */
#define MESSAGER_KEEP_PACKET 1u /* the whole packet waits */
#define MESSAGER_DROP 2u        /* it is dropped */

/* A packet is sent once it holds more bytes than this, its header area included. */
#define MESSAGER_SEND_ABOVE 1199u

/* Called after a message was appended: buffer is the packet's start, length the message's. Under the lock. */
typedef void (*MESSAGER_ON_APPEND)(void *buffer, uint64_t length);

/* Called when the packet starts over, to write a fresh header at buffer. Under the lock, if one is held. */
typedef void (*MESSAGER_ON_RESET)(void *buffer);

/*
 * Sends length bytes to the peer. 0 when all were taken; otherwise a failure code of the owner's, with the
 * number of bytes that were taken all the same in *sent, which is 0 on entry and never above length. Under
 * the lock.
 */
typedef uint64_t (*MESSAGER_SEND)(uint32_t peer, const void *data, uint64_t length, uint64_t *sent);

/* The three callbacks; on_append and on_reset may be NULL. */
typedef struct MESSAGER_CALLBACKS_S {
    MESSAGER_ON_APPEND on_append;
    MESSAGER_ON_RESET on_reset;
    MESSAGER_SEND send;
} MESSAGER_CALLBACKS_S;

MCAST_STATIC_ASSERT(sizeof(MESSAGER_CALLBACKS_S) == 24, "callbacks are three pointers");

/* Bytes that wait to be sent, owned by the messager. */
typedef struct MESSAGER_BLOCK_S {
    struct MESSAGER_BLOCK_S *next;
    uint8_t *storage; /* the bytes as they were queued */
    uint8_t *current; /* the first byte of them not yet sent */
    uint64_t length;  /* bytes from current to the end */
} MESSAGER_BLOCK_S;

MCAST_STATIC_ASSERT(sizeof(MESSAGER_BLOCK_S) == 32, "pending block is 32 bytes");

/*
 * A messager, allocated by Messager_Init and freed by Messager_Fini; lock guards every field. used is reserve
 * plus the messages appended since the packet started over, and free is capacity less used.
 */
typedef struct MESSAGER_S {
    MCAST_MUTEX_S lock;
    uint32_t peer;                  /* the owner's handle, passed to send */
    uint8_t *buffer;                /* the packet, capacity bytes */
    uint64_t capacity;              /* bytes */
    uint64_t free;                  /* bytes of the packet still free */
    uint64_t used;                  /* bytes in the packet, its header area included */
    uint64_t reserve;               /* bytes of the header area */
    uint64_t mode;                  /* MESSAGER_KEEP_TAIL and so on */
    uint64_t max_pending;           /* pending blocks at which new messages are refused */
    MESSAGER_BLOCK_S *pending_head; /* oldest first */
    MESSAGER_BLOCK_S *pending_tail;
    uint64_t pending_count;
    MESSAGER_ON_APPEND on_append;
    MESSAGER_ON_RESET on_reset;
    MESSAGER_SEND send;
} MESSAGER_S;

MCAST_STATIC_ASSERT(offsetof(MESSAGER_S, peer) == sizeof(MCAST_MUTEX_S), "peer follows the lock");
MCAST_STATIC_ASSERT(offsetof(MESSAGER_S, buffer) == sizeof(MCAST_MUTEX_S) + 8, "buffer follows the peer");
MCAST_STATIC_ASSERT(offsetof(MESSAGER_S, mode) == sizeof(MCAST_MUTEX_S) + 48, "mode follows the sizes");
MCAST_STATIC_ASSERT(offsetof(MESSAGER_S, pending_head) == sizeof(MCAST_MUTEX_S) + 64,
                    "queue follows its limit");
MCAST_STATIC_ASSERT(offsetof(MESSAGER_S, send) == sizeof(MCAST_MUTEX_S) + 104, "send comes last");
MCAST_STATIC_ASSERT(sizeof(MESSAGER_S) == sizeof(MCAST_MUTEX_S) + 112, "messager record");

/*
 * Makes a messager for peer with a zeroed packet of capacity bytes, of which the first reserve are the header
 * area; calls on_reset. A packet is sent once it passes MESSAGER_SEND_ABOVE bytes, so capacity should hold
 * those and one more message. max_pending is the number of pending blocks at which messages are refused.
 * callbacks is copied. The caller owns the messager and ends it with Messager_Fini. NULL when memory is
 * short, callbacks or its send is NULL, or reserve is above capacity.
 */
MCAST_API MESSAGER_S *Messager_Init(uint32_t peer, uint64_t capacity, uint64_t reserve, uint64_t mode,
                                    uint64_t max_pending, const MESSAGER_CALLBACKS_S *callbacks);

/*
 * Appends length bytes at data, which stay the caller's, and sends the packet when flush_now is MCAST_TRUE or
 * the packet passes MESSAGER_SEND_ABOVE bytes. A message that does not fit starts a new packet: while blocks
 * wait, the old packet goes whole to the end of the queue, as the mode says, and then all is sent as far as
 * it goes; else the old packet is sent, and what was not taken waits as the mode says. When there is no
 * memory for a block, what it was to hold is lost, and the message is accepted all the same. MCAST_OK when
 * the message was accepted, whatever became of sending; MCAST_ERR_GENERAL, with nothing changed, when
 * max_pending blocks wait, data is NULL with a length, or the message is longer than a packet can ever hold.
 * A NULL messager gives MCAST_OK. Any thread; takes the lock.
 */
MCAST_API MCAST_STATUS Messager_Send(MESSAGER_S *messager, const void *data, uint16_t length,
                                     MCAST_BOOL flush_now);

/*
 * Sends what is pending and then the packet, stopping at the first failure. A pending block of which a part
 * was taken keeps the rest in mode MESSAGER_KEEP_TAIL and stays whole in the others. A packet that holds no
 * message is not sent. 0, or the code with which the send function failed. A NULL messager gives 0. Any
 * thread; takes the lock.
 */
MCAST_API uint64_t Messager_Announce(MESSAGER_S *messager);

/*
 * Bytes in the packet, its header area included, and in all pending blocks; 0 for NULL. Takes no lock: exact
 * only while no other thread uses the messager. Linear in the pending blocks.
 */
MCAST_API uint64_t Messager_GetDataLen(const MESSAGER_S *messager);

/*
 * Frees all pending blocks and starts the packet over, calling on_reset. MCAST_OK, also for NULL. Takes no
 * lock: only while no other thread uses the messager.
 */
MCAST_API MCAST_STATUS Messager_Clear(MESSAGER_S *messager);

/*
 * Frees the messager with everything in it, unsent. NULL is ignored. No thread may use it during the call or
 * afterwards; not from a callback.
 */
MCAST_API void Messager_Fini(MESSAGER_S *messager);

MCAST_EXTERN_C_END

#endif
