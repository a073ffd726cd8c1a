/* The minimal platform's driver: it is configured by what it is. */
#include "driver.h"
#include "minimal/timer.h"

TIMER_SERVICE PORT_TimerService(void)
{
    return MINIMAL_Timers();
}

int PORT_ServeEvents(uint32_t milliseconds)
{
    MINIMAL_Serve(milliseconds);
    return 0;
}

uint16_t PORT_LocalPort(void)
{
    return 7005;
}
