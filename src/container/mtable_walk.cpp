/*
 * The resumable walk over (group, source) pairs, with which long lists are sent in pieces.
 *
 * The position between two calls is two addresses, not two records: whatever happens to the table in between,
 * the next call looks for the group and the source of these addresses and takes the first ones after them
 * when they are gone. A zero address is before every other, so a reset cursor means "from the beginning".
 *
 * Callbacks may free what they are called with. Therefore the successor is fetched before a callback runs,
 * and the address to which a cursor will be set is copied before.
 *
 * A group leaves one code behind: that of its last source, or what its group callback said where no source
 * callback is asked. Only the last group's code is the result, but a code other than 0 also keeps the source
 * cursor where it was, so that the sources of the following group are visited from there.
 */
#include <string.h>

#include "container/mtable_address.h"
#include "mcast/mtable.h"

namespace
{

using mcast::mtable::AddressBytes;
using mcast::mtable::CopyAddress;
using mcast::mtable::FirstAfter;

struct Walk {
    MTABLE_WALK_S *position;
    MTABLE_GROUP_CALLBACK group_callback;
    void *group_argument;
    MTABLE_SOURCE_CALLBACK source_callback;
    void *source_argument;
};

/* Makes cursor the zero address of family, of which a cursor holds one byte. */
void ResetCursor(MCAST_ADDR_S *cursor, uint8_t family)
{
    cursor->family = family;
    cursor->reserved = 0;
    memset(cursor->address, 0, AddressBytes(family));
}

uint8_t FamilyByte(const MCAST_ADDR_S *cursor)
{
    return static_cast<uint8_t>(cursor->family);
}

MTABLE_GROUP_S *FirstGroup(const MTABLE_S *table, MTABLE_WALK_S *position)
{
    MTABLE_GROUP_S *group = MTable_SearchGroup(table, position->group_cursor);
    if (group == nullptr && position->mode == MTABLE_WALK_ALL) {
        group = FirstAfter<MTABLE_GROUP_S>(table->groups, position->group_cursor);
        ResetCursor(position->source_cursor, FamilyByte(position->source_cursor));
    }
    return group;
}

MTABLE_GROUP_S *NextGroup(const MTABLE_S *table, const MTABLE_WALK_S *position, const MTABLE_GROUP_S *group)
{
    return position->mode == MTABLE_WALK_ALL
               ? static_cast<MTABLE_GROUP_S *>(AVL_GetNext(table->groups, group))
               : nullptr;
}

MTABLE_SOURCE_S *FirstSource(const MTABLE_GROUP_S *group, const MTABLE_WALK_S *position)
{
    MTABLE_SOURCE_S *source = MTable_SearchSourceInGroup(group, position->source_cursor);
    if (source == nullptr && position->mode != MTABLE_WALK_SOURCE) {
        source = FirstAfter<MTABLE_SOURCE_S>(group->sources, position->source_cursor);
    }
    return source;
}

/*
 * The code of the last source visited, 0 when there is none; MCAST_WALK_AGAIN leaves the cursor at its
 * source.
 */
uint32_t WalkSources(const Walk &walk, MTABLE_GROUP_S *group)
{
    AVL_HANDLE sources = group->sources;
    MTABLE_SOURCE_S *source = FirstSource(group, walk.position);
    uint32_t code = MCAST_OK;

    while (source != nullptr) {
        MTABLE_SOURCE_S *next = walk.position->mode == MTABLE_WALK_SOURCE
                                    ? nullptr
                                    : static_cast<MTABLE_SOURCE_S *>(AVL_GetNext(sources, source));
        MCAST_ADDR_S visited = source->address;

        code = walk.source_callback(group, source, walk.source_argument);
        if (code == MCAST_WALK_AGAIN) {
            CopyAddress(walk.position->source_cursor, &visited);
            break;
        }
        source = next;
    }
    return code;
}

/* The group's code; MCAST_WALK_AGAIN leaves both cursors where the walk is to resume. */
uint32_t WalkGroup(const Walk &walk, MTABLE_GROUP_S *group)
{
    MCAST_ADDR_S *source_cursor = walk.position->source_cursor;
    MCAST_ADDR_S visited = group->address;
    uint8_t family = FamilyByte(source_cursor);
    uint32_t code = MCAST_OK;
    if (walk.group_callback != nullptr) {
        code = walk.group_callback(group, walk.group_argument);
    }
    if (code == MCAST_WALK_SKIP_GROUP) {
        ResetCursor(source_cursor, family);
        return MCAST_OK;
    }
    if (code != MCAST_WALK_AGAIN && walk.source_callback != nullptr) {
        code = WalkSources(walk, group);
        if (code == MCAST_OK) {
            ResetCursor(source_cursor, family);
        }
    }
    if (code == MCAST_WALK_AGAIN) {
        CopyAddress(walk.position->group_cursor, &visited);
    }
    return code;
}

} // namespace

uint32_t MTable_Walk(const MTABLE_S *table, MTABLE_WALK_S *walk, MTABLE_GROUP_CALLBACK group_callback,
                     void *group_argument, MTABLE_SOURCE_CALLBACK source_callback, void *source_argument)
{
    const Walk state = {walk, group_callback, group_argument, source_callback, source_argument};
    uint8_t family = FamilyByte(walk->source_cursor);
    MTABLE_GROUP_S *group = FirstGroup(table, walk);
    uint32_t code = MCAST_OK;

    while (group != nullptr) {
        MTABLE_GROUP_S *next = NextGroup(table, walk, group);

        code = WalkGroup(state, group);
        if (code == MCAST_WALK_AGAIN) {
            return code;
        }
        group = next;
    }
    if (code == MCAST_OK) {
        ResetCursor(walk->group_cursor, family);
    }
    return code;
}
