/*
 * Index pools: 2^25 indexes each, nearly all of them free, handed out and taken back in a few nanoseconds.
 *
 * A free index is in one of two places. The cache is an array used from its end: the slots from the cursor on
 * hold indexes at hand, and the cursor moves up as they are handed out and down as they come back.
 *
 *              0                    cursor               capacity
 *      cache  |  - nothing here -  | x | x+1 | x+2 |  y  |
 *                                    ^ the next to hand out
 *
 *      ranges [lo hi] -> [lo hi] -> [lo hi]                 tree and list, ascending, none touching another
 *
 * Everything else is a range of free indexes, held both in a platform tree, to find the range of an index,
 * and in a list, to walk them. An empty cache is filled with the lowest indexes of the first ranges, each
 * range's indexes below those of the range before, in ascending order within a range. An index that comes
 * back goes to the cache; only when that is full does it join the ranges, growing a neighbour, joining two or
 * standing alone. So a daemon that creates and destroys within a cache's length never touches the tree.
 *
 * The tree is ordered by lo alone. A range's lo and hi change in place, which never carries it past a
 * neighbour; a point is found by a comparison that knows both ends. An index given back while it is free is
 * free twice: nobody checks, but every range is freed exactly once all the same.
 */
#include "intf/index_pool.h"

#include <stdlib.h>

#include "mcast/common.h"

namespace mcast
{
namespace
{

int32_t CompareRanges(const void *first, const void *second)
{
    uint32_t a = static_cast<const FreeRange *>(first)->lo;
    uint32_t b = static_cast<const FreeRange *>(second)->lo;
    return a < b ? -1 : a > b;
}

int32_t CompareRangeWithIndex(const void *record, const void *key)
{
    const FreeRange *range = static_cast<const FreeRange *>(record);
    uint32_t index = *static_cast<const uint32_t *>(key);
    return range->hi < index ? -1 : range->lo > index;
}

/* The last range that begins below the index. */
FreeRange *RangeBefore(const IndexPool *pool, uint32_t index)
{
    FreeRange probe = {{}, nullptr, index, index};
    return static_cast<FreeRange *>(AVL_GetPrev(pool->ranges, &probe));
}

/* Adds a range to tree and list, behind previous, or first when that is NULL. */
bool AddRange(IndexPool *pool, FreeRange *previous, uint32_t lo, uint32_t hi)
{
    FreeRange *range = static_cast<FreeRange *>(malloc(sizeof(FreeRange)));

    if (range != nullptr) {
        *range = {{}, nullptr, lo, hi};
    }
    if (range == nullptr || AVL_Insert(pool->ranges, range) != 0) {
        free(range);
        ++pool->range_failures;
        return false;
    }

    FreeRange **link = previous != nullptr ? &previous->next : &pool->head;

    range->next = *link;
    *link = range;
    if (range->next == nullptr) {
        pool->tail = range;
    }
    return true;
}

/*
 * Takes a range out of tree and list and frees it. previous comes before it in the list, NULL for the first.
 */
void RemoveRange(IndexPool *pool, FreeRange *previous, FreeRange *range)
{
    (previous != nullptr ? previous->next : pool->head) = range->next;
    if (pool->tail == range) {
        pool->tail = previous;
    }
    /* A tree that does not find the range keeps it and frees it in the end. */
    if (AVL_Remove(pool->ranges, range) != 0) {
        free(range);
    }
}

/* Copies count indexes from lo on into the slots just below the cursor. */
void PutAtHand(IndexPool *pool, uint32_t lo, uint32_t count)
{
    pool->cursor -= count;

    uint32_t *slot = pool->cache + pool->cursor;

    for (uint32_t i = 0; i < count; ++i) {
        slot[i] = lo + i;
    }
}

} // namespace

bool ResetPool(IndexPool *pool)
{
    (void)AVL_FreeAll(pool->ranges);
    pool->head = nullptr;
    pool->tail = nullptr;
    pool->cursor = pool->capacity;
    return AddRange(pool, nullptr, pool->lo, pool->hi);
}

bool OpenPool(IndexPool *pool, uint32_t lo, uint32_t hi, uint32_t capacity)
{
    pool->lo = lo;
    pool->hi = hi;
    pool->capacity = capacity;
    pool->ranges = AVL_Init(CompareRanges, 0, MCAST_FreeFunc);
    if (pool->ranges == 0) {
        return false;
    }
    pool->cache = static_cast<uint32_t *>(calloc(capacity, sizeof(uint32_t)));
    return pool->cache != nullptr && ResetPool(pool);
}

void ClosePool(IndexPool *pool)
{
    if (pool->ranges != 0) {
        AVL_Fini(pool->ranges);
    }
    free(pool->cache);
    pool->ranges = 0;
    pool->head = nullptr;
    pool->tail = nullptr;
    pool->cache = nullptr;
    pool->cursor = pool->capacity;
    pool->capacity = 0;
    pool->lo = 0;
    pool->hi = 0;
}

void MergeIndex(IndexPool *pool, uint32_t index)
{
    FreeRange *previous = RangeBefore(pool, index);
    FreeRange *next = previous != nullptr ? previous->next : pool->head;
    bool follows = previous != nullptr && previous->hi + 1 == index;
    bool precedes = next != nullptr && next->lo == index + 1;
    if (follows && precedes) {
        previous->hi = next->hi;
        RemoveRange(pool, previous, next);
    } else if (follows) {
        previous->hi = index;
    } else if (precedes) {
        next->lo = index;
    } else {
        (void)AddRange(pool, previous, index, index);
    }
}

bool ReserveIndex(IndexPool *pool, uint32_t index)
{
    FreeRange *range = static_cast<FreeRange *>(AVL_Get(pool->ranges, &index, CompareRangeWithIndex));
    if (range == nullptr) {
        return false;
    }
    if (range->lo == range->hi) {
        RemoveRange(pool, RangeBefore(pool, range->lo), range);
    } else if (range->lo == index) {
        ++range->lo;
    } else if (range->hi == index) {
        --range->hi;
    } else {
        if (!AddRange(pool, range, index + 1, range->hi)) {
            return false;
        }
        range->hi = index - 1;
    }
    return true;
}

void FillCache(IndexPool *pool)
{
    while (pool->cursor > 0 && pool->head != nullptr && pool->cache != nullptr) {
        FreeRange *range = pool->head;
        uint32_t wanted = pool->cursor;
        uint32_t count = range->hi + 1 - range->lo;

        if (wanted < count) {
            PutAtHand(pool, range->lo, wanted);
            range->lo += wanted;
        } else {
            PutAtHand(pool, range->lo, count);
            RemoveRange(pool, nullptr, range);
        }
    }
}

} // namespace mcast
