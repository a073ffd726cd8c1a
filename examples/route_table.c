/*
 * A route table of group ranges that age: the longest match, walks that delete as they go, ageing timers.
 *
 *     printf '%s\n' 'add 239.0.0.0/8 2' 'add 239.1.0.0/16 1' 'match 239.1.2.3' show | ./route_table
 *
 * Commands on standard input, one a line; at its end the program waits until every range has aged that ages.
 *
 *     add RANGE [SECONDS]    a range, or a known one again: it ages so many seconds from now, or never
 *     match GROUP            the longest range that covers the group
 *     delete RANGE           every range within this one
 *     show                   all ranges, in order
 */
#include <mcast/route_table.h>
#include <mcast/timer.h>
#include <mcasthost/address.h>
#include <mcasthost/loop.h>
#include <stdio.h>
#include <string.h>

static MRT_TABLE_S *tables[2]; /* IPv4, IPv6: a table holds addresses of one family */
static MCAST_TMR_S *timers;
static int32_t loop;

static MRT_TABLE_S *table_of(const MCAST_ADDR_S *address)
{
    return tables[address->family == MCAST_FAMILY_IPV6];
}

static void print_range(const char *what, const MRT_GROUP_S *range)
{
    char text[HOST_ADDRESS_TEXT_SIZE];
    printf("%s %s/%u\n", what, HOST_AddressToText(range->address, text), range->mask_length);
}

/* The table gives back an entry's user data, here its ageing timer, before it frees the entry. */
static void release(void **user_data)
{
    MCAST_TMR_DeleteNode(timers, (MCAST_TMR_NODE_S *)*user_data);
}

/* A range is due. Its own timer is out of the manager by now: that release deletes it changes nothing. */
static void age(uint64_t data[4])
{
    MRT_GROUP_S *range = (MRT_GROUP_S *)(uintptr_t)data[0];
    print_range("aged", range);
    MRT_DeleteGroup(range);
    if (timers->heap->count == 0) {
        HOST_LoopStop(loop);
    }
}

/* The one platform timer behind all of the manager's fired, on the loop's thread. */
static void timers_due(uint64_t parameters[4])
{
    (void)parameters;
    MCAST_TMR_ProcExpires(timers);
}

static int add(const MCAST_ADDR_S *address, uint32_t length, unsigned seconds)
{
    MRT_GROUP_S *range = MRT_CreateGroupMask(table_of(address), address, length);
    if (range == NULL) {
        return 0;
    }
    if (range->user_data != NULL && seconds != 0) {
        MCAST_TMR_RefreshNode(timers, (MCAST_TMR_NODE_S *)range->user_data, seconds);
    } else if (range->user_data != NULL) {
        MCAST_TMR_DeleteNode(timers, (MCAST_TMR_NODE_S *)range->user_data);
        range->user_data = NULL;
    } else if (seconds != 0) {
        const uint64_t data[4] = {(uintptr_t)range, 0, 0, 0};
        range->user_data = MCAST_TMR_AddNode(timers, seconds, age, data);
    }
    return seconds == 0 || range->user_data != NULL;
}

static void match(const MCAST_ADDR_S *group, uint32_t length)
{
    const MRT_GROUP_S *range = (const MRT_GROUP_S *)MRT_BestMatch(table_of(group), group, length);
    if (range == NULL) {
        puts("match nothing");
    } else {
        print_range("match", range);
    }
}

/* What a walk has just yielded may be deleted: the walk has already moved on. An empty table has no walk. */
static void delete_within(const MCAST_ADDR_S *address, uint32_t length)
{
    MRT_WALK_S *walk = MRT_Walk_Subset(table_of(address), address, length);
    MRT_GROUP_S *range;
    while ((range = (MRT_GROUP_S *)MRT_WalkNext(walk)) != NULL) {
        print_range("delete", range);
        MRT_DeleteGroup(range);
    }
    MRT_DeleteWalk(walk);
}

static void show(MRT_TABLE_S *table)
{
    MRT_WALK_S *walk = MRT_CreateWalk(table);
    const MRT_GROUP_S *range;
    while ((range = (const MRT_GROUP_S *)MRT_WalkNext(walk)) != NULL) {
        print_range("show", range);
    }
    MRT_DeleteWalk(walk);
}

static int obey(const char *line)
{
    char command[16];
    char text[64];
    unsigned seconds = 0;
    MCAST_ADDR_S address;
    uint32_t length;
    const int words = sscanf(line, "%15s %63s %u", command, text, &seconds);
    if (words == 1 && strcmp(command, "show") == 0) {
        show(tables[0]);
        show(tables[1]);
        return 1;
    }
    if (words < 2 || HOST_PrefixFromText(text, &address, &length) != 0) {
        return 0;
    }
    if (strcmp(command, "add") == 0) {
        return add(&address, length, seconds);
    }
    if (strcmp(command, "match") == 0) {
        match(&address, length);
        return 1;
    }
    if (strcmp(command, "delete") == 0) {
        delete_within(&address, length);
        return 1;
    }
    return 0;
}

int main(void)
{
    char line[128];
    loop = HOST_LoopCreate();
    timers = MCAST_TMR_Create(HOST_LoopTimerService(loop), timers_due, NULL);
    tables[0] = MRT_CreateTable(MCAST_FAMILY_IPV4, "IPv4", release, NULL);
    tables[1] = MRT_CreateTable(MCAST_FAMILY_IPV6, "IPv6", release, NULL);
    if (loop < 0 || timers == NULL || tables[0] == NULL || tables[1] == NULL) {
        perror("route_table");
        return 1;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    while (fgets(line, sizeof(line), stdin) != NULL) {
        if (!obey(line)) {
            printf("not understood, or no memory: %s", line);
        }
    }
    if (timers->heap->count != 0) {
        HOST_LoopRun(loop);
    }
    MRT_DestroyTable(tables[0]);
    MRT_DestroyTable(tables[1]);
    MCAST_TMR_Destroy(timers);
    HOST_LoopDestroy(loop);
    return 0;
}
