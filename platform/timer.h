/*
 * Timers and boot time of the platform. Timers of one service fire on the thread that runs that service's
 * event loop; the other calls may come from any thread. A timer never fires early. Identifiers are not used
 * again.
 */
#ifndef PLATFORM_TIMER_H
#define PLATFORM_TIMER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A timer service, usually the one of an event loop; NULL means none. */
typedef struct TIMER_SERVICE_S *TIMER_SERVICE;

/* A timer identifier; TIMER_NONE means none. */
typedef uint64_t TIMER_ID;

#define TIMER_NONE UINT64_MAX

/*
 * Kinds of timer: one that fires when it is armed with Timer_SetStatus, or one that fires once after its
 * period. The state in which the first is made is left to the platform: callers stop it first.
 */
#define TIMER_KIND_ARMED_LATER 1u
#define TIMER_KIND_ONE_SHOT 2u

/* The period of a timer that is armed later. */
#define TIMER_NO_PERIOD 0xFFFFFFFFu

/* What Timer_SetStatus does. */
#define TIMER_STATE_STOP 0u   /* value 0 */
#define TIMER_STATE_ENABLE 1u /* value 0 */
#define TIMER_STATE_ARM 3u /* value in milliseconds; fires once after it; a stopped timer is enabled first */

/*
 * Timer attributes, 64 bytes. state is 0 while the timer is stopped and another value once it is enabled and
 * while it is armed.
 */
typedef struct TIMER_ATTR_S {
    uint32_t state;
    uint32_t kind;
    uint64_t period_ms;
    uint64_t reserved[6];
} TIMER_ATTR_S;

/* Called when a timer fires, with the platform's copy of the four words given at creation. */
typedef void (*TIMER_HANDLER)(uint64_t parameters[4]);

/*
 * Creates a timer of the service. parameters points at four words that are copied, or is NULL for zeroes. A
 * one-shot timer starts at once and deletes itself after its handler returned. TIMER_NONE on failure.
 */
TIMER_ID Timer_Create(TIMER_SERVICE service, uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler,
                      const uint64_t parameters[4]);

/*
 * Stops, enables or arms a timer; arming an armed timer replaces its time, and a timer that has fired can be
 * stopped, enabled and armed again. 0, or an error code for an unknown timer or state or a failed system
 * call. A platform may refuse to arm a stopped timer.
 */
uint32_t Timer_SetStatus(TIMER_SERVICE service, TIMER_ID timer, uint32_t state, uint32_t value);

/* Fills *attributes; option is 0. 0, or an error code for an unknown timer. */
uint32_t Timer_GetAttr(TIMER_SERVICE service, TIMER_ID timer, TIMER_ATTR_S *attributes, uint32_t option);

/* Deletes the timer, also from its own handler. 0, or an error code for an unknown timer. */
uint32_t Timer_Delete(TIMER_SERVICE service, TIMER_ID timer);

/* The time since boot: whole seconds and, in *sub_seconds, nanoseconds. Neither pointer is NULL. */
void TIME_GetSystemBootTime(uint32_t *seconds, uint32_t *sub_seconds);

#ifdef __cplusplus
}
#endif

#endif
