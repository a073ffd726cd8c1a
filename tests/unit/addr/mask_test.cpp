#include <gtest/gtest.h>
#include <random>

#include "mcast/addr.h"

namespace
{

/* All ones shifted out of the bottom one by one: the only network masks there are. */
bool IsOneOfThirtyThree(uint32_t mask)
{
    for (uint32_t candidate = 0xffffffff; candidate != 0; candidate <<= 1) {
        if (mask == candidate) {
            return true;
        }
    }
    return mask == 0;
}

/* The length found by halving steps. */
uint32_t LengthByBisection(uint32_t mask)
{
    uint32_t length = 0;
    if (mask == 0) {
        return 0;
    }
    for (uint32_t step = 16; step > 0; step /= 2) {
        if (mask << step != 0) {
            length += step;
            mask <<= step;
        }
    }
    return length + 1;
}

TEST(NetworkMask, AcceptsEveryPrefixLengthAsAPlainMask)
{
    for (int value : {0, 2, 257, 65535}) {
        uint16_t kind = static_cast<uint16_t>(value);

        EXPECT_EQ(MCAST_IsNetworkMask(0, kind), 1u) << kind;
        for (uint32_t length = 1; length <= 32; ++length) {
            EXPECT_EQ(MCAST_IsNetworkMask(0xffffffffu << (32 - length), kind), 1u) << length;
        }
    }
}

TEST(NetworkMask, WantsAtLeastFourBitsOfAGroupMask)
{
    EXPECT_EQ(MCAST_IsNetworkMask(0, MCAST_MASK_KIND_GROUP), 0u);
    EXPECT_EQ(MCAST_IsNetworkMask(0xe0000000, MCAST_MASK_KIND_GROUP), 0u);
    EXPECT_EQ(MCAST_IsNetworkMask(0xefffffff, MCAST_MASK_KIND_GROUP), 0u);
    EXPECT_EQ(MCAST_IsNetworkMask(0xf0000000, MCAST_MASK_KIND_GROUP), 1u);
    EXPECT_EQ(MCAST_IsNetworkMask(0xf8000000, MCAST_MASK_KIND_GROUP), 1u);
    EXPECT_EQ(MCAST_IsNetworkMask(0xffffffff, MCAST_MASK_KIND_GROUP), 1u);
    EXPECT_EQ(MCAST_IsNetworkMask(0xf0000001, MCAST_MASK_KIND_GROUP), 0u);
}

TEST(NetworkMask, RejectsHoles)
{
    for (uint32_t mask : {1u, 0x7fffffffu, 0xff00ff00u, 0xfffffffdu, 0x80000001u, 0xbfffffffu}) {
        EXPECT_EQ(MCAST_IsNetworkMask(mask, 0), 0u) << std::hex << mask;
        EXPECT_EQ(MCAST_MaskIsContinous(mask), 0u) << std::hex << mask;
    }
}

TEST(NetworkMask, IsOneOfThirtyThreeMasks)
{
    std::mt19937 random(1);

    for (int i = 0; i < 20000; ++i) {
        uint32_t mask = i % 2 != 0 ? static_cast<uint32_t>(random()) : 0xffffffffu << random() % 32;

        mask ^= i % 4 == 0 ? 1u << random() % 32 : 0;
        EXPECT_EQ(MCAST_IsNetworkMask(mask, 0), IsOneOfThirtyThree(mask)) << std::hex << mask;
        EXPECT_EQ(MCAST_MaskIsContinous(mask), IsOneOfThirtyThree(mask)) << std::hex << mask;
    }
    EXPECT_EQ(MCAST_MaskIsContinous(0), 1u);
    EXPECT_EQ(MCAST_MaskIsContinous(0xffffffff), 1u);
}

TEST(MaskLength, IsThePrefixLengthOfAContiguousMask)
{
    EXPECT_EQ(MCAST_Mask2MaskLen(0), 0u);
    for (uint32_t length = 1; length <= 32; ++length) {
        EXPECT_EQ(MCAST_Mask2MaskLen(0xffffffffu << (32 - length)), length);
    }
}

TEST(MaskLength, IsThePlaceOfTheLowestOneOfAMaskWithHoles)
{
    EXPECT_EQ(MCAST_Mask2MaskLen(0xff00ff00), 24u);
    EXPECT_EQ(MCAST_Mask2MaskLen(0x00000001), 32u);
    EXPECT_EQ(MCAST_Mask2MaskLen(0x40000000), 2u);
    EXPECT_EQ(MCAST_Mask2MaskLen(0x80000000), 1u);
}

TEST(MaskLength, AgreesWithTheBisectionForAnyMask)
{
    std::mt19937 random(2);

    for (int i = 0; i < 20000; ++i) {
        uint32_t mask = static_cast<uint32_t>(random()) << random() % 32;

        EXPECT_EQ(MCAST_Mask2MaskLen(mask), LengthByBisection(mask)) << std::hex << mask;
    }
}

} // namespace
