#include "heap_fixture.h"

using namespace container_test;

namespace
{

TEST_F(MinHeap, CreatedEmptyWithAtLeastSixteenEmptySlots)
{
    EXPECT_EQ(heap->count, 0u);
    EXPECT_EQ(heap->capacity, 16u);
    EXPECT_EQ(heap->compare, Compare);
    EXPECT_EQ(heap->set_index, SetIndex);
    ExpectTrue();

    for (uint64_t initial : {1u, 15u, 16u, 17u, 1000u}) {
        MCAST_MINHEAP_S *other = MCAST_MinHeapCreate(initial, Compare, SetIndex);

        EXPECT_EQ(other->capacity, initial < 16 ? 16 : initial);
        EXPECT_EQ(other->slots[other->capacity - 1], nullptr);
        MCAST_MinHeapDestory(other);
    }
}

TEST_F(MinHeap, CreationNeedsBothFunctionsAndEnoughMemory)
{
    EXPECT_EQ(MCAST_MinHeapCreate(16, nullptr, SetIndex), nullptr);
    EXPECT_EQ(MCAST_MinHeapCreate(16, Compare, nullptr), nullptr);
    EXPECT_EQ(MCAST_MinHeapCreate(UINT64_MAX / 8 + 3, Compare, SetIndex), nullptr);

    unsigned long needed = fault::ForEveryAllocation([](unsigned long) {
        MCAST_MINHEAP_S *other = MCAST_MinHeapCreate(16, Compare, SetIndex);

        EXPECT_EQ(other == nullptr, fault::Fired());
        MCAST_MinHeapDestory(other);
    });
    EXPECT_EQ(needed, 2u);
}

TEST_F(MinHeap, GrowsByItselfUpTo256SlotsAndBy256FromThere)
{
    std::vector<uint64_t> capacities;
    uint64_t previous = 0;
    Grow(0);
    many.assign(1300, Element{0, 0});
    for (Element &element : many) {
        ASSERT_EQ(MCAST_MinHeapInsert(heap, &element), MCAST_OK);
        if (heap->capacity != previous) {
            capacities.push_back(heap->capacity);
            previous = heap->capacity;
            ExpectTrue();
        }
    }
    EXPECT_EQ(capacities, (std::vector<uint64_t>{16, 32, 64, 128, 256, 512, 768, 1024, 1280, 1536}));
}

TEST_F(MinHeap, SeventeenthInsertGrowsToThirtyTwo)
{
    Grow(16);
    EXPECT_EQ(heap->capacity, 16u);
    Add(1);
    EXPECT_EQ(heap->capacity, 32u);
    ExpectTrue();
}

TEST_F(MinHeap, GrowthOfAnOddInitialCapacityAddsTheSmallerOfItselfAnd256)
{
    MCAST_MINHEAP_S *other = MCAST_MinHeapCreate(300, Compare, SetIndex);
    many.assign(301, Element{0, 0});
    for (Element &element : many) {
        ASSERT_EQ(MCAST_MinHeapInsert(other, &element), MCAST_OK);
    }
    EXPECT_EQ(other->capacity, 556u);
    MCAST_MinHeapDestory(other);
}

TEST_F(MinHeap, FailedGrowthLeavesTheHeapUnchangedAndUsable)
{
    Grow(16);
    g_log.clear();
    Element refused{-1, 77};
    void **slots = heap->slots;

    fault::FailAllocation(1);
    EXPECT_EQ(MCAST_MinHeapInsert(heap, &refused), MCAST_ERR_GENERAL);
    EXPECT_EQ(heap->count, 16u);
    EXPECT_EQ(heap->capacity, 16u);
    EXPECT_EQ(heap->slots, slots);
    EXPECT_EQ(refused.position, 77u);
    EXPECT_TRUE(g_log.empty());

    fault::FailAllocation(0);
    EXPECT_EQ(MCAST_MinHeapInsert(heap, &refused), MCAST_OK);
    EXPECT_EQ(MCAST_MinHeapTop(heap), &refused);
}

TEST_F(MinHeap, GivesBack256SlotsOnceMoreThan512AreIdle)
{
    Grow(1024);
    ASSERT_EQ(heap->capacity, 1024u);
    while (heap->count > 512) {
        MCAST_MinHeapExtract(heap);
    }
    EXPECT_EQ(heap->capacity, 1024u);

    MCAST_MinHeapExtract(heap);
    EXPECT_EQ(heap->count, 511u);
    EXPECT_EQ(heap->capacity, 768u);
    while (heap->count > 256) {
        MCAST_MinHeapRemove(heap, heap->count);
    }
    EXPECT_EQ(heap->capacity, 768u);
    MCAST_MinHeapRemove(heap, 1);
    EXPECT_EQ(heap->capacity, 512u);
    ExpectTrue();
    while (MCAST_MinHeapExtract(heap) != nullptr) {
    }
    EXPECT_EQ(heap->capacity, 512u);
}

TEST_F(MinHeap, KeepsTheArrayWhenGivingBackFails)
{
    Grow(1024);
    while (heap->count > 512) {
        MCAST_MinHeapExtract(heap);
    }
    fault::FailAllocation(1);
    EXPECT_NE(MCAST_MinHeapExtract(heap), nullptr);
    EXPECT_TRUE(fault::Fired());
    EXPECT_EQ(heap->capacity, 1024u);
    EXPECT_EQ(heap->count, 511u);
    ExpectTrue();

    fault::FailAllocation(0);
    MCAST_MinHeapRemove(heap, 1);
    EXPECT_EQ(heap->capacity, 768u) << "the next removal tries again";
}

TEST_F(MinHeap, IgnoresBadArguments)
{
    Element element{1, 0};

    EXPECT_EQ(MCAST_MinHeapInsert(nullptr, &element), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_MinHeapInsert(heap, nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_MinHeapTop(nullptr), nullptr);
    EXPECT_EQ(MCAST_MinHeapTop(heap), nullptr);
    EXPECT_EQ(MCAST_MinHeapExtract(nullptr), nullptr);
    EXPECT_EQ(MCAST_MinHeapExtract(heap), nullptr);
    MCAST_MinHeapDestory(nullptr);

    Fill({1, 2});
    for (uint64_t position : {uint64_t{0}, uint64_t{3}, UINT64_MAX, uint64_t{1} << 32}) {
        MCAST_MinHeapRemove(heap, position);
        MCAST_MinHeapMoveUp(heap, position);
        MCAST_MinHeapMoveDown(heap, position);
    }
    MCAST_MinHeapRemove(nullptr, 1);
    MCAST_MinHeapMoveUp(nullptr, 1);
    MCAST_MinHeapMoveDown(nullptr, 1);
    EXPECT_TRUE(g_log.empty());
    EXPECT_EQ(heap->count, 2u);
}

TEST_F(MinHeap, WalkVisitsInSlotOrderAndReadsCountAgain)
{
    struct Seen {
        MCAST_MINHEAP_S *heap;
        std::vector<int> keys;
        bool cut;
    } seen{heap, {}, false};
    auto visit = [](void *element, void *argument) {
        Seen *self = static_cast<Seen *>(argument);

        self->keys.push_back(static_cast<Element *>(element)->key);
        if (self->cut && self->keys.size() == 2) {
            MCAST_MinHeapRemove(self->heap, self->heap->count);
        }
    };

    MCAST_HeapWalk(nullptr, visit, &seen);
    MCAST_HeapWalk(heap, visit, &seen);
    EXPECT_TRUE(seen.keys.empty());

    Fill({1, 4, 2, 5});
    MCAST_HeapWalk(heap, nullptr, &seen);
    MCAST_HeapWalk(heap, visit, &seen);
    EXPECT_EQ(seen.keys, (std::vector<int>{1, 4, 2, 5}));

    seen = Seen{heap, {}, true};
    MCAST_HeapWalk(heap, visit, &seen);
    EXPECT_EQ(seen.keys, (std::vector<int>{1, 4, 2}));
}

TEST_F(MinHeap, CountsAndCapacityAre64BitsWide)
{
    static_assert(sizeof(heap->count) == 8 && sizeof(heap->capacity) == 8);
    /* A position beyond 32 bits whose low half would be valid is no position. */
    Fill({1, 2, 3});
    MCAST_MinHeapRemove(heap, (uint64_t{1} << 32) + 1);
    EXPECT_EQ(heap->count, 3u);
}

} // namespace
