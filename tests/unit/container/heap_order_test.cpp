#include "heap_fixture.h"

using namespace container_test;

namespace
{

TEST_F(MinHeap, InsertComparesUpwardsAndTellsMovedParentsBeforeTheNewElement)
{
    Fill({10, 20, 30, 40, 50});

    Add(5);
    EXPECT_EQ(g_log, (Log{"cmp 5 30", "set 30 6", "cmp 5 10", "set 10 3", "set 5 1"}));
    EXPECT_EQ(Keys(), (std::vector<int>{5, 20, 10, 40, 50, 30}));
    ExpectTrue();
}

TEST_F(MinHeap, InsertStopsBelowAnEqualParentAndTellsTheNewElementAllTheSame)
{
    Fill({10, 20});

    Add(10);
    EXPECT_EQ(g_log, (Log{"cmp 10 10", "set 10 3"}));
}

TEST_F(MinHeap, FirstInsertTellsPositionOneWithoutComparing)
{
    Add(9);
    EXPECT_EQ(g_log, (Log{"set 9 1"}));
}

TEST_F(MinHeap, ExtractTellsTheLastElementFirstAndTheMovingOneLast)
{
    Fill({1, 4, 2, 5, 6, 3, 9});

    Element *top = static_cast<Element *>(MCAST_MinHeapExtract(heap));
    EXPECT_EQ(top->key, 1);
    EXPECT_EQ(top->position, 1u) << "the extracted element keeps what it recorded";
    EXPECT_EQ(g_log, (Log{"set 9 1", "cmp 2 4", "cmp 2 9", "set 2 1", "cmp 3 9", "set 3 3", "set 9 6"}));
    EXPECT_EQ(Keys(), (std::vector<int>{2, 4, 3, 5, 6, 9}));
    ExpectTrue();
}

TEST_F(MinHeap, TiesKeepTheLeftChildAndStopAtAnEqualChild)
{
    Fill({1, 2, 2, 8, 7});
    MCAST_MinHeapExtract(heap); /* 7 to the top */
    EXPECT_EQ(g_log, (Log{"set 7 1", "cmp 2 2", "cmp 2 7", "set 2 1", "cmp 8 7", "set 7 2"}));

    MCAST_MinHeapDestory(heap);
    heap = MCAST_MinHeapCreate(0, Compare, SetIndex);
    Fill({1, 2, 3, 2});
    MCAST_MinHeapExtract(heap); /* 2 to the top, above an equal child */
    EXPECT_EQ(g_log, (Log{"set 2 1", "cmp 3 2", "cmp 2 2", "set 2 1"}));
}

TEST_F(MinHeap, ExtractOfTheOnlyElementTellsNobody)
{
    Element *only = Add(3);
    g_log.clear();

    EXPECT_EQ(MCAST_MinHeapExtract(heap), only);
    EXPECT_TRUE(g_log.empty());
    EXPECT_EQ(only->position, 1u);
    EXPECT_EQ(heap->count, 0u);
    EXPECT_EQ(heap->slots[0], nullptr);
    EXPECT_EQ(MCAST_MinHeapExtract(heap), nullptr);
}

TEST_F(MinHeap, ExtractsInAscendingOrder)
{
    std::vector<int> keys;
    elements.reserve(200);
    for (int index = 0; index < 200; ++index) {
        Add(index * 83 % 200);
    }
    while (Element *element = static_cast<Element *>(MCAST_MinHeapExtract(heap))) {
        keys.push_back(element->key);
        ExpectTrue();
    }
    ASSERT_EQ(keys.size(), 200u);
    for (int index = 0; index < 200; ++index) {
        EXPECT_EQ(keys[static_cast<size_t>(index)], index);
    }
}

TEST_F(MinHeap, RemovingTheLastPositionOnlyClearsItsSlot)
{
    Fill({1, 4, 2, 5});

    MCAST_MinHeapRemove(heap, 4);
    EXPECT_EQ(g_log, (Log{"cmp 5 5", "set 5 4"}));
    EXPECT_EQ(Keys(), (std::vector<int>{1, 4, 2}));
    ExpectTrue();
}

TEST_F(MinHeap, RemovingTheLastPositionMovesNothingEvenWhenCompareContradictsItself)
{
    MCAST_MINHEAP_S *odd = MCAST_MinHeapCreate(
        0, [](const void *, const void *) -> int64_t { return 1; }, SetIndex);
    many.assign(3, Element{0, 0});
    for (Element &element : many) {
        MCAST_MinHeapInsert(odd, &element);
    }
    MCAST_MinHeapRemove(odd, 3);
    EXPECT_EQ(odd->count, 2u);
    EXPECT_EQ(odd->slots[2], nullptr);
    MCAST_MinHeapDestory(odd);
}

TEST_F(MinHeap, RemovingWhatTheLastElementSortsBeforeMovesItUp)
{
    Fill({1, 10, 2, 11, 12, 3});

    MCAST_MinHeapRemove(heap, 4); /* 11 goes, 3 comes and passes 10 */
    EXPECT_EQ(g_log, (Log{"cmp 11 3", "set 3 4", "cmp 3 10", "set 10 4", "cmp 3 1", "set 3 2"}));
    EXPECT_EQ(Keys(), (std::vector<int>{1, 3, 2, 10, 12}));
    ExpectTrue();
}

TEST_F(MinHeap, RemovingWhatTheLastElementSortsAfterMovesItDown)
{
    Fill({1, 3, 2, 4, 5, 9});

    MCAST_MinHeapRemove(heap, 2); /* 3 goes, 9 comes */
    EXPECT_EQ(g_log, (Log{"cmp 3 9", "set 9 2", "cmp 5 4", "cmp 4 9", "set 4 2", "set 9 4"}));
    EXPECT_EQ(Keys(), (std::vector<int>{1, 4, 2, 9, 5}));
    ExpectTrue();
}

TEST_F(MinHeap, RemovingWhatTheLastElementEqualsMovesNothing)
{
    Fill({1, 5, 2, 6, 5});

    MCAST_MinHeapRemove(heap, 2);
    EXPECT_EQ(g_log, (Log{"cmp 5 5", "set 5 2"}));
    EXPECT_EQ(Keys(), (std::vector<int>{1, 5, 2, 6}));
    ExpectTrue();
}

TEST_F(MinHeap, RemovingTheOnlyElementTellsAndComparesNothing)
{
    Fill({3});

    MCAST_MinHeapRemove(heap, 1);
    EXPECT_TRUE(g_log.empty());
    EXPECT_EQ(heap->count, 0u);
    EXPECT_EQ(heap->slots[0], nullptr);
}

TEST_F(MinHeap, MoveUpAndMoveDownRestoreTheOrderAfterAKeyChanged)
{
    Fill({1, 4, 2, 5, 6, 3});

    elements[4].key = 0;
    MCAST_MinHeapMoveUp(heap, elements[4].position);
    EXPECT_EQ(g_log, (Log{"cmp 0 4", "set 4 5", "cmp 0 1", "set 1 2", "set 0 1"}));
    ExpectTrue();

    g_log.clear();
    elements[4].key = 4;
    MCAST_MinHeapMoveDown(heap, elements[4].position);
    EXPECT_EQ(g_log, (Log{"cmp 2 1", "cmp 1 4", "set 1 1", "cmp 4 5", "cmp 4 4", "set 4 2"}));
    ExpectTrue();
}

TEST_F(MinHeap, MovesOfAnElementInPlaceTellItsPositionOnce)
{
    Fill({1, 2, 3});

    MCAST_MinHeapMoveUp(heap, 3);
    EXPECT_EQ(g_log, (Log{"cmp 3 1", "set 3 3"}));
    g_log.clear();
    MCAST_MinHeapMoveDown(heap, 3);
    EXPECT_EQ(g_log, (Log{"set 3 3"}));
}

} // namespace
