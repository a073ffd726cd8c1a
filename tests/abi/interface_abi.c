/* Interface records and tables, the ACL and selector records of the platform, and use from C. */
#include <string.h>

#include "abi.h"
#include "platform/acl.h"

static void check_records(void)
{
    ABI_SIZE(MCAST_IF_TYPE_ROW_S, 16);
    ABI_AT(MCAST_IF_TYPE_ROW_S, type, 0);
    ABI_AT(MCAST_IF_TYPE_ROW_S, name, 8);
    ABI_SIZE(MCAST_IF_JOIN_SUB_S, sizeof(AVL_NODE_S) + 8);
    ABI_AT(MCAST_IF_JOIN_SUB_S, sub_if_index, sizeof(AVL_NODE_S));
    ABI_SIZE(MCAST_IF_JOIN_PARENT_S, sizeof(AVL_NODE_S) + 16);
    ABI_AT(MCAST_IF_JOIN_PARENT_S, parent_if_index, sizeof(AVL_NODE_S));
    ABI_AT(MCAST_IF_JOIN_PARENT_S, sub_interfaces, sizeof(AVL_NODE_S) + 8);
    ABI_SIZE(IF_SELECTOR_S, 128);
    ABI_SIZE(ACL_PACKET_INFO4_S, 24);
    ABI_AT(ACL_PACKET_INFO4_S, first, 0);
    ABI_AT(ACL_PACKET_INFO4_S, second, 4);
    ABI_AT(ACL_PACKET_INFO4_S, slots, 8);
    ABI_AT(ACL_PACKET_INFO4_S, vrf_index, 12);
    ABI_SIZE(ACL_PACKET_INFO6_S, 48);
    ABI_AT(ACL_PACKET_INFO6_S, first, 0);
    ABI_AT(ACL_PACKET_INFO6_S, second, 16);
    ABI_AT(ACL_PACKET_INFO6_S, slots, 32);
    ABI_AT(ACL_PACKET_INFO6_S, vrf_index, 40);
    ABI_SIZE(RC_TEXT_TABLE_S, 16);
    ABI_AT(RC_TEXT_TABLE_S, reserved, 8);
}

static void check_tables(void)
{
    abi_check("rows of g_astMcastL3If", sizeof(g_astMcastL3If) / sizeof(g_astMcastL3If[0]), 29);
    abi_check("last type of g_astMcastL3If", g_astMcastL3If[27].type, 111);
    abi_check("rows of g_astMcastL3EthernetIf", sizeof(g_astMcastL3EthernetIf) / 16, 11);
    abi_check("rows of g_astMcastL3EthVsiIf", sizeof(g_astMcastL3EthVsiIf) / 16, 12);
    abi_check("rows of g_astAuthL3If", sizeof(g_astAuthL3If) / 16, 13);
    abi_check("end of g_astAuthL3If", g_astAuthL3If[12].name == NULL, 1);
}

static void check_life_cycle(void)
{
    uint32_t count = 0;
    abi_check("MCAST_IF_Init", MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV4), MCAST_OK);
    abi_check("MCAST_CreateIf", MCAST_CreateIf(), 0xD0000000u);
    abi_check("MCAST_CreateSimplyIf", MCAST_CreateSimplyIf(), 0xFE000000u);
    abi_check("MCAST_AddToSameJoinGroupIf", MCAST_AddToSameJoinGroupIf(1, 2, &count), MCAST_OK);
    abi_check("sub-interfaces", count, 1);
    abi_check("MCAST_IF_Fini", MCAST_IF_Fini(), MCAST_OK);
}

static uint64_t print(char *buffer, size_t size, const char *format, ...)
{
    va_list args;
    uint64_t length;
    va_start(args, format);
    length = MCAST_vsprintf(NULL, MCAST_NONE, 0, format, args, size, buffer);
    va_end(args);
    return length;
}

static void check_line(void)
{
    static const char expected[] = "join (10.0.0.1, ff0e::1) on Multicast-UA7: -5 4294967295 1.50 x";
    const MCAST_ADDR_S source = {MCAST_FAMILY_IPV4, 0, {10, 0, 0, 1}};
    const MCAST_ADDR_S group = {MCAST_FAMILY_IPV6, 0, {0xff, 0x0e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
    char line[128];
    abi_check("length of a line",
              print(line, sizeof(line), "join (%M, %N) on %P: %ld %u %.2f %c", &source, &group, 0xD0000007u,
                    -5, 0xffffffffu, 1.5, 'x'),
              sizeof(expected) - 1);
    abi_check(line, strcmp(line, expected) == 0, 1);
}

static void check_filter(void)
{
    const uint8_t family = MCAST_FAMILY_IPV4;
    abi_check("no list is no valid one", MCAST_IsAclValid(&family, MCAST_NONE), MCAST_FALSE);
    abi_check("no list lets a group pass", MCAST_GrpFilterByAcl(NULL, MCAST_NONE, NULL, 1, 2), MCAST_TRUE);
}

int main(void)
{
    check_records();
    check_tables();
    check_life_cycle();
    check_line();
    check_filter();
    return ABI_RESULT();
}
