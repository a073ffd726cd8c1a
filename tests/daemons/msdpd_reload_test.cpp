/*
 * What a changed configuration does to peers, connections and what is kept.
 */
#include <gtest/gtest.h>

#include "tests/daemons/msdpd_lab.h"
#include "tests/daemons/msdpd_lists.h"

using namespace msdpd;
using namespace msdpd_test;

TEST(MsdpdReload, APeerThatIsGoneTakesItsEntriesAlong)
{
    Lab lab({1, 2});
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1)});
    lab.announce(2, {pair(2, 1)});
    lab.told();
    lab.config.peers.erase(peer_address(1));
    lab.configure();
    EXPECT_EQ(lab.transport.calls, "disconnect 1");
    EXPECT_EQ(lab.speaker->peers.size(), 1u);
    EXPECT_EQ(lab.told(), "-1>1");
    EXPECT_EQ(lab.state(2), "established");
}

TEST(MsdpdReload, ADisabledPeerIsLikeOneThatIsGoneAndComesBack)
{
    Lab lab({1});
    lab.establish(1);
    lab.announce(1, {pair(1, 1)});
    lab.settings(1).enabled = false;
    lab.configure();
    EXPECT_EQ(lab.state(1), "disabled");
    EXPECT_EQ(lab.cache(), "");
    lab.settings(1).enabled = true;
    lab.configure();
    EXPECT_EQ(lab.state(1), "listening");
}

TEST(MsdpdReload, ANewLocalAddressMakesANewConnectionInTheRoleItGives)
{
    Lab lab({50});
    lab.establish(50);
    lab.settings(50).local_address = peer_address(20);
    lab.configure();
    EXPECT_EQ(lab.state(50), "connecting");
    EXPECT_EQ(lab.transport.calls, "disconnect 50 disconnect 50 connect 50");
}

TEST(MsdpdReload, WhatDoesNotConcernTheConnectionLeavesItUp)
{
    Lab lab({1});
    lab.establish(1);
    lab.announce(1, {pair(1, 1)});
    lab.settings(1).description = "new";
    lab.settings(1).mesh_group = "m";
    lab.settings(1).default_peer = true;
    lab.configure();
    EXPECT_EQ(lab.transport.calls, "");
    EXPECT_EQ(lab.state(1), "established");
    EXPECT_EQ(lab.cache(), "1>1");
}

TEST(MsdpdReload, OnlyAConnectedPeerThatMayGetMoreIsToldEverythingAgain)
{
    Lab lab({1, 2, 3}, [](Config &config) { config.peers.at(peer_address(3)).filter_out = 2001; });
    load_lists();
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1)});
    lab.sent(2);
    lab.settings(2).description = "new";
    lab.configure();
    EXPECT_EQ(lab.peer(2).dump.phase, Dump::Phase::Done) << "a new description lets nothing more pass";
    EXPECT_EQ(lab.peer(3).dump.phase, Dump::Phase::Done) << "it is not connected";
    lab.settings(2).mesh_group = "m";
    lab.configure();
    EXPECT_TRUE(lab.peer(2).dump.phase != Dump::Phase::Done);
    dump_continue(lab.peer(2));
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
}

TEST(MsdpdReload, ALowerLimitRemovesWhatIsAboveIt)
{
    Lab lab({1});
    lab.establish(1);
    lab.announce(1, {pair(1, 1), pair(2, 1), pair(3, 1)});
    lab.settings(1).sa_limit = 1;
    lab.configure();
    EXPECT_EQ(lab.speaker->cache.size(), 1u);
    lab.settings(1).sa_limit = 0;
    lab.configure();
    EXPECT_EQ(lab.speaker->cache.size(), 0u);
}

TEST(MsdpdReload, OtherListsRemoveWhatTheyDenyAndTellWhatTheyPermit)
{
    Lab lab({1, 2}, [](Config &config) {
        config.peers.at(peer_address(1)).filter_in = 2001;
        config.peers.at(peer_address(2)).filter_out = 2001;
    });
    load_lists();
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1)});
    lab.announce(2, {pair(2, 2)});
    lab.told();
    lab.sent(2);
    load_lists("239.0.0.2");
    lab.configure();
    EXPECT_EQ(lab.told(), "-1>1");
    lab.announce(1, {pair(3, 2)});
    EXPECT_EQ(lab.sent(2), "sa 1 3>2");
    dump_continue(lab.peer(2));
    EXPECT_EQ(lab.sent(2), "sa 1 3>2") << "everything is told again, since the list lets other groups pass";
}

TEST(MsdpdReload, AnOriginatorThatIsThisRouterNowIsForgotten)
{
    Lab lab({1});
    lab.establish(1);
    lab.announce(1, FAR, {pair(1, 1)});
    lab.config.originator = FAR;
    lab.configure();
    EXPECT_EQ(lab.cache(), "");
}

TEST(MsdpdReload, ANewIntervalBeginsAtOnce)
{
    Lab lab({1});
    lab.establish(1);
    lab.mrib.local = {pair(1, 1)};
    lab.config.advertisement_s = 10;
    lab.configure();
    EXPECT_EQ(lab.sent(1), "sa 100 1>1");
    lab.pass(10);
    EXPECT_EQ(lab.sent(1), "sa 100 1>1");
}
