/* The driver of a port that has nothing yet. It claims to have everything, so that every name is asked. */
#include "driver.h"

int PORT_Begin(void)
{
    return 0;
}

void PORT_End(void)
{
}

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

int PORT_Interface(PORT_INTERFACE_S *interface)
{
    const PORT_INTERFACE_S one = {1, 22, "eth0", "eth0", "e", 23};
    *interface = one;
    return 0;
}

int PORT_AccessLists(uint32_t family_index, PORT_ACCESS_LISTS_S *lists)
{
    const PORT_ACCESS_LISTS_S all = {2000, 3000, 2001, 2002};
    (void)family_index;
    *lists = all;
    return 0;
}

uint16_t PORT_LocalPort(void)
{
    return 7007;
}
