/*
 * The multicast route table: two levels of radix trees.
 *
 *   table, level 1 ─┬─ MRT_GROUP_S 239.1.0.0/16 ── sources: table, level 0 ─── MRT_SOURCE_S 10.1.1.1/32
 *   (tree of groups)│
 *                   └─ MRT_GROUP_S 239.2.2.2/32 ── sources: table, level 0 ─┬─ MRT_SOURCE_S 10.0.0.0/8
 *                                                  (tree of sources)        └─ MRT_SOURCE_S 10.1.1.1/32
 *
 * Both levels are the same record; only its level tells what its entries are, and so what clearing deletes.
 * An entry begins with the pointer to its own copy of the address and the mask-length byte, which is all that
 * the tree reads of it. User data belongs to the caller and leaves through the release function of the table
 * that the group was created in; each source table carries that table's function for sources.
 *
 * Clearing walks the table with a registered walk and deletes each entry right after it is yielded; the tree
 * moves the walk on before the node goes. Release functions run when their entry is already out of its table.
 *
 * This file makes, ends and searches tables; entries are made and deleted in route_table_entry.cpp.
 */
#include "mcast/route_table.h"

#include <stdlib.h>
#include <string.h>

namespace
{

static_assert(offsetof(MRT_GROUP_S, address) == offsetof(MRT_SOURCE_S, address));
static_assert(offsetof(MRT_GROUP_S, mask_length) == offsetof(MRT_SOURCE_S, mask_length));

char *CopyText(const char *text)
{
    const size_t size = strlen(text) + 1;
    auto *copy = static_cast<char *>(malloc(size));
    if (copy != nullptr) {
        memcpy(copy, text, size);
    }
    return copy;
}

uint32_t FullLength(uint32_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 32 : 128;
}

void DeleteEntry(const MRT_TABLE_S *table, void *entry)
{
    if (table->level == MRT_LEVEL_GROUP) {
        MRT_DeleteGroup(static_cast<MRT_GROUP_S *>(entry));
    } else {
        MRT_DeleteSource(static_cast<MRT_SOURCE_S *>(entry));
    }
}

/*
 * Clears without a walk, for which memory is short: deletes the first entry as often as there are entries
 * now.
 */
void DeleteFirstEntries(const MRT_TABLE_S *table)
{
    for (uint32_t count = table->tree->entry_count; count > 0; --count) {
        void *entry = MRT_RDX_GetNext(table->tree, nullptr, 0);

        if (entry == nullptr) {
            return;
        }
        DeleteEntry(table, entry);
    }
}

const MRT_GROUP_S *NextGroup(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    return static_cast<const MRT_GROUP_S *>(MRT_GetNext(table, address, length));
}

} // namespace

MRT_TABLE_S *MRT_CreateTable(uint32_t family, const char *name, MRT_DATA_RELEASE group_release,
                             MRT_DATA_RELEASE source_release)
{
    const uint32_t low = family & 0xff;

    if (low != MCAST_FAMILY_IPV4 && low != MCAST_FAMILY_IPV6) {
        return nullptr;
    }
    auto *table = static_cast<MRT_TABLE_S *>(calloc(1, sizeof(MRT_TABLE_S)));

    if (table == nullptr) {
        return nullptr;
    }
    table->tree = MRT_RDX_CreateTree(offsetof(MRT_GROUP_S, address), offsetof(MRT_GROUP_S, mask_length),
                                     offsetof(MCAST_ADDR_S, address), FullLength(low));
    if (name != nullptr) {
        table->name = CopyText(name);
    }
    if (table->tree == nullptr || (name != nullptr && table->name == nullptr)) {
        MRT_DestroyTable(table);
        return nullptr;
    }
    table->group_data_release = group_release;
    table->source_data_release = source_release;
    table->level = MRT_LEVEL_GROUP;
    return table;
}

void MRT_DestroyTable(MRT_TABLE_S *table)
{
    if (table == nullptr) {
        return;
    }
    MRT_ClearTable(table);
    free(table->name);
    if (table->tree != nullptr) {
        MRT_RDX_DestroyTree(table->tree);
    }
    free(table);
}

void MRT_ClearTable(MRT_TABLE_S *table)
{
    if (table == nullptr || table->tree == nullptr) {
        return;
    }
    MRT_WALK_S *walk = MRT_CreateWalk(table);

    if (walk == nullptr) {
        DeleteFirstEntries(table);
        return;
    }
    for (void *entry = MRT_WalkNext(walk); entry != nullptr; entry = MRT_WalkNext(walk)) {
        DeleteEntry(table, entry);
    }
    MRT_DeleteWalk(walk);
}

uint32_t MRT_CountTable(const MRT_TABLE_S *table)
{
    return table == nullptr ? 0 : table->tree->entry_count;
}

void *MRT_LocateMask(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    return table == nullptr ? nullptr : MRT_RDX_Locate(table->tree, address, length);
}

void *MRT_Locate(const MRT_TABLE_S *table, const MCAST_ADDR_S *address)
{
    return address == nullptr ? nullptr : MRT_LocateMask(table, address, FullLength(address->family));
}

MRT_SOURCE_S *MRT_LocateSourceMask(const MRT_TABLE_S *table, const MCAST_ADDR_S *group, uint32_t group_length,
                                   const MCAST_ADDR_S *source, uint32_t source_length)
{
    const auto *entry = static_cast<const MRT_GROUP_S *>(MRT_LocateMask(table, group, group_length));
    return entry == nullptr
               ? nullptr
               : static_cast<MRT_SOURCE_S *>(MRT_LocateMask(entry->sources, source, source_length));
}

MRT_SOURCE_S *MRT_LocateSource(const MRT_TABLE_S *table, const MCAST_ADDR_S *group,
                               const MCAST_ADDR_S *source)
{
    const auto *entry = static_cast<const MRT_GROUP_S *>(MRT_Locate(table, group));
    return entry == nullptr ? nullptr : static_cast<MRT_SOURCE_S *>(MRT_Locate(entry->sources, source));
}

void *MRT_BestMatch(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    if (table == nullptr || address == nullptr) {
        return nullptr;
    }
    return MRT_RDX_LocateBest(table->tree, address, length, nullptr, nullptr);
}

void *MRT_GetNext(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    return table == nullptr ? nullptr : MRT_RDX_GetNext(table->tree, address, length);
}

void *MRT_SearchNextBest(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    return table == nullptr ? nullptr : MRT_RDX_SearchNextBest(table->tree, address, length);
}

MRT_SOURCE_S *MRT_GetNextSourceGroup(const MRT_TABLE_S *table, const MCAST_ADDR_S *group,
                                     uint32_t group_length, const MCAST_ADDR_S *source,
                                     uint32_t source_length)
{
    const MRT_GROUP_S *entry;

    if (table == nullptr) {
        return nullptr;
    }
    if (group == nullptr) {
        entry = NextGroup(table, nullptr, group_length);
    } else {
        /* At full length whatever group_length says: a group stored under a shorter mask is not found. */
        entry = static_cast<const MRT_GROUP_S *>(MRT_Locate(table, group));
        if (entry == nullptr) {
            entry = NextGroup(table, group, group_length);
            source = nullptr;
        }
    }
    /* A short group_length can lead back to a group that was passed, and then for ever. */
    uint64_t visits = uint64_t{table->tree->entry_count} + 1;

    for (; entry != nullptr && visits > 0; --visits) {
        void *next = MRT_GetNext(entry->sources, source, source_length);

        if (next != nullptr) {
            return static_cast<MRT_SOURCE_S *>(next);
        }
        entry = NextGroup(table, entry->address, group_length);
        source = nullptr;
    }
    return nullptr;
}

MRT_WALK_S *MRT_CreateWalk(MRT_TABLE_S *table)
{
    return MRT_Walk_Start(table, nullptr, 0);
}

MRT_WALK_S *MRT_Walk_Start(MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    MRT_WALK_S *walk = MRT_Walk_Subset(table, address, length);
    MRT_RDX_SetWalkAll(walk);
    return walk;
}

MRT_WALK_S *MRT_Walk_Subset(MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    return table == nullptr ? nullptr
                            : MRT_RDX_CreateWalk(table->tree, address, length, MRT_RDX_WALK_FORWARD);
}

MRT_WALK_S *MRT_Walk_Reverse(MRT_TABLE_S *table)
{
    return table == nullptr ? nullptr : MRT_RDX_CreateWalk(table->tree, nullptr, 0, MRT_RDX_WALK_REVERSE);
}

MRT_WALK_S *MRT_Walk_ReadMode(MRT_TABLE_S *table)
{
    return table == nullptr ? nullptr : MRT_RDX_CreateWalkNode(table->tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
}

void *MRT_WalkNext(MRT_WALK_S *walk)
{
    return MRT_RDX_WalkNext(walk);
}

void MRT_DeleteWalk(MRT_WALK_S *walk)
{
    MRT_RDX_DestroyWalk(walk);
}
