/*
 * A program on the library and a platform that is not the host's: with "works" a group and source table and a timer
 * manager must do what they are for, with "fails" both must refuse because nothing is ported.
 */
#include <string.h>

#include "mcast/event.h"
#include "mcast/mtable.h"
#include "mcast/timer.h"

static void Handler(uint64_t parameters[4])
{
    (void)parameters;
}

static void Release(void *group)
{
    (void)group;
}

/* Whether a table takes a group and finds it again. */
static int TableWorks(void)
{
    MTABLE_S table;
    MTABLE_GROUP_S group;
    const MCAST_ADDR_S address = {MCAST_FAMILY_IPV4, 0, {232, 1, 1, 1}};
    memset(&group, 0, sizeof(group));
    if (MTable_Init(&table, Release) != MCAST_OK) {
        return 0;
    }
    const int works = MTable_InitGroup(&group, &address, Release) == MCAST_OK &&
                      MTable_InsertGroup(&table, &group) == MCAST_OK &&
                      MTable_SearchGroup(&table, &address) == &group;
    MTable_Fini(&table);
    return works;
}

int main(int argc, char **argv)
{
    static uint64_t place;
    const int must_work = argc == 2 && strcmp(argv[1], "works") == 0;
    if (TableWorks() != must_work) {
        return 1;
    }
    if (must_work) {
        return MCAST_Rand(10) < 10 ? 0 : 2;
    }
    return MCAST_TMR_Create((TIMER_SERVICE)(void *)&place, Handler, NULL) == NULL ? 0 : 3;
}
