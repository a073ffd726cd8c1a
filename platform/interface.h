/*
 * Interface service of the platform: the data of interfaces, names and selectors, and per-instance private
 * data. An instance maps an interface index to one pointer. Calls on different instances may run in parallel;
 * on one instance, readers may run in parallel and a writer runs alone (the caller locks). The other calls
 * may be made from any thread.
 */
#ifndef PLATFORM_INTERFACE_H
#define PLATFORM_INTERFACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A private-data instance; IF_NO_INSTANCE means none, and every call on it fails. */
typedef uint64_t IF_INSTANCE;

#define IF_NO_INSTANCE UINT64_MAX

/*
 * Data items of an interface, and what data points at. Asked of an interface type they are the names of the
 * type and its own code; a type that has no name is an error.
 */
#define IF_ITEM_FULL_NAME 10u  /* char[IF_NAME_SIZE], terminated */
#define IF_ITEM_SHORT_NAME 11u /* char[IF_SHORT_NAME_SIZE], terminated */
#define IF_ITEM_TYPE 18u       /* uint32_t, an interface type code */

/*
 * Data item of an interface type, also to be had of an interface for its type: uint32_t, non-zero when the
 * type may not be selected.
 */
#define IF_TYPE_ITEM_HIDDEN 23u

/* Buffer sizes, terminator included: a full name, a short name, a name completed by IF_IfNameFill. */
#define IF_NAME_SIZE 48
#define IF_SHORT_NAME_SIZE 25
#define IF_FILLED_NAME_SIZE 256

/* Mode of IF_IfNameFill: complete an abbreviated name. */
#define IF_FILL_ABBREVIATED 1u

/* Selector kind and property for layer-3 interfaces. */
#define IF_SELECTOR_LAYER3 5u
#define IF_PROPERTY_LAYER3 8u

/* A set of interfaces, described by kind, properties and types. Contents are the platform's. */
typedef struct IF_SELECTOR_S {
    uint64_t words[16];
} IF_SELECTOR_S;

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

/* Fetches a data item of an interface. 0 on success; otherwise an error code, and data is untouched. */
uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data);

/* Fetches a data item of an interface type. 0 on success; otherwise an error code, and data is untouched. */
uint32_t IF_GetDataByIfType(uint32_t type, uint32_t item, void *data);

/* Makes the selector empty. 0 on success. */
uint32_t IF_Select_Init(uint32_t kind, IF_SELECTOR_S *selector);

/* Asks for a property of all interfaces in the selector. 0 on success. */
uint32_t IF_SelectProperty_Set(uint32_t property, IF_SELECTOR_S *selector);

/* Adds an interface type to the selector. 0 on success. */
uint32_t IF_SelectType_Set(uint32_t type, IF_SELECTOR_S *selector);

/*
 * Completes text, as typed, to the full name of the one interface in the selector that it means, and writes
 * it to full_name (IF_FILLED_NAME_SIZE bytes). 0 on success; otherwise an error code, and full_name is
 * untouched.
 */
uint32_t IF_IfNameFill(const IF_SELECTOR_S *selector, const char *text, uint32_t mode, char *full_name);

/* The index of the interface with this full name; 0 when there is none. */
uint32_t IF_GetIfIndexByFullName(const char *full_name);

#ifdef __cplusplus
}
#endif

#endif
