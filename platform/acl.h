/*
 * ACL module of the platform: access control lists by number, one set per address family. Any thread.
 */
#ifndef PLATFORM_ACL_H
#define PLATFORM_ACL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Family index of the operations below. */
#define ACL_FAMILY_IPV4 1u
#define ACL_FAMILY_IPV6 2u

/* Group types whose rules match only the first address slot; any other type matches both. */
#define ACL_GROUP_SINGLE_IPV4 1u
#define ACL_GROUP_SINGLE_IPV6 6u

/* Basic ACLs, whose rules match one address, have these numbers. */
#define ACL_BASIC_FIRST 2000u
#define ACL_BASIC_LAST 2999u

/* Bits of slots: which addresses of a packet-info record are filled. */
#define ACL_SLOT_FIRST 1u
#define ACL_SLOT_SECOND 2u

/* The action word of a match; anything but permit denies. */
#define ACL_ACTION_DENY 1u
#define ACL_ACTION_PERMIT 2u

/* From a match: there is no ACL of the number; the ACL has no rule. */
#define ACL_ERR_NO_ACL 0x22010001u
#define ACL_ERR_NO_RULE 0x22010004u

/* What an IPv4 ACL is matched against. The caller zeroes the whole record before filling it. */
typedef struct ACL_PACKET_INFO4_S {
    uint32_t first;     /* host order; the packet's source */
    uint32_t second;    /* host order; the packet's destination */
    uint32_t slots;     /* ACL_SLOT_* bits */
    uint16_t vrf_index; /* the instance in which the packet travels */
    uint16_t reserved[5];
} ACL_PACKET_INFO4_S;

/* What an IPv6 ACL is matched against. The caller zeroes the whole record before filling it. */
typedef struct ACL_PACKET_INFO6_S {
    uint8_t first[16];  /* network order; the packet's source */
    uint8_t second[16]; /* network order; the packet's destination */
    uint32_t slots;     /* ACL_SLOT_* bits */
    uint32_t reserved1;
    uint16_t vrf_index; /* the instance in which the packet travels */
    uint16_t reserved2[3];
} ACL_PACKET_INFO6_S;

/* The group type of the ACL; 0 when there is none of this number. */
uint32_t ACL_GetGroupTypeByIndex(uint32_t family_index, uint32_t acl_number);

/* The number of rules in the ACL; 0 when there is none of this number. */
uint32_t ACL_GetRuleTotalNumber(uint32_t family_index, uint32_t acl_number);

/*
 * Matches count packet-info records (1) of the family against the ACL. 0 when the match ran: *action then
 * holds ACL_ACTION_PERMIT or another action, *result the platform's own detail. Otherwise an error code; the
 * outputs may have been written.
 */
uint32_t ACL_MatchWithPacketInfo(uint32_t family_index, uint32_t acl_number, const void *packet_info,
                                 uint32_t count, uint32_t *result, uint32_t *action);

#ifdef __cplusplus
}
#endif

#endif
