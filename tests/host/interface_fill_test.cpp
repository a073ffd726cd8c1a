// Interface names completed from what an operator typed, among the links of a network namespace.
#include <cstring>
#include <string>

#include "interface_support.h"

namespace
{

using namespace host_test;

TEST(InterfaceFill, CompletesTheOneInterfaceThatFits)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        make_pair("left10", "lower0");
        const struct {
            const char *typed;
            const char *meant;
        } rows[] = {
            {"left0", "left0"}, {"LEFT0", "left0"}, {"lef0", "left0"}, {"lef 0", "left0"}, {"le10", "left10"},
            {"low", "lower0"},  {"lo", "lo"},       {"LO", "lo"},      {"R", "right0"},    {"r0", "right0"},
            {"l0", "-"},        {"l", "-"},         {"left", "-"},     {"left1", "-"},     {"left00", "-"},
            {"0", "-"},         {"", "-"},          {" ", "-"},        {"right0x", "-"},   {"rightx", "-"},
            {"xright0", "-"},   {"left0 ", "-"},    {"l*0", "-"},      {"%s", "-"},
        };
        for (const auto &row : rows) {
            EXPECT_EQ(fill(row.typed), row.meant) << '"' << row.typed << '"';
        }
        EXPECT_EQ(fill(std::string(100000, 'l').c_str()), "-");
    });
}

TEST(InterfaceFill, TakesTheVeryNameBeforeOneOfAnotherCaseAndRefusesBetweenTheTwo)
{
    IN_FRESH_NAMESPACE([] {
        make_pair("west0", "West0");
        EXPECT_EQ(fill("west0"), "west0");
        EXPECT_EQ(fill("West0"), "West0");
        EXPECT_EQ(fill("WEST0"), "-");
        EXPECT_EQ(fill("we0"), "-");
    });
}

TEST(InterfaceFill, KnowsOnlyWhatIsInTheSelector)
{
    IN_FRESH_NAMESPACE([] {
        make_pair("lo0", "right0");
        IF_SELECTOR_S loopbacks = selector_of({LOOPBACK});
        EXPECT_EQ(fill(loopbacks, "l"), "lo");
        EXPECT_EQ(fill(loopbacks, "right0"), "-");
        EXPECT_EQ(fill(selector_of({VIRTUAL_ETHERNET}), "l"), "lo0");
        EXPECT_EQ(fill(selector_of({VIRTUAL_ETHERNET}), "lo"), "-"); // the very name of another
        EXPECT_EQ(fill(selector_of({}), "lo"), "-");
    });
}

TEST(InterfaceFill, LeavesThePortsOfABridgeOut)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        if (system("ip link add bridge0 type bridge 2>/dev/null") != 0) {
            GTEST_SKIP() << "this kernel makes no bridges";
        }
        shell("ip link set left0 master bridge0");
        IF_SELECTOR_S layer3 = selector_of({VIRTUAL_ETHERNET, 111});
        EXPECT_EQ(fill(layer3, "left0"), "-");
        EXPECT_EQ(fill(layer3, "right0"), "right0");
        EXPECT_EQ(fill(layer3, "b0"), "bridge0");
        EXPECT_EQ(fill(selector_of({VIRTUAL_ETHERNET}, false), "left0"), "left0");
    });
}

TEST(InterfaceSelector, RefusesWhatIsNoSelectorKindPropertyOrType)
{
    IF_SELECTOR_S selector;
    memset(&selector, 0xee, sizeof(selector));
    const IF_SELECTOR_S before = selector;
    char name[IF_FILLED_NAME_SIZE];
    EXPECT_NE(IF_Select_Init(4, &selector), 0u);
    EXPECT_NE(IF_SelectProperty_Set(IF_PROPERTY_LAYER3, &selector), 0u);
    EXPECT_NE(IF_SelectType_Set(LOOPBACK, &selector), 0u);
    EXPECT_NE(IF_IfNameFill(&selector, "lo", IF_FILL_ABBREVIATED, name), 0u);
    EXPECT_EQ(memcmp(&selector, &before, sizeof(selector)), 0);
    selector = selector_of({LOOPBACK});
    EXPECT_NE(IF_SelectProperty_Set(7, &selector), 0u);
    EXPECT_NE(IF_SelectType_Set(0, &selector), 0u);
    EXPECT_EQ(IF_SelectType_Set(191, &selector), 0u);
    EXPECT_NE(IF_SelectType_Set(192, &selector), 0u);
    EXPECT_NE(IF_SelectType_Set(UINT32_MAX, &selector), 0u);
    EXPECT_NE(IF_IfNameFill(&selector, "lo", 0, name), 0u);
    EXPECT_NE(IF_IfNameFill(&selector, nullptr, IF_FILL_ABBREVIATED, name), 0u);
    EXPECT_NE(IF_IfNameFill(&selector, "lo", IF_FILL_ABBREVIATED, nullptr), 0u);
    EXPECT_NE(IF_IfNameFill(nullptr, "lo", IF_FILL_ABBREVIATED, name), 0u);
    EXPECT_NE(IF_Select_Init(IF_SELECTOR_LAYER3, nullptr), 0u);
    EXPECT_NE(IF_SelectProperty_Set(IF_PROPERTY_LAYER3, nullptr), 0u);
    EXPECT_NE(IF_SelectType_Set(LOOPBACK, nullptr), 0u);
}

} // namespace
