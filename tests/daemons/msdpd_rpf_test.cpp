#include <gtest/gtest.h>

#include "daemons/msdpd/rpf.h"
#include "tests/daemons/msdpd_lab.h"

using namespace msdpd;
using namespace msdpd_test;

namespace
{

const Ipv4 FAR = {0xc6336401}; // 198.51.100.1, an originator that is no peer

// "peer rule".
std::string choice(Lab &lab, Ipv4 originator)
{
    const RpfChoice chosen = rpf_peer(*lab.speaker, originator);
    return (chosen.peer == nullptr ? "nobody" : std::to_string(chosen.peer->config.address.number & 0xff)) +
           " " + rule_name(chosen.rule);
}

} // namespace

TEST(MsdpdRpf, TheOriginatorItselfWhenItIsAPeer)
{
    Lab lab({1, 2}, [](Config &config) { config.peers.at(peer_address(2)).default_peer = true; });
    lab.establish({1, 2});
    EXPECT_EQ(choice(lab, peer_address(1)), "1 originator");
}

TEST(MsdpdRpf, APeerThatIsNotConnectedIsNobody)
{
    Lab lab({1, 2, 3}, [](Config &config) {
        config.peers.at(peer_address(1)).rpf = prefixes({"198.51.100.1/32"});
        config.peers.at(peer_address(2)).default_peer = true;
    });
    lab.routes.routes = {{FAR, {1, peer_address(3)}}};
    EXPECT_EQ(choice(lab, FAR), "nobody none");
    EXPECT_EQ(choice(lab, peer_address(1)), "nobody none");
    lab.establish(2);
    EXPECT_EQ(choice(lab, FAR), "2 default");
    lab.establish(3);
    EXPECT_EQ(choice(lab, FAR), "3 next_hop");
    lab.establish(1);
    EXPECT_EQ(choice(lab, FAR), "1 static");
}

TEST(MsdpdRpf, TheOnlyPeerIsBelieved)
{
    Lab lab({1, 2}, [](Config &config) { config.peers.at(peer_address(2)).enabled = false; });
    EXPECT_EQ(choice(lab, FAR), "nobody none");
    lab.establish(1);
    EXPECT_EQ(choice(lab, FAR), "1 only_peer");
}

TEST(MsdpdRpf, OneOfSeveralIsNotTheOnlyPeerWhileTheOthersAreDown)
{
    Lab lab({1, 2});
    lab.establish(1);
    EXPECT_EQ(choice(lab, FAR), "nobody none");
}

TEST(MsdpdRpf, TheLongestStaticPrefixDecides)
{
    Lab lab({1, 2, 3}, [](Config &config) {
        config.peers.at(peer_address(1)).rpf = prefixes({"0.0.0.0/0", "198.51.0.0/16"});
        config.peers.at(peer_address(2)).rpf = prefixes({"198.51.100.0/24"});
    });
    lab.establish({1, 2, 3});
    EXPECT_EQ(choice(lab, FAR), "2 static");
    EXPECT_EQ(choice(lab, {0xc6330101}), "1 static");
    EXPECT_EQ(choice(lab, {0x01020304}), "1 static");
}

TEST(MsdpdRpf, AShorterPrefixDecidesWhileThePeersOfLongerOnesAreDown)
{
    Lab lab({1, 2, 3, 4}, [](Config &config) {
        config.peers.at(peer_address(1)).rpf = prefixes({"0.0.0.0/0"});
        config.peers.at(peer_address(2)).rpf = prefixes({"198.0.0.0/8", "198.51.0.0/16", "199.0.0.0/8"});
        config.peers.at(peer_address(3)).rpf = prefixes({"198.51.100.0/24", "198.51.116.0/24"});
        config.peers.at(peer_address(4)).rpf = prefixes({"198.51.100.1/32"});
    });
    EXPECT_EQ(choice(lab, FAR), "nobody none");
    lab.establish(1);
    EXPECT_EQ(choice(lab, FAR), "1 static");
    lab.establish(2);
    EXPECT_EQ(choice(lab, FAR), "2 static");
    lab.establish(3);
    EXPECT_EQ(choice(lab, FAR), "3 static");
    lab.establish(4);
    EXPECT_EQ(choice(lab, FAR), "4 static");
    EXPECT_EQ(choice(lab, {FAR.number + 1}), "3 static");
    EXPECT_EQ(choice(lab, {0xc6330101}), "2 static");
    EXPECT_EQ(choice(lab, {0xc7000001}), "2 static");
    EXPECT_EQ(choice(lab, {0xc8000001}), "1 static");
}

TEST(MsdpdRpf, OfPeersWithTheSamePrefixTheLowestConnectedOneDecides)
{
    Lab lab({1, 2, 3}, [](Config &config) {
        config.peers.at(peer_address(1)).rpf = prefixes({"198.51.100.0/24"});
        config.peers.at(peer_address(2)).rpf = prefixes({"198.51.100.0/24"});
        config.peers.at(peer_address(3)).rpf = prefixes({"198.51.0.0/16"});
    });
    lab.establish({2, 3});
    EXPECT_EQ(choice(lab, FAR), "2 static");
    lab.establish(1);
    EXPECT_EQ(choice(lab, FAR), "1 static");
}

TEST(MsdpdRpf, PrefixesOfANewConfigurationReplaceThoseBefore)
{
    Lab lab({1, 2}, [](Config &config) {
        config.peers.at(peer_address(1)).rpf = prefixes({"198.51.100.1/32", "0.0.0.0/0"});
    });
    lab.establish({1, 2});
    EXPECT_EQ(choice(lab, FAR), "1 static");
    lab.settings(1).rpf = {};
    lab.settings(2).rpf = prefixes({"198.51.100.1/32"});
    lab.configure();
    EXPECT_EQ(choice(lab, FAR), "2 static");
    EXPECT_EQ(choice(lab, {FAR.number + 1}), "nobody none");
}

TEST(MsdpdRpf, TheNextHopGoesBeforeTheDirection)
{
    Lab lab({1, 2});
    lab.establish({1, 2});
    lab.routes.routes = {
        {FAR, {7, peer_address(1)}}, {peer_address(1), {7, {}}}, {peer_address(2), {7, peer_address(1)}}};
    EXPECT_EQ(choice(lab, FAR), "1 next_hop");
}

TEST(MsdpdRpf, APeerBehindTheSameNextHopIsInTheDirection)
{
    Lab lab({1, 2, 3});
    const Ipv4 gateway = {0x0a0a0a01};
    lab.establish({1, 2, 3});
    lab.routes.routes = {{FAR, {7, gateway}},
                         {peer_address(1), {7, gateway}},
                         {peer_address(2), {7, gateway}},
                         {peer_address(3), {8, gateway}}};
    EXPECT_EQ(choice(lab, FAR), "2 direction") << "the highest of them";
}

TEST(MsdpdRpf, AnOriginatorOnALinkIsNearestToThePeersOfThatLink)
{
    Lab lab({1, 2});
    lab.establish({1, 2});
    lab.routes.routes = {{FAR, {7, {}}}, {peer_address(1), {7, {}}}, {peer_address(2), {8, {}}}};
    EXPECT_EQ(choice(lab, FAR), "1 direction");
}

TEST(MsdpdRpf, TheFirstDefaultPeerOfTheFileThatIsConnected)
{
    Lab lab({9, 5, 7}, [](Config &config) {
        for (auto &[address, peer] : config.peers) {
            peer.default_peer = true;
        }
    });
    lab.establish({5, 7});
    EXPECT_EQ(choice(lab, FAR), "5 default");
    lab.establish(9);
    EXPECT_EQ(choice(lab, FAR), "9 default");
}

TEST(MsdpdRpf, NobodyIsBelievedWhileTheRouteToTheOriginatorCannotBeAskedFor)
{
    Lab lab({1, 2}, [](Config &config) { config.peers.at(peer_address(2)).default_peer = true; });
    lab.establish({1, 2});
    lab.routes.routes = {{FAR, {0, {}, true}}};
    EXPECT_EQ(choice(lab, FAR), "nobody unknown") << "and not the default peer";
    lab.announce(2, FAR, {{{1}, {0xe1010101}}});
    EXPECT_EQ(lab.count(2, Count::DroppedRpf), 1u);
    lab.routes.routes = {{FAR, {7, peer_address(1)}}};
    EXPECT_EQ(choice(lab, FAR), "1 next_hop");
}

TEST(MsdpdRpf, NobodyIsBelievedWhileTheRouteToAPeerThatMayBeTheOneCannotBeAskedFor)
{
    Lab lab({1, 2, 3});
    const Ipv4 gateway = {0x0a0a0a01};
    lab.establish({1, 2});
    lab.routes.routes = {
        {FAR, {7, gateway}}, {peer_address(1), {7, gateway}}, {peer_address(2), {0, {}, true}}};
    EXPECT_EQ(choice(lab, FAR), "nobody unknown");
    lab.routes.routes[peer_address(2)] = {8, gateway};
    lab.routes.routes[peer_address(3)] = {0, {}, true}; // is not connected
    EXPECT_EQ(choice(lab, FAR), "1 direction");
}
