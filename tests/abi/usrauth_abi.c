/* The user authentication's records and messages, and a life cycle through the shared library. */
#include <mcasthost/loop.h>

#include "abi.h"

static void check_records(void)
{
    ABI_SIZE(MCAST_USRAUTH_CALLBACKS_S, 48);
    ABI_AT(MCAST_USRAUTH_CALLBACKS_S, user_online, 0);
    ABI_AT(MCAST_USRAUTH_CALLBACKS_S, user_offline, 8);
    ABI_AT(MCAST_USRAUTH_CALLBACKS_S, user_changed, 16);
    ABI_AT(MCAST_USRAUTH_CALLBACKS_S, refresh_ended, 24);
    ABI_AT(MCAST_USRAUTH_CALLBACKS_S, node_kind_changed, 32);
    ABI_AT(MCAST_USRAUTH_CALLBACKS_S, message_filter, 40);
    ABI_AT(MCAST_USRAUTH_USER_S, node_link, 0);
    ABI_AT(MCAST_USRAUTH_USER_S, interface_link, 32);
    ABI_AT(MCAST_USRAUTH_USER_S, user_id, 64);
    ABI_AT(MCAST_USRAUTH_USER_S, kind, 68);
    ABI_AT(MCAST_USRAUTH_USER_S, access_if_index, 72);
    ABI_AT(MCAST_USRAUTH_USER_S, if_index, 76);
    ABI_AT(MCAST_USRAUTH_USER_S, address, 80);
    ABI_AT(MCAST_USRAUTH_USER_S, vrf_index, 100);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_40, 102);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_32, 104);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_34, 106);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_24, 108);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_36, 112);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_80, 116);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_84, 120);
    ABI_AT(MCAST_USRAUTH_USER_S, hardware_address_first, 124);
    ABI_AT(MCAST_USRAUTH_USER_S, hardware_address_last, 128);
    ABI_AT(MCAST_USRAUTH_USER_S, attribute_70, 130);
    ABI_AT(MCAST_USRAUTH_USER_S, second_address, 132);
    ABI_AT(MCAST_USRAUTH_USER_S, flags, 152);
    ABI_AT(MCAST_USRAUTH_USER_S, node, 160);
    ABI_AT(MCAST_USRAUTH_USER_S, next_of_kind, 168);
    ABI_AT(MCAST_USRAUTH_USER_S, groups, 176);
    ABI_AT(MCAST_USRAUTH_USER_S, name, 200);
    ABI_SIZE(MCAST_USRAUTH_ENTRY_S, 72);
    ABI_AT(MCAST_USRAUTH_ENTRY_S, flags, 64);
    ABI_SIZE(MCAST_USRAUTH_STATISTICS_S, 200);
    ABI_AT(MCAST_USRAUTH_STATISTICS_S, receive_count, 0);
    ABI_AT(MCAST_USRAUTH_STATISTICS_S, messages, 4);
    ABI_SIZE(MCAST_USRAUTH_MSG_DETAIL_S, 64);
    ABI_AT(MCAST_USRAUTH_MSG_DETAIL_S, node, 32);
    ABI_AT(MCAST_USRAUTH_MSG_DETAIL_S, user_id, 36);
    ABI_AT(MCAST_USRAUTH_MSG_DETAIL_S, counts, 40);
    ABI_SIZE(MCAST_USRAUTH_USER_FILTER_S, 32);
    ABI_AT(MCAST_USRAUTH_USER_FILTER_S, if_index, 4);
    ABI_AT(MCAST_USRAUTH_USER_FILTER_S, group_cursor, 16);
    ABI_AT(MCAST_USRAUTH_USER_FILTER_S, source_cursor, 24);
    ABI_SIZE(MCAST_USRAUTH_DETAIL_FILTER_S, 16);
    ABI_AT(MCAST_USRAUTH_DETAIL_FILTER_S, user_id, 8);
    ABI_AT(MCAST_USRAUTH_DETAIL_FILTER_S, node, 12);
}

static void check_messages(void)
{
    ABI_SIZE(USRAUTH_MSG_HEADER_S, 4);
    ABI_SIZE(USRAUTH_USER_S, 88);
    ABI_AT(USRAUTH_USER_S, access_if_index_be, 4);
    ABI_AT(USRAUTH_USER_S, address, 8);
    ABI_AT(USRAUTH_USER_S, attribute_24_be, 24);
    ABI_AT(USRAUTH_USER_S, kind_be, 28);
    ABI_AT(USRAUTH_USER_S, attribute_32_be, 32);
    ABI_AT(USRAUTH_USER_S, attribute_40_be, 40);
    ABI_AT(USRAUTH_USER_S, vrf_index_be, 42);
    ABI_AT(USRAUTH_USER_S, node_be, 44);
    ABI_AT(USRAUTH_USER_S, name_length_be, 46);
    ABI_AT(USRAUTH_USER_S, second_address, 48);
    ABI_AT(USRAUTH_USER_S, hardware_address, 64);
    ABI_AT(USRAUTH_USER_S, entry_count_be, 72);
    ABI_AT(USRAUTH_USER_S, name_offset_be, 76);
    ABI_AT(USRAUTH_USER_S, entry_size_be, 78);
    ABI_AT(USRAUTH_USER_S, attribute_80_be, 80);
    ABI_AT(USRAUTH_USER_S, attribute_84_be, 84);
    ABI_SIZE(USRAUTH_GROUP_ENTRY_S, 32);
    ABI_AT(USRAUTH_GROUP_ENTRY_S, group, 16);
    ABI_SIZE(USRAUTH_GROUP_LIST_S, 20);
    ABI_AT(USRAUTH_GROUP_LIST_S, kind_be, 8);
    ABI_AT(USRAUTH_GROUP_LIST_S, list_offset_be, 16);
    ABI_SIZE(USRAUTH_REFRESH_S, 8);
    ABI_AT(USRAUTH_REFRESH_S, kind_be, 4);
}

static void check_life_cycle(void)
{
    const MCAST_USRAUTH_CALLBACKS_S callbacks = {0};
    const int32_t loop = HOST_LoopCreate();
    const TIMER_SERVICE timers = HOST_LoopTimerService(loop);
    MCAST_USRAUTH_STATISTICS_S statistics;
    MCAST_USRAUTH_INFO_S info;
    abi_check("the lock", sizeof(g_stUsrAuthRWLock), sizeof(pthread_rwlock_t));
    abi_check("no timers", MCAST_USRAUTH_Init(MCAST_FAMILY_IPV4, loop, NULL, &callbacks), MCAST_ERR_GENERAL);
    abi_check("init", MCAST_USRAUTH_Init(MCAST_FAMILY_IPV4, loop, timers, &callbacks), MCAST_OK);
    abi_check("users", MCAST_USRAUTH_UserCount(), 0);
    abi_check("nobody", MCAST_USRAUTH_GetInfoByIfIndex(7, &info), MCAST_ERR_GENERAL);
    abi_check("nobody's ID", info.user_id, 0xffffffffu);
    abi_check("nobody's family", info.address.family, MCAST_FAMILY_IPV4);
    abi_check("statistics", MCAST_USRAUTH_GetStatistics(&statistics), MCAST_OK);
    abi_check("reads", statistics.receive_count, 0);
    abi_check("nothing to stop", MCAST_USRAUTH_StopServer(), MCAST_FALSE);
    abi_check("degrade", MCAST_USRAUTH_Degrade(), MCAST_OK);
    abi_check("fini", MCAST_USRAUTH_Fini(), MCAST_OK);
    HOST_LoopDestroy(loop);
}

int main(void)
{
    check_records();
    check_messages();
    check_life_cycle();
    return ABI_RESULT();
}
