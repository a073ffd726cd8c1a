#include "support/scripted_device.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/device.h"

namespace scripted
{

Device device;
std::vector<std::string> device_calls;

void ResetDevice()
{
    device = {};
    device_calls.clear();
}

} // namespace scripted

namespace
{

using scripted::device;

void Note(const char *call)
{
    scripted::device_calls.emplace_back(call);
}

/* A call on a node; as_agreed says whether the arguments that never vary were what they must be. */
void Note(const char *call, uint16_t node, bool as_agreed)
{
    scripted::device_calls.push_back(std::string(call) + " " + std::to_string(node) +
                                     (as_agreed ? "" : " with wrong arguments"));
}

void Note(const char *call, uint16_t node, uint64_t service, bool as_agreed)
{
    Note(call, node, as_agreed);
    scripted::device_calls.back() += " " + std::to_string(service);
}

/* A list as the platform allocates it: fault::LiveBlocks counts it until the code under test frees it. */
uint16_t *ListOf(const std::optional<std::vector<uint16_t>> &nodes, uint32_t *count)
{
    if (!nodes) {
        return nullptr;
    }
    auto *list = static_cast<uint16_t *>(malloc(nodes->size() * sizeof(uint16_t) + 1));

    if (list == nullptr) {
        return nullptr;
    }
    std::copy(nodes->begin(), nodes->end(), list);
    *count = static_cast<uint32_t>(nodes->size());
    return list;
}

} // namespace

uint16_t DEV_GetSystemMaster(void)
{
    return device.master;
}

uint16_t DEV_GetSelf(void)
{
    return device.self;
}

uint32_t LIP_GetLocalLip(void)
{
    return device.local_lip;
}

uint16_t *DEV_GetAllNodes(uint32_t *count)
{
    Note("nodes");
    return ListOf(device.nodes, count);
}

uint16_t *DEV_GetAllStandbyNodes(uint32_t *count)
{
    Note("standby");
    return ListOf(device.standby, count);
}

uint32_t IF_IsNodeUp(uint16_t node)
{
    Note("up", node, true);
    return device.node_up ? device.node_up(node) : 1;
}

uint32_t SERVICE_GetStatus(uint16_t node, uint64_t service, uint32_t option, uint32_t *state)
{
    Note("status", node, service, option == 0 && *state == SERVICE_STATE_ABSENT);
    if (device.service_status) {
        return device.service_status(node, service, state);
    }
    *state = SERVICE_STATE_ABSENT;
    return 0;
}

uint32_t SERVICE_Start(uint16_t node, uint64_t service, uint64_t parameter, uint32_t option)
{
    Note("start", node, service, parameter == 0 && option == 0);
    return device.service_start ? device.service_start(node, service) : 0;
}

uint32_t CIOCTL(uint16_t node, uint32_t command, uint32_t length, const void *input, void *output,
                uint32_t output_length, uint32_t *status)
{
    const char zeroes[8] = {};
    Note("threads", node,
         command == 0x600002 && length == 8 && memcmp(input, zeroes, 8) == 0 && output == nullptr &&
             output_length == 0);
    *status = 0xdead; /* the plane's own status is not the result */
    return device.start_threads ? device.start_threads(node) : 0;
}
