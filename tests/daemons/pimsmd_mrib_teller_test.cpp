/*
 * What the MRIB process is told of the trees, and how often.
 */
#include <gtest/gtest.h>

#include "daemons/pimsmd_told.h"

using namespace pimsmd;
using namespace pimsmd_test;

namespace
{

using Lines = std::vector<std::string>;

const Address G = addr("239.1.1.1");
const Address S = addr("10.9.0.7");
const Address NEAR = addr("10.0.3.99"); // a host of link 3

const TreeSource STAR{TreeLab::rp(), Tree::Star};
const TreeSource SOURCE{S, Tree::Source};
const TreeSource RPT{S, Tree::Rpt};

class PimTeller : public testing::Test, protected ToldLab
{
protected:
    PimTeller()
    {
        lab.routes[address_text(TreeLab::rp())] = {4, TreeLab::neighbour(4, 0), 1, 1, false};
        lab.routes[address_text(S)] = {3, TreeLab::neighbour(3, 0), 1, 1, false};
        lab.routes[address_text(NEAR)] = {3, {}, 0, 0, true};
        for (unsigned link = 0; link < LINKS; ++link) {
            teller.link_came(link);
        }
        told();
    }
    void hear(unsigned link, const std::vector<TreeSource> &joins, const std::vector<TreeSource> &prunes)
    {
        lab.hear(link, TreeLab::neighbour(link, 1), TreeLab::own(link), 210, {{G, joins, prunes}});
        lab.trees.settle();
    }
};

TEST_F(PimTeller, LinksAreToldBeforeAnythingElse)
{
    hear(0, {STAR}, {});
    lab.trees.set_dr(2, true);
    teller.dr_changed(2);
    teller.start_over();
    lab.trees.settle();
    while (teller.tell(records, 1)) {
    }
    EXPECT_EQ(records.lines, (Lines{"runs 100", "runs 101", "designated 102", "runs 103", "runs 104",
                                    "join * 239.1.1.1 100", "tree * 239.1.1.1 104"}));
    lab.trees.set_dr(2, false);
    teller.dr_changed(2);
    records.taken();
    EXPECT_EQ(told(), (Lines{"runs 102"}));
}

TEST_F(PimTeller, JoinsPrunesAndTreesAreToldOnceForAllThatHappenedMeanwhile)
{
    hear(0, {STAR, SOURCE}, {});
    hear(2, {STAR}, {RPT});
    hear(0, {}, {STAR});
    hear(0, {STAR}, {});
    EXPECT_EQ(told(), (Lines{"block 10.9.0.7 239.1.1.1 102", "join * 239.1.1.1 100", "join * 239.1.1.1 102",
                             "join 10.9.0.7 239.1.1.1 100", "tree * 239.1.1.1 104"}));
    EXPECT_EQ(told(), Lines{});
    hear(2, {STAR}, {}); // which takes the block back
    hear(0, {}, {SOURCE});
    EXPECT_EQ(told(), (Lines{"prune 10.9.0.7 239.1.1.1 100", "unblock 10.9.0.7 239.1.1.1 102"}));
    hear(0, {}, {STAR});
    hear(2, {}, {STAR});
    EXPECT_EQ(told(), (Lines{"prune * 239.1.1.1 100", "prune * 239.1.1.1 102", "tree * 239.1.1.1 unsaid"}));
    EXPECT_EQ(teller.entries(), 0u);
}

TEST_F(PimTeller, WhatFindsNoRoomWaitsAndIsToldAsItIsThen)
{
    records.room = 0;
    hear(0, {STAR}, {});
    hear(2, {STAR}, {});
    EXPECT_FALSE(teller.tell(records, 100));
    EXPECT_EQ(records.lines, Lines{});
    hear(2, {}, {STAR});
    EXPECT_EQ(teller.waiting(), 1u);
    records.room = SIZE_MAX;
    EXPECT_EQ(told(), (Lines{"join * 239.1.1.1 100", "tree * 239.1.1.1 104"}));
}

TEST_F(PimTeller, WayOfPacketsFollowsTheRpAndItsRoute)
{
    hear(0, {STAR}, {});
    told();
    lab.routes[address_text(TreeLab::rp())] = {1, TreeLab::neighbour(1, 0), 1, 1, false};
    lab.trees.routes_changed();
    EXPECT_EQ(told(), (Lines{"tree * 239.1.1.1 101"}));
    lab.routes[address_text(TreeLab::rp())] = {};
    lab.trees.routes_changed();
    EXPECT_EQ(told(), (Lines{"tree * 239.1.1.1 nowhere"}));
    lab.is_rp = true;
    lab.trees.routes_changed();
    lab.trees.settle();
    teller.entry_changed(G, addr("0.0.0.0"));
    EXPECT_EQ(told(), (Lines{"tree * 239.1.1.1 registers"}));
    lab.rp_known = false;
    lab.trees.routes_changed();
    EXPECT_EQ(told(), (Lines{"tree * 239.1.1.1 unsaid"}));
}

TEST_F(PimTeller, WithoutAnRpPacketsComeOverTheSourcesTreeAlone)
{
    lab.rp_known = false;
    hear(0, {SOURCE}, {});
    EXPECT_EQ(told(), (Lines{"join 10.9.0.7 239.1.1.1 100", "tree 10.9.0.7 239.1.1.1 103 spt"}));
}

TEST_F(PimTeller, WithoutAWayToTheRpPacketsComeOverTheSourcesTreeAlone)
{
    hear(0, {STAR}, {});
    hear(0, {SOURCE}, {});
    told();
    lab.routes[address_text(TreeLab::rp())] = {pimsmd::NO_LINK, {}, 0, 0, false};
    lab.trees.routes_changed();
    lab.trees.settle();
    EXPECT_EQ(told(), (Lines{"tree * 239.1.1.1 nowhere", "tree 10.9.0.7 239.1.1.1 103 spt"}));
}

TEST_F(PimTeller, SptBitIsToldThoughTheOutputsStay)
{
    hear(0, {STAR}, {});
    hear(0, {SOURCE}, {});
    told();
    lab.trees.packet(3, G, S);
    EXPECT_EQ(told(), (Lines{"tree 10.9.0.7 239.1.1.1 103 spt"}));
}

// A packet that came in on the new way before the route changed had another meaning, and hides those after it for a while.
TEST_F(PimTeller, NewWayToTheSourceIsToBeWatched)
{
    hear(0, {STAR}, {});
    hear(0, {SOURCE}, {});
    EXPECT_EQ(told().back(), "tree * 239.1.1.1 104") << "no packet came yet";
    lab.trees.packet(3, G, S);
    told();
    lab.routes[address_text(S)] = {2, TreeLab::neighbour(2, 0), 1, 1, false};
    lab.trees.routes_changed();
    lab.trees.settle();
    EXPECT_EQ(told(), (Lines{"tree 10.9.0.7 239.1.1.1 unsaid watch"}));
    lab.trees.packet(2, G, S);
    EXPECT_EQ(told(), (Lines{"tree 10.9.0.7 239.1.1.1 102 spt"}));
}

TEST_F(PimTeller, AssertsAreToldWhereTheyCount)
{
    hear(0, {STAR}, {});
    told();
    const Assert better{G, addr("0.0.0.0"), true, 0, 0};
    lab.trees.assert_heard(0, TreeLab::neighbour(0, 1), better);
    EXPECT_EQ(told(), (Lines{"lost * 239.1.1.1 100"}));
    const Assert cancel{G, addr("0.0.0.0"), true, 0x7fffffff, 0xffffffff};
    lab.trees.assert_heard(0, TreeLab::neighbour(0, 1), cancel);
    EXPECT_EQ(told(), (Lines{"none * 239.1.1.1 100"}));
    lab.trees.packet(0, G, S); // somebody else forwards to the link too
    EXPECT_EQ(told(), (Lines{"won * 239.1.1.1 100"}));
}

TEST_F(PimTeller, AssertOnTheWayToTheRpCountsWhenTheWayIsAnother)
{
    hear(0, {STAR}, {});
    hear(4, {STAR}, {});
    told();
    lab.trees.assert_heard(4, TreeLab::neighbour(4, 1), {G, S, false, 0, 0});
    EXPECT_EQ(told(), Lines{});
    lab.routes[address_text(TreeLab::rp())] = {1, TreeLab::neighbour(1, 0), 1, 1, false};
    lab.trees.routes_changed();
    EXPECT_EQ(told(), (Lines{"lost 10.9.0.7 239.1.1.1 104", "tree * 239.1.1.1 101"}));
}

TEST_F(PimTeller, LinkThatWentTakesWhatWasToldOfItAndItsNumberMayComeAgain)
{
    hear(0, {STAR}, {});
    hear(2, {STAR}, {});
    told();
    lab.trees.forget_link(0);
    interfaces.erase(0);
    teller.link_gone(0, 100);
    EXPECT_EQ(told(), (Lines{"gone 100"}));
    interfaces[0] = 200;
    teller.link_came(0);
    hear(0, {STAR}, {});
    EXPECT_EQ(told(), (Lines{"join * 239.1.1.1 200", "runs 200"}));
}

TEST_F(PimTeller, NewConnectionHearsEverythingAndNothingOfBefore)
{
    hear(0, {STAR}, {});
    hear(2, {STAR}, {RPT});
    const auto first = told();
    hear(0, {}, {STAR});
    teller.start_over();
    EXPECT_FALSE(teller.is_complete());
    EXPECT_EQ(told(), (Lines{"block 10.9.0.7 239.1.1.1 102", "join * 239.1.1.1 102", "runs 100", "runs 101",
                             "runs 102", "runs 103", "runs 104", "tree * 239.1.1.1 104"}));
    EXPECT_TRUE(teller.is_complete());
    EXPECT_EQ(first.size(), 4u);
}

TEST_F(PimTeller, NewSourceOfNobodysInterestIsAnsweredAllTheSame)
{
    teller.answer(G, S);
    EXPECT_EQ(told(), (Lines{"tree 10.9.0.7 239.1.1.1 unsaid answer"}));
    EXPECT_EQ(teller.entries(), 0u);
}

TEST_F(PimTeller, NewSourceOfALinkIsAnsweredWithItsRegistersWayKnown)
{
    lab.trees.set_dr(3, true);
    tunnels.set_instance(0, 0, 9);
    lab.trees.packet(3, G, NEAR);
    teller.answer(G, NEAR);
    EXPECT_EQ(told(),
              (Lines{"designated 103", "tree * 239.1.1.1 104", "tree 10.0.3.99 239.1.1.1 103 out answer"}));
    const auto way = tunnels.find({253, 9, NEAR, G, {}});
    ASSERT_TRUE(way);
    EXPECT_EQ(address_text(way->rp), address_text(TreeLab::rp()));
    lab.trees.register_stop_heard(TreeLab::rp(), {G, NEAR});
    EXPECT_EQ(told(), (Lines{"tree 10.0.3.99 239.1.1.1 103"}));
    EXPECT_EQ(tunnels.size(), 0u);
}

TEST_F(PimTeller, WithoutAWayToTheRpNothingGoesToTheRegisterInterface)
{
    has_way = false;
    lab.trees.set_dr(3, true);
    lab.trees.packet(3, G, NEAR);
    EXPECT_EQ(told(), (Lines{"designated 103", "tree * 239.1.1.1 104", "tree 10.0.3.99 239.1.1.1 103"}));
}

TEST_F(PimTeller, RpTellsOfRegisteredSourcesUntilTheyAreSilent)
{
    lab.is_rp = true;
    lab.switches = true;
    lab.routes[address_text(TreeLab::rp())] = {};
    const Envelope outer{addr("10.0.1.5"), TreeLab::rp()};
    lab.trees.register_heard(outer, {false, true, S, G, {}});
    EXPECT_EQ(told(), (Lines{"registered 10.9.0.7 239.1.1.1 at 10.255.0.1", "tree * 239.1.1.1 registers"}));
    lab.pass(400000);
    EXPECT_EQ(told(), (Lines{"tree * 239.1.1.1 unsaid", "unregistered 10.9.0.7 239.1.1.1 at 10.255.0.1"}));
}

// Routers that have the source over its own tree prune it from the shared one at a new RP before it is registered there.
TEST_F(PimTeller, RpTellsOfARegisteredSourceThatWasPrunedBefore)
{
    lab.is_rp = true;
    lab.switches = true;
    lab.routes[address_text(TreeLab::rp())] = {};
    hear(2, {STAR}, {RPT});
    told();
    lab.trees.register_heard({addr("10.0.1.5"), TreeLab::rp()}, {false, true, S, G, {}});
    const Lines lines = told();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "registered 10.9.0.7 239.1.1.1 at 10.255.0.1"), 1);
}

TEST_F(PimTeller, RpJoinsASourceOfAnotherDomainForThoseWhoWantTheGroup)
{
    lab.is_rp = true;
    lab.routes[address_text(TreeLab::rp())] = {};
    lab.trees.set_remote(G, S, true);
    lab.trees.settle();
    EXPECT_EQ(lab.taken(), Lines{});
    hear(0, {STAR}, {});
    EXPECT_EQ(lab.taken(), (Lines{"join 3 10.0.3.10 239.1.1.1 10.9.0.7"}));
    lab.trees.set_remote(G, S, false);
    lab.trees.settle();
    EXPECT_EQ(lab.taken(), (Lines{"prune 3 10.0.3.10 239.1.1.1 10.9.0.7"}));
    EXPECT_EQ(lab.trees.find(G, S), nullptr);
    lab.is_rp = false; // another router's concern
    lab.trees.routes_changed();
    lab.trees.set_remote(G, S, true);
    lab.trees.settle();
    EXPECT_EQ(lab.taken(), Lines{});
}

} // namespace
