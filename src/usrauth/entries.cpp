/*
 * Most groups have one source. It lives in the group itself, which saves an allocation and keeps what is
 * looked at together in one place; further sources have blocks of their own.
 *
 *   Group  ┌──────────────────────────────┐
 *          │ head: address, sources ──────┼──► tree of entries
 *          │ first: an entry, or unused   │◄─────┤
 *          └──────────────────────────────┘      └──► MCAST_USRAUTH_ENTRY_S
 */
#include "usrauth/entries.h"

#include <stdlib.h>

#include "usrauth/entry_block.h"

namespace mcast::usrauth
{
namespace
{

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

/* The group release. */
void ReleaseGroup(void *record)
{
    FreeGroup(static_cast<Group *>(record));
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

Group *CreateGroup(MTABLE_S *table, const MCAST_ADDR_S &address, Group *group)
{
    if (group == nullptr) {
        return nullptr;
    }
    if (MTable_InitGroup(&group->head, &address, ReleaseEntry) != MCAST_OK ||
        MTable_InsertGroup(table, &group->head) != MCAST_OK) {
        FreeGroup(group);
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
    FreeGroup(group);
}

/* A group that was made for a source goes with it when that cannot be added. */
void AddToNewGroup(MTABLE_S *table, const Entry &entry, Group *place)
{
    Group *group = CreateGroup(table, entry.group, place);
    if (group != nullptr && !CreateEntry(group, entry.source)) {
        RemoveGroup(table, group);
    }
}

void AddToGroup(MTABLE_GROUP_S *group, const Entry &entry)
{
    MTABLE_SOURCE_S *source = MTable_SearchSourceInGroup(group, &entry.source);
    if (source != nullptr) {
        EntryOf(source)->flags |= MCAST_USRAUTH_ENTRY_SEEN;
    } else {
        CreateEntry(GroupOf(group), entry.source);
    }
}

/* Removes the entry when it was not seen, and its group when it was the last entry. True when it did. */
bool EndEntry(MTABLE_S *table, Group *group, MCAST_USRAUTH_ENTRY_S *entry)
{
    if ((entry->flags & MCAST_USRAUTH_ENTRY_SEEN) != 0) {
        entry->flags &= ~MCAST_USRAUTH_ENTRY_SEEN;
        return false;
    }
    MTable_RemoveSource(&group->head, &entry->head);
    FreeEntry(group, entry);
    if (AVL_Count(group->head.sources) == 0) {
        RemoveGroup(table, group);
    }
    return true;
}

/* Removes the entries of the group that were not seen. True when there were any. */
bool EndGroup(MTABLE_S *table, Group *group)
{
    const AVL_HANDLE sources = group->head.sources;
    void *source = AVL_GetLeftMost(sources);
    bool any = false;

    while (source != nullptr) {
        void *next = AVL_GetNext(sources, source);

        any |= EndEntry(table, group, static_cast<MCAST_USRAUTH_ENTRY_S *>(source));
        source = next;
    }
    return any;
}

/*
 * The first group, or nullptr. The groups of a user are in few blocks, mostly one, and cold: they are fetched
 * side by side, where a walk would wait for each in turn.
 */
Group *FirstGroup(const MTABLE_S *table)
{
    Group *group = static_cast<Group *>(AVL_GetLeftMost(table->groups));
    if (group != nullptr) {
        PrefetchBlock(group);
    }
    return group;
}

} // namespace

bool InitEntries(MTABLE_S *table)
{
    return MTable_Init(table, ReleaseGroup) == MCAST_OK;
}

void FiniEntries(MTABLE_S *table)
{
    FirstGroup(table);
    MTable_Fini(table);
}

void AddEntries(MTABLE_S *table, EntryReader entries)
{
    EntryAllocator allocator;
    Entry entry;

    FirstGroup(table);
    while (NextEntry(&entries, &entry)) {
        MTABLE_GROUP_S *group = MTable_SearchGroup(table, &entry.group);

        if (group != nullptr) {
            AddToGroup(group, entry);
        } else {
            AddToNewGroup(table, entry, allocator.Take(1 + EntriesLeft(entries)));
        }
    }
}

bool EndEntries(MTABLE_S *table)
{
    Group *group = FirstGroup(table);
    bool any = false;

    while (group != nullptr) {
        Group *next = static_cast<Group *>(AVL_GetNext(table->groups, group));

        any |= EndGroup(table, group);
        group = next;
    }
    return any;
}

} // namespace mcast::usrauth
