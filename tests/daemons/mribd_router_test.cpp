#include <gtest/gtest.h>

#include "daemons/mribd_support.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

// A source on interface 1, and receivers behind the others.
struct Family {
    uint8_t family;
    std::string source;
    std::string second_source;
    std::string link_local_source;
    std::string group;

    friend void PrintTo(const Family &value, std::ostream *out)
    {
        *out << family_name(value.family);
    }
};

class RouterTest : public testing::TestWithParam<Family>
{
protected:
    RouterTest() : bench(GetParam().family)
    {
        bench.environment.routes[source] = {1, false};
        bench.environment.routes[GetParam().second_source] = {1, false};
    }

    const std::string source = GetParam().source;
    const std::string group = GetParam().group;
    Bench bench;
};

TEST_P(RouterTest, PacketIsForwardedToEveryReceiverButNotBack)
{
    for (const uint32_t if_index : {1u, 2u, 3u}) {
        bench.join(1, if_index, group);
    }
    bench.packet(1, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_EQ(bench.forwards(source, group), (Interfaces{2, 3}));
}

TEST_P(RouterTest, JoinAndPruneChangeAnInstalledEntry)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    bench.join(1, 3, group);
    EXPECT_EQ(bench.forwards(source, group), (Interfaces{2, 3}));
    bench.prune(1, 2, group);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{3});
    bench.prune(1, 3, group);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
}

TEST_P(RouterTest, SourceNobodyWantsIsDroppedInTheKernelWithoutAskingAgain)
{
    bench.router.set_enabled(1, 1, true);
    bench.settle();
    bench.packet(1, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
}

TEST_P(RouterTest, ChangeThatChangesNothingCallsNoKernel)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    const int sets = bench.kernel.sets;
    bench.join(2, 2, group);
    bench.router.links_changed();
    bench.settle();
    EXPECT_EQ(bench.kernel.sets, sets);
}

TEST_P(RouterTest, BlockedSourceIsNotForwardedToThatInterface)
{
    bench.join(1, 2, group);
    bench.join(1, 3, group);
    bench.packet(1, source, group);
    bench.packet(1, GetParam().second_source, group);
    bench.set(1, 2, group, source, MemberTable::Kind::Block, true);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{3});
    EXPECT_EQ(bench.forwards(GetParam().second_source, group), (Interfaces{2, 3}));
}

TEST_P(RouterTest, SourceJoinedByNameIsInstalledBeforeItsFirstPacket)
{
    bench.join(1, 2, group, source);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, ClientThatDiesTakesItsJoinsAtOnce)
{
    bench.join(1, 2, group);
    bench.join(2, 3, group);
    bench.packet(1, source, group);
    bench.router.drop_client(1);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{3});
    bench.router.drop_client(2);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
    EXPECT_EQ(bench.router.members().wish_count(), 0u);
}

TEST_P(RouterTest, RouteThatCannotBeAskedForIsAskedForASecondLater)
{
    const auto route = bench.environment.routes.at(source);
    bench.environment.routes[source] = {0, false, true};
    bench.join(1, 2, group);
    bench.packet(3, source, group); // another router's, who was sooner; the kernel says nothing more of it
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
    EXPECT_EQ(bench.router.forwarding().counters().no_route, 0u);
    bench.timers.pass(1);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{}); // and still cannot
    bench.environment.routes[source] = route;
    bench.timers.pass(1);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
    // One that has an interface keeps it.
    bench.environment.routes[source] = {0, false, true};
    bench.router.routes_changed(any_address(bench.router.family()), 0);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, PacketFromTheWrongSideIsTakenFromTheRightOneOnly)
{
    bench.join(1, 2, group);
    bench.join(1, 3, group);
    bench.packet(3, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_EQ(bench.forwards(source, group), (Interfaces{2, 3}));
}

TEST_P(RouterTest, SourceWithoutRouteGoesNowhere)
{
    bench.environment.routes.clear();
    bench.join(1, 2, group);
    bench.packet(3, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 3u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
    EXPECT_EQ(bench.router.forwarding().counters().no_route, 1u);
}

TEST_P(RouterTest, SourceOnTheLinkOfItsArrivalIsRightWhateverTheRoutePrefers)
{
    bench.environment.on_link.insert({4, source});
    bench.join(1, 2, group);
    bench.packet(4, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 4u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, OwnPacketsAreRightOnTheInterfaceTheyLeaveBy)
{
    bench.environment.routes[source] = {1, true};
    bench.join(1, 2, group);
    bench.packet(3, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 3u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, LinkLocalSourceIsNeverForwarded)
{
    const std::string local = GetParam().link_local_source;
    bench.environment.on_link.insert({1, local});
    bench.environment.routes[local] = {1, false};
    bench.join(1, 2, group);
    bench.packet(1, local, group);
    EXPECT_EQ(bench.forwards(local, group), Interfaces{});
}

TEST_P(RouterTest, RouteChangeMovesTheIncomingInterface)
{
    bench.join(1, 2, group);
    bench.join(1, 3, group);
    bench.packet(1, source, group);
    bench.environment.routes[source] = {3, false};
    bench.router.routes_changed(any_address(GetParam().family), 0);
    bench.settle();
    EXPECT_EQ(bench.takes_from(source, group), 3u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
    bench.environment.routes.clear();
    bench.router.routes_changed(any_address(GetParam().family), 0);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
}

TEST_P(RouterTest, RouteChangeElsewhereAsksForNoRoute)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    const int lookups = bench.environment.lookups;
    MCAST_ADDR_S elsewhere = address(source);
    elsewhere.address[1] ^= 1;
    bench.router.routes_changed(elsewhere, 16);
    bench.settle();
    EXPECT_EQ(bench.environment.lookups, lookups);
    bench.router.routes_changed(address(source), 15);
    bench.settle();
    EXPECT_EQ(bench.environment.lookups, lookups + 1);
}

TEST_P(RouterTest, WrongInterfaceReportIsCountedAndChecksTheRouteAgain)
{
    bench.join(1, 2, group);
    bench.join(1, 3, group);
    bench.packet(1, source, group);
    bench.environment.routes[source] = {3, false};
    bench.packet(3, source, group, UpcallKind::WrongInterface);
    EXPECT_EQ(bench.router.forwarding().counters().wrong_interface, 1u);
    EXPECT_EQ(bench.takes_from(source, group), 3u);
}

TEST_P(RouterTest, EntryTheKernelLostIsInstalledAgain)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    bench.kernel.entries.clear();
    bench.packet(1, source, group);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, EntryTheKernelRefusesIsTriedAgain)
{
    bench.join(1, 2, group);
    bench.kernel.next_set_error = ENOBUFS;
    bench.packet(1, source, group);
    EXPECT_FALSE(bench.kernel.has(source, group));
    EXPECT_EQ(bench.router.forwarding().counters().kernel_failures, 1u);
    bench.join(1, 3, group);
    EXPECT_EQ(bench.forwards(source, group), (Interfaces{2, 3}));
}

TEST_P(RouterTest, InterfaceTheKernelRefusesIsTriedAgainThoughNothingElseHappens)
{
    bench.kernel.refused_interfaces = {2};
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    EXPECT_EQ(bench.router.vifs().find(2), -1);
    bench.kernel.refused_interfaces.clear();
    bench.timers.pass(2);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, RefusedChangeLeavesNoOutdatedEntryInTheKernel)
{
    bench.join(1, 2, group);
    bench.join(2, 2, group + "1");
    bench.packet(1, source, group);
    bench.kernel.next_set_error = ENOBUFS;
    bench.prune(1, 2, group);
    EXPECT_FALSE(bench.kernel.has(source, group));
}

TEST_P(RouterTest, IdleEntryGoesAndAnActiveOneStays)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    bench.packet(1, GetParam().second_source, group);
    bench.kernel.packets[{source, group}] = 5;
    bench.pass_idle_period();
    EXPECT_TRUE(bench.kernel.has(source, group));
    EXPECT_FALSE(bench.kernel.has(GetParam().second_source, group));
    bench.pass_idle_period();
    EXPECT_FALSE(bench.kernel.has(source, group));
    EXPECT_EQ(bench.router.forwarding().entry_count(), 0u);
    EXPECT_EQ(bench.router.forwarding().counters().expired, 2u);
}

TEST_P(RouterTest, IdleEntryJoinedByNameStaysUntilThePrune)
{
    bench.join(1, 2, group, source);
    bench.pass_idle_period();
    EXPECT_TRUE(bench.kernel.has(source, group));
    bench.prune(1, 2, group, source);
    bench.pass_idle_period();
    EXPECT_FALSE(bench.kernel.has(source, group));
}

TEST_P(RouterTest, EntryJoinedByNameWithoutRouteWaitsForOne)
{
    bench.environment.routes.clear();
    bench.join(1, 2, group, source);
    EXPECT_FALSE(bench.kernel.has(source, group));
    bench.pass_idle_period();
    bench.environment.routes[source] = {1, false};
    bench.router.routes_changed(address(source), 8);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, DisablingTheProtocolForgetsTheInterfacesMemberships)
{
    bench.router.set_enabled(1, 2, true);
    bench.join(1, 2, group);
    bench.join(1, 3, group);
    bench.packet(1, source, group);
    bench.router.set_enabled(1, 2, false);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{3});
}

TEST_P(RouterTest, DesignatedRouterIsToldWhenItChangesAndOnlyThen)
{
    // Each time it is told, what changed.
    std::vector<std::vector<uint32_t>> told;
    bench.router.on_designated_router([&] {
        const auto now = bench.router.designated_interfaces();
        if (told.empty() || told.back() != now) {
            told.push_back(now);
        }
    });
    using Told = std::vector<std::vector<uint32_t>>;
    bench.router.set_querier(1, 2, true);
    EXPECT_EQ(told, Told());
    bench.router.set_enabled(1, 2, true);
    bench.router.set_enabled(2, 2, true);
    bench.router.set_querier(1, 2, false);
    bench.router.set_querier(1, 2, true);
    bench.router.drop_client(1);
    EXPECT_EQ(told, Told{{2}});
    bench.router.drop_client(2);
    EXPECT_EQ(told, (Told{{2}, {}}));
}

TEST_P(RouterTest, SourceOnALinkIsLocalWhileItSends)
{
    std::vector<std::string> told;
    bench.router.on_local_source([&](const MCAST_ADDR_S &to, const MCAST_ADDR_S &from, bool present) {
        told.push_back((present ? "+" : "-") + text_or_star(from) + ">" + text_or_star(to));
    });
    bench.router.watch_sources(true);
    bench.settle();
    bench.environment.on_link = {{1, source}};
    bench.packet(1, source, group);
    bench.packet(1, source, group);
    EXPECT_EQ(told, std::vector<std::string>{"+" + source + ">" + group});
    bench.pass_idle_period();
    EXPECT_EQ(told.back(), "-" + source + ">" + group);
    EXPECT_EQ(told.size(), 2u);
}

TEST_P(RouterTest, SourceBehindAnotherRouterIsNotLocal)
{
    int told = 0;
    bench.router.on_local_source([&](const MCAST_ADDR_S &, const MCAST_ADDR_S &, bool) { ++told; });
    bench.router.watch_sources(true);
    bench.environment.routes[source] = {1, false};
    bench.settle();
    bench.packet(1, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 1u);
    EXPECT_EQ(told, 0);
}

TEST_P(RouterTest, SourceJoinedByNameIsLocalOnlyWhilePacketsCome)
{
    std::vector<bool> told;
    bench.router.on_local_source(
        [&](const MCAST_ADDR_S &, const MCAST_ADDR_S &, bool present) { told.push_back(present); });
    bench.environment.on_link = {{1, source}};
    bench.environment.routes[source] = {1, false};
    bench.join(1, 2, group, source);
    EXPECT_TRUE(told.empty());
    bench.kernel.packets[{source, group}] = 5;
    bench.pass_idle_period();
    EXPECT_EQ(told, std::vector<bool>{true});
    bench.pass_idle_period();
    EXPECT_EQ(told, (std::vector<bool>{true, false}));
}

TEST_P(RouterTest, WatchedSourcesNeedNoListenerToBeNoticed)
{
    bench.settle();
    EXPECT_TRUE(bench.kernel.vifs.empty());
    bench.router.watch_sources(true);
    bench.settle();
    EXPECT_EQ(bench.kernel.vifs.size(), 4u);
    bench.router.watch_sources(false);
    bench.settle();
    EXPECT_TRUE(bench.kernel.vifs.empty());
}

TEST_P(RouterTest, InterfaceThatVanishesLeavesEveryEntryAndItsNumberIsFree)
{
    bench.join(1, 2, group);
    bench.join(1, 3, group);
    bench.packet(1, source, group);
    bench.environment.interfaces.erase(2);
    bench.router.link_removed(2);
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{3});
    EXPECT_EQ(bench.router.vifs().find(2), -1);
    EXPECT_EQ(bench.kernel.dangling, 0);
}

TEST_P(RouterTest, IncomingInterfaceThatVanishesAndComesBackUnderANewIndexTakesOver)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    bench.environment.interfaces = {2, 3, 4, 9};
    bench.environment.routes.clear();
    bench.router.link_removed(1);
    bench.settle();
    EXPECT_EQ(bench.kernel.dangling, 0);
    EXPECT_NE(bench.forwards(source, group), Interfaces{2});
    bench.environment.routes[source] = {9, false};
    bench.router.links_changed();
    bench.router.routes_changed(any_address(GetParam().family), 0);
    bench.settle();
    bench.packet(9, source, group);
    EXPECT_EQ(bench.takes_from(source, group), 9u);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, RemovedAndRecreatedBetweenTwoRoundsGetsANewVirtualInterface)
{
    bench.join(1, 2, group);
    bench.packet(1, source, group);
    bench.kernel.vifs.erase(static_cast<unsigned>(bench.router.vifs().find(2))); // the kernel's doing
    bench.router.link_removed(2);
    bench.router.links_changed();
    bench.settle();
    EXPECT_EQ(bench.forwards(source, group), Interfaces{});
    EXPECT_FALSE(bench.router.members().uses_interface(2));
    bench.join(1, 2, group);
    EXPECT_EQ(bench.forwards(source, group), Interfaces{2});
}

TEST_P(RouterTest, EntryLimitIsCountedAndFreesWithExpiry)
{
    Bench small(GetParam().family, 1);
    small.environment.routes = bench.environment.routes;
    small.join(1, 2, group);
    small.packet(1, source, group);
    small.packet(1, GetParam().second_source, group);
    EXPECT_FALSE(small.kernel.has(GetParam().second_source, group));
    EXPECT_EQ(small.router.forwarding().counters().refused_by_limit, 1u);
    small.pass_idle_period();
    small.packet(1, GetParam().second_source, group);
    EXPECT_TRUE(small.kernel.has(GetParam().second_source, group));
}

TEST_P(RouterTest, UpcallOnANumberThatIsNoVirtualInterfaceIsCounted)
{
    bench.router.take_upcall({UpcallKind::NoEntry, 31, address(source), address(group)});
    bench.router.take_upcall({UpcallKind::NoEntry, 65535, address(source), address(group)});
    EXPECT_EQ(bench.router.forwarding().counters().stray_upcalls, 2u);
    EXPECT_EQ(bench.router.forwarding().entry_count(), 0u);
}

TEST_P(RouterTest, TimerThatCannotBeMadeRefusesTheEntry)
{
    Router without_timers(instance_key(GetParam().family), bench.kernel, bench.environment, bench.budget,
                          nullptr, {100, 1});
    without_timers.watch_sources(true);
    without_timers.settle();
    without_timers.take_upcall({UpcallKind::NoEntry, 0, address(source), address(group)});
    without_timers.settle();
    EXPECT_EQ(without_timers.forwarding().counters().refused_by_memory, 1u);
    EXPECT_EQ(without_timers.forwarding().entry_count(), 0u);
    int entries = 0;
    without_timers.forwarding().visit_from(nullptr, nullptr, [&](const Entry &) {
        ++entries;
        return true;
    });
    EXPECT_EQ(entries, 0);
}

TEST_P(RouterTest, ManyEntriesAreWorkedOffABoundedNumberAtATime)
{
    Bench large(GetParam().family, 10000);
    large.join(1, 2, group);
    for (int i = 0; i < 2000; ++i) {
        MCAST_ADDR_S from = address(source);
        from.address[2] = static_cast<uint8_t>(i >> 8);
        from.address[3] = static_cast<uint8_t>(i);
        large.environment.routes[text_or_star(from)] = {1, false};
        large.packet(1, text_or_star(from), group);
    }
    const int sets = large.kernel.sets;
    large.router.set_member(1, 3, address(group), any_address(GetParam().family), MemberTable::Kind::Join,
                            true);
    EXPECT_TRUE(large.router.settle());
    EXPECT_GT(large.kernel.sets, sets);
    EXPECT_LT(large.kernel.sets, sets + 2000);
    large.settle();
    EXPECT_EQ(large.kernel.sets, sets + 2000);
}

TEST_P(RouterTest, JoinIsNotBehindThousandsThatLeave)
{
    Bench large(GetParam().family, 10000);
    const MCAST_ADDR_S any = any_address(GetParam().family);
    const std::string other_group = GetParam().family == MCAST_FAMILY_IPV4 ? "239.1.1.2" : "ff1e::2";
    large.environment.routes[source] = {1, false};
    large.join(1, 2, other_group);
    large.packet(1, source, group);
    for (int i = 0; i < 2000; ++i) {
        MCAST_ADDR_S from = address(source);
        from.address[2] = static_cast<uint8_t>(i >> 8);
        from.address[3] = static_cast<uint8_t>(i);
        large.environment.routes[text_or_star(from)] = {1, false};
        large.packet(1, text_or_star(from), other_group);
    }
    large.router.set_member(1, 2, address(other_group), any, MemberTable::Kind::Join, false);
    large.router.set_member(1, 3, address(group), any, MemberTable::Kind::Join, true);
    const int sets = large.kernel.sets;
    EXPECT_TRUE(large.router.settle());
    EXPECT_EQ(large.forwards(source, group), Interfaces{3});
    EXPECT_GT(large.kernel.sets, sets + 100) << "what leaves is worked off beside it";
}

INSTANTIATE_TEST_SUITE_P(
    Families, RouterTest,
    testing::Values(Family{MCAST_FAMILY_IPV4, "10.0.0.5", "10.0.0.6", "169.254.0.5", "239.1.1.1"},
                    Family{MCAST_FAMILY_IPV6, "2001:db8::5", "2001:db8::6", "fe80::5", "ff1e::1"}),
    [](const auto &instance) { return std::string(family_name(instance.param.family)); });

} // namespace
