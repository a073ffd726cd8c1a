/*
 * Timers. They may fire late, so the cases wait for what must come, for as long as it takes, and show that something
 * does not come by a later timer that does.
 */
#include <string.h>

#include "check.h"
#include "driver.h"
#include "mcast/platform/timer.h"

static TIMER_SERVICE g_service;
static int g_in_call; /* a call of the service is in progress: nothing may fire */
static uint32_t g_fired;
static uint32_t g_witnessed;
static uint64_t g_parameters[4];
static TIMER_ID g_own; /* what the handler deletes, TIMER_NONE for nothing */

static void Fired(uint64_t parameters[4])
{
    CHECK(g_in_call == 0);
    ++g_fired;
    memcpy(g_parameters, parameters, sizeof(g_parameters));
    if (g_own != TIMER_NONE) {
        CHECK(Timer_Delete(g_service, g_own) == 0);
        CHECK(parameters[0] == g_parameters[0]); /* the words hold until the handler returns */
        g_own = TIMER_NONE;
    }
}

static void Witness(uint64_t parameters[4])
{
    (void)parameters;
    ++g_witnessed;
}

static TIMER_ID Create(uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler, const uint64_t parameters[4])
{
    g_in_call = 1;
    const TIMER_ID timer = Timer_Create(g_service, kind, period_ms, handler, parameters);
    g_in_call = 0;
    return timer;
}

static uint32_t SetStatus(TIMER_ID timer, uint32_t state, uint32_t value)
{
    g_in_call = 1;
    const uint32_t result = Timer_SetStatus(g_service, timer, state, value);
    g_in_call = 0;
    return result;
}

/* The state word, or 99 when it cannot be had. */
static uint32_t State(TIMER_ID timer)
{
    TIMER_ATTR_S attributes;
    memset(&attributes, 0xee, sizeof(attributes));
    return Timer_GetAttr(g_service, timer, &attributes, 0) == 0 ? attributes.state : 99;
}

/* A timer as the timer manager makes its own: armed later, and stopped until then. */
static TIMER_ID Stopped(void)
{
    const TIMER_ID timer = Create(TIMER_KIND_ARMED_LATER, TIMER_NO_PERIOD, Fired, NULL);
    CHECK(timer != TIMER_NONE);
    CHECK(SetStatus(timer, TIMER_STATE_STOP, 0) == 0);
    return timer;
}

static void Arm(TIMER_ID timer, uint32_t milliseconds)
{
    if (State(timer) == 0) {
        CHECK(SetStatus(timer, TIMER_STATE_ENABLE, 0) == 0);
    }
    CHECK(SetStatus(timer, TIMER_STATE_ARM, milliseconds) == 0);
}

static void WaitFor(const uint32_t *count, uint32_t wanted)
{
    while (*count < wanted && !PORT_CaseFailed()) {
        NEED(PORT_ServeEvents(100) == 0);
    }
}

/* Serves the loop for so long that whatever is due earlier has fired. */
static void WaitForWitness(uint32_t milliseconds)
{
    const uint32_t wanted = g_witnessed + 1;
    NEED(Create(TIMER_KIND_ONE_SHOT, milliseconds, Witness, NULL) != TIMER_NONE);
    WaitFor(&g_witnessed, wanted);
}

static uint64_t BootMs(void)
{
    uint32_t seconds = 0;
    uint32_t sub_seconds = 0;
    TIME_GetSystemBootTime(&seconds, &sub_seconds);
    return (uint64_t)seconds * 1000 + sub_seconds / 1000000;
}

/* 0 when the case cannot be run. */
static int Ready(void)
{
    g_service = PORT_TimerService();
    g_fired = 0;
    g_own = TIMER_NONE;
    if (g_service == NULL) {
        PORT_Skip("the driver has no timer service");
    }
    return g_service != NULL;
}

static void IsStoppedEnabledAndArmed(void)
{
    if (Ready() != 0) {
        const TIMER_ID timer = Stopped();
        CHECK(State(timer) == 0);
        CHECK(SetStatus(timer, TIMER_STATE_ENABLE, 0) == 0);
        CHECK(State(timer) != 0 && State(timer) != 99);
        CHECK(SetStatus(timer, TIMER_STATE_ARM, 3600000) == 0);
        CHECK(State(timer) != 0 && State(timer) != 99);
        CHECK(SetStatus(timer, TIMER_STATE_STOP, 0) == 0);
        CHECK(State(timer) == 0);
        CHECK(Timer_Delete(g_service, timer) == 0);
        CHECK(g_fired == 0);
    }
}

static void FiresOnceAndNotEarly(void)
{
    if (Ready() != 0) {
        const TIMER_ID timer = Stopped();
        const uint64_t before = BootMs();
        Arm(timer, 20);
        WaitFor(&g_fired, 1);
        CHECK(BootMs() >= before + 20);
        WaitForWitness(30);
        CHECK(g_fired == 1);
        CHECK(Timer_Delete(g_service, timer) == 0);
    }
}

static void CanBeArmedAgainAfterItFired(void)
{
    if (Ready() != 0) {
        const TIMER_ID timer = Stopped();
        for (uint32_t times = 1; times <= 3 && !PORT_CaseFailed(); ++times) {
            Arm(timer, times);
            WaitFor(&g_fired, times);
            CHECK(SetStatus(timer, TIMER_STATE_STOP, 0) == 0);
        }
        CHECK(g_fired == 3);
        CHECK(Timer_Delete(g_service, timer) == 0);
    }
}

static void StoppedOrDeletedItDoesNotFire(void)
{
    if (Ready() != 0) {
        const TIMER_ID stopped = Stopped();
        const TIMER_ID deleted = Stopped();
        Arm(stopped, 1);
        Arm(deleted, 1);
        CHECK(SetStatus(stopped, TIMER_STATE_STOP, 0) == 0);
        CHECK(Timer_Delete(g_service, deleted) == 0);
        WaitForWitness(20);
        CHECK(g_fired == 0);
        CHECK(Timer_Delete(g_service, stopped) == 0);
    }
}

static void ArmingReplacesTheTime(void)
{
    if (Ready() != 0) {
        const TIMER_ID timer = Stopped();
        Arm(timer, 3600000);
        Arm(timer, 1); /* earlier */
        WaitFor(&g_fired, 1);
        Arm(timer, 1);
        Arm(timer, 3600000); /* later */
        WaitForWitness(20);
        CHECK(g_fired == 1);
        CHECK(Timer_Delete(g_service, timer) == 0);
    }
}

static void HandlerGetsACopyOfItsWords(void)
{
    if (Ready() != 0) {
        uint64_t words[4] = {1, 2, 3, UINT64_MAX};
        CHECK(Create(TIMER_KIND_ONE_SHOT, 1, Fired, words) != TIMER_NONE);
        memset(words, 0, sizeof(words));
        WaitFor(&g_fired, 1);
        CHECK(g_parameters[0] == 1 && g_parameters[1] == 2 && g_parameters[2] == 3 &&
              g_parameters[3] == UINT64_MAX);
        CHECK(Create(TIMER_KIND_ONE_SHOT, 1, Fired, NULL) != TIMER_NONE);
        WaitFor(&g_fired, 2);
        CHECK(g_parameters[0] == 0 && g_parameters[1] == 0 && g_parameters[2] == 0 && g_parameters[3] == 0);
    }
}

static void OneShotIsGoneAfterItsHandler(void)
{
    if (Ready() != 0) {
        const uint64_t before = BootMs();
        const TIMER_ID timer = Create(TIMER_KIND_ONE_SHOT, 20, Fired, NULL);
        CHECK(timer != TIMER_NONE);
        WaitFor(&g_fired, 1);
        CHECK(BootMs() >= before + 20);
        CHECK(State(timer) == 99);
        CHECK(Timer_Delete(g_service, timer) != 0);
        WaitForWitness(30);
        CHECK(g_fired == 1);
    }
}

static void HandlerMayDeleteItsOwnTimer(void)
{
    if (Ready() != 0) {
        const TIMER_ID timer = Stopped();
        g_own = timer;
        Arm(timer, 1);
        WaitFor(&g_fired, 1);
        CHECK(Timer_Delete(g_service, timer) != 0);
        g_own = Create(TIMER_KIND_ONE_SHOT, 1, Fired, NULL);
        CHECK(g_own != TIMER_NONE);
        WaitFor(&g_fired, 2);
        WaitForWitness(10);
        CHECK(g_fired == 2);
    }
}

static void IdentifiersAreNotUsedAgain(void)
{
    static TIMER_ID seen[500];
    if (Ready() != 0) {
        for (size_t i = 0; i < 500; ++i) {
            seen[i] = Stopped();
            CHECK(Timer_Delete(g_service, seen[i]) == 0);
            for (size_t j = 0; j < i; ++j) {
                CHECK(seen[j] != seen[i]);
            }
        }
    }
}

static void UnknownTimersAndStatesAreRefused(void)
{
    if (Ready() != 0) {
        TIMER_ATTR_S attributes;
        const TIMER_ID timer = Stopped();
        CHECK(SetStatus(timer, 77, 0) != 0);
        CHECK(Timer_Delete(g_service, timer) == 0);
        CHECK(Timer_Delete(g_service, timer) != 0);
        CHECK(SetStatus(timer, TIMER_STATE_STOP, 0) != 0);
        CHECK(Timer_GetAttr(g_service, timer, &attributes, 0) != 0);
        CHECK(Timer_Delete(g_service, TIMER_NONE) != 0);
    }
}

const char *const PORT_SERVICE = "timers";
const PORT_CASE_S PORT_CASES[] = {
    {"is stopped, enabled and armed", IsStoppedEnabledAndArmed},
    {"fires once and not early", FiresOnceAndNotEarly},
    {"can be armed again after it fired", CanBeArmedAgainAfterItFired},
    {"stopped or deleted it does not fire", StoppedOrDeletedItDoesNotFire},
    {"arming replaces the time", ArmingReplacesTheTime},
    {"the handler gets a copy of its words", HandlerGetsACopyOfItsWords},
    {"a one-shot timer is gone after its handler", OneShotIsGoneAfterItsHandler},
    {"the handler may delete its own timer", HandlerMayDeleteItsOwnTimer},
    {"identifiers are not used again", IdentifiersAreNotUsedAgain},
    {"unknown timers and states are refused", UnknownTimersAndStatesAreRefused},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
