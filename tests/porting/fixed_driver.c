/* What the drivers of the minimal platform and of the stub have in common: nothing is configured, all is as it is. */
#include "driver.h"

int PORT_Begin(void)
{
    return 0;
}

void PORT_End(void)
{
}

int PORT_Interface(PORT_INTERFACE_S *interface)
{
    const PORT_INTERFACE_S the_one = {1, 22, "eth0", "eth0", "e", 23};
    *interface = the_one;
    return 0;
}

int PORT_AccessLists(uint32_t family_index, PORT_ACCESS_LISTS_S *lists)
{
    const PORT_ACCESS_LISTS_S all = {2000, 3000, 2001, 2002};
    (void)family_index;
    *lists = all;
    return 0;
}
