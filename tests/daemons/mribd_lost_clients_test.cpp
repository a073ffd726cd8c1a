/*
 * What a GMP daemon wanted outlives it for the hold time: forwarding goes on, its successor's word counts for
 * whatever it speaks of, and the rest ends.
 */
#include <gtest/gtest.h>
#include <optional>

#include "daemons/mribd/lost_clients.h"
#include "daemons/mribd_support.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

constexpr uint32_t HOLD_S = 30;
constexpr ClientId OLD = 1;
constexpr ClientId NEW = 2;
constexpr MemberTable::Kind JOIN = MemberTable::Kind::Join;
constexpr MemberTable::Kind BLOCK = MemberTable::Kind::Block;

class MribdLostClients : public testing::TestWithParam<uint8_t>
{
protected:
    MribdLostClients()
        : ipv4(GetParam() == MCAST_FAMILY_IPV4), source(ipv4 ? "10.0.0.5" : "2001:db8::5"),
          group(ipv4 ? "239.1.1.1" : "ff1e::1"), bench(GetParam())
    {
        bench.environment.routes[source] = {1, false};
        lost.emplace(bench.router, bench.timers.manager(), HOLD_S);
        start(OLD);
        bench.join(OLD, 2, group);
        bench.join(OLD, 3, group);
        bench.packet(1, source, group);
        EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    }

    void start(ClientId client)
    {
        for (const uint32_t if_index : {2u, 3u}) {
            bench.router.set_enabled(client, if_index, true);
        }
        bench.settle();
    }
    void lose(ClientId client)
    {
        bench.router.lose_client(client);
        bench.settle();
    }
    void pass(uint32_t seconds)
    {
        bench.timers.pass(seconds);
        bench.settle();
    }
    Interfaces forwards() const
    {
        return bench.forwards(source, group);
    }

    const bool ipv4;
    const std::string source;
    const std::string group;
    Bench bench;
    std::optional<LostClients> lost;
};

TEST_P(MribdLostClients, ForwardingGoesOnUntilTheHoldTimeEnds)
{
    const int sets = bench.kernel.sets;
    lose(OLD);
    pass(HOLD_S - 1);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    EXPECT_EQ(bench.kernel.sets, sets) << "nothing changes in the kernel meanwhile";
    EXPECT_EQ(bench.router.designated_interfaces(), (std::vector<uint32_t>{2, 3}));
    pass(2);
    EXPECT_EQ(forwards(), Interfaces{});
    EXPECT_EQ(bench.router.members().wish_count(), 0u);
    EXPECT_TRUE(bench.router.gmp().enabled_interfaces().empty());
}

TEST_P(MribdLostClients, WhatTheSuccessorSaysAgainStaysAndTheRestEnds)
{
    const int sets = bench.kernel.sets;
    lose(OLD);
    start(NEW);
    bench.join(NEW, 2, group);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    EXPECT_EQ(bench.kernel.sets, sets);
    pass(HOLD_S + 1);
    EXPECT_EQ(forwards(), Interfaces{2});
    EXPECT_EQ(bench.router.gmp().enabled_interfaces(), (std::vector<uint32_t>{2, 3}));
}

TEST_P(MribdLostClients, SuccessorsPruneCountsAtOnce)
{
    lose(OLD);
    start(NEW);
    bench.join(NEW, 2, group);
    bench.prune(NEW, 2, group);
    EXPECT_EQ(forwards(), Interfaces{3});
}

TEST_P(MribdLostClients, SuccessorsBlockCountsWithItsJoin)
{
    lose(OLD);
    start(NEW);
    bench.set(NEW, 2, group, source, BLOCK, true);
    EXPECT_EQ(forwards(), (Interfaces{2, 3})) << "a block says nothing without the join that it limits";
    bench.set(NEW, 2, group, "", JOIN, true);
    EXPECT_EQ(forwards(), Interfaces{3});
}

TEST_P(MribdLostClients, BlockOfTheLostOneEndsWithItsJoin)
{
    bench.set(OLD, 2, group, source, BLOCK, true);
    EXPECT_EQ(forwards(), Interfaces{3});
    lose(OLD);
    EXPECT_EQ(forwards(), Interfaces{3});
    start(NEW);
    bench.join(NEW, 2, group);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
}

TEST_P(MribdLostClients, InterfaceThatTheSuccessorLeavesIsForgotten)
{
    lose(OLD);
    start(NEW);
    bench.router.set_enabled(NEW, 2, false);
    bench.settle();
    EXPECT_EQ(forwards(), Interfaces{3});
    EXPECT_EQ(bench.router.gmp().enabled_interfaces(), std::vector<uint32_t>{3});
}

TEST_P(MribdLostClients, SuccessorSaysWhoIsTheQuerier)
{
    bench.router.set_querier(OLD, 2, false);
    lose(OLD);
    EXPECT_FALSE(bench.router.gmp().is_forwarder(2));
    start(NEW);
    bench.router.set_querier(NEW, 2, true);
    EXPECT_TRUE(bench.router.gmp().is_forwarder(2));
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
}

TEST_P(MribdLostClients, WhoSaidThatTheProtocolEndedLeavesNothing)
{
    for (const uint32_t if_index : {2u, 3u}) {
        bench.router.set_enabled(OLD, if_index, false);
    }
    bench.settle();
    lose(OLD);
    EXPECT_EQ(forwards(), Interfaces{});
    EXPECT_FALSE(bench.timers.ends_within(HOLD_S));
}

TEST_P(MribdLostClients, JoinsOfAClientWithoutAProtocolEndWithIt)
{
    bench.join(3, 4, group);
    lose(3);
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
}

TEST_P(MribdLostClients, InterfaceThatGoesIsNotKept)
{
    lose(OLD);
    bench.router.link_removed(2);
    bench.settle();
    EXPECT_EQ(interfaces_of(bench.router.members()), std::vector<uint32_t>{3});
}

TEST_P(MribdLostClients, OfADaemonThatFallsAgainAndAgainTheOldestRemainsGoFirst)
{
    lose(OLD);
    for (ClientId client = NEW; client < NEW + LostClients::MOST - 1; ++client) {
        start(client);
        lose(client);
    }
    EXPECT_EQ(forwards(), (Interfaces{2, 3}));
    start(100);
    lose(100);
    EXPECT_EQ(forwards(), Interfaces{});
}

TEST_P(MribdLostClients, EveryLostOneHasAHoldTimeOfItsOwn)
{
    lose(OLD);
    pass(20);
    start(NEW);
    bench.join(NEW, 2, group);
    lose(NEW);
    pass(HOLD_S - 20 + 1);
    EXPECT_EQ(forwards(), Interfaces{2});
    pass(20);
    EXPECT_EQ(forwards(), Interfaces{});
}

TEST_P(MribdLostClients, EndOfTheProcessLeavesNoTimer)
{
    lose(OLD);
    EXPECT_TRUE(bench.timers.ends_within(HOLD_S));
    lost.reset();
    EXPECT_FALSE(bench.timers.ends_within(HOLD_S));
}

TEST_P(MribdLostClients, WithoutAHoldTimeNothingIsKept)
{
    lost.reset();
    lost.emplace(bench.router, bench.timers.manager(), 0);
    lose(OLD);
    EXPECT_EQ(forwards(), Interfaces{});
}

TEST_P(MribdLostClients, WhatCouldNeverEndIsNotKept)
{
    lost.reset();
    lost.emplace(bench.router, nullptr, HOLD_S); // where no timer can be made
    lose(OLD);
    EXPECT_EQ(forwards(), Interfaces{});
}

INSTANTIATE_TEST_SUITE_P(Families, MribdLostClients, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace
