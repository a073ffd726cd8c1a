// Multicast rules, in network namespaces of their own, read back with ip.
#include "mcasthost/multicast_rule.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <sys/socket.h>

#include "namespace.h"

namespace
{

using host_test::shell;

// The namespace's rules but for the kernel's own.
std::string rules(uint8_t family)
{
    const char *command = family == AF_INET ? "ip -N mrule list" : "ip -N -6 mrule list";
    FILE *pipe = popen((std::string(command) + " | grep -v ^32767").c_str(), "r");
    std::string text;
    std::array<char, 256> line;
    while (fgets(line.data(), line.size(), pipe) != nullptr) {
        text += line.data();
    }
    pclose(pipe);
    return text;
}

std::string both(const std::string &name, const std::string &table)
{
    return "2000:\tfrom all iif " + name + " lookup " + table + " proto 17\n" + "2000:\tfrom all oif " +
           name + " lookup " + table + " proto 17\n";
}

class MulticastRule : public testing::TestWithParam<int>
{
protected:
    const uint8_t family = static_cast<uint8_t>(GetParam());
};

TEST_P(MulticastRule, LeadsAnInterfaceToATableUntilItIsCleared)
{
    IN_FRESH_NAMESPACE([this] {
        shell("ip link add red0 type veth peer name blue0");
        ASSERT_EQ(HOST_MulticastRuleSet(family, "red0", 5), 0u);
        ASSERT_EQ(HOST_MulticastRuleSet(family, "blue0", 65789), 0u);
        EXPECT_EQ(rules(family), both("red0", "5") + both("blue0", "65789"));
        EXPECT_EQ(HOST_MulticastRuleClear(family, "red0", 6), 0u); // another instance's, long gone
        EXPECT_EQ(rules(family), both("red0", "5") + both("blue0", "65789"));
        EXPECT_EQ(rules(family == AF_INET ? AF_INET6 : AF_INET), "");
        EXPECT_EQ(HOST_MulticastRuleClear(family, "red0", 5), 0u);
        EXPECT_EQ(rules(family), both("blue0", "65789"));
        EXPECT_EQ(HOST_MulticastRuleClear(family, "red0", 0), 0u);
    });
}

TEST_P(MulticastRule, TakesThePlaceOfTheOneBefore)
{
    IN_FRESH_NAMESPACE([this] {
        for (const uint32_t table : {5u, 6u, 6u}) {
            ASSERT_EQ(HOST_MulticastRuleSet(family, "red0", table), 0u);
        }
        EXPECT_EQ(HOST_MulticastRuleSet(family, "blue0", 5), 0u);
        // Interfaces that do not exist yet, as ip says it.
        EXPECT_EQ(rules(family), "2000:\tfrom all iif red0 [detached] lookup 6 proto 17\n"
                                 "2000:\tfrom all oif red0 [detached] lookup 6 proto 17\n"
                                 "2000:\tfrom all iif blue0 [detached] lookup 5 proto 17\n"
                                 "2000:\tfrom all oif blue0 [detached] lookup 5 proto 17\n");
    });
}

TEST_P(MulticastRule, ClearingAllLeavesOtherProgramsRules)
{
    IN_FRESH_NAMESPACE([this] {
        const std::string ip = family == AF_INET ? "ip" : "ip -6";
        shell("ip link add red0 type veth peer name blue0");
        shell(ip + " mrule add iif red0 table 7 pref 1999 protocol 17");
        shell(ip + " mrule add iif red0 table 8 pref 2000 protocol 200");
        const std::string others = rules(family);
        ASSERT_EQ(HOST_MulticastRuleSet(family, "red0", 5), 0u);
        ASSERT_EQ(HOST_MulticastRuleSet(family, "gone0", 5), 0u);
        EXPECT_EQ(HOST_MulticastRuleClear(family, nullptr, 0), 0u);
        EXPECT_EQ(rules(family), others);
    });
}

INSTANTIATE_TEST_SUITE_P(Families, MulticastRule, testing::Values(AF_INET, AF_INET6),
                         [](const auto &instance) {
                             return std::string(instance.param == AF_INET ? "ipv4" : "ipv6");
                         });

TEST(MulticastRuleMisuse, IsRefused)
{
    EXPECT_EQ(HOST_MulticastRuleSet(1, "red0", 5), HOST_FAILED);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(HOST_MulticastRuleSet(AF_INET, nullptr, 5), HOST_FAILED);
    EXPECT_EQ(HOST_MulticastRuleSet(AF_INET, "", 5), HOST_FAILED);
    EXPECT_EQ(HOST_MulticastRuleSet(AF_INET, "sixteen-letters-", 5), HOST_FAILED);
    EXPECT_EQ(HOST_MulticastRuleSet(AF_INET, "red0", 0), HOST_FAILED);
    EXPECT_EQ(HOST_MulticastRuleClear(0, nullptr, 0), HOST_FAILED);
}

} // namespace
