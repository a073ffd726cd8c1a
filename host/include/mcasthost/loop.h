/*
 * Event loop of a daemon: an epoll instance whose registrations carry a handler. A loop is named by its epoll
 * descriptor, so that it can be given to whatever registers descriptors through epoll_ctl. That descriptor is
 * readable while something is ready: another event loop can hold this one and serve it with HOST_LoopRunOnce.
 * All functions are for the thread that runs the loop, except where stated.
 */
#ifndef MCASTHOST_LOOP_H
#define MCASTHOST_LOOP_H

#include <stdint.h>

#include "platform/timer.h"

#ifdef __cplusplus
extern "C" {
#endif

/* HOST_API marks what libmcasthost exports. */
#ifndef HOST_API
#define HOST_API __attribute__((visibility("default")))
#endif

/* The result of every HOST_ function that fails and has no other error code; errno holds the reason. */
#define HOST_FAILED 0x40010001u

/*
 * Called when a registered descriptor is ready, with the epoll event bits and the descriptor. It may
 * register, change and remove any descriptor, its own included, and close any of them; it may stop the loop,
 * but must neither run nor destroy it. The result is ignored.
 */
typedef uint64_t (*HOST_LOOP_HANDLER)(uint32_t events, int32_t fd);

/* Laid out as the kernel's struct epoll_event, which is packed on x86-64 alone. */
#if defined(__x86_64__)
#define HOST_LOOP_PACKED __attribute__((packed))
#define HOST_LOOP_RECORD_SIZE 20
#else
#define HOST_LOOP_PACKED
#define HOST_LOOP_RECORD_SIZE 24
#endif

/*
 * The record that epoll_ctl takes for a loop's descriptor with EPOLL_CTL_ADD and EPOLL_CTL_MOD, in place of a
 * struct epoll_event: fd is the descriptor again, context the HOST_LOOP_HANDLER as a number. A context of 0
 * is refused with EINVAL. With EPOLL_CTL_DEL the record is not looked at. Any thread may call epoll_ctl.
 */
typedef struct HOST_LOOP_PACKED HOST_LOOP_RECORD_S {
    uint32_t events;
    uint64_t fd;
    uint64_t context;
} HOST_LOOP_RECORD_S;

#ifdef __cplusplus
static_assert(sizeof(HOST_LOOP_RECORD_S) == HOST_LOOP_RECORD_SIZE, "an event and a context");
#else
_Static_assert(sizeof(HOST_LOOP_RECORD_S) == HOST_LOOP_RECORD_SIZE, "an event and a context");
#endif

/*
 * Creates a loop. Its close-on-exec epoll descriptor, or -1 with errno set. The descriptor belongs to the
 * loop: only HOST_LoopDestroy may close it. At most 64 loops may exist in a process (EMFILE).
 */
HOST_API int32_t HOST_LoopCreate(void);

/*
 * Runs handlers until HOST_LoopStop; one ready descriptor at a time, in turn, so that none can keep the
 * others or the timers waiting. 0 when stopped; HOST_FAILED for what is not a loop, for a loop that already
 * runs and for a failing epoll_wait. Interrupted waits are resumed. A stop that came before the call ends it
 * at once, before any handler; a stop ends one run only.
 */
HOST_API uint32_t HOST_LoopRun(int32_t loop);

/*
 * Waits at most timeout_ms milliseconds (0: not at all, negative: for ever) for one ready descriptor and runs
 * its handler. 1 when a handler ran, 0 when none did (nothing was ready, a signal came or the loop is being
 * stopped, which this call does not consume), negative on failure as above.
 */
HOST_API int32_t HOST_LoopRunOnce(int32_t loop, int32_t timeout_ms);

/*
 * Makes HOST_LoopRun return after the handler in progress. From any thread and from signal handlers. 0, or
 * HOST_FAILED for what is not a loop.
 */
HOST_API uint32_t HOST_LoopStop(int32_t loop);

/*
 * Ends a loop that is not running: its timers are deleted without their handlers being called and its epoll
 * descriptor is closed; the registered descriptors stay open. 0, or HOST_FAILED for what is not a loop or
 * runs.
 */
HOST_API uint32_t HOST_LoopDestroy(int32_t loop);

/* Registers a descriptor: epoll_ctl with EPOLL_CTL_ADD and a record. 0, or HOST_FAILED. From any thread. */
HOST_API uint32_t HOST_LoopAdd(int32_t loop, int32_t fd, uint32_t events, HOST_LOOP_HANDLER handler);

/* Changes a registration: epoll_ctl with EPOLL_CTL_MOD and a record. 0, or HOST_FAILED. From any thread. */
HOST_API uint32_t HOST_LoopModify(int32_t loop, int32_t fd, uint32_t events, HOST_LOOP_HANDLER handler);

/*
 * Ends a registration, which must happen before the descriptor is closed when it has been duplicated or
 * inherited. The handler is not called any more, also when the descriptor was already ready. 0, or
 * HOST_FAILED.
 */
HOST_API uint32_t HOST_LoopRemove(int32_t loop, int32_t fd);

/*
 * The timer service whose timers fire from this loop, for Timer_Create and its relatives. It lives as long as
 * the loop. NULL for what is not a loop. Beyond what the platform promises: a timer to be armed later is made
 * stopped, a stopped one cannot be armed, the state of an armed one is TIMER_STATE_ARM, one that has fired is
 * enabled, and those that are due fire in the order of their times. Timer_Create without a service, a handler
 * or a known kind gives TIMER_NONE.
 */
HOST_API TIMER_SERVICE HOST_LoopTimerService(int32_t loop);

#ifdef __cplusplus
}
#endif

#endif
