// The lines of "mcastctl watch", and what it makes of records that are none.
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "daemons/mcastctl/watch_records.h"

using namespace mcastctl;

namespace
{

constexpr uint8_t IPV4 = MCAST_FAMILY_IPV4;
constexpr uint8_t IPV6 = MCAST_FAMILY_IPV6;
constexpr uint32_t LOOPBACK = 1; // the one interface that every machine has

template <typename Value>
std::string line(uint8_t family, uint16_t type, const Value &value, uint32_t if_filter = 0)
{
    return watch_line(family, {type, sizeof(value), reinterpret_cast<const uint8_t *>(&value)}, if_filter);
}

std::string marker(uint8_t family, uint16_t type)
{
    return watch_line(family, {type, 0, nullptr}, 0);
}

MRIB_BOUNDARY_S boundary(uint8_t family, uint8_t operation)
{
    MRIB_BOUNDARY_S value{};
    value.family = family;
    value.vrf_index = 3;
    value.operation = operation;
    value.if_index = LOOPBACK;
    return value;
}

TEST(Watch, NamesEachClassOfEventsWithItsFlagAndRequest)
{
    uint64_t mask = 0;
    for (const WatchedEvents &each : watched_events()) {
        EXPECT_EQ(mask & each.flag, 0u) << each.name;
        mask |= each.flag;
        EXPECT_EQ(each.ipv4_alone, each.request == MRIB_TLV_REQ_LOCAL_SRC);
    }
    EXPECT_EQ(mask,
              MRIB_CAP_VRF | MRIB_CAP_BOUNDARY | MRIB_CAP_DR | MRIB_CAP_SSM_POLICY | MRIB_CAP_MSDP_LOCAL_SRC);
}

TEST(Watch, SaysWhatHappenedToInstances)
{
    EXPECT_EQ(line(IPV4, MRIB_TLV_VRF_STATE, MRIB_VRF_STATE_S{{}, 3, 1}), "ipv4: instance 3: enabled");
    EXPECT_EQ(line(IPV6, MRIB_TLV_VRF_STATE, MRIB_VRF_STATE_S{{}, 65535, 0}),
              "ipv6: instance 65535: disabled");
    EXPECT_EQ(line(IPV4, MRIB_TLV_SSM_POLICY, MRIB_SSM_POLICY_S{{}, 0, MCAST_NONE}),
              "ipv4: source-specific range, instance 0: the default one");
    EXPECT_EQ(line(IPV4, MRIB_TLV_SSM_POLICY, MRIB_SSM_POLICY_S{{}, 2, 2001}),
              "ipv4: source-specific range, instance 2: access list 2001");
}

TEST(Watch, SaysWhatHappenedToInterfaces)
{
    EXPECT_EQ(line(IPV4, MRIB_TLV_PIM_DR, MRIB_PIM_DR_S{{}, 1, 0, 3, LOOPBACK}),
              "ipv4: designated router on lo, instance 3: this one");
    EXPECT_EQ(line(IPV4, MRIB_TLV_PIM_DR, MRIB_PIM_DR_S{{}, 0, 0, 3, 0x7fffffff}),
              "ipv4: designated router on 0x7fffffff, instance 3: not this one");
    MRIB_BOUNDARY_S value = boundary(IPV4, 1);
    value.prefix_length = 16;
    std::memcpy(value.address, "\xef\xff", 2);
    EXPECT_EQ(line(IPV4, MRIB_TLV_BOUNDARY, value), "ipv4: boundary 239.255.0.0/16 on lo, instance 3: added");
    value = boundary(IPV6, 0);
    value.prefix_length = 16;
    std::memcpy(value.address, "\xff\x15", 2);
    EXPECT_EQ(line(IPV6, MRIB_TLV_BOUNDARY, value), "ipv6: boundary ff15::/16 on lo, instance 3: removed");
    value.remove_all = 1;
    EXPECT_EQ(line(IPV6, MRIB_TLV_BOUNDARY, value), "ipv6: boundaries on lo, instance 3: all removed");
    value = boundary(IPV6, 1);
    value.scope_flag = 1;
    value.scope = 5;
    EXPECT_EQ(line(IPV6, MRIB_TLV_BOUNDARY, value), "ipv6: boundary of scope 5 on lo, instance 3: added");
}

TEST(Watch, SaysWhatHappenedToLocalSources)
{
    MRIB_MSDP_LOCAL_SRC_S value{};
    value.operation = 1;
    value.source_be = 0x0200010a;
    value.group_be = 0x010106ef;
    value.rp_be = 0x0100000a;
    EXPECT_EQ(line(IPV4, MRIB_TLV_MSDP_LOCAL_SRC, value),
              "ipv4: local source (10.1.0.2, 239.6.1.1), instance 0, rp 10.0.0.1: added");
    value.operation = 0;
    EXPECT_EQ(line(IPV4, MRIB_TLV_MSDP_LOCAL_SRC, value),
              "ipv4: local source (10.1.0.2, 239.6.1.1), instance 0, rp 10.0.0.1: removed");
}

TEST(Watch, SaysWhereAnAnswerEnds)
{
    EXPECT_EQ(marker(IPV4, MRIB_TLV_VRF_STATE_END), "ipv4: end of instances");
    EXPECT_EQ(marker(IPV4, MRIB_TLV_PIM_DR_END), "ipv4: end of designated routers");
    EXPECT_EQ(marker(IPV6, MRIB_TLV_BOUNDARY_END), "ipv6: end of boundaries");
    EXPECT_EQ(marker(IPV4, MRIB_TLV_MSDP_LOCAL_SRC_END), "ipv4: end of local sources");
    EXPECT_EQ(marker(IPV4, MRIB_TLV_SMOOTH_START), "ipv4: mribd asks to read everything again");
}

TEST(Watch, AnInterfaceNarrowsWhatIsAboutInterfaces)
{
    const MRIB_PIM_DR_S value{{}, 1, 0, 0, LOOPBACK};
    EXPECT_NE(line(IPV4, MRIB_TLV_PIM_DR, value, LOOPBACK), "");
    EXPECT_EQ(line(IPV4, MRIB_TLV_PIM_DR, value, LOOPBACK + 1), "");
    EXPECT_EQ(line(IPV4, MRIB_TLV_BOUNDARY, boundary(IPV4, 1), LOOPBACK + 1), "");
    EXPECT_NE(line(IPV4, MRIB_TLV_VRF_STATE, MRIB_VRF_STATE_S{}, LOOPBACK + 1), "");
}

TEST(Watch, WrongRecordsAreShownAsSuch)
{
    EXPECT_EQ(watch_line(IPV4, {MRIB_TLV_PIM_DR, 9, nullptr}, 0),
              "ipv4: record of type 7: 9 bytes are too few");
    EXPECT_EQ(line(IPV4, 99, uint32_t{0}), "ipv4: record of type 99, 4 bytes");
    MRIB_BOUNDARY_S value = boundary(77, 1);
    EXPECT_EQ(line(IPV4, MRIB_TLV_BOUNDARY, value),
              "ipv4: boundary unknown address/0 on lo, instance 3: added");
}

TEST(Watch, AnyBytesMakeALine)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> bytes(random() % 40);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random());
        }
        const auto type = static_cast<uint16_t>(random() % 24);
        const uint8_t family = random() % 2 == 0 ? IPV4 : IPV6;
        ASSERT_NE(watch_line(family, {type, static_cast<uint16_t>(bytes.size()), bytes.data()}, 0), "");
    }
}

} // namespace
