/*
 * A heap whose elements have keys and whose callbacks are logged.
 */
#ifndef TESTS_UNIT_CONTAINER_HEAP_FIXTURE_H
#define TESTS_UNIT_CONTAINER_HEAP_FIXTURE_H

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/heap.h"
#include "support/fault.h"

namespace container_test
{

struct Element {
    int key;
    uint64_t position;
};

inline std::vector<std::string> g_log; /* "set KEY POSITION" and "cmp KEY KEY" */

inline int64_t Compare(const void *first, const void *second)
{
    int one = static_cast<const Element *>(first)->key;
    int other = static_cast<const Element *>(second)->key;
    g_log.push_back("cmp " + std::to_string(one) + " " + std::to_string(other));
    return static_cast<int64_t>(one - other) << 40; /* only a full 64-bit result tells the order */
}

inline void SetIndex(void *element, const uint64_t *position)
{
    Element *self = static_cast<Element *>(element);
    self->position = *position;
    g_log.push_back("set " + std::to_string(self->key) + " " + std::to_string(*position));
}

using Log = std::vector<std::string>;

class MinHeap : public testing::Test
{
protected:
    void SetUp() override
    {
        live = fault::LiveBlocks();
        heap = MCAST_MinHeapCreate(0, Compare, SetIndex);
        ASSERT_NE(heap, nullptr);
        g_log.clear();
    }

    void TearDown() override
    {
        fault::FailAllocation(0);
        MCAST_MinHeapDestory(heap);
        EXPECT_EQ(fault::LiveBlocks(), live);
    }

    /* Puts elements with these keys into the slots in this order; the keys form a heap. */
    void Fill(const std::vector<int> &keys)
    {
        elements.clear();
        elements.reserve(keys.size() + 8);
        for (int key : keys) {
            Add(key);
        }
        g_log.clear();
    }

    Element *Add(int key)
    {
        elements.push_back({key, 0});
        EXPECT_EQ(MCAST_MinHeapInsert(heap, &elements.back()), MCAST_OK);
        return &elements.back();
    }

    /* Adds without remembering keys: all equal, so that none moves. */
    void Grow(uint64_t count)
    {
        many.assign(count, Element{0, 0});
        for (Element &element : many) {
            ASSERT_EQ(MCAST_MinHeapInsert(heap, &element), MCAST_OK);
        }
    }

    std::vector<int> Keys() const
    {
        std::vector<int> keys;
        for (uint64_t slot = 0; slot < heap->count; ++slot) {
            keys.push_back(static_cast<const Element *>(heap->slots[slot])->key);
        }
        return keys;
    }

    void ExpectTrue() const
    {
        for (uint64_t slot = 0; slot < heap->capacity; ++slot) {
            if (slot >= heap->count) {
                ASSERT_EQ(heap->slots[slot], nullptr) << slot;
                continue;
            }
            const Element *element = static_cast<const Element *>(heap->slots[slot]);

            ASSERT_EQ(element->position, slot + 1);
            ASSERT_GE(element->key,
                      static_cast<const Element *>(heap->slots[(slot + 1) / 2 - (slot > 0)])->key);
        }
    }

    long live;
    MCAST_MINHEAP_S *heap;
    std::vector<Element> elements;
    std::vector<Element> many;
};

} // namespace container_test

#endif
