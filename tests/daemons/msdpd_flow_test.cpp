/*
 * What an announcement causes: who is believed, what is kept, who is told.
 */
#include <gtest/gtest.h>

#include "daemons/msdpd/request.h"
#include "tests/daemons/msdpd_lab.h"
#include "tests/daemons/msdpd_lists.h"

using namespace msdpd;
using namespace msdpd_test;

namespace
{

// Peers 1 and 2 of mesh group "m", 3 and 4 of none.
Lab mesh_lab()
{
    return Lab({1, 2, 3, 4}, [](Config &config) {
        config.peers.at(peer_address(1)).mesh_group = "m";
        config.peers.at(peer_address(2)).mesh_group = "m";
    });
}

} // namespace

TEST(MsdpdFlow, AnAnnouncementIsKeptToldAndPassedOnToTheOthers)
{
    Lab lab({1, 2, 200});
    lab.establish({1, 2, 200});
    lab.announce(1, {pair(1, 1), pair(2, 1)});
    EXPECT_EQ(lab.cache(), "1>1 2>1");
    EXPECT_EQ(lab.told(), "+1>1 +2>1");
    EXPECT_EQ(lab.sent(1), "");
    EXPECT_EQ(lab.sent(2), "sa 1 1>1 2>1");
    EXPECT_EQ(lab.sent(200), "sa 1 1>1 2>1");
}

TEST(MsdpdFlow, OnlyTheRpfPeerIsBelieved)
{
    Lab lab({1, 2},
            [](Config &config) { config.peers.at(peer_address(1)).rpf = prefixes({"198.51.100.1/32"}); });
    lab.establish({1, 2});
    lab.announce(2, FAR, {pair(1, 1)});
    EXPECT_EQ(lab.cache(), "");
    EXPECT_EQ(lab.count(2, Count::DroppedRpf), 1u);
    lab.announce(2, peer_address(1), {pair(1, 1)});
    EXPECT_EQ(lab.count(2, Count::DroppedRpf), 2u);
    lab.announce(1, FAR, {pair(1, 1)});
    EXPECT_EQ(lab.cache(), "1>1");
}

TEST(MsdpdFlow, AMeshGroupIsBelievedAndNotTold)
{
    Lab lab = mesh_lab();
    lab.establish({1, 2, 3, 4});
    lab.announce(1, FAR, {pair(1, 1)});
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(lab.sent(2), "") << "the sender told it itself";
    EXPECT_EQ(lab.sent(3), "sa 1 1>1");
    EXPECT_EQ(lab.sent(4), "sa 1 1>1");
}

TEST(MsdpdFlow, AMeshGroupIsToldWhatComesFromOutside)
{
    Lab lab = mesh_lab();
    lab.establish({1, 2, 3, 4});
    lab.announce(3, {pair(1, 1)});
    EXPECT_EQ(lab.sent(1), "sa 3 1>1");
    EXPECT_EQ(lab.sent(2), "sa 3 1>1");
    EXPECT_EQ(lab.sent(4), "sa 3 1>1");
}

TEST(MsdpdFlow, TwoMeshGroupsTellEachOther)
{
    Lab lab({1, 2}, [](Config &config) {
        config.peers.at(peer_address(1)).mesh_group = "m";
        config.peers.at(peer_address(2)).mesh_group = "n";
    });
    lab.establish({1, 2});
    lab.announce(1, FAR, {pair(1, 1)});
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
}

TEST(MsdpdFlow, AnOriginatorIsNotToldItsOwnSources)
{
    Lab lab = mesh_lab();
    lab.establish({1, 2, 3, 4});
    lab.announce(1, peer_address(3), {pair(1, 1)});
    EXPECT_EQ(lab.sent(3), "");
    EXPECT_EQ(lab.sent(4), "sa 3 1>1");
}

TEST(MsdpdFlow, ARefreshIsPassedOnOnceInTheHoldDownTime)
{
    Lab lab({1, 2});
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1)});
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
    lab.pass(29);
    lab.announce(1, {pair(1, 1), pair(2, 2)});
    EXPECT_EQ(lab.sent(2), "sa 1 2>2");
    EXPECT_EQ(lab.count(1, Count::HeldDown), 1u);
    lab.pass(1);
    lab.announce(1, {pair(1, 1)});
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
}

TEST(MsdpdFlow, OriginatorsThatTakeTurnsDoNotGetAroundTheHoldDownTime)
{
    Lab lab({1, 2});
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1)});
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
    lab.announce(2, {pair(1, 1)});
    lab.announce(1, {pair(1, 1)});
    EXPECT_EQ(lab.sent(1), "");
    EXPECT_EQ(lab.sent(2), "");
}

TEST(MsdpdFlow, AddressesThatCannotBeAreDropped)
{
    const Pair good = pair(1, 1);
    const struct {
        Pair bad;
        Count count;
    } rows[] = {
        {{{0xe00000fb}, good.source}, Count::DroppedGroup}, // 224.0.0.251 stays on its link
        {{{0x0a000001}, good.source}, Count::DroppedGroup}, // 10.0.0.1
        {{{0xffffffff}, good.source}, Count::DroppedGroup}, // 255.255.255.255
        {{{0}, good.source}, Count::DroppedGroup},          // any group
        {{good.group, {0}}, Count::DroppedSource},          // any source
        {{good.group, {0x7f000001}}, Count::DroppedSource}, // 127.0.0.1
        {{good.group, {0xef000001}}, Count::DroppedSource}, // a group
        {{good.group, {0xa9fe0001}}, Count::DroppedSource}, // 169.254.0.1
        {{{0xe8000001}, good.source}, Count::DroppedSsm},   // 232.0.0.1
    };

    for (const auto &row : rows) {
        Lab lab({1});

        lab.establish(1);
        lab.announce(1, {row.bad, good});
        EXPECT_EQ(lab.cache(), "1>1") << to_text(row.bad);
        EXPECT_EQ(lab.count(1, row.count), 1u) << to_text(row.bad);
    }
}

TEST(MsdpdFlow, OriginatorsThatCannotBeAreDropped)
{
    Lab lab({1}, [](Config &config) { config.originator = FAR; });
    lab.establish(1);
    lab.announce(1, {0xef000001}, {pair(1, 1)});
    lab.announce(1, {0}, {pair(1, 1)});
    EXPECT_EQ(lab.count(1, Count::DroppedOriginator), 2u);
    lab.announce(1, FAR, {pair(1, 1)});
    EXPECT_EQ(lab.count(1, Count::DroppedOwn), 1u);
    EXPECT_EQ(lab.cache(), "");
}

TEST(MsdpdFlow, DataIsIgnoredAndItsEntryKept)
{
    Lab lab({1});
    Bytes message = build_source_active(TLV_SOURCE_ACTIVE, peer_address(1), std::array{pair(1, 1)});
    message.resize(message.size() + 100);
    message[2] = static_cast<uint8_t>(message.size());
    lab.establish(1);
    lab.input(1, message);
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(lab.count(1, Count::IgnoredData), 1u);
}

TEST(MsdpdFlow, FiltersDecideWhatComesInAndGoesOut)
{
    Lab lab({1, 2, 3}, [](Config &config) {
        config.peers.at(peer_address(1)).filter_in = 2001;
        config.peers.at(peer_address(2)).filter_out = 3001;
    });
    load_lists();
    lab.establish({1, 2, 3});
    lab.announce(1, {pair(1, 1), pair(2, 1), pair(1, 2)});
    EXPECT_EQ(lab.cache(), "1>1 2>1");
    EXPECT_EQ(lab.count(1, Count::DroppedFilter), 1u);
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
    EXPECT_EQ(lab.count(2, Count::FilteredOut), 1u);
    EXPECT_EQ(lab.sent(3), "sa 1 1>1 2>1");
}

TEST(MsdpdFlow, APeerAboveItsLimitIsRefusedAndKeepsWhatItHas)
{
    Lab lab({1, 2}, [](Config &config) { config.peers.at(peer_address(1)).sa_limit = 2; });
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1), pair(2, 1), pair(3, 1)});
    EXPECT_EQ(lab.cache(), "1>1 2>1");
    EXPECT_EQ(lab.count(1, Count::RefusedLimit), 1u);
    EXPECT_EQ(lab.sent(2), "sa 1 1>1 2>1");
    lab.announce(2, {pair(3, 1)});
    EXPECT_EQ(lab.cache(), "1>1 2>1 3>1");
    lab.announce(1, {pair(1, 1), pair(3, 1)});
    EXPECT_EQ(lab.count(1, Count::RefusedLimit), 2u) << "taking over counts, a refresh does not";
    EXPECT_EQ(lab.speaker->cache.find(pair(3, 1))->peer, peer_address(2));
}

TEST(MsdpdFlow, AWarningComesAtNinetyFivePercentAndAgainBelowNinety)
{
    Lab lab({1}, [](Config &config) {
        config.peers.at(peer_address(1)).sa_limit = 100;
        config.state_s = 1000;
    });
    std::string log;
    const auto announce = [&](unsigned first, unsigned last) {
        testing::internal::CaptureStderr();
        for (unsigned source = first; source <= last; ++source) {
            lab.announce(1, {pair(source, 1)});
        }
        log = testing::internal::GetCapturedStderr();
    };
    mcastd::log_open("msdpd", mcastd::LogLevel::Warning);
    lab.establish(1);
    announce(1, 94);
    EXPECT_EQ(log, "");
    announce(95, 95);
    EXPECT_NE(log.find("announces 95 sources; more than 100 are refused"), std::string::npos) << log;
    announce(96, 110);
    EXPECT_EQ(log, "");
    lab.speaker->cache.remove_if(
        [](const SaEntry &entry) { return entry.pair().source > pair(80, 1).source; });
    announce(81, 94);
    EXPECT_EQ(log, "");
    announce(95, 95);
    EXPECT_NE(log.find("announces 95 sources; more than 100 are refused"), std::string::npos) << log;
}

TEST(MsdpdFlow, ANewConnectionIsToldEverythingThatIsForIt)
{
    Lab lab = mesh_lab();
    lab.mrib.local = {pair(1, 9), pair(2, 9), pair(3, 9), pair(4, 9)};
    lab.establish({1, 3});
    lab.announce(1, FAR, {pair(1, 1)});
    lab.announce(3, {pair(3, 3)});
    peer_connected(lab.peer(2));
    EXPECT_EQ(lab.sent(2), "keepalive");
    dump_continue(lab.peer(2));
    EXPECT_EQ(lab.sent(2), "sa 100 1>9 2>9 3>9 sa 100 4>9 sa 3 3>3");
    peer_connected(lab.peer(4));
    lab.sent(4);
    dump_continue(lab.peer(4));
    EXPECT_EQ(lab.sent(4), "sa 100 1>9 2>9 3>9 sa 100 4>9 sa 3 3>3 sa 1 1>1");
    EXPECT_FALSE(dump_continue(lab.peer(4)));
    EXPECT_EQ(lab.sent(4), "");
}

TEST(MsdpdFlow, LocalSourcesAreAnnouncedOnceInAnInterval)
{
    Lab lab({1}, [](Config &config) { config.advertisement_s = 50; });
    lab.establish(1);
    lab.mrib.local = {pair(1, 1), pair(2, 1)};
    lab.pass(50);
    EXPECT_EQ(lab.sent(1), "sa 100 1>1 2>1");
    lab.mrib.local = {pair(2, 1)};
    lab.input(1, build_keepalive());
    lab.pass(49);
    EXPECT_EQ(lab.sent(1), "");
    lab.pass(1);
    EXPECT_EQ(lab.sent(1), "sa 100 2>1");
}

TEST(MsdpdFlow, ManyLocalSourcesAreSpreadOverTheInterval)
{
    Lab lab({1});
    lab.establish(1);
    for (unsigned source = 1; source <= 7; ++source) {
        lab.mrib.local.push_back(pair(source, 1));
    }
    lab.pass(60);
    EXPECT_EQ(lab.sent(1), "sa 100 1>1 2>1 3>1");
    lab.pass(1);
    EXPECT_EQ(lab.sent(1), "sa 100 4>1 5>1 6>1");
    lab.pass(1);
    EXPECT_EQ(lab.sent(1), "sa 100 7>1");
    lab.input(1, build_keepalive());
    lab.pass(57);
    EXPECT_EQ(lab.sent(1), "");
    lab.pass(1);
    EXPECT_EQ(lab.sent(1), "sa 100 1>1 2>1 3>1") << "the interval is kept";
}

TEST(MsdpdFlow, ALocalSourceIsAnnouncedWhenItAppears)
{
    Lab lab({1, 2}, [](Config &config) {
        config.originator = FAR;
        config.originate_filter = 2001;
        config.advertisement_s = 50;
        config.peers.at(peer_address(2)).mesh_group = "m";
    });
    load_lists();
    lab.establish({1, 2});
    advertise_fresh(*lab.speaker, peer_address(100), pair(1, 1));
    advertise_fresh(*lab.speaker, peer_address(100), pair(1, 2));                   // the filter
    advertise_fresh(*lab.speaker, peer_address(100), {{0xe8000001}, {0xc0000201}}); // source-specific
    EXPECT_EQ(lab.sent(1), "");
    advertise_flush(*lab.speaker);
    EXPECT_EQ(lab.sent(1), "sa 1 1>1") << "for the originator of the configuration";
    EXPECT_EQ(lab.sent(2), "sa 1 1>1");
    advertise_flush(*lab.speaker);
    EXPECT_EQ(lab.sent(1), "");
    lab.mrib.local = {pair(1, 1), pair(1, 2)};
    lab.pass(50);
    EXPECT_EQ(lab.mrib.asked_acl, 2001u);
    EXPECT_EQ(lab.sent(1), "sa 1 1>1");
}

TEST(MsdpdFlow, MoreFreshSourcesThanAMessageHoldsFillSeveral)
{
    Lab lab({1});
    lab.establish(1);
    for (unsigned source = 0; source < 300; ++source) {
        advertise_fresh(*lab.speaker, peer_address(100), pair(1, 1 + source));
    }
    advertise_flush(*lab.speaker);
    EXPECT_EQ(lab.count(1, Count::SentSourceActive), 2u);
    EXPECT_EQ(lab.count(1, Count::SentEntries), 300u);
}

TEST(MsdpdFlow, ARequestIsAnsweredWithWhatIsKnown)
{
    Lab lab({1, 2, 3});
    lab.establish({1, 2, 3});
    lab.mrib.local = {pair(9, 1), pair(9, 2)};
    lab.announce(1, {pair(1, 1), pair(1, 2)});
    lab.announce(2, {pair(2, 1)});
    lab.sent(3);
    lab.input(3, build_request(pair(0, 1).group));
    EXPECT_EQ(lab.sent(3), "response 1 1>1 response 2 2>1 response 100 9>1");
    EXPECT_EQ(lab.count(3, Count::SentResponses), 3u);
    EXPECT_EQ(lab.count(3, Count::ReceivedRequests), 1u);
    lab.sent(2);
    lab.input(2, build_request(pair(0, 1).group));
    EXPECT_EQ(lab.sent(2), "response 1 1>1 response 100 9>1") << "not what it announced itself";
    lab.input(3, build_request({0x0a000001}));
    lab.input(3, build_request(pair(0, 77).group));
    EXPECT_EQ(lab.sent(3), "");
}

TEST(MsdpdFlow, OnlyPeersThatAreToBeAskedAre)
{
    Lab lab({1, 2}, [](Config &config) { config.peers.at(peer_address(1)).sa_request = true; });
    lab.establish({1, 2});
    ask_for_sources(*lab.speaker, pair(0, 1).group);
    EXPECT_EQ(lab.sent(1), "request 1");
    EXPECT_EQ(lab.sent(2), "");
    lab.input(1, build_source_active(TLV_RESPONSE, FAR, std::array{pair(1, 1)}));
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(lab.sent(2), "") << "a response is not passed on";
    lab.input(2, build_source_active(TLV_RESPONSE, FAR, std::array{pair(2, 1)}));
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(lab.count(2, Count::IgnoredResponse), 1u);
}

TEST(MsdpdFlow, AConnectionThatEndsTakesNothingAlong)
{
    Lab lab({1, 2});
    lab.establish({1, 2});
    lab.announce(1, {pair(1, 1)});
    peer_lost(lab.peer(1), "closed");
    EXPECT_EQ(lab.cache(), "1>1");
    lab.pass(150);
    EXPECT_EQ(lab.cache(), "");
    EXPECT_EQ(lab.told(), "+1>1 -1>1");
}
