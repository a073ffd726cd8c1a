/* The member channel's records, its counters, and what a C program gets without a peer. */
#include "abi.h"

static void check_records(void)
{
    ABI_SIZE(MBR_BLOCK_S, 1424);
    ABI_AT(MBR_BLOCK_S, next, 0);
    ABI_AT(MBR_BLOCK_S, previous, 8);
    ABI_AT(MBR_BLOCK_S, reserved, 16);
    ABI_AT(MBR_BLOCK_S, used, 20);
    ABI_AT(MBR_BLOCK_S, datagram, 24);
    ABI_SIZE(MBR_CHANNEL_S, 48);
    ABI_AT(MBR_CHANNEL_S, socket, 0);
    ABI_AT(MBR_CHANNEL_S, family, 4);
    ABI_AT(MBR_CHANNEL_S, module, 5);
    ABI_AT(MBR_CHANNEL_S, epoll, 8);
    ABI_AT(MBR_CHANNEL_S, events, 16);
    ABI_AT(MBR_CHANNEL_S, block_count, 24);
    ABI_AT(MBR_CHANNEL_S, queue, 32);
    ABI_SIZE(MBR_LIB_STAT_S, 8);
    ABI_AT(MBR_LIB_STAT_S, send_failures, 0);
    ABI_AT(MBR_LIB_STAT_S, refused, 4);
}

/* A channel record of the program's own: closed, it refuses and counts nothing. */
static void check_closed_channel(void)
{
    MBR_CHANNEL_S channel = {MCAST_NONE, 0, 0, MCAST_NONE, 0, 0, {NULL, NULL}};
    abi_check("MBR_LIB_IsAlreadyReg", MBR_LIB_IsAlreadyReg(MCAST_FAMILY_IPV4), MCAST_FALSE);
    abi_check("MBR_LIB_Init of no family", MBR_LIB_Init(7, 0, 0, 1), MCAST_NONE);
    abi_check("MBR_LIB_SendMsg", MBR_LIB_SendMsg(MCAST_FAMILY_IPV4, 1, 1, "x", 1), MCAST_ERR_NOT_INIT);
    abi_check("MBR_LIB_RegEvt", MBR_LIB_RegEvt(MCAST_FAMILY_IPV6, 1), MCAST_ERR_GENERAL);
    abi_check("MBR_LIB_DeRegEvt", MBR_LIB_DeRegEvt(MCAST_FAMILY_IPV6, 1), MCAST_ERR_GENERAL);
    abi_check("MbrLib_RegFinalEvt, same mask", MbrLib_RegFinalEvt(&channel, 0, 0), MCAST_OK);
    abi_check("MbrLib_RegFinalEvt", MbrLib_RegFinalEvt(&channel, 0, 1), MCAST_ERR_GENERAL);
    MBR_LIB_Fini(MCAST_FAMILY_IPV4);
    abi_check("send failures", g_stMbrLibStat.send_failures, 0);
    abi_check("refused", g_stMbrLibStat.refused, 0);
}

int main(void)
{
    check_records();
    check_closed_channel();
    return ABI_RESULT();
}
