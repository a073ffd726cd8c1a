/*
 * Descriptors, signals and timers for a daemon's event loop: the epoll set and what is registered in it, plus
 * the kernel thread id and a bounded random number.
 *
 * The functions keep no state, take no lock and may be called from any thread; two of them act on the calling
 * thread and say so. None retries or logs. On failure errno is as the failing call set it, nothing stays
 * registered, and every descriptor or timer made on the way is gone. Descriptors are 32-bit values with
 * MCAST_NONE for none.
 */
#ifndef MCAST_EVENT_H
#define MCAST_EVENT_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/* The kernel's struct epoll_event is packed on x86-64 alone. */
#if defined(__x86_64__)
#define MCAST_EPOLL_PACKED __attribute__((packed))
#define MCAST_EPOLL_FD_OFFSET 4
#else
#define MCAST_EPOLL_PACKED
#define MCAST_EPOLL_FD_OFFSET 8
#endif

/*
 * What a registration hands to epoll_ctl: a struct epoll_event as the machine's kernel has it, and the context
 * behind it. The kernel reads the event alone, so epoll_wait reports the descriptor number as the event's data
 * and the loop finds the context by it, in a map of its own filled at registration. An event loop that
 * defines epoll_ctl in place of libc's reads the context here and hands the kernel a struct epoll_event.
 */
typedef struct MCAST_EPOLL_PACKED MCAST_EPOLL_RECORD_S {
    uint32_t events;  /* mask of EPOLLIN, EPOLLOUT, ... */
    uint64_t fd;      /* the descriptor, zero-extended */
    uint64_t context; /* the caller's handler or any other value */
} MCAST_EPOLL_RECORD_S;

MCAST_STATIC_ASSERT(offsetof(MCAST_EPOLL_RECORD_S, fd) == MCAST_EPOLL_FD_OFFSET, "the kernel's layout");
MCAST_STATIC_ASSERT(offsetof(MCAST_EPOLL_RECORD_S, context) == MCAST_EPOLL_FD_OFFSET + 8, "then the context");
MCAST_STATIC_ASSERT(sizeof(MCAST_EPOLL_RECORD_S) == MCAST_EPOLL_FD_OFFSET + 16, "registration record");

/* A POSIX timer made by MCAST_CreateTimer: the system's timer_t; 0 means none. */
typedef uintptr_t MCAST_TIMER_HANDLE;

/* Makes an epoll set; the caller owns it and closes it. The descriptor, or MCAST_NONE. */
MCAST_API uint32_t MCAST_CreateEpoll(void);

/*
 * Registers fd in the set epfd for events with context (MCAST_EPOLL_RECORD_S). MCAST_OK, or MCAST_ERR_GENERAL
 * when epoll_ctl refuses.
 */
MCAST_API MCAST_STATUS MCAST_AddEpoll(uint32_t epfd, uint32_t fd, uint32_t events, uint64_t context);

/* Changes events and context of fd, registered in the set epfd. Results as MCAST_AddEpoll. */
MCAST_API MCAST_STATUS MCAST_ModifyEpoll(uint32_t epfd, uint32_t fd, uint32_t events, uint64_t context);

/* Takes fd out of the set epfd. The result of epoll_ctl: 0 or -1. */
MCAST_API int MCAST_DeleteEpoll(uint32_t epfd, uint32_t fd);

/*
 * Makes a timer descriptor that becomes readable period_ms milliseconds from now and then every period_ms, on
 * the monotonic clock. It blocks on read and survives exec. 0 gives a disarmed descriptor; a negative period
 * fails. It is in no epoll set; the caller owns it and ends it with MCAST_DeleteTimerFd. The descriptor, or
 * MCAST_NONE.
 */
MCAST_API uint32_t MCAST_CreateTimerFd(int32_t period_ms);

/* Closes the timer descriptor fd. The result of close: 0 or -1. */
MCAST_API int MCAST_DeleteTimerFd(uint32_t fd);

/*
 * Makes an event descriptor with count 0, registered in the set epfd for EPOLLIN with context; writing to it
 * wakes the loop. The caller owns and closes it. The descriptor, or MCAST_NONE: context is 0, epfd is
 * MCAST_NONE, or a system call failed.
 */
MCAST_API uint32_t MCAST_CreateEvtFd(uint32_t epfd, uint64_t context);

/*
 * Turns the signal signo into a descriptor, blocks the signal in the calling thread, and then registers the
 * descriptor in the set epfd for EPOLLIN with context. The thread must be the one that is to receive the
 * signal; threads that it starts afterwards inherit the block. *out_fd receives the descriptor, which the
 * caller owns and closes. MCAST_OK, or MCAST_ERR_GENERAL with *out_fd untouched: context is 0, epfd is
 * MCAST_NONE, out_fd is NULL, signo is no signal, or a system call failed. Descriptor number 0 is not
 * accepted: it is closed and counts as a failure. Of pthread_sigmask only the result -1 is a failure; an
 * error number of its own is ignored. When registration fails the signal stays blocked.
 */
MCAST_API MCAST_STATUS MCAST_SigToEpoll(uint32_t epfd, uint32_t signo, uint64_t context, uint32_t *out_fd);

/*
 * Makes a POSIX timer that sends the signal signo to the calling thread period_ms milliseconds from now and
 * then every period_ms, on the real-time clock; the signal's value (si_value.sival_int) is period_ms. Only
 * the periods 10, 100 and 1000 exist. The caller ends it with MCAST_DeleteTimer. The handle, or 0: another
 * period, or a system call failed. The system may give a timer the handle 0; a second timer is then made and
 * the first deleted, so that 0 always means none.
 */
MCAST_API MCAST_TIMER_HANDLE MCAST_CreateTimer(uint32_t period_ms, uint32_t signo);

/* Ends a timer of MCAST_CreateTimer; handle must be one. The result of timer_delete: 0 or -1. */
MCAST_API int MCAST_DeleteTimer(MCAST_TIMER_HANDLE handle);

/* The kernel's id of the calling thread. */
MCAST_API uint32_t MCAST_Gettid(void);

/*
 * A random number from the platform's FIPS_rand_bytes, scaled to 0..bound with bound itself among the
 * results. The scale is a truncating division: for a bound that is large against 2^32 the upper end lies
 * above it, and from 0x80000000 the result is any 32-bit number. 0 for bound 0, and when no random bytes can
 * be had.
 */
MCAST_API uint32_t MCAST_Rand(uint32_t bound);

MCAST_EXTERN_C_END

#endif
