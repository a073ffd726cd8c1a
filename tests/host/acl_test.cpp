// Access control lists: what rules match and how lists decide.
#include <thread>
#include <vector>

#include "config_support.h"
#include "mcast/acl_filter.h"

namespace
{

using host_test::load;
using host_test::match;
using host_test::one_rule;
using host_test::Verdict;

class Acl : public host_test::ConfigTest
{
};

struct PatternRow {
    const char *family;
    const char *pattern;
    const char *address;
    bool matches;
};

TEST_F(Acl, PatternsCompareTheBitsThatTheirMaskLeaves)
{
    const PatternRow rows[] = {
        {"ipv4", "any", "0.0.0.0", true},
        {"ipv4", "any", "255.255.255.255", true},
        {"ipv4", "0.0.0.0/0", "239.1.1.1", true},
        {"ipv4", "10.0.0.0/8", "10.255.255.255", true},
        {"ipv4", "10.0.0.0/8", "11.0.0.0", false},
        {"ipv4", "10.9.9.9/8", "10.1.1.1", true},
        {"ipv4", "10.128.0.0/9", "10.127.255.255", false},
        {"ipv4", "10.128.0.0/9", "10.128.0.0", true},
        {"ipv4", "10.1.1.1/32", "10.1.1.1", true},
        {"ipv4", "10.1.1.1/32", "10.1.1.0", false},
        {"ipv4", "10.1.1.1", "10.1.1.1", true},
        {"ipv4", "10.1.1.1", "10.1.1.2", false},
        {"ipv4", "128.0.0.0/1", "127.255.255.255", false},
        {"ipv4", "128.0.0.0/1", "224.0.0.1", true},
        {"ipv4", "10.0.0.0 0.255.255.255", "10.3.4.5", true},
        {"ipv4", "10.0.0.0 0.255.255.255", "12.3.4.5", false},
        {"ipv4", "10.0.0.5 0.255.255.0", "10.77.88.5", true},
        {"ipv4", "10.0.0.5 0.255.255.0", "10.77.88.6", false},
        {"ipv4", "10.1.1.0 0.0.254.255", "10.1.77.9", true},
        {"ipv4", "10.1.1.0 0.0.254.255", "10.1.78.9", false},
        {"ipv4", "1.2.3.4 255.255.255.255", "99.98.97.96", true},
        {"ipv4", "1.2.3.4 0.0.0.0", "1.2.3.4", true},
        {"ipv4", "1.2.3.4 0.0.0.0", "1.2.3.5", false},
        {"ipv6", "any", "::", true},
        {"ipv6", "::/0", "ff0e::1", true},
        {"ipv6", "2001:db8::/32", "2001:db8:ffff::1", true},
        {"ipv6", "2001:db8::/32", "2001:db9::1", false},
        {"ipv6", "2001:db8::/64", "2001:db8::ffff:0:0:1", true},
        {"ipv6", "2001:db8::/64", "2001:db8:0:1::1", false},
        {"ipv6", "2001:db8::8000:0:0:0/65", "2001:db8::8000:0:0:1", true},
        {"ipv6", "2001:db8::8000:0:0:0/65", "2001:db8::1", false},
        {"ipv6", "2001:db8::1/128", "2001:db8::1", true},
        {"ipv6", "2001:db8::1/128", "2001:db8::", false},
        {"ipv6", "ff0e::1", "ff0e::1", true},
        {"ipv6", "ff0e::1", "ff0e::2", false},
        {"ipv6", "ff30:: 0:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ff30::1", true},
        {"ipv6", "ff30:: f:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ff3e:1::1", true},
        {"ipv6", "ff30:: f:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ff4e:1::1", false},
        {"ipv6", "ff0e::5 0:ffff:ffff:ffff:ffff:ffff:ffff:0", "ff0e:1:2:3:4:5:6:5", true},
        {"ipv6", "ff0e::5 0:ffff:ffff:ffff:ffff:ffff:ffff:0", "ff0e::6", false},
    };
    for (const PatternRow &row : rows) {
        SCOPED_TRACE(std::string(row.pattern) + " and " + row.address);
        load(one_rule(row.family, 2000,
                      std::string("id = 7\naction = \"permit\"\nsource = \"") + row.pattern + "\"\n"));
        const Verdict verdict = match(2000, row.family, row.address);
        EXPECT_EQ(verdict.code, 0u);
        EXPECT_EQ(verdict.action, row.matches ? ACL_ACTION_PERMIT : ACL_ACTION_DENY);
        EXPECT_EQ(verdict.detail, row.matches ? 7u : UINT32_MAX);
    }
}

struct SlotRow {
    const char *rule;
    const char *first;
    const char *second;
    bool matches;
};

TEST_F(Acl, AnAddressThatThePacketDoesNotCarryMatchesOnlyAny)
{
    const SlotRow rows[] = {
        {"source = '10.0.0.1'\ndestination = '232.1.1.1'", "10.0.0.1", "232.1.1.1", true},
        {"source = '10.0.0.1'\ndestination = '232.1.1.1'", "10.0.0.2", "232.1.1.1", false},
        {"source = '10.0.0.1'\ndestination = '232.1.1.1'", "10.0.0.1", "232.1.1.2", false},
        {"source = '10.0.0.1'\ndestination = '232.1.1.1'", "10.0.0.1", nullptr, false},
        {"source = '10.0.0.1'\ndestination = '232.1.1.1'", nullptr, "232.1.1.1", false},
        {"source = '10.0.0.1'", "10.0.0.1", nullptr, true},
        {"source = '10.0.0.1'", nullptr, "232.1.1.1", false},
        {"destination = '232.1.1.1'", nullptr, "232.1.1.1", true},
        {"destination = '232.1.1.1'", "232.1.1.1", nullptr, false},
        {"source = '0.0.0.0'", nullptr, "232.1.1.1", false}, // the slot's zeros are no address
        {"source = 'any'\ndestination = 'any'", nullptr, nullptr, true},
        {"", "10.0.0.1", "232.1.1.1", true},
    };
    for (const SlotRow &row : rows) {
        SCOPED_TRACE(row.rule);
        load(one_rule("ipv4", 3000, std::string("id = 0\naction = 'permit'\n") + row.rule));
        EXPECT_EQ(match(3000, "ipv4", row.first, row.second).permitted(), row.matches);
    }
    load(one_rule("ipv6", 3999,
                  "id = 0\naction = 'permit'\nsource = '2001:db8::/32'\ndestination = 'ff3e::8'"));
    EXPECT_TRUE(match(3999, "ipv6", "2001:db8::1", "ff3e::8").permitted());
    EXPECT_FALSE(match(3999, "ipv6", "ff3e::8", "2001:db8::1").permitted());
    EXPECT_FALSE(match(3999, "ipv6", "2001:db8::1").permitted());
}

TEST_F(Acl, BasicListsLookAtTheFirstSlotAlone)
{
    load(one_rule("ipv4", 2000, "id = 1\naction = 'permit'\nsource = '232.1.1.1'"));
    EXPECT_TRUE(match(2000, "ipv4", "232.1.1.1", "9.9.9.9").permitted());
    EXPECT_FALSE(match(2000, "ipv4", "9.9.9.9", "232.1.1.1").permitted());
    EXPECT_FALSE(match(2000, "ipv4", nullptr, "232.1.1.1").permitted());
}

TEST_F(Acl, TheFirstMatchingRuleInTheOrderOfIdsDecidesWhateverTheFilesOrder)
{
    load("[[acl]]\nnumber = 2010\nfamily = 'ipv4'\n"
         "[[acl.rule]]\nid = 30\naction = 'permit'\n"
         "[[acl.rule]]\nid = 10\naction = 'permit'\nsource = '10.1.0.0/16'\n"
         "[[acl.rule]]\nid = 20\naction = 'deny'\nsource = '10.0.0.0/8'\n");
    EXPECT_EQ(match(2010, "ipv4", "10.1.1.1").detail, 10u);
    EXPECT_TRUE(match(2010, "ipv4", "10.1.1.1").permitted());
    EXPECT_EQ(match(2010, "ipv4", "10.2.1.1").detail, 20u);
    EXPECT_FALSE(match(2010, "ipv4", "10.2.1.1").permitted());
    EXPECT_EQ(match(2010, "ipv4", "11.2.1.1").detail, 30u);
    EXPECT_TRUE(match(2010, "ipv4", "11.2.1.1").permitted());
    EXPECT_EQ(ACL_GetRuleTotalNumber(ACL_FAMILY_IPV4, 2010), 3u);
}

TEST_F(Acl, ARuleOfAnInstanceIsForItsPacketsAlone)
{
    load("[[vpn]]\nname = 'red'\nindex = 5\n[[vpn]]\nname = 'blue'\nindex = 65535\n"
         "[[acl]]\nnumber = 2000\nfamily = 'ipv6'\n"
         "[[acl.rule]]\nid = 1\naction = 'permit'\nvrf = 'red'\n"
         "[[acl.rule]]\nid = 2\naction = 'permit'\nvrf = 65535\nsource = 'ff0e::/16'\n"
         "[[acl.rule]]\nid = 3\naction = 'permit'\nvrf = 0\nsource = 'ff05::/16'\n"
         "[[acl.rule]]\nid = 4\naction = 'deny'\n");
    EXPECT_EQ(match(2000, "ipv6", "ff0e::1", nullptr, 5).detail, 1u);
    EXPECT_EQ(match(2000, "ipv6", "ff0e::1", nullptr, 65535).detail, 2u);
    EXPECT_EQ(match(2000, "ipv6", "ff05::1", nullptr, 65535).detail, 4u);
    EXPECT_EQ(match(2000, "ipv6", "ff05::1", nullptr, 0).detail, 3u);
    EXPECT_EQ(match(2000, "ipv6", "ff0e::1", nullptr, 0).detail, 4u);
}

TEST_F(Acl, TypesAndCountsTellBasicAdvancedEmptyAndAbsentListsApart)
{
    load("[[acl]]\nnumber = 2999\nfamily = 'ipv4'\n[[acl]]\nnumber = 2999\nfamily = 'ipv6'\n"
         "[[acl]]\nnumber = 3000\nfamily = 'ipv4'\n[[acl]]\nnumber = 3000\nfamily = 'ipv6'\n"
         "[[acl.rule]]\nid = 65535\naction = 'deny'\n");
    EXPECT_EQ(ACL_GetGroupTypeByIndex(ACL_FAMILY_IPV4, 2999), ACL_GROUP_SINGLE_IPV4);
    EXPECT_EQ(ACL_GetGroupTypeByIndex(ACL_FAMILY_IPV6, 2999), ACL_GROUP_SINGLE_IPV6);
    for (uint32_t family : {ACL_FAMILY_IPV4, ACL_FAMILY_IPV6}) {
        const uint32_t type = ACL_GetGroupTypeByIndex(family, 3000);
        EXPECT_NE(type, 0u);
        EXPECT_NE(type, ACL_GROUP_SINGLE_IPV4);
        EXPECT_NE(type, ACL_GROUP_SINGLE_IPV6);
        EXPECT_EQ(ACL_GetGroupTypeByIndex(family, 2998), 0u);
        EXPECT_EQ(ACL_GetRuleTotalNumber(family, 2998), 0u);
        EXPECT_EQ(ACL_GetRuleTotalNumber(family, 2999), 0u);
    }
    EXPECT_EQ(ACL_GetRuleTotalNumber(ACL_FAMILY_IPV4, 3000), 0u);
    EXPECT_EQ(ACL_GetRuleTotalNumber(ACL_FAMILY_IPV6, 3000), 1u);
    EXPECT_EQ(ACL_GetGroupTypeByIndex(0, 2999), 0u);
    EXPECT_EQ(ACL_GetGroupTypeByIndex(3, 2999), 0u);
    EXPECT_EQ(match(2998, "ipv4", "1.1.1.1").code, ACL_ERR_NO_ACL);
    EXPECT_EQ(match(0xffffffff, "ipv6", "::1").code, ACL_ERR_NO_ACL);
    EXPECT_EQ(match(2999, "ipv4", "1.1.1.1").code, ACL_ERR_NO_RULE);
    EXPECT_EQ(match(3000, "ipv4", "1.1.1.1").code, ACL_ERR_NO_RULE);
    EXPECT_EQ(match(2999, "ipv4", "1.1.1.1").action, 0u); // untouched
}

TEST_F(Acl, MisuseIsRefused)
{
    load(one_rule("ipv4", 2000, "id = 1\naction = 'permit'"));
    ACL_PACKET_INFO4_S info{};
    uint32_t result = 1;
    uint32_t action = 2;
    EXPECT_EQ(ACL_MatchWithPacketInfo(1, 2000, nullptr, 1, &result, &action), HOST_FAILED);
    EXPECT_EQ(ACL_MatchWithPacketInfo(1, 2000, &info, 0, &result, &action), HOST_FAILED);
    EXPECT_EQ(ACL_MatchWithPacketInfo(1, 2000, &info, 2, &result, &action), HOST_FAILED);
    EXPECT_EQ(ACL_MatchWithPacketInfo(1, 2000, &info, 1, nullptr, &action), HOST_FAILED);
    EXPECT_EQ(ACL_MatchWithPacketInfo(1, 2000, &info, 1, &result, nullptr), HOST_FAILED);
    EXPECT_EQ(ACL_MatchWithPacketInfo(3, 2000, &info, 1, &result, &action), ACL_ERR_NO_ACL);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(action, 2u);
}

MCAST_ADDR_S address_of(uint16_t family, const char *text)
{
    MCAST_ADDR_S address{};
    address.family = family;
    EXPECT_EQ(inet_pton(family, text, address.address), 1);
    return address;
}

TEST_F(Acl, TheLibrarysFiltersDecideByTheFile)
{
    load("[[acl]]\nnumber = 2001\nfamily = 'ipv4'\n"
         "[[acl.rule]]\nid = 1\naction = 'permit'\nsource = '233.0.0.0/8'\n"
         "[[acl]]\nnumber = 3001\nfamily = 'ipv4'\n"
         "[[acl.rule]]\nid = 1\naction = 'permit'\nsource = '10.0.0.0/8'\ndestination = '232.0.0.0/8'\n"
         "[[acl]]\nnumber = 2002\nfamily = 'ipv6'\n"
         "[[acl.rule]]\nid = 1\naction = 'permit'\nsource = 'ff7e::/16'\n"
         "[[acl]]\nnumber = 2003\nfamily = 'ipv6'\n");
    MRIB_GMP_VRF_KEY_S ipv4{};
    ipv4.family = AF_INET;
    MRIB_GMP_VRF_KEY_S ipv6{};
    ipv6.family = AF_INET6;
    const MCAST_ADDR_S g233 = address_of(AF_INET, "233.1.1.1");
    const MCAST_ADDR_S g232 = address_of(AF_INET, "232.1.1.1");
    const MCAST_ADDR_S g7e = address_of(AF_INET6, "ff7e::1");
    const MCAST_ADDR_S g3e = address_of(AF_INET6, "ff3e::1");
    EXPECT_EQ(MCAST_IsSSMGrp(&ipv4, 2001, &g233), 1u);
    EXPECT_EQ(MCAST_IsSSMGrp(&ipv4, 2001, &g232), 0u);
    EXPECT_EQ(MCAST_IsSSMGrp(&ipv6, 2002, &g7e), 1u);
    EXPECT_EQ(MCAST_IsSSMGrp(&ipv6, 2002, &g3e), 0u);
    EXPECT_EQ(MCAST4_IsAclPermit(0, 2001, 0x0a000001, 0xe9010101), 1u);
    EXPECT_EQ(MCAST4_IsAclPermit(0, 3001, 0x0a000001, 0xe8010101), 1u);
    EXPECT_EQ(MCAST4_IsAclPermit(0, 3001, 0x0b000001, 0xe8010101), 0u);
    EXPECT_EQ(MCAST4_IsAclPermit(0, 3001, 0x0a000001, 0xe9010101), 0u);
    EXPECT_EQ(MCAST_GrpFilterByAcl(&ipv6, 2003, &g3e), 1u); // a list without rules
    EXPECT_EQ(MCAST_GrpFilterByAcl(&ipv6, 2004, &g3e), 1u); // no list
    EXPECT_EQ(MCAST_GrpFilterByAcl(&ipv6, 2002, &g3e), 0u);
    EXPECT_EQ(MCAST_IsAclPermit(&ipv6, 2004, &g3e, nullptr), 0u);
}

} // namespace
