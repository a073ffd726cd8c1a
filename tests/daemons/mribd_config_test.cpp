#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "config_text.h"
#include "daemons/mribd/config.h"

using namespace mribd;

namespace
{

const config_text::Table<Config> TABLE("mribd", read_config);

TEST(MribdConfig, EmptyFileIsTheDefault)
{
    const Config config = TABLE.read("");
    EXPECT_EQ(config.busy[0], 0u);
    EXPECT_TRUE(config.instances.empty());
    EXPECT_TRUE(config.interfaces.empty());
}

TEST(MribdConfig, EveryKeyReachesItsPlace)
{
    const Config config = TABLE.read(R"(
[mribd]
flow_control = { ipv4 = 3, ipv6 = 4 }
[[mribd.instance]]
enabled = false
ssm_acl.ipv6 = 2001
rp = "10.0.0.1"
[[mribd.instance]]
vrf = 5
[[mribd.interface]]
name = "eth1"
dr = false
boundaries = ["239.255.7.0/16", "ff15::/16"]
scope_boundary = 5
[[mribd.interface]]
name = "eth2"
vrf = 5
)");
    EXPECT_EQ(config.busy, (std::array<uint16_t, 2>{3, 4}));
    const InstanceConfig &instance = config.instances.at(0);
    EXPECT_FALSE(instance.enabled);
    EXPECT_EQ(instance.ssm_acl, (std::array<uint32_t, 2>{MCAST_NONE, 2001}));
    EXPECT_EQ(instance.rp_be, htonl(0x0a000001));
    EXPECT_TRUE(config.instances.at(5).enabled);
    ASSERT_EQ(config.interfaces.size(), 2u);
    EXPECT_EQ(config.interfaces[0].designated, std::optional<bool>(false));
    EXPECT_EQ(config.interfaces[0].scope_boundary, 5u);
    ASSERT_EQ(config.interfaces[0].boundaries.size(), 2u);
    EXPECT_EQ(config.interfaces[0].boundaries[0].text(), "239.255.0.0/16");
    EXPECT_EQ(config.interfaces[1].designated, std::nullopt);
    EXPECT_EQ(config.interfaces[1].vrf_index, 5u);
}

TEST(MribdConfig, ErrorsNameTheLine)
{
    const std::pair<const char *, const char *> rows[] = {
        {"[mribd]\nsurprise = 1\n", "file:2:"},
        {"[mribd]\nflow_control.ipv4 = 65536\n", "file:2:"},
        {"[mribd]\nflow_control.ipv5 = 1\n", "file:2:"},
        {"[[mribd.instance]]\nssm_acl.ipv4 = 3000\n", "file:2:"},
        {"[[mribd.instance]]\nrp = '239.1.1.1'\n", "file:2:"},
        {"[[mribd.instance]]\nrp = 'ff0e::1'\n", "file:2:"},
        {"[[mribd.instance]]\nvrf = 5\nrp = '10.0.0.1'\n", "file:3:"},
        {"[[mribd.instance]]\n[[mribd.instance]]\nvrf = 0\n", "file:3:"},
        {"[[mribd.instance]]\nvrf = 65536\n", "file:2:"},
        {"[[mribd.interface]]\ndr = true\n", "file:1:"},
        {"[[mribd.interface]]\nname = 'a'\n[[mribd.interface]]\nname = 'a'\n", "file:4:"},
        {"[[mribd.interface]]\nname = 'longer-than-names'\n", "file:2:"},
        {"[[mribd.interface]]\nname = 'a'\nvrf = 7\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nboundaries = ['239.0.0.0/8',\n'10.0.0.0/8']\n", "file:4:"},
        {"[[mribd.interface]]\nname = 'a'\nboundaries = ['239.0.0.0/33']\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nboundaries = ['224.0.0.0/3']\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nboundaries = ['ff00::/7']\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nboundaries = ['224.0.0.0/24']\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nboundaries = ['ff12::/16']\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nscope_boundary = 2\n", "file:3:"},
        {"[[mribd.interface]]\nname = 'a'\nscope_boundary = 16\n", "file:3:"},
    };
    for (const auto &[text, place] : rows) {
        EXPECT_TRUE(TABLE.error_of(text).starts_with(place)) << text << TABLE.error_of(text);
    }
}

TEST(MribdConfig, BoundariesOfAllInterfacesAreBoundedTogether)
{
    std::string text;
    for (unsigned interface = 0; interface < 2; ++interface) {
        text += "[[mribd.interface]]\nname = 'if" + std::to_string(interface) + "'\nboundaries = [";
        for (size_t i = 0; i < BOUNDARY_LIMIT / 2; ++i) {
            text += "'239.0." + std::to_string(i / 256) + "." + std::to_string(i % 256) + "/32',";
        }
        text += "]\n";
    }
    EXPECT_EQ(TABLE.error_of(text), "");
    text += "[[mribd.interface]]\nname = 'if2'\nboundaries = ['238.0.0.0/8']\n";
    EXPECT_NE(TABLE.error_of(text), "");
}

} // namespace
