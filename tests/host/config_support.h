// What the tests of the configuration share.
#ifndef TESTS_HOST_CONFIG_SUPPORT_H
#define TESTS_HOST_CONFIG_SUPPORT_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string>

#include "mcasthost/config.h"
#include "platform/acl.h"

namespace host_test
{

// What the programs that share the file have in it.
constexpr const char *OTHER_TABLES[] = {"gmpd", "mribd", "msdpd", "pimsmd", nullptr};

// The error of a load, empty when it succeeded.
inline std::string load_error(const std::string &text)
{
    char error[HOST_CONFIG_ERROR_SIZE] = "untouched";
    const uint32_t result =
        HOST_ConfigLoadText("f", text.data(), text.size(), OTHER_TABLES, error, sizeof(error));
    EXPECT_EQ(result, error[0] == '\0' ? 0u : HOST_FAILED);
    return error;
}

inline void load(const std::string &text)
{
    ASSERT_EQ(load_error(text), "");
}

// A list of one rule, its line 4 first.
inline std::string one_rule(const std::string &family, unsigned number, const std::string &rule)
{
    return "[[acl]]\nnumber = " + std::to_string(number) + "\nfamily = \"" + family + "\"\n[[acl.rule]]\n" +
           rule;
}

struct Verdict {
    uint32_t code = 0;
    uint32_t action = 0; // 0: not written
    uint32_t detail = 0;

    bool permitted() const
    {
        return code == 0 && action == ACL_ACTION_PERMIT;
    }
};

// Matches a packet of one or both addresses, nullptr for a slot that is not filled.
inline Verdict match(uint32_t number, const char *family, const char *first, const char *second = nullptr,
                     uint16_t vrf_index = 0)
{
    Verdict verdict;
    const uint32_t slots =
        (first != nullptr ? ACL_SLOT_FIRST : 0) | (second != nullptr ? ACL_SLOT_SECOND : 0);
    if (family == std::string("ipv4")) {
        ACL_PACKET_INFO4_S info{};
        info.first = first == nullptr ? 0 : ntohl(inet_addr(first));
        info.second = second == nullptr ? 0 : ntohl(inet_addr(second));
        info.slots = slots;
        info.vrf_index = vrf_index;
        verdict.code =
            ACL_MatchWithPacketInfo(ACL_FAMILY_IPV4, number, &info, 1, &verdict.detail, &verdict.action);
        return verdict;
    }
    ACL_PACKET_INFO6_S info{};
    EXPECT_TRUE(first == nullptr || inet_pton(AF_INET6, first, info.first) == 1);
    EXPECT_TRUE(second == nullptr || inet_pton(AF_INET6, second, info.second) == 1);
    info.slots = slots;
    info.vrf_index = vrf_index;
    verdict.code =
        ACL_MatchWithPacketInfo(ACL_FAMILY_IPV6, number, &info, 1, &verdict.detail, &verdict.action);
    return verdict;
}

// Every test begins and ends with nothing configured.
class ConfigTest : public testing::Test
{
protected:
    void SetUp() override
    {
        load("");
    }
    void TearDown() override
    {
        load("");
    }
};

} // namespace host_test

#endif
