/*
 * Interface service of the platform: per-instance private data. An instance maps an interface index to one
 * pointer. Calls on different instances may run in parallel; on one instance, readers may run in parallel and
 * a writer runs alone (the caller locks).
 */
#ifndef PLATFORM_INTERFACE_H
#define PLATFORM_INTERFACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A private-data instance; IF_NO_INSTANCE means none. */
typedef uint64_t IF_INSTANCE;

#define IF_NO_INSTANCE UINT64_MAX

/*
 * Creates an empty instance; kind is 2 and option 0 for multicast. IF_NO_INSTANCE for others or when memory
 * is short.
 */
IF_INSTANCE IF_CreatePDInstance(uint32_t kind, uint32_t option);

/* Ends the instance. The pointers still in it are forgotten, not freed. 0, or non-zero for no instance. */
uint32_t IF_DestroyPDInstance(IF_INSTANCE instance);

/* Stores data, not NULL, for the interface index, replacing what was there; option is 0. 0 on success. */
uint32_t IF_SetPrivateData(IF_INSTANCE instance, uint32_t if_index, void *data, uint32_t option);

/* Removes what is stored for the interface index; option is 0. 0 on success, non-zero when nothing is. */
uint32_t IF_DelPrivateData(IF_INSTANCE instance, uint32_t if_index, uint32_t option);

/* Fetches the pointer stored for the interface index. 0 on success; otherwise *data is untouched. */
uint32_t IF_GetPrivateData(IF_INSTANCE instance, uint32_t if_index, void **data);

/* Fetches the entry with the lowest interface index. 0 on success; otherwise the outputs are untouched. */
uint32_t IF_GetFirstPrivateData(IF_INSTANCE instance, uint32_t *if_index, void **data);

/*
 * Fetches the entry with the lowest interface index above after, which need not be present. 0 on success;
 * otherwise the outputs are untouched.
 */
uint32_t IF_GetNextPrivateData(IF_INSTANCE instance, uint32_t after, uint32_t *if_index, void **data);

#ifdef __cplusplus
}
#endif

#endif
