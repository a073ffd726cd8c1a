#include <gtest/gtest.h>

#include "daemons/common/log.h"
#include "daemons/pimsmd/checksum.h"
#include "tests/daemons/pimsmd_tree_lab.h"

using namespace pimsmd_test;
using pimsmd::Tree;
using pimsmd::TreeSettings;

namespace
{

using Sent = std::vector<std::string>;

const Address GROUP = addr("239.1.1.1");
const Address SOURCE = addr("192.0.2.1");
const Address ANY = addr("0.0.0.0");

pimsmd::Route route(unsigned link, unsigned neighbour)
{
    return {static_cast<int>(link), TreeLab::neighbour(link, neighbour), 10, 10, false};
}

// The source is behind link 0, the RP behind link 1, downstream routers are on 2 (alone) and 3 (with others).
struct Router {
    explicit Router(const TreeSettings &settings = {}) : lab(settings)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
        lab.routes[address_text(SOURCE)] = route(0, 0);
        lab.routes[address_text(TreeLab::rp())] = route(1, 0);
    }

    void asks(unsigned link, const pimsmd::TreeSource &source, bool join, const Address &group = GROUP)
    {
        TreeLab::Group record{group, {}, {}};
        (join ? record.joins : record.prunes).push_back(source);
        lab.hear(link, TreeLab::neighbour(link, 0), TreeLab::own(link), 210, {record});
        lab.trees.settle();
    }
    void packet(unsigned link)
    {
        lab.trees.packet(link, GROUP, SOURCE);
        lab.trees.settle();
    }
    pimsmd::Links outputs() const
    {
        const pimsmd::SourceEntry *entry = lab.trees.find(GROUP, SOURCE);
        return entry != nullptr ? entry->view().inherited_olist() : 0;
    }

    TreeLab lab;
};

const pimsmd::TreeSource STAR = {TreeLab::rp(), Tree::Star};
const pimsmd::TreeSource OF_SOURCE = {SOURCE, Tree::Source};

} // namespace

TEST(PimTree, AJoinGoesOnTowardsTheSourceAndSoDoesThePrune)
{
    Router router;
    router.asks(2, OF_SOURCE, true);
    EXPECT_EQ(router.lab.taken(), Sent{"join 0 10.0.0.10 239.1.1.1 192.0.2.1"});
    EXPECT_EQ(router.outputs(), 0b00100u);
    router.asks(3, OF_SOURCE, true);
    EXPECT_EQ(router.lab.taken(), Sent{});
    router.asks(2, OF_SOURCE, false);
    EXPECT_EQ(router.outputs(), 0b01000u);
    router.asks(3, OF_SOURCE, false);
    router.lab.pass(2999);
    EXPECT_EQ(router.lab.taken(), Sent{});
    router.lab.pass(1);
    EXPECT_EQ(router.lab.taken(), Sent{"prune 0 10.0.0.10 239.1.1.1 192.0.2.1"});
    EXPECT_EQ(router.lab.echoes, 1u);
    EXPECT_EQ(router.lab.trees.entries(), 0u);
    EXPECT_EQ(router.lab.queue.size(), 0u);
}

TEST(PimTree, TheSourceIsPrunedOffTheSharedTreeWhenItsOwnWorks)
{
    Router router;
    router.asks(2, STAR, true);
    EXPECT_EQ(router.lab.taken(), Sent{"join 1 10.0.1.10 239.1.1.1 *"});
    router.asks(2, OF_SOURCE, true);
    EXPECT_EQ(router.lab.taken(), Sent{"join 0 10.0.0.10 239.1.1.1 192.0.2.1"});
    router.packet(1); // over the shared tree still
    EXPECT_FALSE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    router.packet(0);
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    EXPECT_EQ(router.lab.taken(), Sent{"prune 1 10.0.1.10 239.1.1.1 192.0.2.1 rpt"});
    router.lab.pass(60000);
    EXPECT_EQ(router.lab.taken(),
              (Sent{"join 0 10.0.0.10 239.1.1.1 192.0.2.1", "join 1 10.0.1.10 239.1.1.1 *",
                    "prune 1 10.0.1.10 239.1.1.1 192.0.2.1 rpt"}));
    router.asks(2, STAR, true);
    router.asks(2, OF_SOURCE, false);
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.keepalive);
    EXPECT_EQ(router.lab.taken(), Sent{}); // it is joined for the shared tree's sake
    router.lab.pass(149999);
    router.lab.taken();
    router.lab.pass(1); // silent for 210 s
    EXPECT_EQ(router.lab.taken(),
              (Sent{"prune 0 10.0.0.10 239.1.1.1 192.0.2.1", "join 1 10.0.1.10 239.1.1.1 192.0.2.1 rpt"}));
}

TEST(PimTree, ASourceIsNotTakenBackOnASharedTreeThatIsLeft)
{
    Router router;
    router.asks(2, STAR, true);
    router.asks(2, OF_SOURCE, true);
    router.packet(0);
    router.lab.taken();
    router.asks(2, STAR, false);
    EXPECT_EQ(router.lab.taken(), Sent{"prune 1 10.0.1.10 239.1.1.1 *"});
    router.asks(2, OF_SOURCE, false);
    EXPECT_EQ(router.lab.taken(), Sent{"prune 0 10.0.0.10 239.1.1.1 192.0.2.1"});
}

TEST(PimTree, ARouteThatChangesMovesJoinsWithTheirPrunes)
{
    Router router;
    router.asks(2, STAR, true);
    router.asks(2, OF_SOURCE, true);
    router.packet(0);
    router.lab.taken();
    // Both trees turn to other links; the source's packets have not come there yet.
    router.lab.routes[address_text(SOURCE)] = route(1, 0);
    router.lab.routes[address_text(TreeLab::rp())] = route(4, 1);
    router.lab.trees.routes_changed();
    router.lab.trees.settle();
    EXPECT_EQ(TreeLab::held(router.lab.joins),
              (std::set<std::string>{"1 10.0.1.10 239.1.1.1 192.0.2.1", "4 10.0.4.11 239.1.1.1 *"}));
    EXPECT_FALSE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    router.packet(1);
    EXPECT_TRUE(router.lab.prunes["4 10.0.4.11 239.1.1.1 192.0.2.1"]);
}

TEST(PimTree, HostsCountOnLinksOfWhichTheRouterIsDesignated)
{
    Router router;
    router.lab.trees.set_receivers(2, GROUP, ANY, true);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{});
    router.lab.trees.set_dr(2, true);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{"join 1 10.0.1.10 239.1.1.1 *"});
    router.lab.trees.set_excluded(2, GROUP, SOURCE, true);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{"prune 1 10.0.1.10 239.1.1.1 192.0.2.1 rpt"});
    router.lab.trees.set_excluded(2, GROUP, SOURCE, false);
    router.lab.trees.set_receivers(2, GROUP, ANY, false);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{"prune 1 10.0.1.10 239.1.1.1 *"});
    EXPECT_EQ(router.lab.trees.entries(), 0u);
}

TEST(PimTree, APacketFromALinkThatIsServedIsAsserted)
{
    Router router;
    router.asks(2, OF_SOURCE, true);
    router.packet(0);
    router.lab.taken();
    router.packet(2);
    EXPECT_EQ(router.lab.taken(), Sent{"assert 2 239.1.1.1 192.0.2.1"});
    router.lab.pass(60000);
    router.lab.taken();
    pimsmd::Assert better{GROUP, SOURCE, false, 5, 5};
    router.lab.trees.assert_heard(2, TreeLab::neighbour(2, 1), better);
    router.lab.trees.settle();
    EXPECT_EQ(router.outputs(), 0u);
    EXPECT_EQ(router.lab.taken(), Sent{"prune 0 10.0.0.10 239.1.1.1 192.0.2.1"});
    router.lab.trees.neighbour_gone(2, TreeLab::neighbour(2, 1));
    router.lab.trees.settle();
    EXPECT_EQ(router.outputs(), 0b00100u);
    EXPECT_EQ(router.lab.taken(), Sent{"join 0 10.0.0.10 239.1.1.1 192.0.2.1"});
}

// Its packets go on over the interface over which those of the shared tree came, of which nothing is told.
TEST(PimTree, AJoinTakesTheSourcesTreeAtOnceWhereTheSharedOneComesFromTheSameNeighbour)
{
    Router router;
    router.asks(3, STAR, true);
    router.asks(2, OF_SOURCE, true);
    EXPECT_FALSE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    router.lab.routes[address_text(TreeLab::rp())] = route(0, 0);
    router.lab.trees.routes_changed();
    router.lab.trees.settle();
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
}

// Its entry is there before its first packet, of which nothing is told then.
TEST(PimTree, APacketOfASourceSpecificGroupIsAssertedThoughNoneOfItWasToldBefore)
{
    Router router;
    router.lab.rp_known = false;
    router.asks(2, OF_SOURCE, true);
    router.lab.taken();
    router.packet(2);
    EXPECT_EQ(router.lab.taken(), Sent{"assert 2 239.1.1.1 192.0.2.1"});
}

TEST(PimTree, WithoutAWayToTheRpAnyOtherRouterWinsTheAssert)
{
    Router router;
    router.lab.routes[address_text(TreeLab::rp())] = {};
    router.asks(2, STAR, true);
    router.packet(2);
    router.lab.trees.assert_heard(2, TreeLab::neighbour(2, 1), {GROUP, ANY, true, 200, 1000});
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.trees.find(GROUP)->link_on(2)->assertion.state(), pimsmd::asserts::State::Loser);
}

TEST(PimTree, ALoserServesTheLinkAgainWhenItsOwnTermsAreBetter)
{
    Router router;
    pimsmd::Assert better{GROUP, SOURCE, false, 5, 5};
    router.asks(2, OF_SOURCE, true);
    router.asks(3, OF_SOURCE, true);
    router.packet(0);
    router.lab.trees.assert_heard(2, TreeLab::neighbour(2, 1), better);
    router.lab.trees.settle();
    EXPECT_EQ(router.outputs(), 0b01000u);
    router.lab.routes[address_text(SOURCE)].preference = 4;
    router.lab.trees.routes_changed();
    router.lab.trees.settle();
    EXPECT_EQ(router.outputs(), 0b01100u);
    EXPECT_EQ(router.lab.trees.find(GROUP, SOURCE)->link_on(2)->assertion.state(),
              pimsmd::asserts::State::NoInfo);
}

TEST(PimTree, AnAssertThatConcernsTheSourceDoesNotConcernTheGroup)
{
    Router router;
    pimsmd::Assert of_shared_tree{GROUP, SOURCE, true, 1, 1};
    router.asks(2, STAR, true);
    router.asks(2, OF_SOURCE, true);
    router.packet(0);
    router.packet(2);
    router.lab.taken();
    router.lab.trees.assert_heard(2, TreeLab::neighbour(2, 1), of_shared_tree);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.taken(), Sent{"assert 2 239.1.1.1 192.0.2.1"});
    EXPECT_EQ(router.lab.trees.find(GROUP)->words.lost, 0u);
    of_shared_tree.source = ANY;
    router.lab.trees.assert_heard(2, TreeLab::neighbour(2, 1), of_shared_tree);
    router.lab.trees.settle();
    EXPECT_EQ(router.lab.trees.find(GROUP)->words.lost, 0b00100u);
}

TEST(PimTree, TheWinnerOfAnAssertIsAskedInsteadOfTheNextHop)
{
    Router router;
    router.asks(2, OF_SOURCE, true);
    router.lab.taken();
    pimsmd::Assert message{GROUP, SOURCE, false, 5, 5};
    router.lab.trees.assert_heard(0, TreeLab::neighbour(0, 1), message);
    router.lab.trees.settle();
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    router.lab.pass(1249); // half of the override interval, as it is drawn here
    EXPECT_EQ(router.lab.taken(), Sent{});
    router.lab.pass(1);
    EXPECT_EQ(router.lab.taken(), Sent{"join 0 10.0.0.11 239.1.1.1 192.0.2.1"});
}

TEST(PimTree, ARestartedNeighbourIsToldAgain)
{
    Router router;
    router.asks(2, OF_SOURCE, true);
    router.asks(2, STAR, true);
    router.lab.taken();
    router.lab.trees.neighbour_restarted(1, TreeLab::neighbour(1, 0));
    router.lab.pass(1250);
    EXPECT_EQ(router.lab.taken(), Sent{"join 1 10.0.1.10 239.1.1.1 *"});
    router.lab.trees.neighbour_restarted(0, TreeLab::neighbour(0, 1)); // another one
    router.lab.pass(1250);
    EXPECT_EQ(router.lab.taken(), Sent{});
}

TEST(PimTree, JoinsForAnotherRpAndForRangesAreLeftOut)
{
    Router router;
    router.asks(2, {addr("10.255.0.2"), Tree::Star}, true);
    EXPECT_EQ(router.lab.trees.entries(), 0u);
    EXPECT_EQ(router.lab.counters[Count::OtherRp], 1u);
    router.lab.rp_known = false;
    router.asks(2, STAR, true);
    EXPECT_EQ(router.lab.counters[Count::OtherRp], 2u);

    const Bytes range = hex("2300 0000 01000a000201 0001 00d2 01000008ef000000 0000 0000");
    Bytes bytes = range;
    const Envelope from{TreeLab::neighbour(2, 0), addr("224.0.0.13")};
    Message message;

    pimsmd::put_checksum(from, bytes);
    ASSERT_EQ(pimsmd::read_message(from, bytes, &message), NO_DROP);
    router.lab.trees.join_prune(2, from.source, std::get<pimsmd::JoinPrune>(message));
    EXPECT_EQ(router.lab.counters[Count::GroupRange], 1u);
}

TEST(PimTree, EntriesHaveALimit)
{
    TreeSettings settings;
    settings.most_entries = 4;
    Router router(settings);

    for (unsigned i = 1; i <= 3; ++i) {
        const std::string group = "239.2.2." + std::to_string(i);

        router.asks(2, OF_SOURCE, true, addr(group.c_str()));
    }
    EXPECT_EQ(router.lab.trees.entries(), 4u); // two groups with a source each
    EXPECT_EQ(router.lab.counters[Count::EntryLimit], 1u);
    EXPECT_EQ(router.lab.trees.find(addr("239.2.2.3")), nullptr);
    router.asks(2, OF_SOURCE, false, addr("239.2.2.1"));
    EXPECT_EQ(router.lab.trees.entries(), 2u);
    router.asks(2, OF_SOURCE, true, addr("239.2.2.3"));
    EXPECT_EQ(router.lab.trees.entries(), 4u);
}

TEST(PimTree, ANeighbourHasAShare)
{
    TreeSettings settings;
    settings.most_of_neighbour = 2;
    Router router(settings);

    router.asks(2, STAR, true);
    router.asks(2, OF_SOURCE, true);
    router.asks(2, OF_SOURCE, true, addr("239.2.2.1"));
    EXPECT_EQ(router.lab.counters[Count::JoinLimit], 1u);
    EXPECT_EQ(router.lab.trees.find(addr("239.2.2.1")), nullptr);
    router.asks(3, OF_SOURCE, true, addr("239.2.2.1")); // the other neighbour has its own
    EXPECT_EQ(router.lab.trees.entries(), 4u);
    router.asks(2, STAR, false);
    router.asks(2, OF_SOURCE, true, addr("239.2.2.1"));
    EXPECT_EQ(router.lab.counters[Count::JoinLimit], 1u);
}

TEST(PimTree, AJoinAfterTheFirstPacketOfAnOwnSourceTakesItsTree)
{
    Router router;
    router.lab.routes[address_text(SOURCE)].connected = true;
    router.packet(0);
    EXPECT_FALSE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    router.asks(2, OF_SOURCE, true);
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
}

TEST(PimTree, AJoinForASilentOwnSourceWaitsForItsPacket)
{
    Router router;
    router.lab.routes[address_text(SOURCE)].connected = true;
    router.asks(2, OF_SOURCE, true);
    EXPECT_FALSE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
    router.packet(0);
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->words.spt_bit);
}

TEST(PimTree, APacketOfNobodysInterestMakesNothing)
{
    Router router;
    router.packet(0);
    EXPECT_EQ(router.lab.trees.entries(), 0u);
    router.lab.routes[address_text(SOURCE)].connected = true;
    router.packet(0); // of a source of this router's own link
    EXPECT_EQ(router.lab.trees.entries(), 2u);
    EXPECT_FALSE(router.lab.trees.find(GROUP, SOURCE)->view().could_register());
    router.lab.trees.set_dr(0, true);
    router.lab.trees.settle();
    EXPECT_TRUE(router.lab.trees.find(GROUP, SOURCE)->view().could_register());
    router.lab.pass(210000);
    EXPECT_EQ(router.lab.trees.entries(), 0u);
}
