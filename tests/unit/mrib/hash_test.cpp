#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

/*
 * The expected values were worked out apart from the code. The shortest can be followed on paper: for IPv4
 * zero addresses the hash is two steps x * 1103515245 + 12345 from 0, that is 12345, then 1406932606.
 */

const MCAST_ADDR_S kSource6 = Ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3});
const MCAST_ADDR_S kGroup6 = Ipv6({0xff, 0x05, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xab, 0xcd});
const MCAST_ADDR_S kSource4 = Ipv4(10, 0, 0, 1);
const MCAST_ADDR_S kGroup4 = Ipv4(239, 1, 2, 3);

TEST(Hash, OfIpv4GroupsDoesNotDependOnTheKey)
{
    const MCAST_ADDR_S zero = Ipv4(0, 0, 0, 0);
    for (uint32_t key : {0u, 1u, 77u, 0xffffffffu}) {
        EXPECT_EQ(MRIB_GMP_GetHashVal(key, &zero, &zero), 1406932606u);
        EXPECT_EQ(MRIB_GMP_GetHashVal(key, &kSource4, &kGroup4), 1378354726u);
    }
}

TEST(Hash, OfIpv6AddressesMixesKeyAndAllWords)
{
    const MCAST_ADDR_S zero = Ipv6({});
    EXPECT_EQ(MRIB_GMP_GetHashVal(0, &zero, &zero), 1449466924u);
    EXPECT_EQ(MRIB_GMP_GetHashVal(0, &kSource6, &kGroup6), 1596653409u);
    EXPECT_EQ(MRIB_GMP_GetHashVal(1, &kSource6, &kGroup6), 1530306464u);
    EXPECT_EQ(MRIB_GMP_GetHashVal(77, &kSource6, &kGroup6), 310368564u);
    EXPECT_EQ(MRIB_GMP_GetHashVal(0xffffffff, &kSource6, &kGroup6), 738314894u);
}

TEST(Hash, OfAnIpv4AddressBesideAnIpv6GroupUsesItsLastWord)
{
    MCAST_ADDR_S odd = kSource4;
    EXPECT_EQ(MRIB_GMP_GetHashVal(5, &kSource4, &kGroup6), 1140910132u);
    odd.address[0] = 99;
    EXPECT_EQ(MRIB_GMP_GetHashVal(5, &odd, &kGroup6), 1140910132u) << "the address itself does not count";
    odd = kSource4;
    for (uint8_t i = 12; i < 16; ++i) {
        odd.address[i] = static_cast<uint8_t>(i - 11);
    }
    EXPECT_EQ(MRIB_GMP_GetHashVal(5, &odd, &kGroup6), 1612867456u);
}

TEST(Hash, OfAnIpv6AddressBesideAnIpv4GroupUsesItsFirstWord)
{
    EXPECT_EQ(MRIB_GMP_GetHashVal(5, &kSource6, &kGroup4), 66318353u);
}

} // namespace
} // namespace mrib_test
