/*
 * The group and source table: trees of the platform, one of groups and one of sources in each group.
 *
 *     MTABLE_S                 group record                    source record
 *     groups ───────► tree ──► node, address, caller's ...
 *     counts                   sources ───────────► tree ────► node, address, caller's ...
 *     group_release            source_release                  group ─────► its group record
 *                              owner ───► MTABLE_S
 *
 * The trees link the callers' records and tell, when they let go of one, its release function through the
 * pointers that lead upwards; that is why owner and group stay set until a record has been handed over.
 *
 * group_count is the number of records in the tree of groups, source_count the number of sources in all
 * groups of that tree. A group that is taken out keeps its sources, so they leave the count with it.
 */
#include "mcast/mtable.h"

#include <string.h>

#include "container/mtable_address.h"
#include "probe/probe.h"

namespace
{

using mcast::mtable::CopyAddress;
using mcast::mtable::FirstAfter;
using mcast::probe::Entry;
using mcast::probe::EntryMade;
using mcast::probe::EntryRemoved;

void Lower(uint32_t *count, uint32_t by)
{
    *count = *count > by ? *count - by : 0;
}

void Release(MTABLE_RELEASE release, void *record)
{
    if (release != nullptr) {
        release(record);
    }
}

/* The free function of a group's source tree. */
void FreeSource(void *record)
{
    MTABLE_SOURCE_S *source = static_cast<MTABLE_SOURCE_S *>(record);
    EntryRemoved(Entry::kSource, source, &source->address, 0, source->group);
    Release(source->group->source_release, source);
}

/* The free function of a table's group tree. */
void FreeGroup(void *record)
{
    MTABLE_GROUP_S *group = static_cast<MTABLE_GROUP_S *>(record);
    EntryRemoved(Entry::kGroup, group, &group->address, 0, group->owner);
    MTable_FiniGroup(group);
    Release(group->owner->group_release, group);
}

} // namespace

MCAST_STATUS MTable_Init(MTABLE_S *table, MTABLE_RELEASE group_release)
{
    memset(table, 0, sizeof(*table));
    table->group_release = group_release;
    table->groups = AVL_Init(MTable_GrpAvlNodeCmp, 0, FreeGroup);
    return table->groups != 0 ? MCAST_OK : MCAST_ERR_GENERAL;
}

void MTable_Fini(MTABLE_S *table)
{
    if (table->groups != 0) {
        AVL_Fini(table->groups);
        memset(table, 0, sizeof(*table));
    }
}

MCAST_STATUS MTable_InitGroup(MTABLE_GROUP_S *group, const MCAST_ADDR_S *address,
                              MTABLE_RELEASE source_release)
{
    group->owner = nullptr;
    group->source_release = source_release;
    CopyAddress(&group->address, address);
    group->sources = AVL_Init(MTable_SrcAvlNodeCmp, 0, FreeSource);
    return group->sources != 0 ? MCAST_OK : MCAST_ERR_GENERAL;
}

void MTable_FiniGroup(MTABLE_GROUP_S *group)
{
    if (group->sources != 0) {
        AVL_Fini(group->sources);
        group->sources = 0;
    }
}

MCAST_STATUS MTable_InsertGroup(MTABLE_S *table, MTABLE_GROUP_S *group)
{
    group->owner = table;
    if (AVL_Insert(table->groups, group) != 0) {
        MTable_FiniGroup(group);
        group->owner = nullptr;
        return MCAST_ERR_GENERAL;
    }
    ++table->group_count;
    EntryMade(Entry::kGroup, group, &group->address, 0, table);
    return MCAST_OK;
}

MTABLE_GROUP_S *MTable_RemoveGroup(MTABLE_S *table, MTABLE_GROUP_S *group)
{
    if (AVL_Remove(table->groups, group) == 0) {
        return nullptr;
    }
    Lower(&table->group_count, 1);
    Lower(&table->source_count, AVL_Count(group->sources));
    group->owner = nullptr;
    EntryRemoved(Entry::kGroup, group, &group->address, 0, table);
    return group;
}

MCAST_STATUS MTable_InsertSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source)
{
    source->group = nullptr;
    if (group->owner == nullptr || AVL_Insert(group->sources, source) != 0) {
        return MCAST_ERR_GENERAL;
    }
    source->group = group;
    ++group->owner->source_count;
    EntryMade(Entry::kSource, source, &source->address, 0, group);
    return MCAST_OK;
}

MTABLE_SOURCE_S *MTable_RemoveSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source)
{
    if (AVL_Remove(group->sources, source) == 0) {
        return nullptr;
    }
    source->group = nullptr;
    if (group->owner != nullptr) {
        Lower(&group->owner->source_count, 1);
    }
    EntryRemoved(Entry::kSource, source, &source->address, 0, group);
    return source;
}

MTABLE_GROUP_S *MTable_SearchGroup(const MTABLE_S *table, const MCAST_ADDR_S *address)
{
    return static_cast<MTABLE_GROUP_S *>(AVL_Get(table->groups, address, MTable_GrpAvlKeyCmp));
}

MTABLE_SOURCE_S *MTable_SearchSourceInGroup(const MTABLE_GROUP_S *group, const MCAST_ADDR_S *address)
{
    return static_cast<MTABLE_SOURCE_S *>(AVL_Get(group->sources, address, MTable_SrcAvlKeyCmp));
}

MTABLE_SOURCE_S *MTable_SearchSource(const MTABLE_S *table, const MCAST_ADDR_S *group_address,
                                     const MCAST_ADDR_S *source_address)
{
    const MTABLE_GROUP_S *group = MTable_SearchGroup(table, group_address);
    return group != nullptr ? MTable_SearchSourceInGroup(group, source_address) : nullptr;
}

MTABLE_GROUP_S *MTable_GetNextGroup(const MTABLE_S *table, const MCAST_ADDR_S *address)
{
    if (address == nullptr) {
        return static_cast<MTABLE_GROUP_S *>(AVL_GetLeftMost(table->groups));
    }
    return FirstAfter<MTABLE_GROUP_S>(table->groups, address);
}

uint32_t MTable_FreeAllSourceInGroup(MTABLE_GROUP_S *group)
{
    if (group->owner != nullptr) {
        Lower(&group->owner->source_count, AVL_Count(group->sources));
    }
    return AVL_FreeAll(group->sources);
}

uint32_t MTable_FreeAll(MTABLE_S *table)
{
    uint32_t result = AVL_FreeAll(table->groups);
    table->group_count = 0;
    table->source_count = 0;
    return result;
}
