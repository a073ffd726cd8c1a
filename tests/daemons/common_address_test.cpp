#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>

#include "daemons/common/address.h"

using namespace mcastd;

TEST(Address, TextOfBothFamiliesIsRead)
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

TEST(Address, TextThatIsNoAddressAsAWholeIsNothing)
{
    for (const std::string &text :
         {std::string(), std::string("default"), std::string("239.1.2"), std::string("239.1.2.3 "),
          std::string("ff0e::g"), std::string("1.2.3.4\0", 8), std::string("ff0e::1\0x", 9)}) {
        EXPECT_FALSE(parse_address(text)) << text;
    }
}

TEST(Address, IsMadeOfAsManyBytesAsItsFamilyHas)
{
    uint8_t bytes[16];
    std::fill(std::begin(bytes), std::end(bytes), uint8_t{0x11});
    EXPECT_EQ(to_text(make_address(MCAST_FAMILY_IPV4, bytes)), "17.17.17.17");
    EXPECT_TRUE(same_address(make_address(MCAST_FAMILY_IPV4, bytes), *parse_address("17.17.17.17")));
    EXPECT_EQ(to_text(make_address(MCAST_FAMILY_IPV6, bytes)), "1111:1111:1111:1111:1111:1111:1111:1111");
}

TEST(Address, OnlyTheUnspecifiedOneIsAStar)
{
    for (const uint16_t family : {uint16_t{MCAST_FAMILY_IPV4}, uint16_t{MCAST_FAMILY_IPV6}}) {
        EXPECT_TRUE(is_unspecified(any_address(family)));
        EXPECT_EQ(text_or_star(any_address(family)), "*");
    }
    EXPECT_FALSE(is_unspecified(*parse_address("0.0.0.1")));
    EXPECT_EQ(text_or_star(*parse_address("0.0.0.1")), "0.0.0.1");
    EXPECT_EQ(text_or_star(*parse_address("::1")), "::1");
    EXPECT_EQ(to_text(any_address(MCAST_FAMILY_IPV4)), "0.0.0.0");
}

TEST(Address, AreOrderedAsNumbers)
{
    const MCAST_ADDR_S low = *parse_address("10.0.0.255");
    const MCAST_ADDR_S high = *parse_address("10.0.1.0");
    EXPECT_TRUE(address_less(low, high));
    EXPECT_FALSE(address_less(high, low));
    EXPECT_FALSE(address_less(low, low));
    EXPECT_LT(compare_address(low, high), 0);
    EXPECT_GT(compare_address(high, low), 0);
    EXPECT_FALSE(same_address(low, high));
}

TEST(Address, SharesAPrefixUpToTheFirstBitThatDiffers)
{
    const MCAST_ADDR_S first = *parse_address("10.1.0.0");
    const MCAST_ADDR_S second = *parse_address("10.1.16.0");
    for (unsigned bits = 0; bits <= 32; ++bits) {
        EXPECT_EQ(shares_prefix(first, second, bits), bits <= 19) << bits;
        EXPECT_TRUE(shares_prefix(first, first, bits)) << bits;
    }
    EXPECT_TRUE(shares_prefix(*parse_address("ff0e::1"), *parse_address("ff0e::1"), 128));
    EXPECT_FALSE(shares_prefix(*parse_address("ff0e::1"), *parse_address("ff0e::"), 128));
    EXPECT_TRUE(shares_prefix(*parse_address("ff0e::1"), *parse_address("ff0e::"), 127));
}
