/* Timers of the minimal platform: a list that is searched for the earliest. One thread. */
#include "timer.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct TIMER_S {
    struct TIMER_S *next;
    TIMER_ID id;
    TIMER_HANDLER handler;
    uint64_t parameters[4];
    TIMER_ATTR_S attributes;
    uint64_t due_ns; /* while armed */
} TIMER_S;

struct TIMER_SERVICE_S {
    TIMER_S *first;
    TIMER_ID last_id;
};

static struct TIMER_SERVICE_S g_service;

static uint64_t Now(void)
{
    struct timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return (uint64_t)now.tv_sec * 1000000000u + (uint64_t)now.tv_nsec;
}

/* Where the timer is linked, or the end of the list. */
static TIMER_S **PlaceOf(TIMER_SERVICE service, TIMER_ID id)
{
    TIMER_S **place = &service->first;
    while (*place != NULL && (*place)->id != id) {
        place = &(*place)->next;
    }
    return place;
}

static void Arm(TIMER_S *timer, uint32_t milliseconds)
{
    timer->attributes.state = TIMER_STATE_ARM;
    timer->due_ns = Now() + (uint64_t)milliseconds * 1000000u;
}

TIMER_SERVICE MINIMAL_Timers(void)
{
    return &g_service;
}

TIMER_ID Timer_Create(TIMER_SERVICE service, uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler,
                      const uint64_t parameters[4])
{
    TIMER_S *timer = service == NULL ? NULL : calloc(1, sizeof(*timer));
    if (timer == NULL) {
        return TIMER_NONE;
    }
    timer->id = ++service->last_id;
    timer->handler = handler;
    timer->attributes.kind = kind;
    timer->attributes.period_ms = period_ms;
    if (parameters != NULL) {
        memcpy(timer->parameters, parameters, sizeof(timer->parameters));
    }
    if (kind == TIMER_KIND_ONE_SHOT) {
        Arm(timer, period_ms);
    }
    timer->next = service->first;
    service->first = timer;
    return timer->id;
}

uint32_t Timer_SetStatus(TIMER_SERVICE service, TIMER_ID id, uint32_t state, uint32_t value)
{
    TIMER_S *timer = *PlaceOf(service, id);
    if (timer == NULL ||
        (state != TIMER_STATE_STOP && state != TIMER_STATE_ENABLE && state != TIMER_STATE_ARM)) {
        return 1;
    }
    if (state == TIMER_STATE_ARM) {
        Arm(timer, value);
    } else {
        timer->attributes.state = state;
    }
    return 0;
}

uint32_t Timer_GetAttr(TIMER_SERVICE service, TIMER_ID id, TIMER_ATTR_S *attributes, uint32_t option)
{
    const TIMER_S *timer = *PlaceOf(service, id);
    (void)option;
    if (timer == NULL) {
        return 1;
    }
    *attributes = timer->attributes;
    return 0;
}

uint32_t Timer_Delete(TIMER_SERVICE service, TIMER_ID id)
{
    TIMER_S **place = PlaceOf(service, id);
    TIMER_S *timer = *place;
    if (timer == NULL) {
        return 1;
    }
    *place = timer->next;
    free(timer);
    return 0;
}

static TIMER_S *Earliest(void)
{
    TIMER_S *earliest = NULL;
    for (TIMER_S *timer = g_service.first; timer != NULL; timer = timer->next) {
        if (timer->attributes.state == TIMER_STATE_ARM &&
            (earliest == NULL || timer->due_ns < earliest->due_ns)) {
            earliest = timer;
        }
    }
    return earliest;
}

void MINIMAL_Serve(uint32_t milliseconds)
{
    const TIMER_S *timer = Earliest();
    const uint64_t now = Now();
    uint64_t wait = (uint64_t)milliseconds * 1000000u;
    if (timer != NULL) {
        const uint64_t left = timer->due_ns > now ? timer->due_ns - now : 0;
        wait = left < wait ? left : wait;
    }
    const struct timespec pause = {(time_t)(wait / 1000000000u), (long)(wait % 1000000000u)};
    nanosleep(&pause, NULL);
    TIMER_S *due = Earliest();
    if (due == NULL || due->due_ns > Now()) {
        return;
    }
    /* The handler gets a copy, since it may delete its timer. */
    const TIMER_ID id = due->id;
    uint64_t parameters[4];
    memcpy(parameters, due->parameters, sizeof(parameters));
    due->attributes.state = TIMER_STATE_ENABLE;
    due->handler(parameters);
    due = *PlaceOf(&g_service, id);
    if (due != NULL && due->attributes.kind == TIMER_KIND_ONE_SHOT) {
        Timer_Delete(&g_service, id);
    }
}

void TIME_GetSystemBootTime(uint32_t *seconds, uint32_t *sub_seconds)
{
    const uint64_t now = Now();
    *seconds = (uint32_t)(now / 1000000000u);
    *sub_seconds = (uint32_t)(now % 1000000000u);
}
