#include <cstring>
#include <gtest/gtest.h>

#include "mcast/addr.h"
#include "support/addresses.h"

namespace
{

struct Row {
    const char *text;
    uint32_t expected;
};

uint32_t HostOrder(const MCAST_ADDR_S &addr)
{
    uint32_t network;
    std::memcpy(&network, addr.address, sizeof(network));
    return ntohl(network);
}

TEST(GroupCheck, AcceptsWhatReachesBeyondTheLink)
{
    const Row rows[] = {
        {"223.255.255.255", 0}, {"224.0.0.0", 0},    {"224.0.0.13", 0}, {"224.0.0.255", 0},
        {"224.0.1.0", 1},       {"232.1.2.3", 1},    {"239.0.0.0", 1},  {"239.255.255.255", 1},
        {"240.0.0.0", 0},       {"240.0.0.1", 0},    {"0.0.0.0", 0},    {"255.255.255.255", 0},
        {"10.0.0.1", 0},        {"ff00::1", 0},      {"ff01::1", 0},    {"ff02::1", 0},
        {"ff03::1", 1},         {"ff05::1", 1},      {"ff0e::1", 1},    {"ff0f::8000", 1},
        {"ff05::", 0},          {"ff0e::", 0},       {"ff0f::", 0},     {"ff15::", 1},
        {"ff3e::", 1},          {"ff85::", 1},       {"ff12::1", 0},    {"fff2::", 0},
        {"ff05:100::", 1},      {"ff05:0:0:1::", 1}, {"ff11::1", 0},    {"ff10::1", 0},
        {"fe05::1", 0},         {"2001:db8::1", 0},  {"::", 0},         {"ff13::", 1},
    };

    for (const Row &row : rows) {
        MCAST_ADDR_S addr = Addr(row.text);

        EXPECT_EQ(MCAST_GrpAddrCheck(&addr), row.expected) << row.text;
    }
}

TEST(GroupCheck, LooksAtEveryByteBehindTheScope)
{
    for (int byte = 2; byte < 16; ++byte) {
        MCAST_ADDR_S addr = Addr("ff05::");

        addr.address[byte] = 1;
        EXPECT_EQ(MCAST_GrpAddrCheck(&addr), 1u) << byte;
    }
}

const Row kIpv4Sources[] = {
    {"0.0.0.0", 0},         {"0.1.2.3", 0},         {"0.255.255.255", 0},   {"1.0.0.0", 1},
    {"10.1.2.3", 1},        {"126.255.255.255", 1}, {"127.0.0.0", 0},       {"127.0.0.1", 0},
    {"127.255.255.255", 0}, {"128.0.0.0", 1},       {"128.0.0.1", 1},       {"191.255.255.255", 1},
    {"192.0.0.0", 1},       {"223.255.255.254", 1}, {"223.255.255.255", 1}, {"224.0.0.0", 0},
    {"224.1.1.1", 0},       {"240.0.0.1", 0},       {"254.1.1.1", 0},       {"255.255.255.255", 0},
};

TEST(SourceCheck, HoldsOneIpv4RuleInAllThreeChecks)
{
    for (const Row &row : kIpv4Sources) {
        MCAST_ADDR_S addr = Addr(row.text);

        EXPECT_EQ(MCAST_IPv4SrcAddrCheck(HostOrder(addr)), row.expected) << row.text;
        EXPECT_EQ(MCAST_SrcAddrCheck(&addr), row.expected) << row.text;
        EXPECT_EQ(MCAST_ProtoSrcAddrCheck(&addr), row.expected ? MCAST_OK : MCAST_ERR_GENERAL) << row.text;
    }
}

/* The rule by address class, as the address plan states it. */
uint32_t SourceByClass(uint32_t addr)
{
    if (addr == 0 || addr == 0xffffffff) {
        return 0;
    }
    if ((addr & 0x80000000) == 0) {
        return (addr & 0xff000000) != 0 && (addr & 0xff000000) != 0x7f000000;
    }
    return (addr & 0xc0000000) == 0x80000000 || (addr & 0xe0000000) == 0xc0000000;
}

TEST(SourceCheck, AgreesWithTheRuleByClassForEveryFirstOctet)
{
    for (uint32_t octet = 0; octet < 256; ++octet) {
        for (uint32_t rest : {0u, 1u, 0x00800000u, 0x00ffffffu}) {
            uint32_t addr = octet << 24 | rest;

            EXPECT_EQ(MCAST_IPv4SrcAddrCheck(addr), SourceByClass(addr)) << std::hex << addr;
        }
    }
}

TEST(SourceCheck, DiffersForIpv6LinkLocalSourcesOnly)
{
    const struct {
        const char *text;
        uint32_t source;
        uint32_t protocol;
    } rows[] = {
        {"::", 0, 0},           {"::1", 0, 0},         {"::2", 1, 1},     {"::101", 1, 1},
        {"1::1", 1, 1},         {"1::", 1, 1},         {"fe80::1", 0, 1}, {"fe80::", 0, 1},
        {"febf:ffff::1", 0, 1}, {"fe7f::1", 1, 1},     {"fec0::1", 1, 1}, {"ff02::1", 0, 0},
        {"ff0e::1", 0, 0},      {"2001:db8::1", 1, 1}, {"fd00::1", 1, 1}, {"7f00::1", 1, 1},
        {"e000::1", 1, 1},      {"0:0:0:0:1::", 1, 1},
    };

    for (const auto &row : rows) {
        MCAST_ADDR_S addr = Addr(row.text);

        EXPECT_EQ(MCAST_SrcAddrCheck(&addr), row.source) << row.text;
        EXPECT_EQ(MCAST_ProtoSrcAddrCheck(&addr), row.protocol ? MCAST_OK : MCAST_ERR_GENERAL) << row.text;
    }
}

TEST(AddressFamily, AnythingButTwoCountsAsIpv6)
{
    for (int family : {0, 1, 3, 10, 0x0200, 0x0102, 0xffff}) {
        MCAST_ADDR_S group = Addr("ff05::1");
        MCAST_ADDR_S source = Addr("2001:db8::1");
        MCAST_ADDR_S late = Addr("::1:0:0");

        group.family = source.family = late.family = static_cast<uint16_t>(family);
        EXPECT_EQ(MCAST_GrpAddrCheck(&group), 1u) << family;
        EXPECT_EQ(MCAST_SrcAddrCheck(&source), 1u) << family;
        EXPECT_EQ(MCAST_ProtoSrcAddrCheck(&source), MCAST_OK) << family;
        EXPECT_EQ(MCAST_IsIPv6AddrRoutable(&late), 1u) << family;
    }
}

TEST(RoutableCheck, RejectsUnspecifiedLinkLocalAndMulticastByTheFirstTwoBytes)
{
    const Row rows[] = {
        {"::", 0},          {"::1", 1},         {"fe80::1", 0},     {"febf::1", 0},     {"fec0::1", 1},
        {"fe7f::1", 1},     {"ff02::1", 0},     {"ff0e::1", 0},     {"2001:db8::1", 1}, {"0.0.0.0", 0},
        {"0.0.0.1", 1},     {"127.0.0.1", 1},   {"10.0.0.1", 1},    {"224.1.1.1", 1},   {"240.0.0.1", 1},
        {"254.127.0.0", 1}, {"254.128.0.0", 0}, {"254.191.9.9", 0}, {"254.192.0.0", 1}, {"255.0.0.0", 0},
        {"255.1.2.3", 0},
    };

    for (const Row &row : rows) {
        MCAST_ADDR_S addr = Addr(row.text);

        EXPECT_EQ(MCAST_IsIPv6AddrRoutable(&addr), row.expected) << row.text;
    }
}

TEST(RoutableCheck, LooksOnlyAtFourBytesOfAnIpv4Record)
{
    MCAST_ADDR_S addr = Addr("0.0.0.0");
    addr.address[4] = 1;
    EXPECT_EQ(MCAST_IsIPv6AddrRoutable(&addr), 0u);
}

TEST(ReservedGroup, IsTheBareScopeWhateverTheScope)
{
    for (uint8_t scope = 0; scope < 16; ++scope) {
        uint8_t bytes[16] = {0xff, scope};

        EXPECT_EQ(MCAST_IsReservedGroupAddr(bytes), 1u) << int{scope};
    }
}

TEST(ReservedGroup, IsNoOtherAddress)
{
    for (const char *text : {"::", "fe05::", "ff15::", "ffff::", "2001:db8::"}) {
        EXPECT_EQ(MCAST_IsReservedGroupAddr(Addr(text).address), 0u) << text;
    }
    for (int byte = 2; byte < 16; ++byte) {
        uint8_t bytes[16] = {0xff, 0x05};

        bytes[byte] = 0x80;
        EXPECT_EQ(MCAST_IsReservedGroupAddr(bytes), 0u) << byte;
    }
}

} // namespace
