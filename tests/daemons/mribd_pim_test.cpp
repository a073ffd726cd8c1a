/*
 * A scripted PIM client: where its wishes and those of hosts count, where packets are to come from, what outlives it.
 */
#include <gtest/gtest.h>

#include "daemons/mribd_pim_support.h"

using namespace mribd;
using namespace mribd_test;
using namespace mcastd;

namespace
{

class PimClientTest : public PimBench
{
};

TEST_P(PimClientTest, HostsAreServedWhereThisRouterIsDesignatedAndNotByTheQuerier)
{
    interfaces(PIM_DESIGNATED);
    interface(3, PIM_RUNS);
    take(*hosts, Message().add_alert(MRIB_TLV_QUERIER_CHANGE, family, 2, MRIB_QUERIER_OTHER));
    join(*hosts, 2);
    join(*hosts, 3);
    bench.packet(1, source, group);
    EXPECT_EQ(forwards(), Interfaces{2});
    interface(3, PIM_DESIGNATED);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    interface(2, PIM_RUNS);
    EXPECT_EQ(forwards(), Interfaces{3});
    interface(2, PIM_GONE);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}))
        << "where PIM does not run the querier decides, by what is forwarded";
}

TEST_P(PimClientTest, NeverGivesWayToAQuerierWherePimRuns)
{
    interfaces(PIM_DESIGNATED);
    take(*hosts, Message().add_alert(MRIB_TLV_QUERIER_CHANGE, family, 2, MRIB_QUERIER_OTHER));
    join(*hosts, 2);
    bench.packet(1, source, group);
    bench.kernel.packets[{source, group}] = 10;
    bench.kernel.wrong_interface[{source, group}] = 10;
    bench.packet(2, source, group, UpcallKind::WrongInterface);
    bench.timers.pass(10);
    bench.settle();
    EXPECT_EQ(forwards(), Interfaces{2});
    EXPECT_EQ(bench.router.forwarding().counters().given_way, 0u);
}

TEST_P(PimClientTest, DownstreamJoinsCountUnlessTheAssertWasLost)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*pim, 3, source);
    bench.packet(1, source, group);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    assertion("", 2, PIM_ASSERT_LOST);
    EXPECT_EQ(forwards(), Interfaces{3});
    assertion("", 3, PIM_ASSERT_LOST);
    EXPECT_EQ(forwards(), Interfaces{3}) << "a lost (*,G) assert says nothing of (S,G) joins";
    assertion(source, 3, PIM_ASSERT_LOST);
    EXPECT_EQ(forwards(), Interfaces{});
    assertion("", 2, PIM_ASSERT_NONE);
    EXPECT_EQ(forwards(), Interfaces{2});
    assertion(source, 2, PIM_ASSERT_LOST);
    EXPECT_EQ(forwards(), Interfaces{});
    assertion(source, 2, PIM_ASSERT_WON);
    EXPECT_EQ(forwards(), Interfaces{2});
}

TEST_P(PimClientTest, PruneOfASourceTakesItFromTheSharedTreeOfItsLinkAlone)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*pim, 3);
    bench.packet(1, source, group);
    join(*pim, 2, source, 1, 1);
    EXPECT_EQ(forwards(), Interfaces{3});
    interface(2, PIM_DESIGNATED);
    join(*hosts, 2);
    EXPECT_EQ(forwards(), (Interfaces{2, 3})) << "hosts there want it all the same";
    join(*hosts, 2, "", 0);
    join(*pim, 2, source, 0, 1);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
}

TEST_P(PimClientTest, WinnerOfAnAssertServesHostsThoughItIsNotDesignated)
{
    interfaces(PIM_RUNS);
    join(*hosts, 2);
    join(*hosts, 3, source);
    bench.packet(1, source, group);
    EXPECT_EQ(forwards(), Interfaces{});
    assertion("", 2, PIM_ASSERT_WON);
    EXPECT_EQ(forwards(), Interfaces{2});
    EXPECT_EQ(bench.router.designated_interfaces(), std::vector<uint32_t>{2}) << "hosts are to be reported";
    assertion(source, 3, PIM_ASSERT_WON);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    assertion(source, 3, PIM_ASSERT_LOST);
    assertion("", 2, PIM_ASSERT_NONE);
    EXPECT_EQ(forwards(), Interfaces{});
    EXPECT_EQ(bench.router.designated_interfaces(), std::vector<uint32_t>{});
}

TEST_P(PimClientTest, JoinsOfASourceCountOverItsOwnTreeAlone)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*pim, 3, source);
    tree("", PIM_FROM_INTERFACE, 4);
    bench.packet(4, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 4u);
    EXPECT_EQ(forwards(), Interfaces{2});
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    tree(source, PIM_FROM_UNSAID);
    EXPECT_EQ(bench.takes_from(source, group), 4u);
    EXPECT_EQ(forwards(), Interfaces{2});
}

TEST_P(PimClientTest, NarrowestTreeCountsAndThenTheUnicastRoute)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    bench.packet(1, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    range(8, PIM_FROM_INTERFACE, 3);
    EXPECT_EQ(bench.takes_from(source, group), 3u);
    range(16, PIM_FROM_INTERFACE, 4);
    EXPECT_EQ(bench.takes_from(source, group), 4u);
    assertion(source, 2, PIM_ASSERT_WON); // an entry of the group and source that says nothing of the tree
    EXPECT_EQ(bench.takes_from(source, group), 4u);
    tree("", PIM_FROM_INTERFACE, 1);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    tree(source, PIM_FROM_INTERFACE, 3, PIM_TREE_SPT);
    EXPECT_EQ(bench.takes_from(source, group), 3u);
    tree(source, PIM_FROM_NOWHERE);
    EXPECT_EQ(forwards(), Interfaces{});
    EXPECT_EQ(bench.router.forwarding().counters().no_route, 0u);
    tree(source, PIM_FROM_UNSAID);
    tree("", PIM_FROM_UNSAID);
    EXPECT_EQ(bench.takes_from(source, group), 4u);
    range(16, PIM_FROM_UNSAID);
    EXPECT_EQ(bench.takes_from(source, group), 3u);
    range(8, PIM_FROM_UNSAID);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    assertion(source, 2, PIM_ASSERT_NONE);
    EXPECT_EQ(bench.router.trees().size(), 0u);
}

TEST_P(PimClientTest, IncomingInterfaceIsNoOutput)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*pim, 3);
    tree("", PIM_FROM_INTERFACE, 2);
    bench.packet(2, source, group);
    EXPECT_EQ(forwards(), Interfaces{3});
}

TEST_P(PimClientTest, ConfigurationDoesNotSayWhoIsDesignatedWherePimRuns)
{
    clients.configure(
        "[[mribd.interface]]\nname = 'if2'\ndr = true\n[[mribd.interface]]\nname = 'if3'\ndr = false\n");
    clients.current_view.refresh();
    const auto designated = [this](uint32_t if_index) {
        clients.current_view.touch();
        clients.current_view.refresh();
        return clients.current_view.view().designated.contains({0, if_index});
    };
    EXPECT_TRUE(designated(2));
    EXPECT_FALSE(designated(3));
    interface(2, PIM_RUNS);
    interface(3, PIM_DESIGNATED);
    EXPECT_FALSE(designated(2));
    EXPECT_TRUE(designated(3));
    interface(2, PIM_GONE);
    interface(3, PIM_GONE);
    EXPECT_TRUE(designated(2));
    EXPECT_FALSE(designated(3));
}

TEST_P(PimClientTest, WhatItSaysOfALinkEndsWithPimThere)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*pim, 3);
    assertion("", 3, PIM_ASSERT_LOST);
    bench.packet(1, source, group);
    interface(2, PIM_GONE);
    interface(3, PIM_GONE);
    EXPECT_EQ(forwards(), Interfaces{});
    EXPECT_EQ(bench.router.members().wish_count(), 0u);
    EXPECT_EQ(bench.router.trees().size(), 0u);
}

TEST_P(PimClientTest, WithoutHoldTimeAllEndsWithTheConnection)
{
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*hosts, 3);
    tree("", PIM_FROM_INTERFACE, 4);
    bench.packet(4, source, group);
    EXPECT_EQ(forwards(), Interfaces{2});
    pim.reset();
    bench.settle();
    EXPECT_EQ(forwards(), Interfaces{3});
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_FALSE(bench.router.pim().runs());
    EXPECT_EQ(bench.router.trees().size(), 0u);
}

TEST_P(PimClientTest, LostClientIsKeptAndTheFullReportOfItsSuccessorSweeps)
{
    LostClients lost(bench.router, bench.timers.manager(), 210);
    interfaces(PIM_RUNS);
    join(*pim, 2);
    join(*pim, 3);
    assertion("", 4, PIM_ASSERT_WON);
    join(*hosts, 4);
    tree("", PIM_FROM_INTERFACE, 1);
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT);
    bench.packet(1, source, group);
    ASSERT_EQ(forwards(), (Interfaces{2, 3, 4}));
    const int sets = bench.kernel.sets;
    pim.reset();
    bench.timers.pass(100);
    bench.settle();
    EXPECT_EQ(forwards(), (Interfaces{2, 3, 4}));

    pim.emplace(3, clients.backend, counters);
    introduce(*pim);
    bracket(*pim, PIM_TLV_BEGIN);
    interfaces(PIM_RUNS);
    join(*pim, 2);
    tree("", PIM_FROM_INTERFACE, 1);
    EXPECT_EQ(bench.kernel.sets, sets) << "the kernel is not touched meanwhile";
    bracket(*pim, PIM_TLV_END);
    EXPECT_EQ(forwards(), Interfaces{2});
    EXPECT_EQ(bench.router.trees().size(), 1u);
    bench.timers.pass(300);
    bench.settle();
    EXPECT_TRUE(bench.router.pim().runs());
    EXPECT_EQ(bench.router.members().wish_count(), 2u);
}

TEST_P(PimClientTest, LostClientEndsWithTheHoldTime)
{
    LostClients lost(bench.router, bench.timers.manager(), 100);
    interfaces(PIM_RUNS);
    join(*pim, 2);
    tree("", PIM_FROM_INTERFACE, 4);
    bench.packet(4, source, group);
    pim.reset();
    bench.timers.pass(99);
    EXPECT_EQ(forwards(), Interfaces{2});
    bench.timers.pass(2);
    bench.settle();
    EXPECT_EQ(forwards(), Interfaces{});
    EXPECT_FALSE(bench.router.pim().runs());
    EXPECT_EQ(bench.router.trees().size(), 0u);
}

TEST_P(PimClientTest, GmpDaemonsWordIsNotTakenForThatOfALostPimClient)
{
    LostClients lost(bench.router, bench.timers.manager(), 100);
    interfaces(PIM_DESIGNATED);
    join(*pim, 2);
    bench.packet(1, source, group);
    pim.reset();
    join(*hosts, 2);
    join(*hosts, 2, "", 0);
    take(*hosts, Message().add_alert(MRIB_TLV_GMP_ENABLE, family, 2, 0));
    EXPECT_EQ(forwards(), Interfaces{2});
}

TEST_P(PimClientTest, RecordsThatFailTheirChecksAreCountedAndIgnored)
{
    interfaces(PIM_RUNS);
    PimTree wrong_instance = tree_record("", PIM_FROM_NOWHERE, 0, 0);
    wrong_instance.vrf_index = 7;
    take(*pim, Message().add(PIM_TLV_TREE, wrong_instance));
    EXPECT_EQ(fault(Fault::Instance), 1u);
    take(*pim, Message().add(PIM_TLV_TREE, tree_record("", PIM_FROM_INTERFACE, 0, 0)));
    EXPECT_EQ(fault(Fault::Interface), 1u);
    take(*pim, Message().add(PIM_TLV_TREE, tree_record(group, PIM_FROM_NOWHERE, 0, 0)));
    EXPECT_EQ(fault(Fault::Source), 1u);
    take(*pim, Message().add(PIM_TLV_ASSERT, uint64_t{0}));
    EXPECT_EQ(fault(Fault::Short), 1u);
    interface(2, 9);
    EXPECT_EQ(fault(Fault::Flags), 1u);
    bracket(*pim, PIM_TLV_END);
    EXPECT_EQ(fault(Fault::Flags), 2u);
    EXPECT_EQ(bench.router.trees().size(), 0u);
}

TEST_P(PimClientTest, RegisterInterfaceIsThereWhilePimRunsAndGoesWhereTheTreeSays)
{
    const int none = -1;
    EXPECT_EQ(bench.router.vifs().find(PIM_REGISTER_INTERFACE), none);
    interfaces(PIM_DESIGNATED);
    const int vif = bench.router.vifs().find(PIM_REGISTER_INTERFACE);
    ASSERT_GE(vif, 0);
    join(*pim, 2);
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT | PIM_TREE_REGISTER_OUT);
    bench.packet(1, source, group);
    EXPECT_EQ(bench.kernel.entries.at({source, group}).outgoing,
              1u << vif | 1u << bench.router.vifs().find(2));
    tree(source, PIM_FROM_INTERFACE, 1, PIM_TREE_SPT);
    EXPECT_EQ(forwards(), Interfaces{2});
    tree(source, PIM_FROM_REGISTER, 0, PIM_TREE_REGISTER_OUT);
    EXPECT_EQ(bench.kernel.entries.at({source, group}).parent, static_cast<unsigned>(vif));
    EXPECT_EQ(forwards(), Interfaces{2}) << "nothing goes back into Registers";
    interfaces(PIM_GONE);
    EXPECT_EQ(bench.router.vifs().find(PIM_REGISTER_INTERFACE), none);
    EXPECT_EQ(bench.kernel.dangling, 0);
}

INSTANTIATE_TEST_SUITE_P(Families, PimClientTest, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         [](const auto &family) {
                             return family.param == MCAST_FAMILY_IPV4 ? "ipv4" : "ipv6";
                         });

} // namespace
