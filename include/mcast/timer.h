/*
 * One-shot software timers, any number of them, multiplexed onto one platform timer. The manager keeps the
 * timers in a min-heap by expiry and the platform timer armed for the earliest. When the platform timer
 * fires, its handler makes the daemon call MCAST_TMR_ProcExpires, which runs the callbacks of everything due.
 *
 * Time is whole seconds since boot, the first output of TIME_GetSystemBootTime.
 *
 * To arm the platform timer for an expiry the manager reads its attributes (a failure ends the arming with
 * the platform's code), then the time, enables the timer when its state is 0 (a failure ends the arming), and
 * arms it with the milliseconds up to the expiry. What is due already is armed for 1000 ms. A distance of
 * more than 4294966 seconds is passed as it is, not multiplied: the platform timer then fires early and
 * processing arms it again.
 *
 * Nothing locks: a manager and its timers belong to the thread that runs
 * the daemon's event loop, and callbacks run on that thread inside MCAST_TMR_ProcExpires.
 */
#ifndef MCAST_TIMER_H
#define MCAST_TIMER_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"
#include "mcast/heap.h"
#include "platform/timer.h"

MCAST_EXTERN_C_BEGIN

/*
 * A timer manager, allocated by MCAST_TMR_Create and freed by MCAST_TMR_Destroy. Readable by its owner,
 * written only by the functions below.
 */
typedef struct MCAST_TMR_S {
    TIMER_SERVICE service;  /* the platform's timer service given at creation */
    MCAST_MINHEAP_S *heap;  /* of MCAST_TMR_NODE_S, by expiry */
    TIMER_ID timer;         /* the platform timer, TIMER_NONE when there is none */
    uint64_t parameters[4]; /* as given at creation */
} MCAST_TMR_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_TMR_S) == 56, "manager record is 56 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_S, service) == 0, "service comes first");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_S, heap) == 8, "heap follows service");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_S, timer) == 16, "timer follows heap");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_S, parameters) == 24, "parameters follow timer");

/*
 * Called when a timer expires, with the timer's own four data words; they are valid only during the call.
 * May add, refresh and delete timers of the same manager; must not destroy the manager. Its own timer is
 * already out of the manager and is freed as soon as the callback returns: deleting or refreshing it from
 * here changes nothing.
 */
typedef void (*MCAST_TMR_CALLBACK)(uint64_t data[4]);

/*
 * A timer, allocated by MCAST_TMR_AddNode. It lives until its callback has returned or until
 * MCAST_TMR_DeleteNode, whichever is first; after that the pointer is dead and must not be used.
 */
typedef struct MCAST_TMR_NODE_S {
    uint64_t position;           /* in the manager's heap, from 1 */
    uint32_t expiry;             /* seconds since boot at which the timer is due */
    MCAST_TMR_CALLBACK callback; /* NULL: nothing is called */
    uint64_t data[4];            /* the caller's */
} MCAST_TMR_NODE_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_TMR_NODE_S) == 56, "timer record is 56 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_NODE_S, position) == 0, "position comes first");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_NODE_S, expiry) == 8, "expiry follows position");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_NODE_S, callback) == 16, "callback follows expiry");
MCAST_STATIC_ASSERT(offsetof(MCAST_TMR_NODE_S, data) == 24, "data follows callback");

/*
 * Creates a manager without timers and its platform timer, stopped. service and handler must not be NULL;
 * parameters points at four words that are copied, or is NULL for zeroes, and is what the platform hands to
 * handler. handler is called on the service's thread when the platform timer fires and is expected to have
 * MCAST_TMR_ProcExpires called. The caller owns the manager and ends it with MCAST_TMR_Destroy. NULL when an
 * argument is missing, memory is short or the platform timer cannot be made or stopped; nothing is left over
 * then.
 */
MCAST_API MCAST_TMR_S *MCAST_TMR_Create(TIMER_SERVICE service, TIMER_HANDLER handler,
                                        const uint64_t parameters[4]);

/*
 * Deletes the platform timer, frees every pending timer without calling its callback, and frees the manager.
 * NULL is ignored. Not from a timer's callback. Linear in the pending timers.
 */
MCAST_API void MCAST_TMR_Destroy(MCAST_TMR_S *manager);

/*
 * Adds a timer that is due seconds from now, at 0xFFFFFFFF seconds since boot at the latest. callback may be
 * NULL; data points at four words that are copied, or is NULL for zeroes. When the earliest expiry changes,
 * counting an empty manager's as 0xFFFFFFFF, the platform timer is re-armed; a failure of that is not
 * reported and the next add, refresh or processing tries again, whatever timer it is about. The manager owns
 * the timer; the pointer serves MCAST_TMR_RefreshNode and MCAST_TMR_DeleteNode. NULL when manager is NULL or
 * memory is short. May be called from a timer's callback; a timer that is already due then runs in the same
 * processing. Logarithmic.
 */
MCAST_API MCAST_TMR_NODE_S *MCAST_TMR_AddNode(MCAST_TMR_S *manager, uint32_t seconds,
                                              MCAST_TMR_CALLBACK callback, const uint64_t data[4]);

/*
 * Makes a pending timer due seconds from now instead, at 0xFFFFFFFF at the latest. The platform timer is
 * re-armed only when the earliest expiry became earlier or the last attempt to arm it failed; when the
 * earliest expiry became later the platform timer fires early and processing re-arms it. A callback's own
 * timer is no longer pending: its expiry is written, nothing else happens, and the result is MCAST_OK unless
 * a failed arming is tried again. MCAST_OK; MCAST_ERR_GENERAL when manager or node is NULL; or the platform's
 * own code from re-arming, with the timer refreshed all the same. May be called from a timer's callback.
 * Logarithmic; never allocates.
 */
MCAST_API MCAST_STATUS MCAST_TMR_RefreshNode(MCAST_TMR_S *manager, MCAST_TMR_NODE_S *node, uint32_t seconds);

/*
 * Takes a pending timer out and frees it; the platform timer stays as it is. NULL arguments are ignored. May
 * be called from a timer's callback for any other timer, and is ignored for the callback's own. A timer whose
 * callback has returned is freed already and must not be deleted. Logarithmic.
 */
MCAST_API void MCAST_TMR_DeleteNode(MCAST_TMR_S *manager, MCAST_TMR_NODE_S *node);

/*
 * Stops the platform timer, whatever that results in, and reads the time once; then runs every timer due at
 * that time, earliest first, each taken out before its callback and freed after it. Timers that a callback
 * adds and that are due at that time run too, so a callback that always adds a timer of 0 seconds never lets
 * the call end. A callback may call MCAST_TMR_ProcExpires for its own manager: the timers due by then run
 * inside, and both calls arm for what remains. Re-arms the platform timer for the next expiry, or leaves it
 * stopped when no timer remains. MCAST_OK; MCAST_ERR_GENERAL when manager is NULL; or the platform's own code
 * from re-arming. Logarithmic per due timer.
 */
MCAST_API MCAST_STATUS MCAST_TMR_ProcExpires(MCAST_TMR_S *manager);

/*
 * Copies the four words given at creation to out. MCAST_OK, or MCAST_ERR_GENERAL when either pointer is NULL.
 */
MCAST_API MCAST_STATUS MCAST_TMR_GetParam(const MCAST_TMR_S *manager, uint64_t out[4]);

MCAST_EXTERN_C_END

#endif
