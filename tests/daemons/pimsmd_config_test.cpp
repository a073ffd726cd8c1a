#include <gtest/gtest.h>

#include "config_text.h"
#include "daemons/pimsmd/config.h"

using namespace pimsmd;

namespace
{

const config_text::Table<Config> IPV4("pimsmd", [](mcastd::ConfigTable &table) {
    return read_config(table, MCAST_FAMILY_IPV4);
});
const config_text::Table<Config> IPV6("pimsmd", [](mcastd::ConfigTable &table) {
    return read_config(table, MCAST_FAMILY_IPV6);
});

// Both families, as the two processes are given it.
const std::string RPS = R"(
[[pimsmd.rp]]
address = "10.0.0.1"
groups = ["239.1.0.0/16", "239.2.0.0/16"]
[[pimsmd.rp]]
address = "2001:db8::1"
[[pimsmd.candidate_bsr]]
address = "10.0.0.2"
priority = 7
hash_mask_length = 28
[[pimsmd.candidate_rp]]
address = "2001:db8::2"
groups = ["ff08::/16"]
priority = 1
holdtime = 12
)";

} // namespace

TEST(PimsmdConfig, AnEmptyFileIsTheDefaultOfTheProtocol)
{
    const Config config = IPV4.read("");
    EXPECT_EQ(config.hello_s, 30u);
    EXPECT_EQ(hold_of_period(config.hello_s), 105u);
    EXPECT_EQ(config.dr_priority, 1u);
    EXPECT_EQ(config.propagation_ms, 500u);
    EXPECT_EQ(config.override_ms, 2500u);
    EXPECT_EQ(config.trees.join_period_s, 60u);
    EXPECT_EQ(hold_of_period(config.trees.join_period_s), 210u);
    EXPECT_EQ(config.trees.keepalive_s, 210u);
    EXPECT_EQ(config.bsr.period_ms, 60000u);
    EXPECT_EQ(config.bsr.timeout_ms, 130000u);
    EXPECT_EQ(config.spt_switch, SptSwitch::Immediate);
    EXPECT_EQ(config.spt_list, MCAST_NONE);
    EXPECT_TRUE(config.interfaces.empty() && config.rps.empty() && !config.bsr.candidate && !config.bsr.rp);
}

TEST(PimsmdConfig, EveryKeyReachesItsPlace)
{
    const Config config = IPV4.read(R"([pimsmd]
hello_interval = 1
dr_priority = 4294967295
propagation_delay_ms = 50
override_interval_ms = 100
join_prune_interval = 2
keepalive = 3
register_suppression = 4
register_probe = 2
bootstrap_interval = 5
spt_switch = "never"
spt_list = 3001
ssm_list = 2001
max_neighbors = 6
max_entries = 7
max_neighbor_joins = 8
max_registered = 9
register_rate = 10
[[pimsmd.interface]]
name = "e0"
dr_priority = 0
[[pimsmd.interface]]
name = "e1"
hello_interval = 11
)");
    EXPECT_EQ(config.hello_s, 1u);
    EXPECT_EQ(config.dr_priority, 4294967295u);
    EXPECT_EQ(config.propagation_ms, 50u);
    EXPECT_EQ(config.override_ms, 100u);
    EXPECT_EQ(config.trees.join_period_s, 2u);
    EXPECT_EQ(config.trees.keepalive_s, 3u);
    EXPECT_EQ(config.trees.register_suppression_s, 4u);
    EXPECT_EQ(config.trees.register_probe_s, 2u);
    EXPECT_EQ(config.bsr.period_ms, 5000u);
    EXPECT_EQ(config.bsr.timeout_ms, 20000u);
    EXPECT_EQ(config.spt_switch, SptSwitch::Never);
    EXPECT_EQ(config.spt_list, 3001u);
    EXPECT_EQ(config.ssm_list, 2001u);
    EXPECT_EQ(config.most_neighbours, 6u);
    EXPECT_EQ(config.trees.most_entries, 7u);
    EXPECT_EQ(config.trees.most_of_neighbour, 8u);
    EXPECT_EQ(config.trees.most_registered, 9u);
    EXPECT_EQ(config.trees.registers_per_s, 10u);
    ASSERT_EQ(config.interfaces.size(), 2u);
    EXPECT_EQ(config.interfaces.at("e0"), (InterfaceConfig{0, std::nullopt}));
    EXPECT_EQ(config.interfaces.at("e1"), (InterfaceConfig{std::nullopt, 11}));
}

TEST(PimsmdConfig, EachFamilyTakesItsOwnRps)
{
    const Config ipv4 = IPV4.read(RPS);
    ASSERT_EQ(ipv4.rps.size(), 2u);
    EXPECT_EQ(ipv4.rps[1].range.text(), "239.2.0.0/16");
    EXPECT_EQ(to_text(ipv4.rps[1].rp), "10.0.0.1");
    ASSERT_TRUE(ipv4.bsr.candidate);
    EXPECT_EQ(ipv4.bsr.candidate->priority, 7);
    EXPECT_EQ(ipv4.bsr.hash_mask_length, 28);
    EXPECT_FALSE(ipv4.bsr.rp);

    const Config ipv6 = IPV6.read(RPS);
    ASSERT_EQ(ipv6.rps.size(), 1u);
    EXPECT_EQ(ipv6.rps[0].range.text(), "ff00::/8");
    EXPECT_FALSE(ipv6.bsr.candidate);
    ASSERT_TRUE(ipv6.bsr.rp);
    EXPECT_EQ(ipv6.bsr.rp_priority, 1);
    EXPECT_EQ(ipv6.bsr.rp_holdtime_s, 12);
    ASSERT_EQ(ipv6.bsr.rp_ranges.size(), 1u);
    EXPECT_EQ(ipv6.bsr.rp_ranges[0].prefix.text(), "ff08::/16");
}

TEST(PimsmdConfig, WhatIsWrongIsNamedWithItsPlace)
{
    const struct {
        const char *text;
        const char *error;
    } rows[] = {
        {"[pimsmd]\nhello = 1\n", "file:2:1: unknown key \"hello\""},
        {"[pimsmd]\nhello_interval = 0\n", "file:2:18: hello_interval is 0; allowed: 1 to 18000"},
        {"[pimsmd]\nregister_suppression = 9\n", "file:1:1: register_probe is 5; allowed: at most half"},
        {"[pimsmd]\nspt_switch = \"later\"\n",
         "file:2:14: spt_switch is \"later\"; allowed: immediate, never"},
        {"[[pimsmd.rp]]\naddress = \"224.0.0.1\"\n",
         "file:2:11: address is \"224.0.0.1\"; allowed: a unicast"},
        {"[[pimsmd.rp]]\naddress = \"10.0.0.1\"\ngroups = [\"ff08::/16\"]\n", "file:3:11: groups has"},
        {"[[pimsmd.rp]]\naddress = \"10.0.0.1\"\ngroups = [\"10.0.0.0/8\"]\n", "file:3:11: groups has"},
        {"[[pimsmd.interface]]\nname = \"e0\"\n[[pimsmd.interface]]\nname = \"e0\"\n",
         "file:4:8: name is \"e0\""},
        {"[[pimsmd.candidate_rp]]\naddress = \"10.0.0.1\"\n[[pimsmd.candidate_rp]]\naddress = \"10.0.0.2\"\n",
         "file:4:11: this router is a candidate RP already"},
        {"[[pimsmd.candidate_bsr]]\naddress = \"::1\"\nhash_mask_length = 129\n",
         "file:3:20: hash_mask_length"},
    };
    for (const auto &row : rows) {
        const std::string error = IPV4.error_of(row.text);
        EXPECT_EQ(error.substr(0, std::string(row.error).size()), row.error) << error;
    }
}
