/*
 * Most groups have one source. It lives in the block of its group, which saves an allocation and keeps what
 * is looked at together in one place; further sources have blocks of their own.
 *
 *   Group  ┌──────────────────────────────┐
 *          │ head: address, sources ──────┼──► tree of entries
 *          │ first: an entry, or unused   │◄─────┤
 *          └──────────────────────────────┘      └──► MCAST_USRAUTH_ENTRY_S
 */
#include "usrauth/entries.h"

#include <stdlib.h>

namespace mcast::usrauth
{

namespace
{

struct Group {
    MTABLE_GROUP_S head;
    MCAST_USRAUTH_ENTRY_S first;
    bool first_used;
};

Group *GroupOf(MTABLE_GROUP_S *head)
{
    return reinterpret_cast<Group *>(head);
}

MCAST_USRAUTH_ENTRY_S *EntryOf(MTABLE_SOURCE_S *head)
{
    return reinterpret_cast<MCAST_USRAUTH_ENTRY_S *>(head);
}

void FreeEntry(Group *group, MCAST_USRAUTH_ENTRY_S *entry)
{
    if (entry == &group->first) {
        group->first_used = false;
    } else {
        free(entry);
    }
}

/* The source release. */
void ReleaseEntry(void *record)
{
    MCAST_USRAUTH_ENTRY_S *entry = static_cast<MCAST_USRAUTH_ENTRY_S *>(record);

    FreeEntry(GroupOf(entry->head.group), entry);
}

MCAST_USRAUTH_ENTRY_S *AllocateEntry(Group *group)
{
    if (group->first_used) {
        return static_cast<MCAST_USRAUTH_ENTRY_S *>(calloc(1, sizeof(MCAST_USRAUTH_ENTRY_S)));
    }
    group->first_used = true;
    group->first = {};
    return &group->first;
}

Group *CreateGroup(MTABLE_S *table, const MCAST_ADDR_S &address)
{
    Group *group = static_cast<Group *>(calloc(1, sizeof(*group)));

    if (group == nullptr) {
        return nullptr;
    }
    if (MTable_InitGroup(&group->head, &address, ReleaseEntry) != MCAST_OK ||
        MTable_InsertGroup(table, &group->head) != MCAST_OK) {
        free(group);
        return nullptr;
    }
    return group;
}

bool CreateEntry(Group *group, const MCAST_ADDR_S &source)
{
    MCAST_USRAUTH_ENTRY_S *entry = AllocateEntry(group);

    if (entry == nullptr) {
        return false;
    }
    entry->head.address = source;
    entry->flags = MCAST_USRAUTH_ENTRY_SEEN;
    if (MTable_InsertSource(&group->head, &entry->head) != MCAST_OK) {
        FreeEntry(group, entry);
        return false;
    }
    return true;
}

void RemoveGroup(MTABLE_S *table, Group *group)
{
    MTable_RemoveGroup(table, &group->head);
    MTable_FiniGroup(&group->head);
    free(group);
}

/* A group that was made for a source goes with it when that cannot be added. */
void AddToNewGroup(MTABLE_S *table, const Entry &entry)
{
    Group *group = CreateGroup(table, entry.group);

    if (group != nullptr && !CreateEntry(group, entry.source)) {
        RemoveGroup(table, group);
    }
}

void AddEntry(MTABLE_S *table, const Entry &entry)
{
    MTABLE_GROUP_S *group = MTable_SearchGroup(table, &entry.group);

    if (group == nullptr) {
        AddToNewGroup(table, entry);
        return;
    }
    MTABLE_SOURCE_S *source = MTable_SearchSourceInGroup(group, &entry.source);

    if (source != nullptr) {
        EntryOf(source)->flags |= MCAST_USRAUTH_ENTRY_SEEN;
    } else {
        CreateEntry(GroupOf(group), entry.source);
    }
}

/* The walk's visit to an entry; argument counts what it removes. */
uint32_t EndEntry(MTABLE_GROUP_S *head, MTABLE_SOURCE_S *source, void *argument)
{
    MCAST_USRAUTH_ENTRY_S *entry = EntryOf(source);
    Group *group = GroupOf(head);

    if ((entry->flags & MCAST_USRAUTH_ENTRY_SEEN) != 0) {
        entry->flags &= ~MCAST_USRAUTH_ENTRY_SEEN;
        return MCAST_OK;
    }
    MTable_RemoveSource(head, source);
    FreeEntry(group, entry);
    if (AVL_Count(head->sources) == 0) {
        RemoveGroup(head->owner, group);
    }
    ++*static_cast<uint32_t *>(argument);
    return MCAST_OK;
}

} // namespace

bool InitEntries(MTABLE_S *table)
{
    return MTable_Init(table, MCAST_FreeFunc) == MCAST_OK;
}

void AddEntries(MTABLE_S *table, EntryReader entries)
{
    Entry entry;

    while (NextEntry(&entries, &entry)) {
        AddEntry(table, entry);
    }
}

bool EndEntries(MTABLE_S *table)
{
    MCAST_ADDR_S group_cursor = {g_store.family, 0, {}};
    MCAST_ADDR_S source_cursor = group_cursor;
    MTABLE_WALK_S walk = {&group_cursor, &source_cursor, MTABLE_WALK_ALL};
    uint32_t removed = 0;

    MTable_Walk(table, &walk, nullptr, nullptr, EndEntry, &removed);
    return removed > 0;
}

} // namespace mcast::usrauth
