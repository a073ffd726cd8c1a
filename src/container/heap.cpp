/*
 * The min-heap: an implicit binary tree in an array of element pointers.
 *
 *     position      1        slots[0]          no element sorts before its parent;
 *                 /   \                        every element has been told its position;
 *                2     3     slots[1..2]       slots from count up to capacity are NULL
 *               / \   / \
 *              4   5 6   7   slots[3..6]
 *
 * An element that has been told its position can be taken out or moved in logarithmic time, which is what a
 * timer that is cancelled or refreshed needs. A move holds the moving element aside, shifts the others by one
 * level each and puts it down once, so each level costs one store and one told position.
 *
 * The array grows by its own size up to 256 slots and by 256 from there on, and gives 256 back when more than
 * 512 are idle: between the two a heap that breathes by a few hundred elements does not allocate at all. The
 * element that leaves a heap of one is simply cleared away, without a look at the idle slots.
 *
 * The walks themselves are in heap_core.h, because the timer manager uses them with keys of its own.
 */
#include "mcast/heap.h"

#include <stdlib.h>

#include "container/heap_core.h"

namespace mcast
{

constexpr uint64_t kLeastCapacity = 16;
constexpr uint64_t kStep = 256;
constexpr uint64_t kMostIdle = 512;

bool HeapReserve(MCAST_MINHEAP_S *heap)
{
    if (heap->count < heap->capacity) {
        return true;
    }
    uint64_t capacity = heap->capacity + (heap->capacity < kStep ? heap->capacity : kStep);
    void **slots = static_cast<void **>(realloc(heap->slots, capacity * sizeof(*slots)));

    if (slots == nullptr) {
        return false;
    }
    for (uint64_t slot = heap->capacity; slot < capacity; ++slot) {
        slots[slot] = nullptr;
    }
    heap->slots = slots;
    heap->capacity = capacity;
    return true;
}

void HeapShrink(MCAST_MINHEAP_S *heap)
{
    if (heap->capacity - heap->count <= kMostIdle) {
        return;
    }
    uint64_t capacity = heap->capacity - kStep;
    void **slots = static_cast<void **>(realloc(heap->slots, capacity * sizeof(*slots)));

    if (slots != nullptr) {
        heap->slots = slots;
        heap->capacity = capacity;
    }
}

} // namespace mcast

namespace
{

constexpr uint64_t kMostSlots = SIZE_MAX / sizeof(void *);

/* Elements compared and told their position by the functions that the heap's creator gave. */
struct GivenView {
    using Item = void *;

    /* Two words, which travel in registers; with the functions as well it would go over the stack. */
    const MCAST_MINHEAP_S *heap;
    void **slots;

    Item At(uint64_t position) const
    {
        return slots[position - 1];
    }

    void Set(uint64_t position, Item element) const
    {
        slots[position - 1] = element;
    }

    void Put(uint64_t position, Item element) const
    {
        slots[position - 1] = element;
        heap->set_index(element, &position);
    }

    int64_t Compare(Item first, Item second) const
    {
        return heap->compare(first, second);
    }

    /*
     * The four grandchildren, and the slots of the level after them. A large heap's elements lie scattered,
     * so without this every level waits for memory in turn.
     */
    [[gnu::always_inline]] void Prefetch(uint64_t child, uint64_t count) const
    {
        uint64_t grandchild = 2 * child;
        if (grandchild + 3 > count) {
            return;
        }
        __builtin_prefetch(slots[grandchild - 1]);
        __builtin_prefetch(slots[grandchild]);
        __builtin_prefetch(slots[grandchild + 1]);
        __builtin_prefetch(slots[grandchild + 2]);
        if (4 * grandchild + 4 <= count) {
            __builtin_prefetch(&slots[4 * grandchild + 3]);
        }
    }
};

struct GivenKeeper {
    MCAST_MINHEAP_S *heap;

    bool Reserve() const
    {
        return mcast::HeapReserve(heap);
    }

    void Shrink() const
    {
        mcast::HeapShrink(heap);
    }

    GivenView View() const
    {
        return {heap, heap->slots};
    }
};

} // namespace

MCAST_MINHEAP_S *MCAST_MinHeapCreate(uint64_t initial_capacity, MCAST_HEAP_COMPARE compare,
                                     MCAST_HEAP_SET_INDEX set_index)
{
    if (compare == nullptr || set_index == nullptr || initial_capacity > kMostSlots) {
        return nullptr;
    }
    MCAST_MINHEAP_S *heap = static_cast<MCAST_MINHEAP_S *>(malloc(sizeof(*heap)));

    if (heap == nullptr) {
        return nullptr;
    }
    uint64_t capacity = initial_capacity > mcast::kLeastCapacity ? initial_capacity : mcast::kLeastCapacity;
    void **slots = static_cast<void **>(calloc(capacity, sizeof(*slots)));

    if (slots == nullptr) {
        free(heap);
        return nullptr;
    }
    *heap = MCAST_MINHEAP_S{0, capacity, slots, compare, set_index};
    return heap;
}

void MCAST_MinHeapDestory(MCAST_MINHEAP_S *heap)
{
    if (heap != nullptr) {
        free(heap->slots);
        free(heap);
    }
}

MCAST_STATUS MCAST_MinHeapInsert(MCAST_MINHEAP_S *heap, void *element)
{
    if (heap == nullptr || element == nullptr || !mcast::HeapInsert(GivenKeeper{heap}, element)) {
        return MCAST_ERR_GENERAL;
    }
    return MCAST_OK;
}

void *MCAST_MinHeapTop(const MCAST_MINHEAP_S *heap)
{
    return heap != nullptr && heap->count != 0 ? heap->slots[0] : nullptr;
}

void *MCAST_MinHeapExtract(MCAST_MINHEAP_S *heap)
{
    return heap != nullptr ? mcast::HeapExtract(GivenKeeper{heap}) : nullptr;
}

void MCAST_MinHeapRemove(MCAST_MINHEAP_S *heap, uint64_t position)
{
    if (mcast::HeapHas(heap, position)) {
        mcast::HeapRemove(GivenKeeper{heap}, position);
    }
}

void MCAST_MinHeapMoveUp(MCAST_MINHEAP_S *heap, uint64_t position)
{
    if (mcast::HeapHas(heap, position)) {
        mcast::HeapMoveUp(GivenKeeper{heap}.View(), position);
    }
}

void MCAST_MinHeapMoveDown(MCAST_MINHEAP_S *heap, uint64_t position)
{
    if (mcast::HeapHas(heap, position)) {
        mcast::HeapMoveDown<false>(GivenKeeper{heap}.View(), position, heap->count);
    }
}

void MCAST_HeapWalk(MCAST_MINHEAP_S *heap, MCAST_HEAP_VISIT visit, void *argument)
{
    if (heap == nullptr || visit == nullptr) {
        return;
    }
    for (uint64_t slot = 0; slot < heap->count; ++slot) {
        visit(heap->slots[slot], argument);
    }
}
