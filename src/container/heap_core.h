/*
 * The heap's algorithms, once for every way of comparing elements and telling them their position. An Order
 * provides
 *     int64_t Compare(const void *first, const void *second)   as MCAST_HEAP_COMPARE
 *     void SetIndex(void *element, uint64_t position)          as MCAST_HEAP_SET_INDEX
 * so that the exported heap can call the functions its creator gave, and the timer manager its own inline.
 * Which elements are compared, in which order they are told their position, and that x is told also when it
 * stays where it was, is part of the heap's contract and the same for every Order.
 */
#ifndef CONTAINER_HEAP_CORE_H
#define CONTAINER_HEAP_CORE_H

#include "mcast/heap.h"

namespace mcast
{

/* Makes room for one more element; false when memory is short, with the heap unchanged. */
bool HeapReserve(MCAST_MINHEAP_S *heap);

/* Gives back 256 slots when more than 512 are idle and realloc succeeds. */
void HeapShrink(MCAST_MINHEAP_S *heap);

inline bool HeapHas(const MCAST_MINHEAP_S *heap, uint64_t position)
{
    return heap != nullptr && position != 0 && position <= heap->count;
}

/* position is from 1 to count. */
template <typename Order> void HeapMoveUp(MCAST_MINHEAP_S *heap, uint64_t position, Order order)
{
    void **slots = heap->slots;
    void *moving = slots[position - 1];

    while (position > 1) {
        uint64_t above = position / 2;
        void *parent = slots[above - 1];

        if (order.Compare(moving, parent) >= 0) {
            break;
        }
        slots[position - 1] = parent;
        order.SetIndex(parent, position);
        position = above;
    }
    slots[position - 1] = moving;
    order.SetIndex(moving, position);
}

/*
 * Fetches the four grandchildren below the children at child and child + 1 while those two are compared. A
 * large heap's elements lie scattered, so without this every level waits for memory in turn.
 */
inline void HeapPrefetchBelow(void **slots, uint64_t child, uint64_t count)
{
    uint64_t below = 2 * child;

    if (below + 3 <= count) {
        __builtin_prefetch(slots[below - 1]);
        __builtin_prefetch(slots[below]);
        __builtin_prefetch(slots[below + 1]);
        __builtin_prefetch(slots[below + 2]);
    }
}

/* position is from 1 to count. */
template <typename Order> void HeapMoveDown(MCAST_MINHEAP_S *heap, uint64_t position, Order order)
{
    void **slots = heap->slots;
    uint64_t count = heap->count;
    void *moving = slots[position - 1];

    for (uint64_t child = 2 * position; child <= count; child = 2 * position) {
        HeapPrefetchBelow(slots, child, count);
        if (child < count && order.Compare(slots[child], slots[child - 1]) < 0) {
            ++child;
        }
        void *least = slots[child - 1];

        if (order.Compare(least, moving) >= 0) {
            break;
        }
        slots[position - 1] = least;
        order.SetIndex(least, position);
        position = child;
    }
    slots[position - 1] = moving;
    order.SetIndex(moving, position);
}

/* element is not NULL. False when the array cannot grow. */
template <typename Order> bool HeapInsert(MCAST_MINHEAP_S *heap, void *element, Order order)
{
    if (!HeapReserve(heap)) {
        return false;
    }
    heap->slots[heap->count++] = element;
    HeapMoveUp(heap, heap->count, order);
    return true;
}

/* The top taken out, or NULL when the heap is empty. */
template <typename Order> void *HeapExtract(MCAST_MINHEAP_S *heap, Order order)
{
    if (heap->count == 0) {
        return nullptr;
    }
    void **slots = heap->slots;
    void *top = slots[0];

    if (heap->count == 1) {
        slots[0] = nullptr;
        heap->count = 0;
        return top;
    }
    slots[0] = slots[heap->count - 1];
    order.SetIndex(slots[0], 1);
    slots[--heap->count] = nullptr;
    HeapShrink(heap);
    HeapMoveDown(heap, 1, order);
    return top;
}

/* position is from 1 to count. */
template <typename Order> void HeapRemove(MCAST_MINHEAP_S *heap, uint64_t position, Order order)
{
    if (heap->count == 1) {
        heap->slots[0] = nullptr;
        heap->count = 0;
        return;
    }
    void *last = heap->slots[heap->count - 1];
    int64_t difference = order.Compare(heap->slots[position - 1], last);

    heap->slots[position - 1] = last;
    order.SetIndex(last, position);
    heap->slots[--heap->count] = nullptr;
    HeapShrink(heap);
    if (position > heap->count) {
        return; /* the last element itself went; a compare that finds it unequal to itself moves nothing */
    }
    if (difference > 0) {
        HeapMoveUp(heap, position, order);
    } else if (difference < 0) {
        HeapMoveDown(heap, position, order);
    }
}

} // namespace mcast

#endif
