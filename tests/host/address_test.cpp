// Address records from text and back, and the version.
#include "mcasthost/address.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "mcasthost/version.h"

namespace
{

MCAST_ADDR_S record(uint16_t family, std::initializer_list<uint8_t> bytes)
{
    MCAST_ADDR_S result = {};
    result.family = family;
    std::copy(bytes.begin(), bytes.end(), result.address);
    return result;
}

bool same(const MCAST_ADDR_S &a, const MCAST_ADDR_S &b)
{
    return memcmp(&a, &b, sizeof(a)) == 0;
}

TEST(Address, StandsInTheRecordInNetworkOrderWithZerosBehind)
{
    MCAST_ADDR_S address;
    memset(&address, 0xff, sizeof(address));
    ASSERT_EQ(HOST_AddressFromText("239.1.2.3", &address), 0u);
    EXPECT_TRUE(same(address, record(MCAST_FAMILY_IPV4, {239, 1, 2, 3})));
    memset(&address, 0xff, sizeof(address));
    ASSERT_EQ(HOST_AddressFromText("ff3e::1:2", &address), 0u);
    EXPECT_TRUE(
        same(address, record(MCAST_FAMILY_IPV6, {0xff, 0x3e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2})));
}

TEST(Address, LeavesTheRecordAloneWhenTheTextIsNoAddress)
{
    const MCAST_ADDR_S before = record(MCAST_FAMILY_IPV4, {1, 2, 3, 4});
    MCAST_ADDR_S address = before;
    for (const char *text : {"", "default", "239.1.2", "239.1.2.3.4", "239.1.2.256", " 239.1.2.3",
                             "239.1.2.3/24", "fe80::1%lo", "ff3e::g", "ff3e:::1"}) {
        EXPECT_EQ(HOST_AddressFromText(text, &address), HOST_FAILED) << text;
        EXPECT_TRUE(same(address, before)) << text;
    }
    EXPECT_EQ(HOST_AddressFromText(nullptr, &address), HOST_FAILED);
    EXPECT_EQ(HOST_AddressFromText("239.1.2.3", nullptr), HOST_FAILED);
}

TEST(Address, OfARangeKeepsTheBitsBeyondItsLength)
{
    MCAST_ADDR_S address;
    uint32_t length = 0;
    ASSERT_EQ(HOST_PrefixFromText("239.1.2.3/16", &address, &length), 0u);
    EXPECT_TRUE(same(address, record(MCAST_FAMILY_IPV4, {239, 1, 2, 3})));
    EXPECT_EQ(length, 16u);
    ASSERT_EQ(HOST_PrefixFromText("0.0.0.0/0", &address, &length), 0u);
    EXPECT_EQ(length, 0u);
    ASSERT_EQ(HOST_PrefixFromText("239.1.2.3", &address, &length), 0u);
    EXPECT_EQ(length, 32u);
    ASSERT_EQ(HOST_PrefixFromText("ff3e::/128", &address, &length), 0u);
    EXPECT_EQ(length, 128u);
    ASSERT_EQ(HOST_PrefixFromText("ff3e::", &address, &length), 0u);
    EXPECT_EQ(length, 128u);
}

TEST(Address, OfARangeIsRefusedWithEverythingUntouched)
{
    const MCAST_ADDR_S before = record(MCAST_FAMILY_IPV4, {1, 2, 3, 4});
    MCAST_ADDR_S address = before;
    uint32_t length = 99;
    for (const char *text :
         {"239.1.2.3/", "239.1.2.3/33", "239.1.2.3/-1", "239.1.2.3/+1", "239.1.2.3/1 ", "/8", "ff3e::/129",
          "239.1.2.3/0016", "239.1.2.3/16/16", "ff3e:0000:0000:0000:0000:0000:0000:0000:0000:0000:0000/8"}) {
        EXPECT_EQ(HOST_PrefixFromText(text, &address, &length), HOST_FAILED) << text;
        EXPECT_TRUE(same(address, before)) << text;
        EXPECT_EQ(length, 99u) << text;
    }
    EXPECT_EQ(HOST_PrefixFromText(nullptr, &address, &length), HOST_FAILED);
    EXPECT_EQ(HOST_PrefixFromText("239.1.2.3/8", nullptr, &length), HOST_FAILED);
    EXPECT_EQ(HOST_PrefixFromText("239.1.2.3/8", &address, nullptr), HOST_FAILED);
}

TEST(Address, IsWrittenAsItIsRead)
{
    char text[HOST_ADDRESS_TEXT_SIZE];
    for (const char *written :
         {"0.0.0.0", "239.255.255.255", "::", "ff3e::1:2", "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255"}) {
        MCAST_ADDR_S address;
        MCAST_ADDR_S again;
        ASSERT_EQ(HOST_AddressFromText(written, &address), 0u) << written;
        ASSERT_EQ(HOST_AddressFromText(HOST_AddressToText(&address, text), &again), 0u) << text;
        EXPECT_TRUE(same(address, again)) << written;
    }
    const MCAST_ADDR_S unknown = record(7, {1, 2, 3, 4});
    EXPECT_STREQ(HOST_AddressToText(&unknown, text), "unknown address");
}

TEST(Version, IsThatOfTheHeaders)
{
    EXPECT_EQ(HOST_Version(), MCAST_VERSION);
    EXPECT_EQ(std::to_string(MCAST_VERSION >> 16) + "." + std::to_string(MCAST_VERSION >> 8 & 0xff) + "." +
                  std::to_string(MCAST_VERSION & 0xff),
              MCAST_VERSION_TEXT);
    EXPECT_LT(MCAST_VERSION_NUMBER(1, 2, 200), MCAST_VERSION_NUMBER(1, 3, 0));
    EXPECT_LT(MCAST_VERSION_NUMBER(1, 200, 3), MCAST_VERSION_NUMBER(2, 0, 0));
}

} // namespace
