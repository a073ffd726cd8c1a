/*
 * VPN instances of the platform. Instance 0, the public one, always exists and has no name. Any thread.
 */
#ifndef PLATFORM_VPN_H
#define PLATFORM_VPN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The size of an instance name, terminator included. */
#define L3VPN_NAME_SIZE 32

/*
 * Writes the name of the instance, at most capacity bytes with the terminator. 0 when the instance exists;
 * otherwise an error code, and name may hold part of a name, terminated.
 */
uint32_t L3VPN_GetNameByVrfIndex(uint16_t vrf_index, uint32_t capacity, char *name);

/* The instance that the interface belongs to. 0; otherwise an error code, and *vrf_index is untouched. */
uint32_t L3VPN_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_index);

#ifdef __cplusplus
}
#endif

#endif
