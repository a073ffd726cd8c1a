/* Access lists that the driver configured as driver.h says. */
#include <string.h>

#include "check.h"
#include "driver.h"
#include "mcast/platform/acl.h"

static const uint32_t FAMILIES[] = {ACL_FAMILY_IPV4, ACL_FAMILY_IPV6};

/* One address of a row, in the form of each family. */
typedef struct ADDRESS_S {
    uint32_t ipv4;   /* host order */
    uint8_t ipv6[6]; /* the first bytes; zeroes and a one follow */
} ADDRESS_S;

static const ADDRESS_S WITHIN = {0x0a020304u, {0x20, 0x01, 0x0d, 0xb8, 0x00, 0x02}};
static const ADDRESS_S DENIED = {0x0a010304u, {0x20, 0x01, 0x0d, 0xb8, 0x00, 0x01}};
static const ADDRESS_S GROUP = {0xe8010101u, {0xff, 0x3e, 0, 0, 0, 0}};
static const ADDRESS_S OTHER_GROUP = {0xe9010101u, {0xff, 0x0e, 0, 0, 0, 0}};

typedef struct VERDICT_S {
    uint32_t code;
    uint32_t action;
} VERDICT_S;

static void Fill6(uint8_t address[16], const ADDRESS_S *from)
{
    memcpy(address, from->ipv6, sizeof(from->ipv6));
    address[15] = 1;
}

/* The verdict on a packet; an address that is NULL is in no slot. The action starts as the library presets it. */
static VERDICT_S Match(uint32_t family, uint32_t number, const ADDRESS_S *first, const ADDRESS_S *second)
{
    ACL_PACKET_INFO4_S info4;
    ACL_PACKET_INFO6_S info6;
    VERDICT_S verdict = {0, ACL_ACTION_DENY};
    uint32_t result = 0;
    memset(&info4, 0, sizeof(info4));
    memset(&info6, 0, sizeof(info6));
    info4.slots = info6.slots = (first != NULL ? ACL_SLOT_FIRST : 0) | (second != NULL ? ACL_SLOT_SECOND : 0);
    if (first != NULL) {
        info4.first = first->ipv4;
        Fill6(info6.first, first);
    }
    if (second != NULL) {
        info4.second = second->ipv4;
        Fill6(info6.second, second);
    }
    const void *info = family == ACL_FAMILY_IPV4 ? (const void *)&info4 : (const void *)&info6;
    verdict.code = ACL_MatchWithPacketInfo(family, number, info, 1, &result, &verdict.action);
    return verdict;
}

static int Permits(uint32_t family, uint32_t number, const ADDRESS_S *first, const ADDRESS_S *second)
{
    const VERDICT_S verdict = Match(family, number, first, second);
    CHECK(verdict.code == 0);
    return verdict.code == 0 && verdict.action == ACL_ACTION_PERMIT;
}

/* The number of a list, or 0 with the case marked as skipped. */
static uint32_t ListOf(uint32_t family, size_t field)
{
    PORT_ACCESS_LISTS_S lists;
    uint32_t number = 0;
    memset(&lists, 0, sizeof(lists));
    if (PORT_AccessLists(family, &lists) == 0) {
        memcpy(&number, (const char *)&lists + field, sizeof(number));
    }
    if (number == 0) {
        PORT_Skip("the driver has not all of these lists");
    }
    return number;
}

#define EACH_LIST(field, family, number)                                                                     \
    for (size_t at = 0; at < 2; ++at)                                                                        \
        for (uint32_t family = FAMILIES[at], number = ListOf(family, offsetof(PORT_ACCESS_LISTS_S, field));  \
             number != 0; number = 0)

static void ABasicListJudgesTheFirstAddress(void)
{
    EACH_LIST(basic, family, number)
    {
        CHECK(ACL_GetGroupTypeByIndex(family, number) ==
              (family == ACL_FAMILY_IPV4 ? ACL_GROUP_SINGLE_IPV4 : ACL_GROUP_SINGLE_IPV6));
        CHECK(number >= ACL_BASIC_FIRST && number <= ACL_BASIC_LAST);
        CHECK(ACL_GetRuleTotalNumber(family, number) == 2);
        CHECK(Permits(family, number, &WITHIN, NULL));
        CHECK(!Permits(family, number, &DENIED, NULL));
        CHECK(Permits(family, number, &WITHIN, &DENIED));
        CHECK(!Permits(family, number, &DENIED, &WITHIN));
    }
}

static void AnAdvancedListJudgesBothAddresses(void)
{
    EACH_LIST(advanced, family, number)
    {
        const uint32_t type = ACL_GetGroupTypeByIndex(family, number);
        CHECK(type != 0 && type != ACL_GROUP_SINGLE_IPV4 && type != ACL_GROUP_SINGLE_IPV6);
        CHECK(ACL_GetRuleTotalNumber(family, number) == 2);
        CHECK(Permits(family, number, &WITHIN, &GROUP));
        CHECK(!Permits(family, number, &WITHIN, &OTHER_GROUP));
        CHECK(!Permits(family, number, &GROUP, &WITHIN));
    }
}

static void AnEmptyListSaysSo(void)
{
    EACH_LIST(empty, family, number)
    {
        CHECK(ACL_GetGroupTypeByIndex(family, number) ==
              (family == ACL_FAMILY_IPV4 ? ACL_GROUP_SINGLE_IPV4 : ACL_GROUP_SINGLE_IPV6));
        CHECK(ACL_GetRuleTotalNumber(family, number) == 0);
        CHECK(Match(family, number, &WITHIN, NULL).code == ACL_ERR_NO_RULE);
    }
}

static void AnAbsentListSaysSo(void)
{
    EACH_LIST(absent, family, number)
    {
        CHECK(ACL_GetGroupTypeByIndex(family, number) == 0);
        CHECK(ACL_GetRuleTotalNumber(family, number) == 0);
        CHECK(Match(family, number, &WITHIN, NULL).code == ACL_ERR_NO_ACL);
    }
}

const char *const PORT_SERVICE = "access lists";
const PORT_CASE_S PORT_CASES[] = {
    {"a basic list judges the first address", ABasicListJudgesTheFirstAddress},
    {"an advanced list judges both addresses", AnAdvancedListJudgesBothAddresses},
    {"an empty list says so", AnEmptyListSaysSo},
    {"an absent list says so", AnAbsentListSaysSo},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
