/*
 * The heap's algorithms, once for every way of keeping it: the exported heap calls the functions that its
 * creator gave, and the timer manager compares keys that it keeps beside the slots.
 *
 * A Keeper, a small value, provides
 *
 *     heap                    the heap record
 *     Reserve()               makes room for one more element; false when there is none
 *     Shrink()                gives idle slots back
 *     View()                  access to the elements; invalid once Reserve or Shrink was called
 *
 * and its View
 *
 *     Item                    an element in hand, cheap to copy
 *     At(position)            the item at a position
 *     Set(position, item)     stores it there
 *     Put(position, item)     stores it there and tells the element its position
 *     Compare(one, other)     as MCAST_HEAP_COMPARE
 *     Prefetch(child, count)  fetches what the levels below the children child and child + 1 will need; always
 *                             inline, since a call of a function that only fetches is optimised away
 *
 * Which elements are compared, in which order they are told their position, and that a moving element is told
 * its position even when it stays where it was, is part of the heap's contract and the same for all.
 */
#ifndef SRC_CONTAINER_HEAP_CORE_H
#define SRC_CONTAINER_HEAP_CORE_H

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

/* position is that of an element. */
template <typename View> void HeapMoveUp(View view, uint64_t position)
{
    typename View::Item moving = view.At(position);

    while (position > 1) {
        typename View::Item parent = view.At(position / 2);

        if (view.Compare(moving, parent) >= 0) {
            break;
        }
        view.Put(position, parent);
        position /= 2;
    }
    view.Put(position, moving);
}

/*
 * position is that of an element, count the number of elements. kFar says that the element will probably sink
 * to the bottom: then memory is fetched ahead and the lesser child, which cannot be foretold, is added
 * instead of branched on. A short move is better served by the processor's own guesses and without the extra
 * traffic.
 */
template <bool kFar, typename View> void HeapMoveDown(View view, uint64_t position, uint64_t count)
{
    typename View::Item moving = view.At(position);

    for (uint64_t child = 2 * position; child <= count; child = 2 * position) {
        if constexpr (kFar) {
            view.Prefetch(child, count);
        }
        if (child < count) {
            int64_t difference = view.Compare(view.At(child + 1), view.At(child));

            if constexpr (kFar) {
                child += static_cast<uint64_t>(difference) >> 63;
            } else if (difference < 0) {
                ++child;
            }
        }
        typename View::Item least = view.At(child);

        if (view.Compare(least, moving) >= 0) {
            break;
        }
        view.Put(position, least);
        position = child;
    }
    view.Put(position, moving);
}

/* Adds item; false when there is no room. */
template <typename Keeper, typename Item> bool HeapInsert(Keeper keeper, Item item)
{
    if (!keeper.Reserve()) {
        return false;
    }
    uint64_t position = ++keeper.heap->count;

    keeper.View().Set(position, item);
    HeapMoveUp(keeper.View(), position);
    return true;
}

/* Takes the last element, which is elsewhere by now or goes, out of its slot. */
template <typename Keeper> void HeapDropLast(Keeper keeper)
{
    keeper.heap->slots[--keeper.heap->count] = nullptr;
    keeper.Shrink();
}

/* The top taken out, or NULL when the heap is empty. */
template <typename Keeper> void *HeapExtract(Keeper keeper)
{
    MCAST_MINHEAP_S *heap = keeper.heap;

    if (heap->count == 0) {
        return nullptr;
    }
    void *top = heap->slots[0];

    if (heap->count == 1) {
        heap->slots[0] = nullptr;
        heap->count = 0;
        return top;
    }
    auto view = keeper.View();

    view.Put(1, view.At(heap->count));
    HeapDropLast(keeper);
    HeapMoveDown<true>(keeper.View(), 1, heap->count);
    return top;
}

/* position is that of an element. */
template <typename Keeper> void HeapRemove(Keeper keeper, uint64_t position)
{
    MCAST_MINHEAP_S *heap = keeper.heap;

    if (heap->count == 1) {
        heap->slots[0] = nullptr;
        heap->count = 0;
        return;
    }
    auto view = keeper.View();
    auto last = view.At(heap->count);
    int64_t difference = view.Compare(view.At(position), last);

    view.Put(position, last);
    HeapDropLast(keeper);
    if (position > heap->count) {
        return; /* the last element itself went; a compare that finds it unequal to itself moves nothing */
    }
    if (difference > 0) {
        HeapMoveUp(keeper.View(), position);
    } else if (difference < 0) {
        HeapMoveDown<false>(keeper.View(), position, heap->count);
    }
}

} // namespace mcast

#endif
