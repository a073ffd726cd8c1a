#include "mcasthost/version.h"

#include "mcast/common.h"

uint32_t HOST_Version(void)
{
    return MCAST_VERSION;
}
