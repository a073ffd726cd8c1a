/*
 * The connection's state machine: roles, timers and how connections end.
 */
#include <gtest/gtest.h>

#include "tests/daemons/msdpd_lab.h"

using namespace msdpd;
using namespace msdpd_test;

TEST(MsdpdPeer, TheHigherAddressListens)
{
    Lab lab({50});
    EXPECT_EQ(lab.state(50), "listening");
    EXPECT_EQ(lab.transport.calls, "");
    EXPECT_TRUE(peer_may_accept(lab.peer(50)));
}

TEST(MsdpdPeer, TheLowerAddressConnectsAndTakesNoConnection)
{
    Lab lab({200});
    EXPECT_EQ(lab.state(200), "connecting");
    EXPECT_EQ(lab.transport.calls, "disconnect 200 connect 200");
    EXPECT_FALSE(peer_may_accept(lab.peer(200)));
}

TEST(MsdpdPeer, ADisabledPeerDoesNeither)
{
    Lab lab({50, 200}, [](Config &config) {
        for (auto &[address, peer] : config.peers) {
            peer.enabled = false;
        }
    });
    EXPECT_EQ(lab.state(50), "disabled");
    EXPECT_EQ(lab.state(200), "disabled");
    EXPECT_FALSE(peer_may_accept(lab.peer(50)));
    EXPECT_EQ(lab.transport.calls, "");
}

TEST(MsdpdPeer, AnAttemptIsRepeatedAfterTheRetryTime)
{
    Lab lab({200});
    peer_connect_failed(lab.peer(200), "refused");
    lab.transport.calls.clear();
    lab.pass(29);
    EXPECT_EQ(lab.transport.calls, "");
    lab.pass(1);
    EXPECT_EQ(lab.transport.calls, "disconnect 200 connect 200");
    EXPECT_EQ(lab.count(200, Count::ConnectFailed), 1u);
}

TEST(MsdpdPeer, AnAttemptWithoutAnswerIsGivenUpForTheNext)
{
    Lab lab({200});
    lab.transport.calls.clear();
    lab.pass(60);
    EXPECT_EQ(lab.transport.calls, "disconnect 200 connect 200 disconnect 200 connect 200");
}

TEST(MsdpdPeer, AConnectionBeginsWithAKeepalive)
{
    Lab lab({200});
    peer_connected(lab.peer(200));
    EXPECT_EQ(lab.state(200), "established");
    EXPECT_EQ(lab.sent(200), "keepalive");
    lab.transport.calls.clear();
    lab.input(200, build_keepalive());
    lab.pass(40);
    EXPECT_EQ(lab.transport.calls, "") << "the retry timer runs no longer";
}

TEST(MsdpdPeer, KeepalivesFillSilence)
{
    Lab lab({50});
    lab.establish(50);
    lab.pass(59);
    EXPECT_EQ(lab.sent(50), "");
    lab.pass(1);
    EXPECT_EQ(lab.sent(50), "keepalive");
    lab.input(50, build_keepalive());
    lab.pass(60);
    EXPECT_EQ(lab.sent(50), "keepalive");
}

TEST(MsdpdPeer, AnyMessagePutsTheKeepaliveOff)
{
    Lab lab({50, 51});
    lab.establish({50, 51});
    lab.pass(40);
    lab.announce(51, {pair(1, 1)});
    EXPECT_EQ(lab.sent(50), "sa 51 1>1");
    lab.input(50, build_keepalive());
    lab.pass(59);
    EXPECT_EQ(lab.sent(50), "");
    lab.pass(1);
    EXPECT_EQ(lab.sent(50), "keepalive");
}

TEST(MsdpdPeer, WhatWaitsIsWorthAKeepalive)
{
    Lab lab({50, 51});
    lab.establish({50, 51});
    lab.announce(51, {pair(1, 1)});
    lab.input(50, build_keepalive());
    lab.pass(60);
    EXPECT_EQ(lab.sent(50), "sa 51 1>1");
}

TEST(MsdpdPeer, SilenceEndsTheConnection)
{
    Lab lab({50, 200});
    lab.establish({50, 200});
    lab.pass(74);
    EXPECT_EQ(lab.state(50), "established");
    lab.transport.calls.clear();
    lab.pass(1);
    EXPECT_EQ(lab.state(50), "listening");
    EXPECT_EQ(lab.state(200), "connecting");
    EXPECT_EQ(lab.transport.calls.find("connect 200", lab.transport.calls.find("disconnect 200") + 14),
              std::string::npos)
        << "no attempt before the retry time";
    EXPECT_EQ(lab.count(50, Count::HoldExpired), 1u);
    EXPECT_EQ(lab.peer(50).last_end, "the hold timer expired");
    lab.transport.calls.clear();
    lab.pass(30);
    EXPECT_EQ(lab.transport.calls, "disconnect 200 connect 200");
}

TEST(MsdpdPeer, AnyWholeMessageKeepsTheConnection)
{
    Lab lab({50});
    lab.establish(50);
    for (int i = 0; i < 5; ++i) {
        lab.pass(70);
        lab.input(50, i % 2 == 0 ? build_keepalive() : Bytes{99, 0, 4, 0});
    }
    EXPECT_EQ(lab.state(50), "established");
    lab.pass(70);
    lab.input(50, Bytes{1, 0}); // the beginning of one
    lab.pass(5);
    EXPECT_EQ(lab.state(50), "listening");
}

TEST(MsdpdPeer, MessagesArriveInPieces)
{
    Lab lab({50, 51});
    const Bytes message = build_source_active(TLV_SOURCE_ACTIVE, peer_address(50), std::array{pair(1, 1)});
    Bytes stream = message;
    stream.insert(stream.end(), message.begin(), message.end());
    lab.establish({50, 51});
    for (const uint8_t byte : stream) {
        lab.input(50, {byte});
    }
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(lab.count(50, Count::ReceivedSourceActive), 2u);
    EXPECT_TRUE(lab.peer(50).input.empty());
}

TEST(MsdpdPeer, WhatIsMalformedEndsTheConnectionAndIsCounted)
{
    const struct {
        Bytes bytes;
        Count count;
    } rows[] = {
        {{1, 0, 2}, Count::BadLength},
        {{7, 255, 255}, Count::BadLength},
        {{1, 0, 8, 1, 10, 0, 0, 1}, Count::BadSourceActive},
        {{3, 0, 8, 1, 10, 0, 0, 1}, Count::BadSourceActive},
        {{2, 0, 7, 0, 239, 1, 1}, Count::BadRequest},
        {{4, 0, 4, 0}, Count::BadKeepalive},
    };

    for (const auto &row : rows) {
        Lab lab({50});

        lab.establish(50);
        lab.input(50, row.bytes);
        EXPECT_EQ(lab.state(50), "listening") << count_name(row.count);
        EXPECT_EQ(lab.count(50, row.count), 1u) << count_name(row.count);
        EXPECT_EQ(lab.peer(50).last_end, count_name(row.count));
        EXPECT_EQ(lab.transport.calls, "disconnect 50");
    }
}

TEST(MsdpdPeer, WhatPrecedesTheMalformedCountsAndWhatFollowsDoesNot)
{
    Lab lab({50});
    Bytes stream = build_source_active(TLV_SOURCE_ACTIVE, peer_address(50), std::array{pair(1, 1)});
    const Bytes after = build_source_active(TLV_SOURCE_ACTIVE, peer_address(50), std::array{pair(2, 2)});
    stream.insert(stream.end(), {4, 0, 4, 0});
    stream.insert(stream.end(), after.begin(), after.end());
    lab.establish(50);
    lab.input(50, stream);
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_TRUE(lab.peer(50).input.empty());
}

TEST(MsdpdPeer, TypesThatAreNotKnownAreSkipped)
{
    Lab lab({50});
    lab.establish(50);
    lab.input(50, {5, 0, 7, 0, 1, 0, 1}); // a notification
    lab.input(50, {6, 0, 4, 0});
    EXPECT_EQ(lab.state(50), "established");
    EXPECT_EQ(lab.count(50, Count::IgnoredType), 2u);
}

TEST(MsdpdPeer, AListenerTakesANewConnectionInPlaceOfTheOldOne)
{
    Lab lab({50, 200});
    lab.establish({50, 200});
    EXPECT_TRUE(peer_may_accept(lab.peer(50)));
    EXPECT_FALSE(peer_may_accept(lab.peer(200)));
}

TEST(MsdpdPeer, TimesOfTheConfigurationCount)
{
    Lab lab({50, 200}, [](Config &config) {
        config.keepalive_s = 2;
        config.hold_s = 5;
        config.connect_retry_s = 3;
    });
    lab.transport.calls.clear();
    lab.pass(3);
    EXPECT_EQ(lab.transport.calls, "disconnect 200 connect 200");
    lab.establish(50);
    lab.pass(2);
    EXPECT_EQ(lab.sent(50), "keepalive");
    lab.pass(3);
    EXPECT_EQ(lab.state(50), "listening");
}

TEST(MsdpdPeer, MoreThanWaitsForAPeerAtMostIsDroppedAndEverythingToldLater)
{
    Lab lab({50, 51});
    std::vector<Pair> pairs;

    lab.establish({50, 51});
    for (unsigned group = 0; group < 256; ++group) {
        pairs.clear();
        for (unsigned source = 1; source <= 255; ++source) {
            pairs.push_back(pair(source, 256 + group));
        }
        lab.announce(51, pairs);
    }
    EXPECT_GT(lab.count(50, Count::QueueFull), 0u);
    EXPECT_LE(lab.peer(50).output.size(), SendBuffer::LIMIT);
    lab.peer(50).output.clear();
    const uint64_t before = lab.count(50, Count::SentEntries);
    bool more = true;

    while (more) {
        more = dump_continue(lab.peer(50));
        lab.peer(50).output.clear();
    }
    EXPECT_EQ(lab.count(50, Count::SentEntries) - before, 256u * 255u);
}
