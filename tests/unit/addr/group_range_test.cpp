#include <gtest/gtest.h>

#include "mcast/argument_check.h"
#include "support/addresses.h"

namespace
{

MCAST_BOOL Check(const char *group, uint8_t length)
{
    MCAST_ADDR_S addr = Addr(group);
    return MCAST_GrpRangeCheck(&addr, length);
}

TEST(GroupRange, Ipv4StaysOutOfTheLinkLocalBlock)
{
    EXPECT_EQ(Check("224.0.0.0", 24), 0u);
    EXPECT_EQ(Check("224.0.0.0", 23), 1u);
    EXPECT_EQ(Check("224.0.0.0", 4), 1u);
    EXPECT_EQ(Check("224.0.0.255", 32), 0u);
    EXPECT_EQ(Check("224.0.0.5", 255), 0u);
    EXPECT_EQ(Check("224.0.0.5", 0), 1u);
    EXPECT_EQ(Check("224.0.1.0", 24), 1u);
    EXPECT_EQ(Check("225.0.0.0", 32), 1u);
    EXPECT_EQ(Check("239.255.255.255", 32), 1u);
}

TEST(GroupRange, Ipv4IsMulticast)
{
    for (const char *group : {"223.255.255.255", "240.0.0.0", "0.0.0.0", "255.0.0.0"}) {
        EXPECT_EQ(Check(group, 4), 0u) << group;
        EXPECT_EQ(Check(group, 32), 0u) << group;
    }
}

TEST(GroupRange, Ipv6ScopeCountsOnceThePrefixReachesIntoIt)
{
    for (unsigned scope = 0; scope < 16; ++scope) {
        for (unsigned flags : {0u, 0x10u, 0x30u, 0xf0u}) {
            MCAST_ADDR_S group = Addr("ff00::");

            group.address[1] = static_cast<uint8_t>(flags | scope);
            for (unsigned length = 0; length <= 255; ++length) {
                bool expected = length <= 14 || (length == 15 ? scope >= 2 : scope >= 3);

                ASSERT_EQ(MCAST_GrpRangeCheck(&group, static_cast<uint8_t>(length)), expected ? 1u : 0u)
                    << scope << " " << length;
            }
        }
    }
    EXPECT_EQ(Check("ff02::", 16), 0u);
    EXPECT_EQ(Check("ff02::", 8), 1u);
    EXPECT_EQ(Check("ff0e::", 16), 1u);
}

TEST(GroupRange, Ipv6IsMulticast)
{
    for (const char *group : {"fe0e::", "2001::", "::", "e000::"}) {
        EXPECT_EQ(Check(group, 8), 0u) << group;
        EXPECT_EQ(Check(group, 64), 0u) << group;
    }
}

TEST(GroupRange, UnknownFamilyHasNoScope)
{
    MCAST_ADDR_S group = Addr("ff00::");
    group.family = 77;
    EXPECT_EQ(MCAST_GrpRangeCheck(&group, 16), 1u);
    EXPECT_EQ(MCAST_GrpRangeCheck(&group, 128), 1u);
    group.address[0] = 0xe0;
    EXPECT_EQ(MCAST_GrpRangeCheck(&group, 8), 0u);
}

} // namespace
