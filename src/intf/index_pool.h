/*
 * A pool of interface indexes: a range of numbers of which each is free, at hand in the cache, or in use.
 * index_pool.cpp tells how it works.
 */
#ifndef SRC_INTF_INDEX_POOL_H
#define SRC_INTF_INDEX_POOL_H

#include <stdint.h>

#include "platform/avl.h"

namespace mcast
{

/* A range of free indexes that are not in the cache, first and last included. */
struct FreeRange {
    AVL_NODE_S link;
    FreeRange *next;
    uint32_t lo;
    uint32_t hi;
};

/* All zero, or with cursor alone set, is a closed pool: it has no index and takes none. */
struct IndexPool {
    uint32_t lo;
    uint32_t hi;
    uint32_t capacity; /* of the cache */
    uint32_t cursor;   /* the first index at hand; capacity when there is none, 0 when the cache is full */
    uint32_t *cache;   /* NULL while the pool is closed */
    AVL_HANDLE ranges; /* the free ranges by lo; owns them */
    FreeRange *head;   /* the same ranges as a list, ascending */
    FreeRange *tail;
    uint32_t range_failures; /* ranges lost to short memory */
};

/* Opens a closed pool over lo to hi, all free. On failure the caller closes it. */
bool OpenPool(IndexPool *pool, uint32_t lo, uint32_t hi, uint32_t capacity);

/* Closes a pool in any state. */
void ClosePool(IndexPool *pool);

/* Makes every index free and the cache empty. False when memory is short; then no index is free. */
bool ResetPool(IndexPool *pool);

/*
 * Makes a free index that is not in the cache used. False, changing nothing, when the index is not free or
 * memory is short.
 */
bool ReserveIndex(IndexPool *pool, uint32_t index);

/* Fills the empty slots of the cache with free indexes. */
void FillCache(IndexPool *pool);

/* Adds an index to the ranges, past the cache. */
void MergeIndex(IndexPool *pool, uint32_t index);

/* Whether the index lies in the range of an open pool. */
inline bool Serves(const IndexPool *pool, uint32_t index)
{
    return pool->cache != nullptr && index >= pool->lo && index <= pool->hi;
}

/* The next index, now in use, or 0. */
inline uint32_t TakeIndex(IndexPool *pool)
{
    if (pool->cursor >= pool->capacity) {
        FillCache(pool);
        if (pool->cursor >= pool->capacity) {
            return 0;
        }
    }
    return pool->cache[pool->cursor++];
}

/* Makes an index of the pool free. */
inline void GiveIndex(IndexPool *pool, uint32_t index)
{
    if (pool->cursor > 0) {
        pool->cache[--pool->cursor] = index;
        return;
    }
    MergeIndex(pool, index);
}

} // namespace mcast

#endif
