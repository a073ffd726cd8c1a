/*
 * A manager of timers on a scripted platform timer; callbacks note their names and can be given more to do.
 */
#ifndef TESTS_UNIT_CONTAINER_TIMER_FIXTURE_H
#define TESTS_UNIT_CONTAINER_TIMER_FIXTURE_H

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/timer.h"
#include "support/fault.h"
#include "support/scripted_timer.h"

namespace container_test
{

using scripted_timer::Calls;

constexpr uint32_t kRefused = 0x51234567;

inline void Fired(uint64_t parameters[4])
{
    scripted_timer::platform.calls.push_back("handler " + std::to_string(parameters[0]));
}

inline std::vector<uint64_t> g_ran;                 /* first data word of each callback that ran */
inline std::function<void(uint64_t data[4])> g_act; /* what a callback does beyond that */

inline void Ran(uint64_t data[4])
{
    g_ran.push_back(data[0]);
    if (g_act) {
        g_act(data);
    }
}

class TimerManager : public testing::Test
{
protected:
    void SetUp() override
    {
        scripted_timer::Reset();
        g_ran.clear();
        g_act = nullptr;
        live = fault::LiveBlocks();
        manager = MCAST_TMR_Create(scripted_timer::Service(), Fired, nullptr);
        ASSERT_NE(manager, nullptr);
        Calls();
    }

    void TearDown() override
    {
        fault::FailAllocation(0);
        MCAST_TMR_Destroy(manager);
        EXPECT_EQ(fault::LiveBlocks(), live);
        EXPECT_TRUE(scripted_timer::platform.timers.empty());
    }

    MCAST_TMR_NODE_S *Add(uint32_t seconds, uint64_t name = 0)
    {
        uint64_t data[4] = {name, 2, 3, 4};
        return MCAST_TMR_AddNode(manager, seconds, Ran, data);
    }

    long live;
    MCAST_TMR_S *manager;
};

using Names = std::vector<uint64_t>;

} // namespace container_test

#endif
