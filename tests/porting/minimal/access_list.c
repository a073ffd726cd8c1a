/* Access lists of the minimal platform: those that driver.h of the conformance programs describes. */
#include <string.h>

#include "mcast/platform/acl.h"

enum { BASIC = 2000, EMPTY = 2001, ADVANCED = 3000, ADVANCED_TYPE = 2 };

/* A range of addresses by its first bits, in network order. */
typedef struct RANGE_S {
    uint8_t bytes[6];
    uint32_t length; /* bytes */
} RANGE_S;

/* By family: what is denied, what is permitted, and the groups of the advanced list. */
static const RANGE_S DENIED[] = {{{10, 1}, 2}, {{0x20, 0x01, 0x0d, 0xb8, 0x00, 0x01}, 6}};
static const RANGE_S PERMITTED[] = {{{10}, 1}, {{0x20, 0x01, 0x0d, 0xb8}, 4}};
static const RANGE_S GROUPS[] = {{{232}, 1}, {{0xff, 0x3e}, 2}};

static int IsFamily(uint32_t family_index)
{
    return family_index == ACL_FAMILY_IPV4 || family_index == ACL_FAMILY_IPV6;
}

static int Within(const uint8_t *address, const RANGE_S *range)
{
    return memcmp(address, range->bytes, range->length) == 0;
}

static void NetworkOrder(uint32_t value, uint8_t *address)
{
    for (int i = 0; i < 4; ++i) {
        address[i] = (uint8_t)(value >> (24 - 8 * i));
    }
}

uint32_t ACL_GetGroupTypeByIndex(uint32_t family_index, uint32_t acl_number)
{
    if (!IsFamily(family_index) || (acl_number != BASIC && acl_number != EMPTY && acl_number != ADVANCED)) {
        return 0;
    }
    if (acl_number == ADVANCED) {
        return ADVANCED_TYPE;
    }
    return family_index == ACL_FAMILY_IPV4 ? ACL_GROUP_SINGLE_IPV4 : ACL_GROUP_SINGLE_IPV6;
}

uint32_t ACL_GetRuleTotalNumber(uint32_t family_index, uint32_t acl_number)
{
    return IsFamily(family_index) && (acl_number == BASIC || acl_number == ADVANCED) ? 2 : 0;
}

uint32_t ACL_MatchWithPacketInfo(uint32_t family_index, uint32_t acl_number, const void *packet_info,
                                 uint32_t count, uint32_t *result, uint32_t *action)
{
    uint8_t first[16] = {0};
    uint8_t second[16] = {0};
    (void)count;
    if (ACL_GetGroupTypeByIndex(family_index, acl_number) == 0) {
        return ACL_ERR_NO_ACL;
    }
    if (acl_number == EMPTY) {
        return ACL_ERR_NO_RULE;
    }
    if (family_index == ACL_FAMILY_IPV4) {
        const ACL_PACKET_INFO4_S *info = packet_info;
        NetworkOrder(info->first, first);
        NetworkOrder(info->second, second);
    } else {
        const ACL_PACKET_INFO6_S *info = packet_info;
        memcpy(first, info->first, sizeof(first));
        memcpy(second, info->second, sizeof(second));
    }
    const uint32_t row = family_index - ACL_FAMILY_IPV4;
    const int permitted = Within(first, &PERMITTED[row]) &&
                          (acl_number == BASIC ? !Within(first, &DENIED[row]) : Within(second, &GROUPS[row]));
    *result = 0;
    *action = permitted ? ACL_ACTION_PERMIT : ACL_ACTION_DENY;
    return 0;
}
