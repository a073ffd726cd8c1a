/*
 * What every header of the library shares: version, result codes, truth values, the address record, the
 * instance key and the two small helpers that serve all families.
 *
 * Some exported names are misspelled or out of line with their neighbours: MCAST_MinHeapDestory,
 * MCAST_MaskIsContinous, mribGmpDeleteIfAllMBoundry, MCAST_CreateSimplyIf, MRT_Walk_Start beside
 * MRT_WalkNext. They are what programs are linked against and stay as they are; there are no second names.
 */
#ifndef MCAST_COMMON_H
#define MCAST_COMMON_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define MCAST_STATIC_ASSERT(condition, text) static_assert(condition, text)
#define MCAST_EXTERN_C_BEGIN extern "C" {
#define MCAST_EXTERN_C_END }
#else
#define MCAST_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#define MCAST_EXTERN_C_BEGIN
#define MCAST_EXTERN_C_END
#endif

/* Marks a function or object as part of the library's exported interface. */
#define MCAST_API __attribute__((visibility("default")))

/*
 * The version of these headers. libmcasthost tells its own with HOST_Version (mcasthost/version.h); what a
 * change of each number promises about programs that are linked already is said in docs/abi.md.
 */
#define MCAST_VERSION_MAJOR 1
#define MCAST_VERSION_MINOR 1
#define MCAST_VERSION_PATCH 0

/* Versions as numbers that can be compared. */
#define MCAST_VERSION_NUMBER(major, minor, patch) ((uint32_t)(((major) << 16) | ((minor) << 8) | (patch)))
#define MCAST_VERSION MCAST_VERSION_NUMBER(MCAST_VERSION_MAJOR, MCAST_VERSION_MINOR, MCAST_VERSION_PATCH)

/* The version as text, "1.0.0". */
#define MCAST_VERSION_AS_TEXT(number) #number
#define MCAST_VERSION_DOTTED(major, minor, patch)                                                            \
    MCAST_VERSION_AS_TEXT(major) "." MCAST_VERSION_AS_TEXT(minor) "." MCAST_VERSION_AS_TEXT(patch)
#define MCAST_VERSION_TEXT MCAST_VERSION_DOTTED(MCAST_VERSION_MAJOR, MCAST_VERSION_MINOR, MCAST_VERSION_PATCH)

MCAST_EXTERN_C_BEGIN

/* A status: MCAST_OK or one of the codes below. The MRIB channel returns the same codes in 64 bits. */
typedef uint32_t MCAST_STATUS;

/* A truth value: MCAST_TRUE or MCAST_FALSE. Readers compare its low 16 bits with 1. */
typedef uint32_t MCAST_BOOL;

#define MCAST_FALSE 0u
#define MCAST_TRUE 1u

/* Success. */
#define MCAST_OK 0u
/*
 * Bad argument, allocation failure, lookup miss, not connected, socket error or rejected configuration text.
 */
#define MCAST_ERR_GENERAL 0x40010001u
/* A platform service did nothing and that counts as success; MIB: an instance failed with another error. */
#define MCAST_ERR_NOTHING_DONE 0x40010005u
/* From a group callback of MTable_Walk: skip this group's sources. */
#define MCAST_WALK_SKIP_GROUP 0x40010008u
/* A walk stopped by its callback; member channel: queued, but the requested flush failed. */
#define MCAST_ERR_STOPPED 0x40010009u
/* Member channel: payload of 1384 bytes or more, or no datagram block left. */
#define MCAST_ERR_NO_BLOCK 0x4001000bu
/* Member channel used before MBR_LIB_Init. */
#define MCAST_ERR_NOT_INIT 0x2001000eu
/* Stop now and resume later: walk callbacks, a full batch. */
#define MCAST_WALK_AGAIN 0x60010022u
/* MIB: no entry, or the daemon cannot be reached. */
#define MCAST_MIB_NO_ENTRY 0x6001001au
/* MIB: no next entry. */
#define MCAST_MIB_NO_NEXT 0x60010023u
/* The interface may not be configured through the MIB. */
#define MCAST_MIB_NOT_SETTABLE 0x61010049u
/* No descriptor, no ACL configured, or a closed socket, where a descriptor or number is returned. */
#define MCAST_NONE 0xffffffffu

/* Address families as they stand in address records, keys and channel records. */
#define MCAST_FAMILY_IPV4 2
#define MCAST_FAMILY_IPV6 10

/*
 * The address record. Compared byte by byte, so the library keeps reserved at 0 and zeroes the twelve bytes
 * after an IPv4 address. Checks test only whether family is MCAST_FAMILY_IPV4; anything else counts as IPv6.
 */
typedef struct MCAST_ADDR_S {
    uint16_t family;     /* MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6, host order */
    uint16_t reserved;   /* always 0 */
    uint8_t address[16]; /* network order; IPv4 in the first four bytes */
} MCAST_ADDR_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_ADDR_S) == 20, "address record is 20 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_ADDR_S, address) == 4, "address bytes follow family and reserved");

/*
 * The instance key: an address family and the index of a VPN (VRF) instance; index 0 is the public instance.
 */
typedef struct MRIB_GMP_VRF_KEY_S {
    uint8_t family;     /* MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6 */
    uint16_t vrf_index; /* host order */
} MRIB_GMP_VRF_KEY_S;

MCAST_STATIC_ASSERT(sizeof(MRIB_GMP_VRF_KEY_S) == 4, "instance key is 4 bytes");
MCAST_STATIC_ASSERT(offsetof(MRIB_GMP_VRF_KEY_S, vrf_index) == 2, "index follows the family");

/* An element of a tail queue: any record whose first field is the pointer to the next element. */
typedef struct MCAST_STQ_NODE_S {
    struct MCAST_STQ_NODE_S *next;
} MCAST_STQ_NODE_S;

/* A singly linked tail queue. Both pointers are NULL when it is empty. */
typedef struct MCAST_STQ_S {
    MCAST_STQ_NODE_S *head;
    MCAST_STQ_NODE_S *tail;
} MCAST_STQ_S;

/*
 * Reverses the queue in place: the old tail becomes the head. Not NULL; an empty queue stays empty. The
 * caller keeps the elements and holds whatever lock guards them. Linear in the number of elements.
 */
MCAST_API void MCAST_StqReverse(MCAST_STQ_S *queue);

/*
 * Frees pointer, which came from malloc, and ignores NULL. Serves as a release callback. Any thread.
 */
MCAST_API void MCAST_FreeFunc(void *pointer);

MCAST_EXTERN_C_END

#endif
