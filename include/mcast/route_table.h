/*
 * Multicast route table: (source, group) state with masks, in two levels of radix trees. A group table holds
 * group entries; each group entry holds a source table of source entries. The caller hangs its own data on
 * every entry and names, per table, how that data is released.
 *
 * Addresses are copied as given and never masked; within a table entries are ordered by ascending address and
 * then ascending mask length when no address has bits beyond its mask length. Mask lengths are in bits,
 * passed as 32-bit integers of which the low 8 bits count. Entries are looked up and handed out as void
 * pointers: a group table (level 1) yields MRT_GROUP_S, a source table (level 0) MRT_SOURCE_S.
 *
 * A table holds addresses of the one family that it was made for: the creators refuse others, and a look-up
 * of another family's address has no meaning. No function locks; a table and its walks belong to one thread
 * at a time or are guarded by the caller. Memory comes from malloc. A creator that fails frees what it
 * allocated; the one exception is short memory within MRT_RDX_AddNode, where that function says what stays.
 * Nothing is logged.
 */
#ifndef MCAST_ROUTE_TABLE_H
#define MCAST_ROUTE_TABLE_H

#include "mcast/common.h"
#include "mcast/radix.h"

MCAST_EXTERN_C_BEGIN

typedef struct MRT_TABLE_S MRT_TABLE_S;
typedef struct MRT_GROUP_S MRT_GROUP_S;
typedef struct MRT_SOURCE_S MRT_SOURCE_S;

/* A walk over a table's entries. */
typedef MRT_RDX_WALK_S MRT_WALK_S;

/*
 * Releases what an entry's user data points to. user_data is the address of the entry's user-data field,
 * which is never NULL inside when this is called. The entry is already out of its table and is freed
 * afterwards: the function must not delete it nor the table that is being cleared or destroyed.
 */
typedef void (*MRT_DATA_RELEASE)(void **user_data);

/* MRT_TABLE_S.level. */
#define MRT_LEVEL_SOURCE 0
#define MRT_LEVEL_GROUP 1

/* A table. Made by MRT_CreateTable, or with its group; read-only for callers. */
struct MRT_TABLE_S {
    MRT_RDX_TREE_S *tree;
    char *name; /* the table's own copy; NULL when none was given */
    MRT_DATA_RELEASE group_data_release;
    MRT_DATA_RELEASE source_data_release;
    uint16_t level; /* MRT_LEVEL_GROUP or MRT_LEVEL_SOURCE: what clearing deletes */
};

MCAST_STATIC_ASSERT(sizeof(MRT_TABLE_S) == 40, "table record");
MCAST_STATIC_ASSERT(offsetof(MRT_TABLE_S, name) == 8, "name");
MCAST_STATIC_ASSERT(offsetof(MRT_TABLE_S, group_data_release) == 16, "group data release");
MCAST_STATIC_ASSERT(offsetof(MRT_TABLE_S, source_data_release) == 24, "source data release");
MCAST_STATIC_ASSERT(offsetof(MRT_TABLE_S, level) == 32, "level");

/* A group entry. Callers may write user_data only. */
struct MRT_GROUP_S {
    MCAST_ADDR_S *address; /* the entry's own copy */
    uint8_t mask_length;   /* bits */
    MRT_TABLE_S *owner;    /* the group table that holds the entry */
    MRT_TABLE_S *sources;  /* the group's source table, made and destroyed with it */
    void *user_data;       /* the caller's; released through owner->group_data_release */
};

MCAST_STATIC_ASSERT(sizeof(MRT_GROUP_S) == 40, "group entry");
MCAST_STATIC_ASSERT(offsetof(MRT_GROUP_S, mask_length) == 8, "mask length follows the address");
MCAST_STATIC_ASSERT(offsetof(MRT_GROUP_S, owner) == 16, "owner");
MCAST_STATIC_ASSERT(offsetof(MRT_GROUP_S, sources) == 24, "sources");
MCAST_STATIC_ASSERT(offsetof(MRT_GROUP_S, user_data) == 32, "user data");

/* A source entry. Callers may write user_data only. */
struct MRT_SOURCE_S {
    MCAST_ADDR_S *address; /* the entry's own copy */
    uint8_t mask_length;   /* bits */
    MRT_GROUP_S *group;    /* the group whose source table holds the entry */
    void *user_data;       /* the caller's; released through the source table's source_data_release */
};

MCAST_STATIC_ASSERT(sizeof(MRT_SOURCE_S) == 32, "source entry");
MCAST_STATIC_ASSERT(offsetof(MRT_SOURCE_S, mask_length) == 8, "mask length follows the address");
MCAST_STATIC_ASSERT(offsetof(MRT_SOURCE_S, group) == 16, "group");
MCAST_STATIC_ASSERT(offsetof(MRT_SOURCE_S, user_data) == 24, "user data");

/*
 * Makes an empty group table. The low byte of family is MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6. name is
 * copied and may be NULL, as may both release functions. The caller ends the table with MRT_DestroyTable.
 * NULL for any other family and when memory is short.
 */
MCAST_API MRT_TABLE_S *MRT_CreateTable(uint32_t family, const char *name, MRT_DATA_RELEASE group_release,
                                       MRT_DATA_RELEASE source_release);

/*
 * Clears the table and frees it. Open walks are detached and still deleted by their owners. NULL is ignored.
 */
MCAST_API void MRT_DestroyTable(MRT_TABLE_S *table);

/*
 * Deletes every entry, with MRT_DeleteGroup in a group table and MRT_DeleteSource in a source table,
 * releasing user data. The table stays usable and its open walks valid. Short memory does not keep it from
 * deleting. NULL is ignored. Linear in the number of entries.
 */
MCAST_API void MRT_ClearTable(MRT_TABLE_S *table);

/* The number of entries in the table itself (the groups of a group table); 0 for NULL. */
MCAST_API uint32_t MRT_CountTable(const MRT_TABLE_S *table);

/*
 * The group entry for (group, length): the one in the table, or a new one with user data NULL and an empty
 * source table of the group's family, named "Sources for Group: " and the address. The table owns it until
 * MRT_DeleteGroup. NULL when an argument is NULL, the group is not of the table's family, or memory is short.
 */
MCAST_API MRT_GROUP_S *MRT_CreateGroupMask(MRT_TABLE_S *table, const MCAST_ADDR_S *group, uint32_t length);

/*
 * The source entry for (source, length) in the group's source table: the one there, or a new one with user
 * data NULL. The group owns it until MRT_DeleteSource. NULL when an argument is NULL, the source is not of
 * the group's family, or memory is short.
 */
MCAST_API MRT_SOURCE_S *MRT_CreateSourceMask(MRT_GROUP_S *group, const MCAST_ADDR_S *source, uint32_t length);

/*
 * The source entry for (source, source_length) under (group, group_length); both are created when missing. A
 * group that this call created goes again when the source cannot be made. NULL when a pointer is NULL or
 * either creation fails.
 */
MCAST_API MRT_SOURCE_S *MRT_CreateEntryMask(MRT_TABLE_S *table, const MCAST_ADDR_S *group,
                                            uint32_t group_length, const MCAST_ADDR_S *source,
                                            uint32_t source_length);

/* The entry stored exactly under (address, length), or NULL; NULL arguments give NULL. */
MCAST_API void *MRT_LocateMask(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length);

/*
 * MRT_LocateMask at full length: 32 for an IPv4 address, 128 for any other family. NULL arguments give NULL.
 */
MCAST_API void *MRT_Locate(const MRT_TABLE_S *table, const MCAST_ADDR_S *address);

/* The source stored exactly under both prefixes, or NULL; NULL arguments give NULL. */
MCAST_API MRT_SOURCE_S *MRT_LocateSourceMask(const MRT_TABLE_S *table, const MCAST_ADDR_S *group,
                                             uint32_t group_length, const MCAST_ADDR_S *source,
                                             uint32_t source_length);

/* MRT_LocateSourceMask with both addresses at full length. */
MCAST_API MRT_SOURCE_S *MRT_LocateSource(const MRT_TABLE_S *table, const MCAST_ADDR_S *group,
                                         const MCAST_ADDR_S *source);

/*
 * The entry with the longest prefix of at most length bits that covers address, or NULL. NULL arguments give
 * NULL.
 */
MCAST_API void *MRT_BestMatch(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length);

/*
 * The first entry after (address, length) in table order, length 0 standing for full length; a NULL address
 * gives the first entry. NULL when there is none and for a NULL table.
 */
MCAST_API void *MRT_GetNext(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length);

/*
 * As MRT_RDX_SearchNextBest on the table: the next entry, addresses compared without masking unless the
 * prefix itself is present. NULL when there is none and for a NULL table.
 */
MCAST_API void *MRT_SearchNextBest(const MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length);

/*
 * The next source entry across all groups of a group table. With a group, the search starts in that group
 * after (source, source_length), provided that the group is stored at full length; any other group counts as
 * absent, and the search starts at the group after (group, group_length). Without a group it starts at the
 * first one, after (source, source_length) there. A NULL source means the first; a length of 0 means full
 * length. Later groups are found with group_length, not with their own length, so that a group_length shorter
 * than theirs may lead to the same group again. NULL when nothing follows and for a NULL table. Cost: linear
 * in the number of groups without sources passed.
 */
MCAST_API MRT_SOURCE_S *MRT_GetNextSourceGroup(const MRT_TABLE_S *table, const MCAST_ADDR_S *group,
                                               uint32_t group_length, const MCAST_ADDR_S *source,
                                               uint32_t source_length);

/*
 * Walks. Each creator returns a walk that the caller ends with MRT_DeleteWalk, also after the table is gone,
 * or NULL: NULL table, empty table, nothing to start at, or short memory. Unless said otherwise the walk is
 * registered: any entry may be deleted between its steps, the one just yielded included.
 */

/* Over the whole table, in order. */
MCAST_API MRT_WALK_S *MRT_CreateWalk(MRT_TABLE_S *table);

/*
 * From the first entry under (address, length) to the end of the table. A NULL address with length 0: from
 * the first entry of the table; with any other length it has nothing to start at.
 */
MCAST_API MRT_WALK_S *MRT_Walk_Start(MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length);

/* Over the entries under (address, length) only. */
MCAST_API MRT_WALK_S *MRT_Walk_Subset(MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length);

/* Over the whole table, greater addresses first, an entry before the entries that it covers. */
MCAST_API MRT_WALK_S *MRT_Walk_Reverse(MRT_TABLE_S *table);

/* Over the whole table, in order, not registered: nothing may be deleted while it is open. */
MCAST_API MRT_WALK_S *MRT_Walk_ReadMode(MRT_TABLE_S *table);

/* The walk's next entry, or NULL when it is at its end, its table is gone, or walk is NULL. */
MCAST_API void *MRT_WalkNext(MRT_WALK_S *walk);

/* Ends the walk. NULL is ignored. */
MCAST_API void MRT_DeleteWalk(MRT_WALK_S *walk);

/*
 * Takes entry, which must be in the table, out of it without freeing or releasing anything: the caller then
 * owns the entry and what hangs on it. NULL arguments are ignored.
 */
MCAST_API void MRT_RemoveNode(MRT_TABLE_S *table, void *entry);

/*
 * Takes the source out of its group, releases its user data and frees it; the group stays. NULL is ignored.
 */
MCAST_API void MRT_DeleteSource(MRT_SOURCE_S *source);

/*
 * Takes the group out of its table, deletes its sources, releases its user data and frees it. NULL is
 * ignored.
 */
MCAST_API void MRT_DeleteGroup(MRT_GROUP_S *group);

/* MRT_DeleteSource, then MRT_DeleteGroup when that left the group without sources. NULL is ignored. */
MCAST_API void MRT_DeleteSourceGroup(MRT_SOURCE_S *source);

MCAST_EXTERN_C_END

#endif
