/*
 * A full table of forwarding entries: what makes room for what, and what goes by itself.
 */
#include <gtest/gtest.h>

#include "daemons/mribd_support.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

constexpr uint32_t LIMIT = 40;
const std::string GROUP = "239.1.1.1"; // joined on interface 4
const std::string IDLE_GROUP = "239.2.2.2";

// Sources of 10.N.0.0/16 are behind interface N.
std::string source_of(uint32_t if_index, unsigned number)
{
    return "10." + std::to_string(if_index) + "." + std::to_string(number / 250) + "." +
           std::to_string(number % 250 + 1);
}

class EntryLimit : public testing::Test
{
protected:
    EntryLimit()
    {
        for (const uint32_t if_index : {1u, 2u, 3u}) {
            for (unsigned number = 0; number < 3 * LIMIT; ++number) {
                bench.environment.routes[source_of(if_index, number)] = {if_index, false};
            }
        }
        bench.join(1, 4, GROUP);
    }

    void packet(uint32_t if_index, unsigned number, const std::string &group)
    {
        bench.packet(if_index, source_of(if_index, number), group);
    }
    void flood(uint32_t if_index, unsigned count, const std::string &group)
    {
        for (unsigned number = 0; number < count; ++number) {
            packet(if_index, number, group);
        }
    }
    // Packets come all the time.
    void flow(uint32_t if_index, unsigned number)
    {
        packet(if_index, number, GROUP);
        carry(if_index, number);
    }
    void carry(uint32_t if_index, unsigned number)
    {
        bench.kernel.packets[{source_of(if_index, number), GROUP}] += 100;
    }
    bool is_forwarded(uint32_t if_index, unsigned number) const
    {
        return bench.forwards(source_of(if_index, number), GROUP) == Interfaces{4};
    }
    const ForwardingCounters &counters() const
    {
        return bench.router.forwarding().counters();
    }

    Bench bench{MCAST_FAMILY_IPV4, LIMIT};
};

TEST_F(EntryLimit, FlowWithReceiversTakesThePlaceOfTheOldestThatNobodyReceives)
{
    flood(1, LIMIT, IDLE_GROUP);
    flow(1, 100);
    EXPECT_TRUE(is_forwarded(1, 100));
    EXPECT_FALSE(bench.kernel.has(source_of(1, 0), IDLE_GROUP));
    EXPECT_TRUE(bench.kernel.has(source_of(1, 1), IDLE_GROUP));
    EXPECT_EQ(bench.router.forwarding().entry_count(), LIMIT);
    EXPECT_EQ(bench.kernel.entries.size(), LIMIT);
    EXPECT_EQ(counters().displaced, 1u);
    EXPECT_EQ(counters().refused_by_limit, 0u);
}

TEST_F(EntryLimit, FloodOfOneLinkDisplacesItselfAndLeavesTheOthers)
{
    packet(2, 0, IDLE_GROUP);
    packet(3, 0, IDLE_GROUP);
    flood(1, 3 * LIMIT, IDLE_GROUP);
    EXPECT_TRUE(bench.kernel.has(source_of(2, 0), IDLE_GROUP));
    EXPECT_TRUE(bench.kernel.has(source_of(3, 0), IDLE_GROUP));
    EXPECT_EQ(bench.kernel.entries.size(), LIMIT);
}

TEST_F(EntryLimit, SourcesJoinedByNameThatNeverSendMakeRoom)
{
    for (unsigned number = 0; number < 2 * LIMIT; ++number) {
        bench.join(1, 3, "232.1.1.1", source_of(1, number));
    }
    EXPECT_EQ(bench.router.forwarding().entry_count(), LIMIT);
    EXPECT_EQ(counters().refused_by_limit, 0u) << "nothing is lost before the first packet";
    flow(2, 0);
    EXPECT_TRUE(is_forwarded(2, 0));
    bench.packet(1, source_of(1, LIMIT + 5), "232.1.1.1");
    EXPECT_EQ(bench.forwards(source_of(1, LIMIT + 5), "232.1.1.1"), Interfaces{3});
}

TEST_F(EntryLimit, FloodToAJoinedGroupGivesWayToAFlowThatCarriesPackets)
{
    flow(1, 100);
    flood(1, LIMIT - 1, GROUP);
    EXPECT_EQ(bench.router.forwarding().entry_count(), LIMIT);
    for (unsigned number = 101; number < 110; ++number) {
        bench.timers.pass(2);
        carry(1, 100);
        flow(1, number);
        EXPECT_TRUE(is_forwarded(1, number)) << number;
    }
    EXPECT_TRUE(is_forwarded(1, 100)) << "what carries packets stays";
    EXPECT_EQ(counters().refused_by_limit, 0u);
}

TEST_F(EntryLimit, PacketsFromAWrongInterfaceAreNotCarried)
{
    flood(1, LIMIT, GROUP);
    for (unsigned number = 0; number < LIMIT; ++number) {
        carry(1, number);
    }
    bench.kernel.wrong_interface[{source_of(1, 3), GROUP}] = 99;
    bench.timers.pass(2);
    flow(1, 100);
    EXPECT_TRUE(is_forwarded(1, 100));
    EXPECT_FALSE(bench.kernel.has(source_of(1, 3), GROUP));
}

TEST_F(EntryLimit, LinkWithFewFlowsFindsRoomAmongManyThatCarry)
{
    for (unsigned number = 0; number < LIMIT; ++number) {
        flow(1, number);
    }
    flow(1, 100);
    EXPECT_FALSE(is_forwarded(1, 100)) << "its own link has no share left";
    EXPECT_EQ(counters().refused_by_limit, 1u);
    for (unsigned number = 0; number < LIMIT / 2; ++number) {
        flow(2, number);
        EXPECT_TRUE(is_forwarded(2, number) || number + 1 == LIMIT / 2) << number;
    }
}

TEST_F(EntryLimit, NewSourceWithoutReceiversDisplacesNoFlow)
{
    for (unsigned number = 0; number < LIMIT; ++number) {
        flow(1, number);
    }
    bench.timers.pass(2);
    packet(2, 0, IDLE_GROUP);
    EXPECT_FALSE(bench.kernel.has(source_of(2, 0), IDLE_GROUP));
    EXPECT_EQ(counters().refused_by_limit, 1u);
    EXPECT_EQ(counters().displaced, 0u);
}

TEST_F(EntryLimit, FlowThatNobodyReceivesAnyMoreIsTheNextToGo)
{
    for (unsigned number = 0; number < LIMIT; ++number) {
        flow(1, number);
    }
    bench.prune(1, 4, GROUP);
    bench.join(1, 4, IDLE_GROUP);
    packet(2, 0, IDLE_GROUP);
    EXPECT_EQ(bench.forwards(source_of(2, 0), IDLE_GROUP), Interfaces{4});
    EXPECT_FALSE(bench.kernel.has(source_of(1, 0), GROUP));
}

TEST_F(EntryLimit, EntriesOfAVirtualInterfaceThatGoesAreNotCountedForTheNextOne)
{
    flood(2, LIMIT - 5, IDLE_GROUP);
    bench.environment.interfaces.erase(2);
    bench.environment.routes.clear();
    bench.router.link_removed(2);
    bench.environment.interfaces.insert(9);
    bench.environment.routes[source_of(9, 0)] = {9, false};
    bench.environment.routes[source_of(3, 0)] = {3, false};
    bench.router.links_changed();
    bench.settle();
    ASSERT_EQ(bench.router.vifs().find(9), 1) << "the number has a new meaning";
    packet(9, 0, IDLE_GROUP);
    flood(1, 4, IDLE_GROUP);
    ASSERT_EQ(bench.router.forwarding().entry_count(), LIMIT);
    flow(3, 0);
    EXPECT_TRUE(is_forwarded(3, 0));
    bench.packet(9, source_of(9, 1), IDLE_GROUP);
    EXPECT_TRUE(bench.kernel.has(source_of(9, 0), IDLE_GROUP));
    for (const uint32_t if_index : {9u, 1u}) {
        EXPECT_LT(
            bench.router.forwarding().share_size(static_cast<unsigned>(bench.router.vifs().find(if_index))),
            5u);
    }
}

TEST_F(EntryLimit, EntryOfAMembershipEndsWithItWhenNoPacketCame)
{
    bench.join(1, 3, "232.1.1.1", source_of(1, 1));
    bench.join(1, 3, "232.1.1.1", source_of(1, 2));
    ASSERT_EQ(bench.router.forwarding().entry_count(), 2u);
    bench.kernel.packets[{source_of(1, 2), "232.1.1.1"}] = 5;
    bench.prune(1, 3, "232.1.1.1", source_of(1, 1));
    bench.prune(1, 3, "232.1.1.1", source_of(1, 2));
    EXPECT_FALSE(bench.kernel.has(source_of(1, 1), "232.1.1.1"));
    EXPECT_TRUE(bench.kernel.has(source_of(1, 2), "232.1.1.1")) << "its packets are to be dropped";
    EXPECT_EQ(counters().ended, 1u);
}

TEST_F(EntryLimit, EntriesOfAClientThatGoesEndWithIt)
{
    for (unsigned number = 0; number < LIMIT; ++number) {
        bench.join(2, 3, "232.1.1.1", source_of(1, number));
    }
    ASSERT_EQ(bench.router.forwarding().entry_count(), LIMIT);
    bench.router.drop_client(2);
    bench.settle();
    EXPECT_EQ(bench.router.forwarding().entry_count(), 0u);
    EXPECT_TRUE(bench.kernel.entries.empty());
}

} // namespace
