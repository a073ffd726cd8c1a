/* One record of every kind, filled, for gdb_test.py to look at when the program stops in StopHere. */
#include "stopped.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <stdio.h>

#include "mcast/avl.h"
#include "mcast/heap.h"
#include "mcast/mrib.h"
#include "mcast/mtable.h"
#include "mcast/radix.h"
#include "mcast/route_table.h"
#include "mcast/timer.h"
#include "mcasthost/loop.h"

struct ITEM_S {
    uint64_t position;
    int weight;
};

static MCAST_ADDR_S g_address4, g_address6;
static MRT_TABLE_S *g_routes;
static MTABLE_S g_members;
static MCAST_AVL_S g_items;
static MCAST_MINHEAP_S *g_heap;
static MCAST_TMR_S *g_timers;

void StopHere(void);

static MCAST_ADDR_S Address(const char *text)
{
    MCAST_ADDR_S address = {.family = MCAST_FAMILY_IPV4};
    if (inet_pton(AF_INET, text, address.address) != 1) {
        address.family = MCAST_FAMILY_IPV6;
        inet_pton(AF_INET6, text, address.address);
    }
    return address;
}

static void FillRoutes(void)
{
    static int user_data;
    const MCAST_ADDR_S first = Address("239.1.0.0"), second = Address("239.2.2.2");
    const MCAST_ADDR_S one = Address("10.1.1.1"), other = Address("10.2.0.0");
    g_routes = MRT_CreateTable(MCAST_FAMILY_IPV4, "routes", NULL, NULL);
    MRT_CreateEntryMask(g_routes, &first, 16, &one, 32);
    MRT_CreateEntryMask(g_routes, &second, 32, &one, 32);
    MRT_CreateEntryMask(g_routes, &second, 32, &other, 16)->user_data = &user_data;
}

static void FillMembers(void)
{
    static MTABLE_GROUP_S groups[2];
    static MTABLE_SOURCE_S sources[2];
    const MCAST_ADDR_S first = Address("ff0e::1"), second = Address("ff0e::2");
    MTable_Init(&g_members, NULL);
    MTable_InitGroup(&groups[0], &first, NULL);
    MTable_InitGroup(&groups[1], &second, NULL);
    MTable_InsertGroup(&g_members, &groups[1]);
    MTable_InsertGroup(&g_members, &groups[0]);
    sources[0].address = Address("2001:db8::2");
    sources[1].address = Address("2001:db8::1");
    MTable_InsertSource(&groups[1], &sources[0]);
    MTable_InsertSource(&groups[1], &sources[1]);
}

static int32_t OrderItems(const void *first, const void *second)
{
    return ((const struct ITEM_S *)first)->weight - ((const struct ITEM_S *)second)->weight;
}

static int64_t OrderElements(const void *first, const void *second)
{
    return OrderItems(first, second);
}

static void SetIndex(void *element, const uint64_t *position)
{
    ((struct ITEM_S *)element)->position = *position;
}

static void FillItems(void)
{
    static struct ITEM_S items[3] = {{0, 30}, {0, 10}, {0, 20}};
    static MCAST_AVL_NODE_S nodes[3];
    MCAST_AVL_SetFunction(&g_items, OrderItems, NULL, NULL, NULL, NULL);
    g_heap = MCAST_MinHeapCreate(16, OrderElements, SetIndex);
    for (int i = 0; i < 3; ++i) {
        nodes[i].data = &items[i];
        MCAST_AVL_Insert(&g_items, &nodes[i]);
        MCAST_MinHeapInsert(g_heap, &items[i]);
    }
}

static void OnPlatformTimer(uint64_t parameters[4])
{
    (void)parameters;
}

static void OnTimer(uint64_t data[4])
{
    (void)data;
}

static void FillTimers(void)
{
    const uint64_t data[4] = {1, 2, 3, 4};
    g_timers = MCAST_TMR_Create(HOST_LoopTimerService(HOST_LoopCreate()), OnPlatformTimer, NULL);
    MCAST_TMR_AddNode(g_timers, 3000, OnTimer, data);
    MCAST_TMR_AddNode(g_timers, 1000, OnTimer, NULL);
    MCAST_TMR_AddNode(g_timers, 2000, NULL, NULL);
}

/* What stands for the socket takes no message, so that they wait. */
static void FillChannel(void)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 1};
    const MCAST_ADDR_S group = Address("239.1.1.1");
    const MRIB_VRF_STATE_S enabled = {.vrf_index = 1, .state = 1};
    MRIB_GMP_Init(4, MCAST_FAMILY_IPV4, 2, 256, NULL);
    g_stMribConnectInfo.socket = open("/dev/null", O_RDWR);
    for (int i = 0; i < 7; ++i) {
        MRIB_GMP_SendGmpJoinPrune(&key, 7, &group, NULL, 1, 0);
    }
    MRIB_GMP_SendGmpEnableAlert(&key, 7, 1, 0);
    mribGmpTLVProc(MRIB_TLV_VRF_STATE, sizeof(enabled), &enabled);
}

void StopHere(void)
{
    puts("everything is there");
}

int main(void)
{
    g_address4 = Address("192.0.2.1");
    g_address6 = Address("2001:db8::1");
    FillRoutes();
    FillMembers();
    FillItems();
    FillTimers();
    FillChannel();
    if (AnnounceUsers() != 0) {
        return 1;
    }
    StopHere();
    return 0;
}
