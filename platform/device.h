/*
 * Devices and services of the platform: the nodes (boards) of the router, the services that run on them and
 * the control call to their forwarding planes. Every call may block and may be made from any thread.
 */
#ifndef PLATFORM_DEVICE_H
#define PLATFORM_DEVICE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* From a service call: nothing was done; counts as success. */
#define SERVICE_NOTHING_DONE 0x40010005u

/* States of a service; others mean that it is there but not ready. */
#define SERVICE_STATE_ABSENT 0u
#define SERVICE_STATE_STARTING 1u
#define SERVICE_STATE_RUNNING 2u
#define SERVICE_STATE_STOPPED 3u

/* Starts the multicast forwarding threads of a node; 8 zero bytes of input, no output. */
#define CIOCTL_START_MULTICAST_THREADS 0x600002u

/* The node that is the system master. */
uint16_t DEV_GetSystemMaster(void);

/* The node that the caller runs on. */
uint16_t DEV_GetSelf(void);

/*
 * All nodes of the router: an array of *count node identifiers that the caller frees with free, or NULL, with
 * *count untouched, when they cannot be had.
 */
uint16_t *DEV_GetAllNodes(uint32_t *count);

/* The standby nodes, in the same form; NULL also when there are none. */
uint16_t *DEV_GetAllStandbyNodes(uint32_t *count);

/* 1 when the node is up, otherwise 0. */
uint32_t IF_IsNodeUp(uint16_t node);

/* The local identifier of the node that the caller runs on: the node in the low 16 bits. */
uint32_t LIP_GetLocalLip(void);

/*
 * The state of a service on a node; option is 0. 0 with *state set; SERVICE_NOTHING_DONE, *state then being
 * set or untouched; otherwise an error code, with *state untouched.
 */
uint32_t SERVICE_GetStatus(uint16_t node, uint64_t service, uint32_t option, uint32_t *state);

/* Starts a service on a node; parameter and option are 0. 0, SERVICE_NOTHING_DONE or an error code. */
uint32_t SERVICE_Start(uint16_t node, uint64_t service, uint64_t parameter, uint32_t option);

/*
 * Control call to the forwarding plane of a node: length bytes of input, at most output_length bytes of
 * output into output (NULL with 0 for none), and the plane's own status in *status. 0, or an error code.
 */
uint32_t CIOCTL(uint16_t node, uint32_t command, uint32_t length, const void *input, void *output,
                uint32_t output_length, uint32_t *status);

#ifdef __cplusplus
}
#endif

#endif
