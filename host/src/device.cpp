/*
 * A stock machine as a router of one node, number 0: it is up, its own master, and has no standby. It knows
 * no services, because daemons are started by whoever runs the machine; so every service is absent and none
 * can be started. The forwarding plane is the kernel, whose multicast forwarding needs no threads of its own
 * started.
 */
#include "platform/device.h"

#include <cstdlib>

#include "mcasthost/loop.h"

namespace
{

constexpr uint16_t NODE = 0;

} // namespace

extern "C" {

HOST_API uint16_t DEV_GetSystemMaster(void)
{
    return NODE;
}

HOST_API uint16_t DEV_GetSelf(void)
{
    return NODE;
}

HOST_API uint16_t *DEV_GetAllNodes(uint32_t *count)
{
    auto *nodes = count == nullptr ? nullptr : static_cast<uint16_t *>(malloc(sizeof(uint16_t)));
    if (nodes != nullptr) {
        *nodes = NODE;
        *count = 1;
    }
    return nodes;
}

HOST_API uint16_t *DEV_GetAllStandbyNodes(uint32_t *)
{
    return nullptr;
}

HOST_API uint32_t IF_IsNodeUp(uint16_t node)
{
    return node == NODE ? 1 : 0;
}

HOST_API uint32_t LIP_GetLocalLip(void)
{
    return NODE;
}

HOST_API uint32_t SERVICE_GetStatus(uint16_t node, uint64_t, uint32_t option, uint32_t *state)
{
    if (node != NODE || option != 0 || state == nullptr) {
        return HOST_FAILED;
    }
    *state = SERVICE_STATE_ABSENT;
    return 0;
}

HOST_API uint32_t SERVICE_Start(uint16_t, uint64_t, uint64_t, uint32_t)
{
    return HOST_FAILED;
}

HOST_API uint32_t CIOCTL(uint16_t node, uint32_t command, uint32_t length, const void *input, void *,
                         uint32_t output_length, uint32_t *status)
{
    if (node != NODE || command != CIOCTL_START_MULTICAST_THREADS || length != sizeof(uint64_t) ||
        input == nullptr || output_length != 0 || status == nullptr) {
        return HOST_FAILED;
    }
    *status = 0;
    return 0;
}

} // extern "C"
