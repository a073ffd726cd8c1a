/*
 * Filters of groups and of (source, group) pairs by an access control list. The lists are the platform's; the
 * filters decide which addresses go into which slot of a match and what its outcome means.
 *
 * The functions keep no state, take no lock and may be called from any thread; a match costs what the
 * platform takes for it. An ACL number of MCAST_NONE says that no list is configured. ctx tells the family
 * (MCAST_FAMILY_IPV4, or anything else for IPv6) and the VPN instance in which the match is made; it must
 * agree with the family of the addresses and is not looked at when no list is configured.
 */
#ifndef MCAST_ACL_FILTER_H
#define MCAST_ACL_FILTER_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/*
 * Whether the list can filter groups: configured, matching a single address (group type 1 or 6, whichever the
 * family) and holding at least one rule. family points at MCAST_FAMILY_IPV6 for an IPv6 list and at anything
 * else for an IPv4 one; it is not looked at when no list is configured. Further arguments are accepted and
 * not looked at.
 */
MCAST_API MCAST_BOOL MCAST_IsAclValid(const uint8_t *family, uint32_t acl_number, ...);

/*
 * Whether the list permits the addresses. A list that matches a single address is asked about first alone;
 * any other about first as the packet's source and second as its destination. NULL for either says that it is
 * not given. With no list, or with nothing to ask about, everything passes; a match that the platform cannot
 * carry out denies.
 */
MCAST_API MCAST_BOOL MCAST_IsAclPermit(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number,
                                       const MCAST_ADDR_S *first, const MCAST_ADDR_S *second);

/*
 * As MCAST_IsAclPermit for IPv4 addresses in host byte order. A basic list (2000 to 2999) is asked about the
 * group, any other about the pair (source, group). Of vrf_index the low 16 bits count.
 */
MCAST_API MCAST_BOOL MCAST4_IsAclPermit(uint32_t vrf_index, uint32_t acl_number, uint32_t source,
                                        uint32_t group);

/*
 * Whether the group is in the SSM range: what the list permits, or with no list 232.0.0.0/8 and ff3x::/32 of
 * any scope x. group is not NULL unless a list is configured.
 */
MCAST_API MCAST_BOOL MCAST_IsSSMGrp(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number,
                                    const MCAST_ADDR_S *group);

/*
 * Whether the group passes the list. Unlike MCAST_IsAclPermit it also passes when the platform has no list of
 * the number (ACL_ERR_NO_ACL), or one without rules (ACL_ERR_NO_RULE); every other failed match, and every
 * match that does not permit, stops it. A list that does not match a single address is asked with no address;
 * so is any list when group is NULL. Further arguments are accepted and not looked at.
 */
MCAST_API MCAST_BOOL MCAST_GrpFilterByAcl(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number,
                                          const MCAST_ADDR_S *group, ...);

MCAST_EXTERN_C_END

#endif
