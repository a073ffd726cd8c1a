/*
 * A binary min-heap of the caller's element pointers. Every element is told its position whenever it is put
 * into a slot, so that any element can be taken out or moved in logarithmic time. The heap never touches the
 * elements themselves. No function locks: a heap belongs to one thread at a time or to its caller's lock.
 *
 * Positions start at 1: position p is slots[p - 1], its children are 2p and 2p + 1, its parent p / 2, and the
 * top is position 1.
 */
#ifndef MCAST_HEAP_H
#define MCAST_HEAP_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/*
 * Orders two elements: negative when first sorts before second, 0 when they are equal, positive when first
 * sorts after. Must not use the heap.
 */
typedef int64_t (*MCAST_HEAP_COMPARE)(const void *first, const void *second);

/*
 * Tells element its position, read through *position during the call. Called each time an element is put
 * into a slot, also when it is the slot the element came from. Must not use the heap.
 */
typedef void (*MCAST_HEAP_SET_INDEX)(void *element, const uint64_t *position);

/* Receives an element and the caller's argument from MCAST_HeapWalk. */
typedef void (*MCAST_HEAP_VISIT)(void *element, void *argument);

/*
 * A heap, allocated by MCAST_MinHeapCreate and freed by MCAST_MinHeapDestory. Readable by its owner, written
 * only by the functions below. Slots from count up to capacity hold NULL.
 */
typedef struct MCAST_MINHEAP_S {
    uint64_t count;    /* elements in the heap */
    uint64_t capacity; /* slots in the array */
    void **slots;
    MCAST_HEAP_COMPARE compare;
    MCAST_HEAP_SET_INDEX set_index;
} MCAST_MINHEAP_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_MINHEAP_S) == 40, "heap record is 40 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_MINHEAP_S, count) == 0, "count comes first");
MCAST_STATIC_ASSERT(offsetof(MCAST_MINHEAP_S, capacity) == 8, "capacity follows count");
MCAST_STATIC_ASSERT(offsetof(MCAST_MINHEAP_S, slots) == 16, "slots follow capacity");
MCAST_STATIC_ASSERT(offsetof(MCAST_MINHEAP_S, compare) == 24, "compare follows slots");
MCAST_STATIC_ASSERT(offsetof(MCAST_MINHEAP_S, set_index) == 32, "set_index follows compare");

/*
 * Creates an empty heap of initial_capacity slots, but at least 16. Neither function may be NULL. The caller
 * owns the heap and ends it with MCAST_MinHeapDestory. NULL when a function is NULL or memory is short.
 */
MCAST_API MCAST_MINHEAP_S *MCAST_MinHeapCreate(uint64_t initial_capacity, MCAST_HEAP_COMPARE compare,
                                               MCAST_HEAP_SET_INDEX set_index);

/* Frees the heap and its slots; the elements stay the caller's and are not touched. NULL is ignored. */
MCAST_API void MCAST_MinHeapDestory(MCAST_MINHEAP_S *heap);

/*
 * Adds element, which stays the caller's, at the end and moves it up as MCAST_MinHeapMoveUp does. A full
 * array grows to twice its capacity, or by 256 slots when that is less. MCAST_OK; MCAST_ERR_GENERAL when heap
 * or element is NULL or the array cannot grow, with the heap unchanged and no position told. Logarithmic;
 * growth is a realloc.
 */
MCAST_API MCAST_STATUS MCAST_MinHeapInsert(MCAST_MINHEAP_S *heap, void *element);

/* The element that sorts first, left in the heap; NULL when heap is NULL or empty. */
MCAST_API void *MCAST_MinHeapTop(const MCAST_MINHEAP_S *heap);

/*
 * Takes out the element that sorts first and returns it; NULL when heap is NULL or empty. The element is not
 * told anything: what it recorded as its position is stale from here on. The last element takes its place, is
 * told position 1, and then moves down as MCAST_MinHeapMoveDown says; a heap of one element is just emptied.
 * Logarithmic. When more than one element was in the heap and more than 512 slots are idle after it left, 256
 * slots are given back before the move; a failing realloc leaves the array as it is.
 */
MCAST_API void *MCAST_MinHeapExtract(MCAST_MINHEAP_S *heap);

/*
 * Takes out the element at position, which is not told so; ignored when heap is NULL, position is 0 or above
 * count. A heap of one element is just emptied. Otherwise compare(removed, last) is asked, the last element
 * takes the place and is told it (also when it is the removed element itself, which then goes), and moves up
 * when the result was positive, down when it was negative, not at all when it was 0. Cost and release of
 * slots as for MCAST_MinHeapExtract.
 */
MCAST_API void MCAST_MinHeapRemove(MCAST_MINHEAP_S *heap, uint64_t position);

/*
 * Restores the order after the element at position came to sort earlier: while compare(element, parent) is
 * negative, the parent takes the element's position and is told it; in the end the element is told its
 * position, also when it did not move. An equal parent ends the move. Ignored when heap is NULL, position is
 * 0 or above count. Logarithmic; never allocates.
 */
MCAST_API void MCAST_MinHeapMoveUp(MCAST_MINHEAP_S *heap, uint64_t position);

/*
 * Restores the order after the element at position came to sort later: the right child is chosen when
 * compare(right, left) is negative, otherwise the left; while compare(chosen, element) is negative, the
 * chosen child takes the element's position and is told it; in the end the element is told its position, also
 * when it did not move. An equal child ends the move. Ignored when heap is NULL, position is 0 or above
 * count. Logarithmic; never allocates.
 */
MCAST_API void MCAST_MinHeapMoveDown(MCAST_MINHEAP_S *heap, uint64_t position);

/*
 * Calls visit(element, argument) for every element in slot order, which is not sorted order; count is read
 * again after each call. Does nothing when heap or visit is NULL. visit may free the element when the heap is
 * destroyed right after the walk, and may take out elements with the functions above, in which case elements
 * that move can be visited twice or not at all. Linear.
 */
MCAST_API void MCAST_HeapWalk(MCAST_MINHEAP_S *heap, MCAST_HEAP_VISIT visit, void *argument);

MCAST_EXTERN_C_END

#endif
