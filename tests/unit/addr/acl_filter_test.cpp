#include "mcast/acl_filter.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "platform/acl.h"
#include "support/addresses.h"
#include "support/scripted_acl.h"

namespace
{

constexpr uint16_t kVrf = 0x1234;
const MRIB_GMP_VRF_KEY_S kIpv4 = {MCAST_FAMILY_IPV4, kVrf};
const MRIB_GMP_VRF_KEY_S kIpv6 = {MCAST_FAMILY_IPV6, kVrf};
constexpr uint32_t kTwoAddresses = 2;

/* Plays the platform's part and keeps what it was asked. */
class AclFilter : public testing::Test
{
protected:
    uint32_t type = 0;
    uint32_t rules = 1;
    uint32_t code = 0;
    uint32_t action = ACL_ACTION_PERMIT;
    bool sets_action = true;

    int questions = 0; /* calls of any kind */
    int matches = 0;
    uint32_t asked_family = 0;
    uint32_t asked_number = 0;
    uint32_t asked_count = 0;
    uint32_t preset_action = 0;
    ACL_PACKET_INFO4_S asked4 = {};
    ACL_PACKET_INFO6_S asked6 = {};

    void SetUp() override
    {
        scripted::acl_group_type = [this](uint32_t family, uint32_t number) {
            ++questions;
            asked_family = family;
            asked_number = number;
            return type;
        };
        scripted::acl_rule_count = [this](uint32_t family, uint32_t number) {
            ++questions;
            EXPECT_EQ(family, asked_family);
            EXPECT_EQ(number, asked_number);
            return rules;
        };
        scripted::acl_match = [this](uint32_t family, uint32_t number, const void *info, uint32_t count,
                                     uint32_t *result, uint32_t *out) {
            ++questions;
            ++matches;
            EXPECT_EQ(family, asked_family);
            EXPECT_EQ(number, asked_number);
            EXPECT_NE(result, nullptr);
            asked_count = count;
            preset_action = *out;
            if (family == ACL_FAMILY_IPV4) {
                std::memcpy(&asked4, info, sizeof(asked4));
            } else {
                std::memcpy(&asked6, info, sizeof(asked6));
            }
            if (sets_action) {
                *out = action;
            }
            return code;
        };
    }

    void TearDown() override
    {
        scripted::ResetAcl();
    }

    void ExpectAsked4(uint32_t first, uint32_t second, uint32_t slots)
    {
        ACL_PACKET_INFO4_S expected = {};
        expected.first = first;
        expected.second = second;
        expected.slots = slots;
        expected.vrf_index = kVrf;
        EXPECT_EQ(asked_family, 1u);
        EXPECT_EQ(std::memcmp(&asked4, &expected, sizeof(expected)), 0)
            << std::hex << asked4.first << " " << asked4.second << " " << asked4.slots << " "
            << asked4.vrf_index;
    }

    void ExpectAsked6(const char *first, const char *second, uint32_t slots)
    {
        ACL_PACKET_INFO6_S expected = {};
        MCAST_ADDR_S addr = Addr(first);
        std::memcpy(expected.first, addr.address, 16);
        addr = Addr(second);
        std::memcpy(expected.second, addr.address, 16);
        expected.slots = slots;
        expected.vrf_index = kVrf;
        EXPECT_EQ(asked_family, 2u);
        EXPECT_EQ(std::memcmp(&asked6, &expected, sizeof(expected)), 0) << asked6.slots;
    }
};

const MCAST_ADDR_S kSource4 = Addr("10.1.2.3");
const MCAST_ADDR_S kGroup4 = Addr("239.4.5.6");
const MCAST_ADDR_S kSource6 = Addr("2001:db8::1");
const MCAST_ADDR_S kGroup6 = Addr("ff0e::2");

TEST_F(AclFilter, PermitsEverythingWhenNoListIsConfigured)
{
    EXPECT_EQ(MCAST_IsAclPermit(nullptr, MCAST_NONE, &kSource4, &kGroup4), MCAST_TRUE);
    EXPECT_EQ(MCAST4_IsAclPermit(kVrf, MCAST_NONE, 1, 2), MCAST_TRUE);
    EXPECT_EQ(MCAST_GrpFilterByAcl(nullptr, MCAST_NONE, &kGroup4), MCAST_TRUE);
    EXPECT_EQ(MCAST_IsAclValid(nullptr, MCAST_NONE), MCAST_FALSE);
    EXPECT_EQ(questions, 0);
}

TEST_F(AclFilter, PermitsWithoutAskingWhenNoAddressIsGiven)
{
    action = ACL_ACTION_DENY;
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv4, 3001, nullptr, nullptr), MCAST_TRUE);
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv6, 3001, nullptr, nullptr), MCAST_TRUE);
    EXPECT_EQ(questions, 0);
}

TEST_F(AclFilter, GivesAPairToTheTwoSlotsInHostOrderForIpv4)
{
    type = kTwoAddresses;
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv4, 3001, &kSource4, &kGroup4), MCAST_TRUE);
    ExpectAsked4(0x0a010203, 0xef040506, 3);
    EXPECT_EQ(asked_number, 3001u);
    EXPECT_EQ(asked_count, 1u);
    EXPECT_EQ(preset_action, 1u);

    MCAST_IsAclPermit(&kIpv4, 3001, &kSource4, nullptr);
    ExpectAsked4(0x0a010203, 0, 1);
    MCAST_IsAclPermit(&kIpv4, 3001, nullptr, &kGroup4);
    ExpectAsked4(0, 0xef040506, 2);
}

TEST_F(AclFilter, GivesAPairToTheTwoSlotsInNetworkOrderForIpv6)
{
    type = kTwoAddresses;
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv6, 3001, &kSource6, &kGroup6), MCAST_TRUE);
    ExpectAsked6("2001:db8::1", "ff0e::2", 3);
    EXPECT_EQ(asked_count, 1u);
    EXPECT_EQ(preset_action, 1u);

    MCAST_IsAclPermit(&kIpv6, 3001, &kSource6, nullptr);
    ExpectAsked6("2001:db8::1", "::", 1);
    MCAST_IsAclPermit(&kIpv6, 3001, nullptr, &kGroup6);
    ExpectAsked6("::", "ff0e::2", 2);
}

TEST_F(AclFilter, IgnoresTheSecondAddressForAListThatMatchesOne)
{
    type = 1;
    MCAST_IsAclPermit(&kIpv4, 2001, &kGroup4, &kSource4);
    ExpectAsked4(0xef040506, 0, 1);
    type = 6;
    MCAST_IsAclPermit(&kIpv6, 2001, &kGroup6, &kSource6);
    ExpectAsked6("ff0e::2", "::", 1);

    matches = 0;
    action = ACL_ACTION_DENY;
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv6, 2001, nullptr, &kSource6), MCAST_TRUE);
    type = 1;
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv4, 2001, nullptr, &kSource4), MCAST_TRUE);
    EXPECT_EQ(matches, 0);
}

TEST_F(AclFilter, TakesTheSingleAddressTypeOfTheOtherFamilyForAPair)
{
    type = 6;
    MCAST_IsAclPermit(&kIpv4, 2001, &kSource4, &kGroup4);
    ExpectAsked4(0x0a010203, 0xef040506, 3);
    type = 1;
    MCAST_IsAclPermit(&kIpv6, 2001, &kSource6, &kGroup6);
    ExpectAsked6("2001:db8::1", "ff0e::2", 3);
}

TEST_F(AclFilter, TakesAnyFamilyButIpv4ForIpv6)
{
    MRIB_GMP_VRF_KEY_S other = {77, kVrf};
    type = 6;
    MCAST_IsAclPermit(&other, 2001, &kGroup6, nullptr);
    ExpectAsked6("ff0e::2", "::", 1);
}

TEST_F(AclFilter, PermitsOnActionTwoOfACompletedMatchAlone)
{
    for (uint32_t each : {0u, 1u, 3u, 0xffffffffu}) {
        action = each;
        EXPECT_EQ(MCAST_IsAclPermit(&kIpv4, 3001, &kSource4, &kGroup4), MCAST_FALSE) << each;
        EXPECT_EQ(MCAST_GrpFilterByAcl(&kIpv4, 3001, &kGroup4), MCAST_FALSE) << each;
    }
    sets_action = false; /* the preset action denies */
    EXPECT_EQ(MCAST_IsAclPermit(&kIpv4, 3001, &kSource4, &kGroup4), MCAST_FALSE);
    EXPECT_EQ(MCAST_GrpFilterByAcl(&kIpv4, 3001, &kGroup4), MCAST_FALSE);
}

TEST_F(AclFilter, DeniesOnEveryPlatformErrorWhileTheGroupFilterPassesOnTwo)
{
    struct {
        uint32_t code;
        MCAST_BOOL group_passes;
    } rows[] = {{0x22010001, MCAST_TRUE},  {0x22010004, MCAST_TRUE}, {0x22010002, MCAST_FALSE},
                {0x22010003, MCAST_FALSE}, {1, MCAST_FALSE},         {0xffffffff, MCAST_FALSE}};

    for (const auto &row : rows) {
        code = row.code; /* the action stays at permit */
        for (uint32_t each : {1u, 6u, kTwoAddresses}) {
            type = each;
            EXPECT_EQ(MCAST_IsAclPermit(&kIpv4, 2001, &kGroup4, nullptr), MCAST_FALSE);
            EXPECT_EQ(MCAST_IsAclPermit(&kIpv6, 2001, &kGroup6, nullptr), MCAST_FALSE);
            EXPECT_EQ(MCAST_GrpFilterByAcl(&kIpv4, 2001, &kGroup4), row.group_passes) << std::hex << row.code;
            EXPECT_EQ(MCAST_GrpFilterByAcl(&kIpv6, 2001, &kGroup6), row.group_passes) << std::hex << row.code;
        }
    }
}

TEST_F(AclFilter, GroupFilterAsksAboutTheGroupOnlyAListThatMatchesOneAddress)
{
    type = 1;
    EXPECT_EQ(MCAST_GrpFilterByAcl(&kIpv4, 2001, &kGroup4), MCAST_TRUE);
    ExpectAsked4(0xef040506, 0, 1);
    EXPECT_EQ(asked_count, 1u);
    EXPECT_EQ(preset_action, 1u);
    MCAST_GrpFilterByAcl(&kIpv4, 2001, nullptr);
    ExpectAsked4(0, 0, 0);
    type = 6;
    MCAST_GrpFilterByAcl(&kIpv4, 2001, &kGroup4);
    ExpectAsked4(0, 0, 0);

    MCAST_GrpFilterByAcl(&kIpv6, 2001, &kGroup6);
    ExpectAsked6("ff0e::2", "::", 1);
    MCAST_GrpFilterByAcl(&kIpv6, 2001, nullptr);
    ExpectAsked6("::", "::", 0);
    type = 1;
    MCAST_GrpFilterByAcl(&kIpv6, 2001, &kGroup6);
    ExpectAsked6("::", "::", 0);
    EXPECT_EQ(matches, 6);
}

TEST_F(AclFilter, Ipv4FormGivesTheGroupAloneToABasicList)
{
    for (uint32_t number : {2000u, 2001u, 2999u}) {
        type = 1;
        EXPECT_EQ(MCAST4_IsAclPermit(kVrf, number, 0x0a010203, 0xef040506), MCAST_TRUE);
        ExpectAsked4(0xef040506, 0, 1);
        type = kTwoAddresses;
        MCAST4_IsAclPermit(kVrf, number, 0x0a010203, 0xef040506);
        ExpectAsked4(0xef040506, 0, 3);
    }
    for (uint32_t number : {1999u, 3000u, 3001u, 0u, 0xfffffffeu}) {
        type = kTwoAddresses;
        MCAST4_IsAclPermit(0xabcd0000u | kVrf, number, 0x0a010203, 0xef040506);
        ExpectAsked4(0x0a010203, 0xef040506, 3);
        type = 1;
        MCAST4_IsAclPermit(kVrf, number, 0x0a010203, 0xef040506);
        ExpectAsked4(0x0a010203, 0, 1);
    }
    action = ACL_ACTION_DENY;
    EXPECT_EQ(MCAST4_IsAclPermit(kVrf, 2001, 0x0a010203, 0xef040506), MCAST_FALSE);
}

TEST_F(AclFilter, SsmRangeWithoutAListIsTheDefaultOne)
{
    for (const char *group : {"232.1.1.1", "232.0.0.0", "232.255.255.255", "ff3e::1234", "ff35::", "ff30::1",
                              "ff3f:0:ffff:ffff::1"}) {
        MCAST_ADDR_S addr = Addr(group);

        EXPECT_EQ(MCAST_IsSSMGrp(nullptr, MCAST_NONE, &addr), MCAST_TRUE) << group;
    }
    for (const char *group : {"233.1.1.1", "231.255.255.255", "ff0e::1", "ff3e:1::1", "ff3e:8000::1",
                              "ff2e::1", "ff7e::1", "fe3e::1", "2001::1"}) {
        MCAST_ADDR_S addr = Addr(group);

        EXPECT_EQ(MCAST_IsSSMGrp(nullptr, MCAST_NONE, &addr), MCAST_FALSE) << group;
    }
    EXPECT_EQ(questions, 0);
}

TEST_F(AclFilter, SsmRangeWithAListIsWhatItPermits)
{
    MCAST_ADDR_S outside = Addr("239.4.5.6");
    MCAST_ADDR_S inside = Addr("232.1.1.1");
    type = 1;
    EXPECT_EQ(MCAST_IsSSMGrp(&kIpv4, 2001, &outside), MCAST_TRUE);
    ExpectAsked4(0xef040506, 0, 1);
    type = kTwoAddresses;
    EXPECT_EQ(MCAST_IsSSMGrp(&kIpv4, 2001, &outside), MCAST_TRUE);
    ExpectAsked4(0xef040506, 0, 1);
    action = ACL_ACTION_DENY;
    EXPECT_EQ(MCAST_IsSSMGrp(&kIpv4, 2001, &inside), MCAST_FALSE);
}

TEST_F(AclFilter, ValidListMatchesOneAddressAndHasRules)
{
    for (uint8_t family : {uint8_t{2}, uint8_t{10}, uint8_t{0}, uint8_t{99}}) {
        for (uint32_t each : {1u, 6u}) {
            type = each;
            rules = 1;
            EXPECT_EQ(MCAST_IsAclValid(&family, 2001), MCAST_TRUE);
            EXPECT_EQ(asked_family, family == 10 ? 2u : 1u);
            EXPECT_EQ(asked_number, 2001u);
            rules = 0;
            EXPECT_EQ(MCAST_IsAclValid(&family, 2001), MCAST_FALSE);
            rules = 0x10000;
            EXPECT_EQ(MCAST_IsAclValid(&family, 2001, 1, 2, 3), MCAST_TRUE);
        }
        rules = 1;
        for (uint32_t each : {0u, 2u, 5u, 7u, 0xffffffffu}) {
            type = each;
            EXPECT_EQ(MCAST_IsAclValid(&family, 2001), MCAST_FALSE) << each;
        }
    }
    EXPECT_EQ(matches, 0);
}

TEST_F(AclFilter, FurtherArgumentsDoNotCount)
{
    type = 1;
    EXPECT_EQ(MCAST_GrpFilterByAcl(&kIpv4, 2001, &kGroup4, nullptr, 7), MCAST_TRUE);
    ExpectAsked4(0xef040506, 0, 1);
}

} // namespace
