/*
 * The platform's nodes, services and forwarding planes under a test's control. Every call is written down, so
 * that a test sees which were made and in what order.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_DEVICE_H
#define TESTS_SUPPORT_SCRIPTED_DEVICE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace scripted
{

/* A chassis as the calls describe it. */
struct Device {
    uint16_t master = 0;
    uint16_t self = 0;
    uint32_t local_lip = 0;

    /* The lists of nodes; an empty optional is a list that cannot be had, an empty vector one of no nodes. */
    std::optional<std::vector<uint16_t>> nodes;
    std::optional<std::vector<uint16_t>> standby;

    /* IF_IsNodeUp; while unset every node is up. */
    std::function<uint32_t(uint16_t node)> node_up;

    /* SERVICE_GetStatus and SERVICE_Start; while unset a service is absent, and starting it succeeds. */
    std::function<uint32_t(uint16_t node, uint64_t service, uint32_t *state)> service_status;
    std::function<uint32_t(uint16_t node, uint64_t service)> service_start;

    /* CIOCTL, which the library makes for the threads alone; while unset it succeeds. */
    std::function<uint32_t(uint16_t node)> start_threads;
};

extern Device device;

/*
 * The calls made since ResetDevice: "threads 3", "up 3", "status 3 7", "start 3 7" (node 3, service 7),
 * "nodes", "standby"; " with wrong arguments" stands after the node when one of those that never vary is
 * wrong.
 */
extern std::vector<std::string> device_calls;

/* Describes a chassis of node 0 alone, without lists, and forgets the calls. */
void ResetDevice();

} // namespace scripted

#endif
