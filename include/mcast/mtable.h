/*
 * Group and source table: a set of groups, each with its own set of sources, ordered by address.
 *
 * The table links records of the caller. Each begins with MTABLE_GROUP_S or MTABLE_SOURCE_S and goes on with
 * the caller's own fields; the table neither allocates nor copies records. A record given up by a tree goes
 * to the release function told at initialisation; a record that was removed is the caller's again and goes to
 * none.
 *
 * Order: an IPv4 address by its four bytes as a big-endian number, any other family by its sixteen bytes.
 * Where an address is copied into a record, a probe or a cursor, the family and the 4 or 16 bytes of its
 * family are written and nothing else.
 *
 * Results are MCAST_OK or MCAST_ERR_GENERAL unless said otherwise. No pointer may be NULL unless said
 * otherwise. No function locks: readers hold a read lock of the caller's, changes its write lock. Searches,
 * inserts and removals take time logarithmic in the records of the tree concerned.
 */
#ifndef MCAST_MTABLE_H
#define MCAST_MTABLE_H

#include "mcast/common.h"
#include "platform/avl.h"

MCAST_EXTERN_C_BEGIN

/*
 * Receives a group or source record that a tree has let go of; the record is the function's to free. Its
 * owner or group field still names where it was. It must not change the table. NULL as a release function
 * leaves such records to the caller. MCAST_FreeFunc fits.
 */
typedef void (*MTABLE_RELEASE)(void *record);

/* The table. The caller provides it, zeroed or not, for MTable_Init to fill; afterwards it is read-only. */
typedef struct MTABLE_S {
    AVL_HANDLE groups; /* 0 when the table is not set up */
    uint32_t group_count;
    uint32_t source_count; /* over all groups */
    MTABLE_RELEASE group_release;
} MTABLE_S;

MCAST_STATIC_ASSERT(sizeof(MTABLE_S) == 24, "a table is 24 bytes");
MCAST_STATIC_ASSERT(offsetof(MTABLE_S, group_count) == 8, "counts follow the handle");
MCAST_STATIC_ASSERT(offsetof(MTABLE_S, source_count) == 12, "the source count follows the group count");
MCAST_STATIC_ASSERT(offsetof(MTABLE_S, group_release) == 16, "release follows the counts");

/* The head of a group record. The address must not change while the record is in a table. */
typedef struct MTABLE_GROUP_S {
    AVL_NODE_S node;
    MCAST_ADDR_S address;
    AVL_HANDLE sources; /* 0 when the group is not set up */
    MTABLE_RELEASE source_release;
    MTABLE_S *owner; /* NULL while the group is in no table */
} MTABLE_GROUP_S;

MCAST_STATIC_ASSERT(sizeof(MTABLE_GROUP_S) == 80, "the head of a group record is 80 bytes");
MCAST_STATIC_ASSERT(offsetof(MTABLE_GROUP_S, address) == 32, "address follows the node");
MCAST_STATIC_ASSERT(offsetof(MTABLE_GROUP_S, sources) == 56, "sources are aligned");
MCAST_STATIC_ASSERT(offsetof(MTABLE_GROUP_S, source_release) == 64, "release follows the sources");
MCAST_STATIC_ASSERT(offsetof(MTABLE_GROUP_S, owner) == 72, "owner is last");

/*
 * The head of a source record. The caller writes the address before MTable_InsertSource and leaves it alone
 * then.
 */
typedef struct MTABLE_SOURCE_S {
    AVL_NODE_S node;
    MCAST_ADDR_S address;
    MTABLE_GROUP_S *group; /* NULL while the source is in no group */
} MTABLE_SOURCE_S;

MCAST_STATIC_ASSERT(sizeof(MTABLE_SOURCE_S) == 64, "the head of a source record is 64 bytes");
MCAST_STATIC_ASSERT(offsetof(MTABLE_SOURCE_S, address) == 32, "address follows the node");
MCAST_STATIC_ASSERT(offsetof(MTABLE_SOURCE_S, group) == 56, "group is last");

/* mode of MTABLE_WALK_S. */
#define MTABLE_WALK_ALL 0u    /* from the cursors on through all groups */
#define MTABLE_WALK_GROUP 1u  /* only the group equal to the group cursor, from the source cursor on */
#define MTABLE_WALK_SOURCE 2u /* only the group and the source equal to the cursors */

/*
 * The position of a walk. The caller provides the record and both cursors. A walk starts at the beginning
 * with both cursors of the table's family and zero addresses.
 */
typedef struct MTABLE_WALK_S {
    MCAST_ADDR_S *group_cursor;
    MCAST_ADDR_S *source_cursor;
    uint64_t mode; /* MTABLE_WALK_... */
} MTABLE_WALK_S;

MCAST_STATIC_ASSERT(sizeof(MTABLE_WALK_S) == 24, "a walk position is 24 bytes");
MCAST_STATIC_ASSERT(offsetof(MTABLE_WALK_S, source_cursor) == 8, "source cursor follows the group cursor");
MCAST_STATIC_ASSERT(offsetof(MTABLE_WALK_S, mode) == 16, "mode follows the cursors");

/*
 * Called for each group of a walk before its sources. MCAST_OK goes on; MCAST_WALK_SKIP_GROUP passes over the
 * group's sources; MCAST_WALK_AGAIN stops the walk at this group; any other code goes on, and is the code of
 * the group where no source callback is given. It may remove and free the group when it returns one of the
 * two codes that pass over the sources, or when there is no source callback.
 */
typedef uint32_t (*MTABLE_GROUP_CALLBACK)(MTABLE_GROUP_S *group, void *argument);

/*
 * Called for each source of a walk. MCAST_WALK_AGAIN stops the walk at this source; any other code goes on,
 * and the code of a group's last source is the code of the group. It may remove and free the source, but no
 * other one; with the group's last source it may also remove and free the group. At any source it may take
 * the group out of the table, as long as the group and its other sources live on: those are visited all the
 * same.
 */
typedef uint32_t (*MTABLE_SOURCE_CALLBACK)(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *argument);

/*
 * Order two group records, two source records, or a record (first) and an MCAST_ADDR_S (second), for the
 * platform's trees. IPv4, told by the family of first: -1, 0 or 1. Otherwise the difference of the first pair
 * of bytes that differ, first minus second, -255 to 255, or 0.
 */
MCAST_API int32_t MTable_GrpAvlNodeCmp(const void *first, const void *second);
MCAST_API int32_t MTable_SrcAvlNodeCmp(const void *first, const void *second);
MCAST_API int32_t MTable_GrpAvlKeyCmp(const void *first, const void *second);
MCAST_API int32_t MTable_SrcAvlKeyCmp(const void *first, const void *second);

/* Makes table an empty table whose groups go to group_release. Fails when memory is short. */
MCAST_API MCAST_STATUS MTable_Init(MTABLE_S *table, MTABLE_RELEASE group_release);

/*
 * Ends table: every group goes as MTable_FreeAll says, and the record is zeroed. A zeroed table stays as it
 * is.
 */
MCAST_API void MTable_Fini(MTABLE_S *table);

/*
 * Makes group, which is in no table, a group of the address without sources; its sources will go to
 * source_release. address is copied. Fails when memory is short; then sources is 0.
 */
MCAST_API MCAST_STATUS MTable_InitGroup(MTABLE_GROUP_S *group, const MCAST_ADDR_S *address,
                                        MTABLE_RELEASE source_release);

/* Ends group, which is in no table: its sources go to the source release. The record stays the caller's. */
MCAST_API void MTable_FiniGroup(MTABLE_GROUP_S *group);

/*
 * Puts group, which MTable_InitGroup has set up and which is in no table, into table. On failure (the table
 * has a group of that address) the group's source tree is ended and its sources go to the source release;
 * before another try it must be set up again.
 */
MCAST_API MCAST_STATUS MTable_InsertGroup(MTABLE_S *table, MTABLE_GROUP_S *group);

/*
 * Takes group out of table. The group, the caller's again with all its sources, or NULL, with nothing
 * changed, when it is not in the table. group_count falls by 1 and source_count by the number of the group's
 * sources, neither below 0; owner becomes NULL.
 */
MCAST_API MTABLE_GROUP_S *MTable_RemoveGroup(MTABLE_S *table, MTABLE_GROUP_S *group);

/*
 * Puts source, which is in no group, into group, which is in a table. Fails when the group has a source of
 * that address or is in no table; the source's group field is NULL then.
 */
MCAST_API MCAST_STATUS MTable_InsertSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source);

/*
 * Takes source out of group. The source, the caller's again with its group field NULL, or NULL, with nothing
 * changed, when it is not in the group. The table's source_count falls by 1, not below 0.
 */
MCAST_API MTABLE_SOURCE_S *MTable_RemoveSource(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source);

/* The group of the address, or NULL. */
MCAST_API MTABLE_GROUP_S *MTable_SearchGroup(const MTABLE_S *table, const MCAST_ADDR_S *address);

/* The group's source of the address, or NULL. */
MCAST_API MTABLE_SOURCE_S *MTable_SearchSourceInGroup(const MTABLE_GROUP_S *group,
                                                      const MCAST_ADDR_S *address);

/* The source of source_address in the group of group_address, or NULL when either is missing. */
MCAST_API MTABLE_SOURCE_S *MTable_SearchSource(const MTABLE_S *table, const MCAST_ADDR_S *group_address,
                                               const MCAST_ADDR_S *source_address);

/*
 * The first group after the address, which need not be in the table; with NULL the first group. NULL at the
 * end.
 */
MCAST_API MTABLE_GROUP_S *MTable_GetNextGroup(const MTABLE_S *table, const MCAST_ADDR_S *address);

/*
 * Hands every source of group to the source release; the group stays. The table's source_count, when the
 * group is in one, falls by their number, not below 0. The result of AVL_FreeAll. Linear.
 */
MCAST_API uint32_t MTable_FreeAllSourceInGroup(MTABLE_GROUP_S *group);

/*
 * Empties table: the sources of each group go to its source release, then the group to the group release;
 * both counts become 0. The result of AVL_FreeAll. Linear.
 */
MCAST_API uint32_t MTable_FreeAll(MTABLE_S *table);

/*
 * Visits groups and their sources in order, from the cursors on: the group equal to the group cursor, or the
 * first one after it, and in it the source equal to the source cursor, or the first one after it; then the
 * following ones, as walk->mode allows. Either callback may be NULL. In the modes of one group nothing is
 * visited, with result MCAST_OK, when no group is equal to the group cursor.
 *
 * The source cursor is reset, so that the sources of the next group are visited from the first,
 *
 *   - when mode MTABLE_WALK_ALL finds no group equal to the group cursor and goes on with the one after it,
 *   - when the group callback skips a group,
 *   - after a group whose sources were visited with code MCAST_OK, or that has none from the cursor on.
 *
 * It is left where it was after a group that ends with any other code, so that the sources of the next group
 * are visited from the same address on, and without a source callback. A reset writes the cursor's own
 * family, of which the low 8 bits count, a zero reserved field and a zero address (4 bytes for IPv4,
 * otherwise 16). A reset of the group cursor writes the family that the source cursor had at the begin.
 *
 * MCAST_WALK_AGAIN: a callback stopped the walk; the cursors are set to the group, and to the source if one
 * was being visited, so that the same call resumes there and visits it again. MCAST_OK: the walk is complete,
 * the last group ended with MCAST_OK or was skipped, and the group cursor is reset. Any other result: the
 * walk is complete and this is the code of the last group; the group cursor is left where it was.
 */
MCAST_API uint32_t MTable_Walk(const MTABLE_S *table, MTABLE_WALK_S *walk,
                               MTABLE_GROUP_CALLBACK group_callback, void *group_argument,
                               MTABLE_SOURCE_CALLBACK source_callback, void *source_argument);

MCAST_EXTERN_C_END

#endif
