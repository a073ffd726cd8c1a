/*
 * Index pools against a set of free indexes and a stack of those at hand.
 */
#include "intf/index_pool.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <unordered_set>
#include <vector>

#include "mcast/interface_registry.h"
#include "support/fault.h"
#include "support/property.h"
#include "support/scripted_platform.h"

namespace
{

using mcast::FreeRange;
using mcast::IndexPool;

/* A pool as its contract has it. Every index is in use, or in exactly one of free and at_hand. */
class NaivePool
{
public:
    NaivePool(uint32_t first, uint32_t last, uint32_t size) : lo(first), hi(last), capacity(size)
    {
        Reset();
    }

    void Reset()
    {
        at_hand.clear();
        for (uint32_t index = lo; index <= hi; ++index) {
            free.insert(index);
        }
    }

    /* Whole runs of free indexes, the lowest first, each to be handed out before the ones fetched earlier. */
    void Fill()
    {
        while (at_hand.size() < capacity && !free.empty()) {
            std::vector<uint32_t> run;

            for (uint32_t index = *free.begin();
                 free.count(index) != 0 && at_hand.size() + run.size() < capacity; ++index) {
                run.push_back(index);
                free.erase(index);
            }
            at_hand.insert(at_hand.end(), run.rbegin(), run.rend());
        }
    }

    uint32_t Take()
    {
        if (at_hand.empty()) {
            Fill();
        }
        if (at_hand.empty()) {
            return 0;
        }
        uint32_t index = at_hand.back();

        at_hand.pop_back();
        return index;
    }

    void Give(uint32_t index)
    {
        if (at_hand.size() < capacity) {
            at_hand.push_back(index);
        } else {
            free.insert(index);
        }
    }

    bool Reserve(uint32_t index)
    {
        return free.erase(index) != 0;
    }

    uint32_t lo;
    uint32_t hi;
    size_t capacity;
    std::set<uint32_t> free;
    std::vector<uint32_t> at_hand; /* the next one last */
};

/* The cache and the ranges hold what the model says, and list and tree agree. */
void Validate(const IndexPool &pool, const NaivePool &model)
{
    std::vector<uint32_t> cache(pool.cache + pool.cursor, pool.cache + pool.capacity);
    std::set<uint32_t> free;
    const FreeRange *last = nullptr;
    const void *in_tree = AVL_GetLeftMost(pool.ranges);
    ASSERT_EQ(cache, std::vector<uint32_t>(model.at_hand.rbegin(), model.at_hand.rend()));
    for (const FreeRange *range = pool.head; range != nullptr; last = range, range = range->next) {
        ASSERT_EQ(in_tree, range);
        ASSERT_LE(range->lo, range->hi);
        ASSERT_TRUE(last == nullptr || last->hi + 1 < range->lo) << "ranges touch";
        in_tree = AVL_GetNext(pool.ranges, range);
        for (uint32_t index = range->lo; index <= range->hi; ++index) {
            free.insert(index);
        }
    }
    ASSERT_EQ(in_tree, nullptr);
    ASSERT_EQ(pool.tail, last);
    ASSERT_EQ(free, model.free);
}

TEST(IndexPoolProperty, BehavesAsASetAndAStack)
{
    property::Random random(property::Seed("IndexPoolProperty"));
    const uint64_t operations = property::Operations(60000);
    const long blocks = fault::LiveBlocks();

    for (uint64_t done = 0; done < operations; done += 1500) {
        const uint32_t lo = 0xD0000000;
        const uint32_t hi = lo + random.Below(random.OneIn(3) ? 12 : 300);
        const uint32_t capacity = 1 + random.Below(20);
        IndexPool pool = {};
        NaivePool model(lo, hi, capacity);
        std::vector<uint32_t> used;
        bool mostly_take = true;

        ASSERT_TRUE(OpenPool(&pool, lo, hi, capacity));
        for (int step = 0; step < 1500; ++step) {
            if (random.OneIn(60)) {
                mostly_take = !mostly_take;
            }
            if (random.OneIn(300)) { /* a switch-over */
                ASSERT_TRUE(ResetPool(&pool));
                model.Reset();
                used.clear();
                for (uint32_t keep = random.Below(60); keep > 0; --keep) {
                    uint32_t index = lo + random.Below(hi - lo + 1);
                    bool reserved = ReserveIndex(&pool, index);

                    ASSERT_EQ(reserved, model.Reserve(index));
                    if (reserved) {
                        used.push_back(index);
                    }
                    ASSERT_NO_FATAL_FAILURE(Validate(pool, model));
                }
                FillCache(&pool);
                model.Fill();
            } else if (random.OneIn(20)) {
                uint32_t index = lo + random.Below(hi - lo + 1);
                bool reserved = ReserveIndex(&pool, index);

                ASSERT_EQ(reserved, model.Reserve(index));
                if (reserved) {
                    used.push_back(index);
                }
            } else if (mostly_take != random.OneIn(4)) {
                uint32_t index = TakeIndex(&pool);

                ASSERT_EQ(index, model.Take());
                if (index != 0) {
                    used.push_back(index);
                }
            } else if (!used.empty()) {
                uint32_t &chosen = used[random.Below(static_cast<uint32_t>(used.size()))];

                GiveIndex(&pool, chosen);
                model.Give(chosen);
                chosen = used.back();
                used.pop_back();
            }
            ASSERT_NO_FATAL_FAILURE(Validate(pool, model));
            ASSERT_EQ(used.size() + model.free.size() + model.at_hand.size(), hi - lo + 1);
        }
        ASSERT_EQ(pool.range_failures, 0u);
        ClosePool(&pool);
        ASSERT_EQ(fault::LiveBlocks(), blocks);
    }
}

/* Allocations that fail lose free indexes but never hand one out twice. */
TEST(IndexPoolProperty, ShortMemoryNeverHandsOutAnIndexInUse)
{
    property::Random random(property::Seed("IndexPoolProperty"));
    const uint64_t operations = property::Operations(20000);
    IndexPool pool = {};
    std::unordered_set<uint32_t> used;
    std::vector<uint32_t> order;

    ASSERT_TRUE(OpenPool(&pool, 0xFE000000, 0xFE000400, 8));
    for (uint64_t step = 0; step < operations; ++step) {
        fault::FailAllocation(random.OneIn(3) ? 1 : 0);
        if (step % 400 < 200 ? !random.OneIn(4) : random.OneIn(4)) {
            uint32_t index = TakeIndex(&pool);

            if (index != 0) {
                ASSERT_TRUE(used.insert(index).second) << std::hex << index;
                order.push_back(index);
            }
        } else if (!order.empty()) {
            uint32_t &chosen = order[random.Below(static_cast<uint32_t>(order.size()))];

            used.erase(chosen);
            GiveIndex(&pool, chosen);
            chosen = order.back();
            order.pop_back();
        }
        fault::FailAllocation(0);
        if (random.OneIn(2000)) {
            ASSERT_TRUE(ResetPool(&pool));
            used.clear();
            order.clear();
        }
    }
    ClosePool(&pool);
}

/* The real pools, emptied and refilled: more than 2^25 indexes, each in use at most once. */
TEST(IndexPoolProperty, FullPoolsHandOutEveryIndexOnce)
{
    property::Random random(property::Seed("IndexPoolProperty"));
    std::vector<bool> used(MCAST_IF_NUMBER_MASK + 1);
    const uint32_t base = 0xD2000000;

    ASSERT_EQ(MCAST_IF_Init(MCAST_IF_TYPE_MUA_IPV6), MCAST_OK);
    for (int round = 0; round < 2; ++round) {
        uint32_t in_use = static_cast<uint32_t>(std::count(used.begin(), used.end(), true));

        for (uint64_t index = MCAST_CreateIf(); index != 0; index = MCAST_CreateIf()) {
            uint32_t number = static_cast<uint32_t>(index) - base;

            ASSERT_LT(number, used.size());
            ASSERT_FALSE(used[number]) << std::hex << index;
            used[number] = true;
            ++in_use;
        }
        ASSERT_EQ(in_use, used.size());
        for (uint64_t i = property::Operations(200000); i > 0; --i) {
            uint32_t number = random.Below(MCAST_IF_NUMBER_MASK + 1);

            if (used[number]) {
                used[number] = false;
                MCAST_DestroyIf(base + number);
            }
        }
    }
    ASSERT_EQ(MCAST_IF_Degrade(), MCAST_OK);
    ASSERT_EQ(MCAST_IF_Fini(), MCAST_OK);
}

} // namespace
