/* The driver of a port that has nothing yet. It claims to have everything, so that every name is asked. */
#include "driver.h"

TIMER_SERVICE PORT_TimerService(void)
{
    static uint64_t place;
    return (TIMER_SERVICE)(void *)&place;
}

int PORT_ServeEvents(uint32_t milliseconds)
{
    (void)milliseconds;
    return 1;
}

uint16_t PORT_LocalPort(void)
{
    return 7007;
}
