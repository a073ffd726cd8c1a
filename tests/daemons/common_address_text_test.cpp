#include <gtest/gtest.h>

#include "daemons/common/address_text.h"

using mcastd::parse_address;

TEST(AddressText, AddressesOfBothFamiliesAreRead)
{
    const auto ipv4 = parse_address("239.1.2.3");
    const auto ipv6 = parse_address("ff0e::1:2");
    ASSERT_TRUE(ipv4 && ipv6);
    EXPECT_EQ(ipv4->family, MCAST_FAMILY_IPV4);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(ipv4->address), 16),
              std::string("\xef\1\2\3", 4) + std::string(12, '\0'));
    EXPECT_EQ(ipv6->family, MCAST_FAMILY_IPV6);
    EXPECT_EQ(ipv6->address[1], 0x0e);
    EXPECT_EQ(ipv6->address[15], 2);
}

TEST(AddressText, WhatIsNoAddressAsAWholeIsNothing)
{
    for (const std::string &text :
         {std::string(), std::string("default"), std::string("239.1.2"), std::string("239.1.2.3 "),
          std::string("ff0e::g"), std::string("1.2.3.4\0", 8), std::string("ff0e::1\0x", 9)}) {
        EXPECT_FALSE(parse_address(text)) << text;
    }
}
