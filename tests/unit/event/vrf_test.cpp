#include <gtest/gtest.h>

#include "mcast/service.h"
#include "support/scripted_resource.h"

namespace
{

class Vrf : public testing::Test
{
protected:
    void TearDown() override
    {
        scripted::ResetResource();
    }
};

TEST_F(Vrf, OfAnInterfaceIsThePlatformsAnswer)
{
    uint16_t vrf = 9;
    scripted::vpn_of_interface = [](uint32_t if_index, uint16_t *index) {
        *index = if_index == 0x80000001 ? 0xffff : 0;
        return 0u;
    };
    EXPECT_EQ(MCAST_GetVrfIndexByIfIndex(0x80000001, &vrf), MCAST_OK);
    EXPECT_EQ(vrf, 0xffffu);
    EXPECT_EQ(MCAST_GetVrfIndexByIfIndex(2, &vrf), MCAST_OK);
    EXPECT_EQ(vrf, 0u);
}

TEST_F(Vrf, OfAnUnknownInterfaceFailsAndLeavesTheIndexAlone)
{
    uint16_t vrf = 9;
    scripted::vpn_of_interface = [](uint32_t, uint16_t *index) {
        *index = 4; /* even when the platform does not */
        return 0x22010001u;
    };
    EXPECT_EQ(MCAST_GetVrfIndexByIfIndex(1, &vrf), MCAST_ERR_GENERAL);
    EXPECT_EQ(vrf, 9u);
    EXPECT_EQ(MCAST_GetVrfIndexByIfIndex(1, nullptr), MCAST_ERR_GENERAL);
}

TEST_F(Vrf, ThePublicInstanceExistsUnasked)
{
    bool asked = false;
    scripted::vpn_name = [&](uint16_t, uint32_t, char *) {
        asked = true;
        return 1u;
    };
    EXPECT_EQ(MCAST_VrfIsExist(0), MCAST_TRUE);
    EXPECT_EQ(MCAST_VrfIsExist(0x10000), MCAST_TRUE);
    EXPECT_EQ(MCAST_VrfIsExist(0xffff0000), MCAST_TRUE);
    EXPECT_FALSE(asked);
}

TEST_F(Vrf, AnotherExistsWhenThePlatformCanNameIt)
{
    scripted::vpn_name = [](uint16_t index, uint32_t capacity, char *name) {
        EXPECT_EQ(capacity, 32u);
        for (uint32_t i = 0; i < capacity; ++i) {
            name[i] = 'x';
        }
        return index == 5 ? 0u : 0x22010001u;
    };
    EXPECT_EQ(MCAST_VrfIsExist(5), MCAST_TRUE);
    EXPECT_EQ(MCAST_VrfIsExist(0x70005), MCAST_TRUE);
    EXPECT_EQ(MCAST_VrfIsExist(6), MCAST_FALSE);
}

} // namespace
