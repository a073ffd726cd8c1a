#include <stdlib.h>

#include "mcast/service.h"
#include "platform/device.h"

namespace
{

/* Nodes of the router; ids comes from malloc, or is NULL when the platform gives none. */
struct Nodes {
    uint16_t *ids;
    uint32_t count;
};

/* The nodes that are up, in the order of the platform's list. */
Nodes UpNodes()
{
    Nodes up = {nullptr, 0};
    uint32_t count = 0;
    uint16_t *all = DEV_GetAllNodes(&count);
    if (all != nullptr && count != 0) {
        up.ids = static_cast<uint16_t *>(malloc(count * sizeof(uint16_t)));
    }
    for (uint32_t i = 0; up.ids != nullptr && i < count; ++i) {
        if (static_cast<uint16_t>(IF_IsNodeUp(all[i])) == MCAST_TRUE) {
            up.ids[up.count++] = all[i];
        }
    }
    free(all);
    return up;
}

} // namespace

MCAST_STATUS MCAST_StartSpecifyKernelThread(uint16_t node)
{
    const uint64_t input = 0;
    uint32_t status = 0;
    return CIOCTL(node, CIOCTL_START_MULTICAST_THREADS, sizeof(input), &input, nullptr, 0, &status);
}

MCAST_STATUS MCAST_StartAllKernelThread(void)
{
    uint16_t master = DEV_GetSystemMaster();
    MCAST_STATUS result = MCAST_StartSpecifyKernelThread(master);
    Nodes up = UpNodes();
    if (up.ids == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    for (uint32_t i = 0; i < up.count; ++i) {
        if (up.ids[i] != master) {
            result |= MCAST_StartSpecifyKernelThread(up.ids[i]);
        }
    }
    free(up.ids);
    return result;
}

MCAST_STATUS MCAST_StartKernelThread(void)
{
    uint16_t self = DEV_GetSelf();
    return self == DEV_GetSystemMaster() ? MCAST_StartAllKernelThread()
                                         : MCAST_StartSpecifyKernelThread(self);
}
