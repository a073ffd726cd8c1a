#include <sys/syscall.h>
#include <unistd.h>

#include "mcast/event.h"

uint32_t MCAST_Gettid(void)
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}
