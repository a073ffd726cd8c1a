/*
 * Another router on a link: who gives way, when, and until when.
 */
#include <gtest/gtest.h>

#include "daemons/mribd_support.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

const std::string SOURCE = "10.0.0.5";
const std::string GROUP = "239.1.1.1";

class MribdYield : public testing::Test
{
protected:
    MribdYield()
    {
        bench.environment.routes[SOURCE] = {1, false};
        bench.router.set_enabled(1, 2, true);
        bench.router.set_enabled(1, 3, true);
        bench.join(1, 2, GROUP);
        bench.join(1, 3, GROUP);
        bench.packet(1, SOURCE, GROUP);
        bench.router.set_querier(1, 2, false);
        bench.settle();
    }

    // The flow goes on for a while; some packets of it come from elsewhere too.
    void flow(uint64_t elsewhere)
    {
        bench.kernel.packets[{SOURCE, GROUP}] += 100 + elsewhere;
        bench.kernel.wrong_interface[{SOURCE, GROUP}] += elsewhere;
    }
    void hear(uint32_t if_index)
    {
        const auto vif = static_cast<unsigned>(bench.router.vifs().find(if_index));
        bench.router.take_upcall({UpcallKind::WrongInterface, vif, address(SOURCE), address(GROUP)});
        bench.settle();
    }
    void give_way()
    {
        hear(2);
        flow(100);
        bench.timers.pass(2);
        ASSERT_EQ(forwards(), Interfaces{3});
    }
    Interfaces forwards() const
    {
        return bench.forwards(SOURCE, GROUP);
    }
    const ForwardingCounters &counters() const
    {
        return bench.router.forwarding().counters();
    }

    Bench bench;
};

TEST_F(MribdYield, LostElectionAloneChangesNothing)
{
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    EXPECT_EQ(bench.router.designated_interfaces(), (std::vector<uint32_t>{2, 3}));
}

TEST_F(MribdYield, RouterThatForwardsIsLeftTheLink)
{
    hear(2);
    EXPECT_EQ(forwards(), (Interfaces{2, 3})) << "one packet may be anybody's";
    flow(100);
    bench.timers.pass(2);
    EXPECT_EQ(forwards(), Interfaces{3});
    EXPECT_EQ(counters().given_way, 1u);
}

TEST_F(MribdYield, QuerierNeverGivesWay)
{
    hear(3);
    flow(100);
    bench.timers.pass(2);
    hear(3);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    give_way();
    bench.router.set_querier(1, 2, true);
    bench.settle();
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
}

TEST_F(MribdYield, WhoWasTheQuerierMeanwhileGivesWayOnlyToARouterThatIsHeardAnew)
{
    give_way();
    bench.router.set_querier(1, 2, true);
    bench.settle();
    flow(0);
    bench.router.set_querier(1, 2, false);
    bench.settle();
    EXPECT_EQ(forwards(), (Interfaces{2, 3})) << "nobody else forwards, whoever says that it is the querier";
    hear(2);
    for (int second = 0; second < 10; ++second) {
        EXPECT_EQ(forwards(), Interfaces{3}) << second;
        flow(100);
        bench.timers.pass(1);
    }
}

TEST_F(MribdYield, FewPacketsOfAHostAreNoRouter)
{
    hear(2);
    for (int second = 0; second < 10; ++second) {
        flow(10);
        bench.timers.pass(1);
        hear(2);
        EXPECT_EQ(forwards(), (Interfaces{2, 3})) << second;
    }
}

TEST_F(MribdYield, HalfOfTheFlowIsARouterAndLessIsNot)
{
    hear(2);
    flow(49);
    bench.timers.pass(2);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    flow(50);
    bench.timers.pass(2);
    EXPECT_EQ(forwards(), Interfaces{3});
}

TEST_F(MribdYield, WhatStopsIsTakenUpWithinSeconds)
{
    give_way();
    flow(100);
    bench.timers.pass(8);
    EXPECT_EQ(forwards(), Interfaces{3}) << "it still comes";
    flow(0);
    bench.timers.pass(9);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    EXPECT_EQ(counters().taken_up, 1u);
}

TEST_F(MribdYield, OnTrialOnePacketIsEnoughToGiveWayAgain)
{
    give_way();
    bench.timers.pass(9);
    ASSERT_EQ(forwards(), (Interfaces{2, 3}));
    hear(2);
    EXPECT_EQ(forwards(), Interfaces{3});
}

TEST_F(MribdYield, OnceAMinuteItIsTriedThoughPacketsComeFromSomewhere)
{
    give_way();
    for (int second = 0; second < 55; ++second) {
        flow(100);
        bench.timers.pass(1);
        ASSERT_EQ(forwards(), Interfaces{3}) << second;
    }
    for (int second = 0; second < 20; ++second) {
        flow(100);
        bench.timers.pass(1);
    }
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
}

TEST_F(MribdYield, FurtherFlowsGiveWayWithTheFirstPacket)
{
    give_way();
    bench.environment.routes["10.0.0.6"] = {1, false};
    bench.packet(1, "10.0.0.6", GROUP);
    EXPECT_EQ(bench.forwards("10.0.0.6", GROUP), (Interfaces{2, 3}));
    const auto vif = static_cast<unsigned>(bench.router.vifs().find(2));
    bench.router.take_upcall({UpcallKind::WrongInterface, vif, address("10.0.0.6"), address(GROUP)});
    EXPECT_EQ(bench.forwards("10.0.0.6", GROUP), Interfaces{3});
}

TEST_F(MribdYield, NothingIsLeftWhenTheFlowOrTheInterfaceEnds)
{
    give_way();
    bench.environment.interfaces.erase(2);
    bench.router.link_removed(2);
    bench.settle();
    EXPECT_EQ(forwards(), Interfaces{3});
    bench.environment.interfaces.insert(2);
    bench.router.set_enabled(1, 2, true);
    bench.router.set_querier(1, 2, false);
    bench.join(1, 2, GROUP);
    bench.router.links_changed();
    bench.settle();
    hear(2);
    EXPECT_EQ(forwards(), (Interfaces{2, 3})) << "another router is not known there any more";
    give_way();
    bench.router.drop_client(1);
    bench.settle();
    bench.pass_idle_period();
    bench.pass_idle_period();
    EXPECT_EQ(bench.router.forwarding().entry_count(), 0u);
}

} // namespace
