/* The time since boot. */
#include "check.h"
#include "driver.h"
#include "mcast/platform/timer.h"

static uint64_t Nanoseconds(void)
{
    uint32_t seconds = UINT32_MAX;
    uint32_t sub_seconds = UINT32_MAX;
    TIME_GetSystemBootTime(&seconds, &sub_seconds);
    CHECK(sub_seconds < 1000000000u);
    return (uint64_t)seconds * 1000000000u + sub_seconds;
}

static void NeverGoesBack(void)
{
    uint64_t before = Nanoseconds();
    for (int i = 0; i < 100000 && !PORT_CaseFailed(); ++i) {
        const uint64_t now = Nanoseconds();
        CHECK(now >= before);
        before = now;
    }
}

static uint32_t g_fired;

static void Fired(uint64_t parameters[4])
{
    (void)parameters;
    ++g_fired;
}

/* By as much as each of several timers takes, which together last longer than a second. */
static void GoesOnWithTheTimers(void)
{
    const TIMER_SERVICE service = PORT_TimerService();
    if (service == NULL) {
        PORT_Skip("the driver has no timer service");
        return;
    }
    g_fired = 0;
    for (uint32_t times = 0; times < 20 && !PORT_CaseFailed(); ++times) {
        const uint64_t before = Nanoseconds();
        NEED(Timer_Create(service, TIMER_KIND_ONE_SHOT, 60, Fired, NULL) != TIMER_NONE);
        while (g_fired == times) {
            NEED(PORT_ServeEvents(100) == 0);
        }
        CHECK(Nanoseconds() - before >= 60000000u);
    }
}

const char *const PORT_SERVICE = "boot time";
const PORT_CASE_S PORT_CASES[] = {
    {"never goes back", NeverGoesBack},
    {"goes on with the timers", GoesOnWithTheTimers},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
