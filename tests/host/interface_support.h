// Links in a network namespace of a test's own, and names that are completed to theirs.
#ifndef TESTS_HOST_INTERFACE_SUPPORT_H
#define TESTS_HOST_INTERFACE_SUPPORT_H

#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

#include "namespace.h"
#include "platform/interface.h"

namespace host_test
{

inline constexpr uint32_t LOOPBACK = 16;
inline constexpr uint32_t VIRTUAL_ETHERNET = 24;

inline void make_pair(const std::string &one = "left0", const std::string &other = "right0")
{
    shell("ip link add " + one + " type veth peer name " + other);
}

inline IF_SELECTOR_S selector_of(std::initializer_list<uint32_t> types, bool layer3 = true)
{
    IF_SELECTOR_S selector;
    memset(&selector, 0xee, sizeof(selector));
    EXPECT_EQ(IF_Select_Init(IF_SELECTOR_LAYER3, &selector), 0u);
    if (layer3) {
        EXPECT_EQ(IF_SelectProperty_Set(IF_PROPERTY_LAYER3, &selector), 0u);
    }
    for (uint32_t type : types) {
        EXPECT_EQ(IF_SelectType_Set(type, &selector), 0u);
    }
    return selector;
}

inline std::string fill(const IF_SELECTOR_S &selector, const char *text)
{
    char name[IF_FILLED_NAME_SIZE] = "untouched";
    if (IF_IfNameFill(&selector, text, IF_FILL_ABBREVIATED, name) != 0) {
        EXPECT_STREQ(name, "untouched");
        return "-";
    }
    return name;
}

inline std::string fill(const char *text)
{
    return fill(selector_of({LOOPBACK, VIRTUAL_ETHERNET}), text);
}

} // namespace host_test

#endif
