/*
 * The min-heap beside a binary heap that swaps instead of shifting, keeps its elements in a plain vector and
 * finds positions by looking: after every operation both hold the same elements in the same slots. The top is
 * checked against all keys, so that the two cannot be wrong together.
 */
#include "mcast/heap.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "support/fault.h"
#include "support/property.h"

namespace
{

struct Element {
    uint32_t key;
    uint64_t position;
};

int64_t Compare(const void *first, const void *second)
{
    return static_cast<int64_t>(static_cast<const Element *>(first)->key) -
           static_cast<int64_t>(static_cast<const Element *>(second)->key);
}

void SetIndex(void *element, const uint64_t *position)
{
    static_cast<Element *>(element)->position = *position;
}

struct Model {
    std::vector<Element *> slots;
    uint64_t capacity = 16;

    bool Before(size_t one, size_t other) const
    {
        return slots[one]->key < slots[other]->key;
    }

    void Up(size_t slot)
    {
        while (slot > 0 && Before(slot, (slot - 1) / 2)) {
            std::swap(slots[slot], slots[(slot - 1) / 2]);
            slot = (slot - 1) / 2;
        }
    }

    void Down(size_t slot)
    {
        while (2 * slot + 1 < slots.size()) {
            size_t child = 2 * slot + 1;

            if (child + 1 < slots.size() && Before(child + 1, child)) {
                ++child;
            }
            if (!Before(child, slot)) {
                break;
            }
            std::swap(slots[slot], slots[child]);
            slot = child;
        }
    }

    void Insert(Element *element)
    {
        if (slots.size() == capacity) {
            capacity += std::min<uint64_t>(capacity, 256);
        }
        slots.push_back(element);
        Up(slots.size() - 1);
    }

    void Remove(size_t slot)
    {
        bool only = slots.size() == 1;
        uint32_t key = slots[slot]->key;
        uint32_t last = slots.back()->key;
        slots[slot] = slots.back();
        slots.pop_back();
        if (!only && capacity - slots.size() > 512) {
            capacity -= 256;
        }
        if (slot < slots.size() && key > last) {
            Up(slot);
        } else if (slot < slots.size() && key < last) {
            Down(slot);
        }
    }
};

class Pair
{
public:
    explicit Pair(uint64_t seed) : random(seed), heap(MCAST_MinHeapCreate(0, Compare, SetIndex))
    {
    }

    ~Pair()
    {
        MCAST_MinHeapDestory(heap);
    }

    /* One random operation that pulls the number of elements towards target, on both heaps. */
    void Step(uint32_t target)
    {
        uint32_t count = static_cast<uint32_t>(model.slots.size());

        if (count == 0 || random.Below(2 * target) >= count) {
            Insert();
            return;
        }
        uint64_t position = 1 + random.Below(count);
        Element *element = model.slots[position - 1];

        switch (random.Below(4)) {
        case 0:
            ASSERT_EQ(MCAST_MinHeapExtract(heap), model.slots[0]);
            GiveBack(model.slots[0]);
            model.Remove(0);
            break;
        case 1:
            MCAST_MinHeapRemove(heap, position);
            GiveBack(element);
            model.Remove(position - 1);
            break;
        default:
            Change(element, random.Below(kKeys));
        }
    }

    void Check()
    {
        ASSERT_EQ(heap->count, model.slots.size());
        ASSERT_EQ(heap->capacity, model.capacity);
        for (uint64_t slot = 0; slot < heap->count; ++slot) {
            ASSERT_EQ(heap->slots[slot], model.slots[slot]) << "slot " << slot;
            ASSERT_EQ(model.slots[slot]->position, slot + 1);
            ASSERT_LE(model.slots[slot == 0 ? 0 : (slot - 1) / 2]->key, model.slots[slot]->key);
        }
        for (uint64_t slot = heap->count; slot < heap->capacity; ++slot) {
            ASSERT_EQ(heap->slots[slot], nullptr);
        }
        ASSERT_EQ(MCAST_MinHeapTop(heap), model.slots.empty() ? nullptr : model.slots[0]);
    }

private:
    static constexpr uint32_t kKeys = 300; /* few, so that ties abound */

    void Insert()
    {
        Element *element = Take();
        bool full = heap->count == heap->capacity;
        if (full && random.OneIn(2)) {
            fault::FailAllocation(1);
            ASSERT_EQ(MCAST_MinHeapInsert(heap, element), MCAST_ERR_GENERAL);
            fault::FailAllocation(0);
            GiveBack(element);
            return;
        }
        ASSERT_EQ(MCAST_MinHeapInsert(heap, element), MCAST_OK);
        model.Insert(element);
    }

    void Change(Element *element, uint32_t key)
    {
        size_t slot = static_cast<size_t>(std::find(model.slots.begin(), model.slots.end(), element) -
                                          model.slots.begin());
        bool earlier = key < element->key;
        element->key = key;
        if (earlier) {
            MCAST_MinHeapMoveUp(heap, element->position);
            model.Up(slot);
        } else {
            MCAST_MinHeapMoveDown(heap, element->position);
            model.Down(slot);
        }
    }

    Element *Take()
    {
        if (idle.empty()) {
            pool.push_back(std::make_unique<Element>());
            idle.push_back(pool.back().get());
        }
        Element *element = idle.back();

        idle.pop_back();
        *element = {random.Below(kKeys), 0};
        return element;
    }

    void GiveBack(Element *element)
    {
        idle.push_back(element);
    }

    property::Random random;
    MCAST_MINHEAP_S *heap;
    Model model;
    std::vector<std::unique_ptr<Element>> pool;
    std::vector<Element *> idle;
};

TEST(MinHeapProperty, HoldsTheSameElementsInTheSameSlotsAsASwappingHeap)
{
    uint64_t seed = property::Seed("heap");
    uint64_t operations = property::Operations(200000);
    long live = fault::LiveBlocks();

    {
        Pair pair(seed);
        /* Mostly small heaps, now and then one that grows beyond every step and shrinks again. */
        constexpr uint32_t kTargets[] = {8, 40, 3, 150, 20, 60, 8, 1400, 2, 100};

        for (uint64_t operation = 0; operation < operations; ++operation) {
            pair.Step(kTargets[operation / 2500 % std::size(kTargets)]);
            pair.Check();
            if (HasFatalFailure()) {
                FAIL() << "at operation " << operation;
            }
        }
    }
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
