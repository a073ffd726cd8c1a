/*
 * The timer manager beside a plain list of pending timers and the rules of arming written down once more:
 * after every operation the pending timers, their order of expiry and the platform timer's state agree.
 * Callbacks add, refresh and delete timers while expiries are processed.
 */
#include "mcast/timer.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <optional>

#include "support/fault.h"
#include "support/property.h"
#include "support/scripted_timer.h"

namespace
{

using scripted_timer::platform;

constexpr uint32_t kNever = 0xFFFFFFFF;

class Pair
{
public:
    explicit Pair(uint64_t seed) : random(seed)
    {
        scripted_timer::Reset();
        platform.record = false;
        manager = MCAST_TMR_Create(
            scripted_timer::Service(), [](uint64_t[4]) {}, nullptr);
    }

    ~Pair()
    {
        MCAST_TMR_Destroy(manager);
    }

    void Step()
    {
        switch (random.Below(8)) {
        case 0:
            scripted_timer::Advance(random.Below(4));
            break;
        case 1:
            Process();
            break;
        default:
            Act();
        }
    }

    void Check()
    {
        const MCAST_MINHEAP_S *heap = manager->heap;
        const scripted_timer::Timer &timer = scripted_timer::Only();

        ASSERT_EQ(heap->count, pending.size());
        for (uint64_t slot = 0; slot < heap->count; ++slot) {
            const MCAST_TMR_NODE_S *node = static_cast<const MCAST_TMR_NODE_S *>(heap->slots[slot]);
            auto known = pending.find(node->data[0]);

            ASSERT_NE(known, pending.end());
            ASSERT_EQ(known->second.node, node);
            ASSERT_EQ(known->second.expiry, node->expiry);
            ASSERT_EQ(node->position, slot + 1);
        }
        ASSERT_EQ(heap->count == 0 ? kNever : static_cast<MCAST_TMR_NODE_S *>(heap->slots[0])->expiry,
                  Earliest());
        ASSERT_EQ(timer.armed, due_ms.has_value());
        if (due_ms) {
            ASSERT_EQ(timer.due_ms, *due_ms);
        }
    }

private:
    struct Known {
        MCAST_TMR_NODE_S *node;
        uint32_t expiry;
    };

    static void Expired(uint64_t data[4])
    {
        reinterpret_cast<Pair *>(data[1])->Expire(data);
    }

    static uint32_t Now()
    {
        return static_cast<uint32_t>(platform.now_ms / 1000);
    }

    uint32_t Earliest() const
    {
        uint32_t earliest = kNever;
        for (const auto &entry : pending) {
            earliest = std::min(earliest, entry.second.expiry);
        }
        return earliest;
    }

    static uint32_t After(uint32_t seconds)
    {
        return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{Now()} + seconds, kNever));
    }

    void Arm(uint32_t expiry)
    {
        uint64_t delay = expiry <= Now() ? 1000 : uint64_t{expiry - Now()} * 1000;
        due_ms = platform.now_ms + (delay <= 4294966000 ? delay : delay / 1000);
    }

    uint32_t Timeout()
    {
        static constexpr uint32_t kOdd[] = {kNever, 4294966, 4294967, kNever - 500, 0};
        return random.OneIn(40) ? kOdd[random.Below(5)] : random.Below(30);
    }

    void Act()
    {
        uint32_t choice = random.Below(10);

        if (pending.empty() || (choice < 4 && pending.size() < 120)) {
            Add();
            return;
        }
        auto chosen = std::next(pending.begin(), random.Below(static_cast<uint32_t>(pending.size())));

        if (choice < 7) {
            Refresh(chosen->second);
        } else {
            MCAST_TMR_DeleteNode(manager, chosen->second.node);
            pending.erase(chosen);
        }
    }

    void Add()
    {
        uint32_t seconds = Timeout();
        uint64_t data[4] = {++last, reinterpret_cast<uint64_t>(this), 0, last * 3};

        if (random.OneIn(20)) {
            fault::FailAllocation(1);
            ASSERT_EQ(MCAST_TMR_AddNode(manager, seconds, Expired, data), nullptr);
            fault::FailAllocation(0);
            return;
        }
        uint32_t earliest = Earliest();
        MCAST_TMR_NODE_S *node = MCAST_TMR_AddNode(manager, seconds, Expired, data);

        ASSERT_NE(node, nullptr);
        pending[last] = {node, After(seconds)};
        if (Earliest() != earliest) {
            Arm(Earliest());
        }
    }

    void Refresh(Known &known)
    {
        uint32_t seconds = Timeout();
        uint32_t earliest = Earliest();
        ASSERT_EQ(MCAST_TMR_RefreshNode(manager, known.node, seconds), MCAST_OK);
        known.expiry = After(seconds);
        if (Earliest() < earliest) {
            Arm(Earliest());
        }
    }

    void Process()
    {
        uint32_t now = Now();
        due_ms.reset();
        ASSERT_EQ(MCAST_TMR_ProcExpires(manager), MCAST_OK);
        if (!pending.empty()) {
            ASSERT_GT(Earliest(), now);
            Arm(Earliest());
        }
    }

    void Expire(const uint64_t data[4])
    {
        auto known = pending.find(data[0]);

        ASSERT_NE(known, pending.end());
        ASSERT_EQ(data[3], data[0] * 3);
        ASSERT_EQ(known->second.expiry, Earliest());
        ASSERT_LE(known->second.expiry, Now());
        MCAST_TMR_NODE_S *self = known->second.node;

        pending.erase(known);
        if (random.OneIn(4)) {
            MCAST_TMR_DeleteNode(manager, self);
        }
        if (random.OneIn(2)) {
            Act();
        }
        if (random.OneIn(4)) {
            Act();
        }
    }

    property::Random random;
    MCAST_TMR_S *manager;
    std::map<uint64_t, Known> pending;
    std::optional<uint64_t> due_ms; /* of the platform timer, when armed */
    uint64_t last = 0;
};

TEST(TimerManagerProperty, RunsAndArmsAsAPlainListOfTimersDoes)
{
    uint64_t seed = property::Seed("timer");
    uint64_t operations = property::Operations(200000);
    long live = fault::LiveBlocks();

    {
        Pair pair(seed);

        for (uint64_t operation = 0; operation < operations; ++operation) {
            pair.Step();
            pair.Check();
            if (HasFatalFailure()) {
                FAIL() << "at operation " << operation;
            }
        }
    }
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
