#include <gtest/gtest.h>

#include "config_text.h"
#include "daemons/msdpd/config.h"

using namespace msdpd;

namespace
{

const config_text::Table<Config> TABLE("msdpd", read_config);

const std::string PEER = "[[msdpd.peer]]\naddress = \"10.0.0.2\"\nlocal_address = \"10.0.0.1\"\n";

const PeerConfig &only_peer(const Config &config)
{
    return config.peers.begin()->second;
}

} // namespace

TEST(MsdpdConfig, AnEmptyFileIsTheDefault)
{
    const Config config = TABLE.read("");
    EXPECT_TRUE(config.peers.empty());
    EXPECT_EQ(config.originator, Ipv4{});
    EXPECT_EQ(config.originate_filter, MCAST_NONE);
    EXPECT_EQ(config.keepalive_s, 60u);
    EXPECT_EQ(config.hold_s, 75u);
    EXPECT_EQ(config.connect_retry_s, 30u);
    EXPECT_EQ(config.advertisement_s, 60u);
    EXPECT_EQ(config.hold_down_s, 30u);
    EXPECT_EQ(config.state_s, 150u);
}

TEST(MsdpdConfig, APeerNeedsItsTwoAddresses)
{
    const Config config = TABLE.read(PEER);
    const PeerConfig &peer = only_peer(config);
    EXPECT_EQ(to_text(peer.address), "10.0.0.2");
    EXPECT_EQ(to_text(peer.local_address), "10.0.0.1");
    EXPECT_TRUE(peer.enabled);
    EXPECT_EQ(peer.sa_limit, 100000u);
    EXPECT_EQ(peer.filter_in, MCAST_NONE);
    EXPECT_EQ(peer.filter_out, MCAST_NONE);
    EXPECT_FALSE(peer.default_peer);
    EXPECT_FALSE(peer.sa_request);
    EXPECT_EQ(TABLE.error_of("[[msdpd.peer]]\naddress = \"10.0.0.2\"\n").substr(0, 8), "file:1:1");
}

TEST(MsdpdConfig, EveryKeyReachesItsPlace)
{
    const Config config = TABLE.read(R"(
[msdpd]
originator = "10.0.0.9"
originate_filter = 3003
keepalive = 6
hold_time = 8
connect_retry = 3
sa_interval = 10
sa_hold_down = 5
sa_state_time = 20
[[msdpd.peer]]
address = "10.0.0.3"
local_address = "10.0.0.1"
[[msdpd.peer]]
address = "10.0.0.2"
local_address = "10.0.0.1"
description = "the other one"
enabled = false
mesh_group = "core"
sa_limit = 7
filter_in = 2001
filter_out = 3002
rpf = ["192.0.2.77/24", "198.51.100.1", "0.0.0.0/0"]
default_peer = true
sa_request = true
)");
    const PeerConfig &peer = only_peer(config);
    EXPECT_EQ(to_text(config.originator), "10.0.0.9");
    EXPECT_EQ(config.originate_filter, 3003u);
    EXPECT_EQ(config.keepalive_s, 6u);
    EXPECT_EQ(config.hold_s, 8u);
    EXPECT_EQ(config.connect_retry_s, 3u);
    EXPECT_EQ(config.advertisement_s, 10u);
    EXPECT_EQ(config.hold_down_s, 5u);
    EXPECT_EQ(config.state_s, 20u);
    EXPECT_EQ(peer.description, "the other one");
    EXPECT_FALSE(peer.enabled);
    EXPECT_EQ(peer.mesh_group, "core");
    EXPECT_EQ(peer.sa_limit, 7u);
    EXPECT_EQ(peer.filter_in, 2001u);
    EXPECT_EQ(peer.filter_out, 3002u);
    ASSERT_EQ(peer.rpf.size(), 3u);
    EXPECT_EQ(peer.rpf[0].text(), "192.0.2.0/24");
    EXPECT_EQ(peer.rpf[1].text(), "198.51.100.1/32");
    EXPECT_EQ(peer.rpf[2].text(), "0.0.0.0/0");
    EXPECT_TRUE(peer.default_peer);
    EXPECT_TRUE(peer.sa_request);
    EXPECT_EQ(peer.position, 1u);
}

TEST(MsdpdConfig, WhatIsWrongIsNamedWithItsPlace)
{
    const struct {
        std::string text;
        std::string error;
    } rows[] = {
        {"[msdpd]\noriginator = \"239.1.1.1\"\n",
         "file:2:14: originator is \"239.1.1.1\"; allowed: an IPv4 unicast address"},
        {"[msdpd]\nkeepalive = 75\n", "file:2:13: keepalive is 75; allowed: less than the hold_time of 75"},
        {"[msdpd]\nhold_time = 60\n", "file:1:1: keepalive is 60; allowed: less than the hold_time of 60"},
        {"[msdpd]\nsa_state_time = 89\n",
         "file:2:17: sa_state_time is 89; allowed: at least 90, sa_interval and sa_hold_down together"},
        {"[msdpd]\nkeepalives = 6\n", "file:2:1:"},
        {PEER + "local = 1\n", "file:4:1:"},
        {PEER + "filter_in = 4000\n", "file:4:13:"},
        {PEER + "sa_limit = -1\n", "file:4:12:"},
        {PEER + "rpf = [\"10.0.0.0/8\", \"10.0.0.0/33\"]\n", "file:4:22: rpf is \"10.0.0.0/33\""},
        {PEER + "rpf = [\"10.0.0.0/\"]\n", "file:4:8: rpf is \"10.0.0.0/\""},
        {PEER + "rpf = [\"2001:db8::/24\"]\n", "file:4:8: rpf is \"2001:db8::/24\""},
        {PEER + "rpf = [\"2001:db8::1\"]\n", "file:4:8: rpf is \"2001:db8::1\""},
        {PEER + "rpf = [\"x/8\"]\n", "file:4:8: rpf is \"x/8\""},
        {PEER + "description = \"" + std::string(64, 'x') + "\"\n", "file:4:15: description is too long"},
        {PEER + PEER, "file:5:11: peer 10.0.0.2 is configured twice"},
        {"[[msdpd.peer]]\naddress = \"10.0.0.1\"\nlocal_address = \"10.0.0.1\"\n",
         "file:3:17: local_address is the peer's own"},
    };

    for (const auto &row : rows) {
        EXPECT_EQ(TABLE.error_of(row.text).substr(0, row.error.size()), row.error);
    }
}

TEST(MsdpdConfig, TheExampleLoads)
{
    Config config;
    std::string error;
    ASSERT_TRUE(mcastd::load_config(
        EXAMPLE_CONFIG, "msdpd", [&config](mcastd::ConfigTable &table) { config = read_config(table); },
        &error))
        << error;
    EXPECT_EQ(config.peers.size(), 2u);
}
